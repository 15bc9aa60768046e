// The catalogue (catalogue.def) as C++: the value tables of the enumerated
// parameters and each symbol's value, one constexpr record per parameter
// with its named columns, every parameter's id, and the list of all records
// for code that walks them. Code that means a parameter, an entry or a limit
// names it here instead of writing its number.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <type_traits>

namespace pelagon {

namespace enums {

struct Row {
    const char* name;
    int32_t value;
    const char* symbol;
};

#define PELAGON_ENUM_TABLE_BEGIN(table) inline constexpr Row table[] = {
#define PELAGON_ENUM_ROW(table, display, value, symbol) {display, value, #symbol},
#define PELAGON_ENUM_TABLE_END(table) };
#include "catalogue.def"

// True when `value` is one of the table's values.
template <size_t N>
constexpr bool contains(const Row (&table)[N], int64_t value) {
    for (const Row& row : table)
        if (row.value == value) return true;
    return false;
}

}  // namespace enums

// symbol::AreaTriggerModes::ATM_GENERATOR and so on: the values as the
// unsigned caches hold them.
namespace symbol {
#define PELAGON_ENUM_TABLE_BEGIN(table) namespace table {
#define PELAGON_ENUM_ROW(table, display, value, symbol) inline constexpr uint32_t symbol = value;
#define PELAGON_ENUM_TABLE_END(table) }
#include "catalogue.def"
}  // namespace symbol

enum class Kind { Uint, Uint64, Double, Enum, String, UintField, DoubleField, Runtime };
// Where a client's read of a parameter is answered from.
enum class Read { Cache, Getter };

// One row of the catalogue. Limits and the power-on value are long double,
// which holds every 64-bit limit and every double exactly.
struct Param {
    Kind kind;
    const char* name;
    int index;
    int id;
    const char* display = "";
    int access = 0;
    int range = 0;
    long double minimum = 0, maximum = 0, step = 0;
    unsigned elements = 0;
    std::span<const enums::Row> entries = {};
    const char* extension = "";
    const char* unit = "";
    long double powerOn = 0;
    Read read = Read::Cache;
    const char* description = "";
};

// catalogue::FG_WIDTH and so on.
namespace catalogue {
using enum Read;
inline constexpr int ReadOnly = 1, ReadWrite = 3, Changeable = 7;
#define PELAGON_PARAM(NAME, KIND, ...) inline constexpr Param NAME{.kind = Kind::KIND, .name = #NAME, __VA_ARGS__};
#define PELAGON_RUNTIME_PARAM(NAME, ...) \
    inline constexpr Param NAME{.kind = Kind::Runtime, .name = #NAME, __VA_ARGS__, .access = ReadOnly};
#include "catalogue.def"
}  // namespace catalogue

// id::FG_WIDTH and so on.
namespace id {
#define PELAGON_PARAM(NAME, ...) inline constexpr int NAME = catalogue::NAME.id;
#define PELAGON_RUNTIME_PARAM PELAGON_PARAM
#include "catalogue.def"
}  // namespace id

// Every row, in the catalogue's order.
inline constexpr const Param* kCatalogue[] = {
#define PELAGON_PARAM(NAME, ...) &catalogue::NAME,
#define PELAGON_RUNTIME_PARAM PELAGON_PARAM
#include "catalogue.def"
};

// The cache of a parameter of kind K (N elements for fields), and the value
// it holds at power-on. (Array sizes of other kinds are never used, but an
// array type of size 0 may not even be named.)
template <Kind K, unsigned N, unsigned M = (N > 0 ? N : 1)>
using Cache = std::conditional_t<
    K == Kind::Uint64, uint64_t,
    std::conditional_t<
        K == Kind::Double, double,
        std::conditional_t<K == Kind::String, std::string,
                           std::conditional_t<K == Kind::UintField, uint32_t[M],
                                              std::conditional_t<K == Kind::DoubleField, double[M], uint32_t>>>>>;

template <const Param& P>
constexpr auto powerOn() {
    if constexpr (P.kind == Kind::String)
        return "";
    else if constexpr (P.kind == Kind::Double || P.kind == Kind::DoubleField)
        return static_cast<double>(P.powerOn);
    else if constexpr (P.kind == Kind::Uint64)
        return static_cast<uint64_t>(P.powerOn);
    else
        return static_cast<uint32_t>(P.powerOn);
}

}  // namespace pelagon
