// The catalogue as the fuzz targets need it: its parameter rows (shared with
// the applet tests) and the values of its enumeration symbols.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "applet/CatalogueRows.h"

inline const std::vector<CatalogueRow>& fuzzParameters() {
    static const std::vector<CatalogueRow> rows = catalogueRows();
    return rows;
}

// The id of a parameter named in a target's own source; a typo ends the run.
inline int fuzzParameterId(std::string_view name) {
    for (const CatalogueRow& p : fuzzParameters())
        if (name == p.name) return p.id;
    std::abort();
}

inline uint32_t fuzzSymbolValue(std::string_view symbol) {
    struct Symbol {
        const char* symbol;
        uint32_t value;
    };
    static constexpr Symbol kSymbols[] = {
#define PELAGON_ENUM_ROW(table, display, value, SYMBOL) {#SYMBOL, static_cast<uint32_t>(value)},
#include "catalogue.def"
    };
    for (const Symbol& s : kSymbols)
        if (symbol == s.symbol) return s.value;
    std::abort();
}
