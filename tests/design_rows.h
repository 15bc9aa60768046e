// The rows of the design description, for tests that walk every register,
// and the design image generated from it.
#pragma once

#include <fstream>
#include <sstream>
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
    return rows;
}

#ifdef PELAGON_DESIGN_IMAGE_PATH
inline const std::string& designImage() {
    static const std::string image = [] {
        std::ostringstream content;
        content << std::ifstream(PELAGON_DESIGN_IMAGE_PATH, std::ios::binary).rdbuf();
        return std::move(content).str();
    }();
    return image;
}
#endif
