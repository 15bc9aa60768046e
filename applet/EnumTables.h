// The catalogue's vocabulary as C++ constants, generated from it: the value
// tables of the enumerated parameters (rows of display name, value, symbol
// in entry order), each symbol's value, and every parameter's id. Code that
// means a parameter or an entry names it here instead of writing its number.
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

}  // namespace pelagon::enums

// pelagon::symbol::AreaTriggerModes::ATM_GENERATOR and so on: the values as
// the unsigned caches hold them.
namespace pelagon::symbol {
#define PELAGON_ENUM_TABLE_BEGIN(table) namespace table {
#define PELAGON_ENUM_ROW(table, display, value, symbol) inline constexpr uint32_t symbol = value;
#define PELAGON_ENUM_TABLE_END(table) }
#include "catalogue.def"
#include "CatalogueUndef.h"
}  // namespace pelagon::symbol

// pelagon::id::FG_WIDTH and so on.
namespace pelagon::id {
#define PELAGON_PARAM_ID(index, pid, NAME, ...) inline constexpr int NAME = pid;
#define PELAGON_PARAM_UINT PELAGON_PARAM_ID
#define PELAGON_PARAM_UINT64 PELAGON_PARAM_ID
#define PELAGON_PARAM_DOUBLE PELAGON_PARAM_ID
#define PELAGON_PARAM_ENUM PELAGON_PARAM_ID
#define PELAGON_PARAM_STRING PELAGON_PARAM_ID
#define PELAGON_PARAM_UINTFIELD PELAGON_PARAM_ID
#define PELAGON_PARAM_DOUBLEFIELD PELAGON_PARAM_ID
#define PELAGON_RUNTIME_PARAM PELAGON_PARAM_ID
#include "catalogue.def"
#include "CatalogueUndef.h"
#undef PELAGON_PARAM_ID
}  // namespace pelagon::id

namespace pelagon::enums {

// True when `value` is one of the table's values.
template <size_t N>
constexpr bool contains(const Row (&table)[N], int64_t value) {
    for (const Row& row : table)
        if (row.value == value) return true;
    return false;
}

}  // namespace pelagon::enums
