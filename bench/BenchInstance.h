// An applet instance bound to a fresh virtual board, set up the way Std_entry
// sets it up (runtime bound, design handed over, maps, register ids and the
// registry built), for benchmarks that call the instance directly.
#pragma once

#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <vector>

#include "FgZuWrapperImpl.h"
#include "hap_runtime.h"
#include "vboard/vboard.h"

class BenchInstance {
public:
    BenchInstance() : board(vboard::createBoard()) {
        std::ifstream in(PELAGON_DESIGN_IMAGE_PATH, std::ios::binary);
        const std::vector<char> image{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
        if (image.empty()) throw std::runtime_error("design image missing: " PELAGON_DESIGN_IMAGE_PATH);
        fpga_design* design = HapLoadDesignFromBuffer(image.data(), image.size(), 1);
        if (!design) throw std::runtime_error("the design image does not load");
        wrapper = std::make_unique<FgZuWrapperImpl>();
        if (wrapper->initializeDllFunctions("libfglib5.so") != 0 ||
            wrapper->runFgInit("Pelagon.hap", board, design, 0) != 0)
            throw std::runtime_error("the virtual runtime refuses the design");
        wrapper->initHandles(board, design);
        wrapper->initInternalMaps();
        wrapper->retrieveIds();
        wrapper->createUserParameters();
    }
    ~BenchInstance() {
        if (wrapper->fglibFg()) wrapper->wrapperFg()->DLL_Fg_FreeGrabber(wrapper->fglibFg());
        wrapper.reset();
        vboard::destroyBoard(board);
    }
    BenchInstance(const BenchInstance&) = delete;
    BenchInstance& operator=(const BenchInstance&) = delete;

    ZUdevice* board;
    std::unique_ptr<FgZuWrapperImpl> wrapper;
};
