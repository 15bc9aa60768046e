// The rows of the design description, for tests that walk every register.
#pragma once

#include <string>
#include <vector>

struct DesignRegister {
    int number;  // register number, from 1 in table order
    std::string name;
    char kind;  // 'U', 'D' or 'S'
    int width;
    int frac;
    int count;
    bool writable;
};

inline std::vector<DesignRegister> designRegisters() {
    std::vector<DesignRegister> rows;
#define PELAGON_REGISTER(block, entry, kind, width, frac, count, access)                                   \
    rows.push_back({static_cast<int>(rows.size()) + 1, "Device1_" #block "_" #entry, #kind[0], width, frac, count, \
                    std::string(#access) == "RW"});
#include "pelagon_design.def"
#undef PELAGON_REGISTER
    return rows;
}
