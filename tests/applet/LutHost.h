// Helpers for the tests of the lookup tables and the white balance: the ids
// involved, the three channels' registers and caches, and range records.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "AppletHost.h"
#include "pelagon_errors.h"

namespace lut {

enum Id : int {
    TYPE = 110017, CUSTOM_FILE = 300000, SAVE_FILE = 110021, GAIN = 300002, GAMMA = 300003, OFFSET = 300004,
    INVERT = 300005, IMPLEMENTATION = 300006, IN_BITS = 300007, OUT_BITS = 300008, RED = 300009, GREEN = 300010,
    BLUE = 300011, SCALE_RED = 13000, SCALE_GREEN = 13030, SCALE_BLUE = 13010,
};
constexpr uint32_t kProcessor = 3;
constexpr uint32_t kUserFile = 0;
constexpr uint32_t kSize = 4096;
constexpr int kChannels[] = {RED, GREEN, BLUE};
inline const std::string kRegisters[] = {"Device1_Process0_LookupTable_R_LUTcontent",
                                         "Device1_Process0_LookupTable_G_LUTcontent",
                                         "Device1_Process0_LookupTable_B_LUTcontent"};

using Table = std::vector<uint32_t>;

// A range record over `data`; the element type is stored as the plain
// integer a C caller may put there, whatever it is.
inline FieldParameterAccess range(void* data, uint32_t index, uint32_t count, int32_t vtype = FG_PARAM_TYPE_UINT32_T) {
    FieldParameterAccess access{};
    std::memcpy(&access.vtype, &vtype, sizeof vtype);
    access.index = index;
    access.count = count;
    access.p.p_uint32_t = static_cast<uint32_t*>(data);
    return access;
}

inline int setRange(AppletHost& host, int id, const FieldParameterAccess& access) {
    return host.api.Fg_setParameterWithType(host.fg, id, &access, 0, FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS);
}
inline int getRange(AppletHost& host, int id, FieldParameterAccess& access) {
    return host.api.Fg_getParameterWithType(host.fg, id, &access, 0, FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS);
}
inline int setText(AppletHost& host, int id, const std::string& text) {
    return host.api.Fg_setParameterWithType(host.fg, id, text.c_str(), 0, FG_PARAM_TYPE_CHAR_PTR);
}
inline std::string text(AppletHost& host, int id) {
    std::vector<char> buffer(4096, '\0');
    EXPECT_EQ(host.api.Fg_getParameterWithType(host.fg, id, buffer.data(), 0, FG_PARAM_TYPE_CHAR_PTR), 0);
    return buffer.data();
}

// What the hardware holds for channel c (0 red, 1 green, 2 blue).
inline Table registers(AppletHost& host, int c) {
    Table t(kSize);
    for (uint32_t i = 0; i < kSize; ++i) t[i] = static_cast<uint32_t>(vboard::peek(host.board, kRegisters[c], i));
    return t;
}

// What the applet reports for channel c.
inline Table cached(AppletHost& host, int c) {
    Table t(kSize, 0xDEADBEEF);
    FieldParameterAccess access = range(t.data(), 0, kSize);
    EXPECT_EQ(getRange(host, kChannels[c], access), 0);
    return t;
}

// Registers and caches of all three channels.
struct Snapshot {
    std::vector<Table> hardware, caches;
    bool operator==(const Snapshot&) const = default;
};
inline Snapshot snapshot(AppletHost& host) {
    Snapshot s;
    for (int c = 0; c < 3; ++c) {
        s.hardware.push_back(registers(host, c));
        s.caches.push_back(cached(host, c));
    }
    return s;
}

// Writes distinct tables to the three channels through the entry interface.
inline void writeDistinctTables(AppletHost& host) {
    for (int c = 0; c < 3; ++c) {
        Table t(kSize);
        for (uint32_t i = 0; i < kSize; ++i) t[i] = (i * (c + 3) + 11 * c) % kSize;
        ASSERT_EQ(setRange(host, kChannels[c], range(t.data(), 0, kSize)), 0);
    }
}

}  // namespace lut
