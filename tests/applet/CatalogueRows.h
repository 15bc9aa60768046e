// The parameters of the catalogue as rows, for tests that walk all of them.
#pragma once

#include <vector>

#include "register_info.h"

enum class ParameterKind { UInt, UInt64, Double, String, UIntField, DoubleField, Runtime };

struct CatalogueRow {
    int id;
    const char* name;
    ParameterKind kind;
    bool writable;
};

inline std::vector<CatalogueRow> catalogueRows() {
    std::vector<CatalogueRow> rows;
#define PELAGON_CATALOGUE_ROW(kind, id, NAME, access) \
    rows.push_back({id, #NAME, ParameterKind::kind, ((access) & REG_ACCESS_WRITE) != 0});
#define PELAGON_PARAM_UINT(index, id, NAME, display, access, ...) PELAGON_CATALOGUE_ROW(UInt, id, NAME, access)
#define PELAGON_PARAM_ENUM(index, id, NAME, display, access, ...) PELAGON_CATALOGUE_ROW(UInt, id, NAME, access)
#define PELAGON_PARAM_UINT64(index, id, NAME, display, access, ...) PELAGON_CATALOGUE_ROW(UInt64, id, NAME, access)
#define PELAGON_PARAM_DOUBLE(index, id, NAME, display, access, ...) PELAGON_CATALOGUE_ROW(Double, id, NAME, access)
#define PELAGON_PARAM_STRING(index, id, NAME, display, access, ...) PELAGON_CATALOGUE_ROW(String, id, NAME, access)
#define PELAGON_PARAM_UINTFIELD(index, id, NAME, display, access, ...) \
    PELAGON_CATALOGUE_ROW(UIntField, id, NAME, access)
#define PELAGON_PARAM_DOUBLEFIELD(index, id, NAME, display, access, ...) \
    PELAGON_CATALOGUE_ROW(DoubleField, id, NAME, access)
#define PELAGON_RUNTIME_PARAM(index, id, NAME) PELAGON_CATALOGUE_ROW(Runtime, id, NAME, REG_ACCESS_READ)
#include "applet/catalogue.def"
#include "applet/CatalogueUndef.h"
#undef PELAGON_CATALOGUE_ROW
    return rows;
}
