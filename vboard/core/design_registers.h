// The design's registers as the emulation of its image path and trigger
// block names them: one enumerator per register of the design table, so a
// misspelt name does not compile, and the full names to resolve them against
// the design bound to a board.
#pragma once

#include <array>
#include <cstddef>

namespace vboard::reg {

enum Id : std::size_t {
#define PELAGON_REGISTER(block, entry, kind, width, frac, count, access) block##_##entry,
#include "pelagon_design.def"
    kCount
};

inline constexpr std::array<const char*, kCount> kNames = {
#define PELAGON_REGISTER(block, entry, kind, width, frac, count, access) "Device1_" #block "_" #entry,
#include "pelagon_design.def"
};

}  // namespace vboard::reg
