// The value tables of the enumerated parameters, generated from the
// catalogue: rows of (display name, value, symbolic name) in entry order.
#pragma once

#include <cstddef>
#include <cstdint>

namespace pelagon::enums {

struct Row {
    const char* name;
    int32_t value;
    const char* symbol;
};

#define PELAGON_ENUM_TABLE_BEGIN(table) inline constexpr Row table[] = {
#define PELAGON_ENUM_ROW(table, display, value, symbol) {display, value, #symbol},
#define PELAGON_ENUM_TABLE_END(table) };
#include "catalogue.def"
#include "CatalogueUndef.h"

// True when `value` is one of the table's values.
template <size_t N>
constexpr bool contains(const Row (&table)[N], int64_t value) {
    for (const Row& row : table)
        if (row.value == value) return true;
    return false;
}

}  // namespace pelagon::enums
