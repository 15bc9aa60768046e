// A virtual board with the Pelagon design loaded and an applet instance bound
// to it through the runtime, as Std_entry will set it up.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "FgZuWrapperImpl.h"
#include "design_rows.h"
#include "hap_runtime.h"
#include "vboard/vboard.h"

// The int error number that f throws, or 0 when it throws nothing.
template <typename F>
int thrownBy(F&& f) {
    try {
        f();
    } catch (int e) {
        return e;
    }
    return 0;
}

class DesignFixture : public ::testing::Test {
protected:
    void SetUp() override {
        board = vboard::createBoard();
        const std::string& image = designImage();
        ASSERT_FALSE(image.empty()) << "design image missing: " << PELAGON_DESIGN_IMAGE_PATH;
        design = HapLoadDesignFromBuffer(image.data(), image.size(), 1);
        ASSERT_NE(design, nullptr);
        wrapper = std::make_unique<FgZuWrapperImpl>();
        ASSERT_EQ(wrapper->initializeDllFunctions("libfglib5.so"), 0);
        ASSERT_EQ(wrapper->runFgInit("Pelagon.hap", board, design, 0), 0);
        wrapper->initHandles(board, design);  // the wrapper now owns the design
        wrapper->retrieveIds();
        vboard::clearJournal(board);
    }

    void TearDown() override {
        if (wrapper && wrapper->fglibFg()) wrapper->wrapperFg()->DLL_Fg_FreeGrabber(wrapper->fglibFg());
        wrapper.reset();
        if (board) vboard::destroyBoard(board);
    }

    ZUdevice* board = nullptr;
    fpga_design* design = nullptr;
    std::unique_ptr<FgZuWrapperImpl> wrapper;
};

// The same with the name maps and the parameter registry built, as setters
// that publish limits and access rights need them.
class InstanceFixture : public DesignFixture {
protected:
    void SetUp() override {
        DesignFixture::SetUp();
        wrapper->initInternalMaps();
        wrapper->createUserParameters();
        vboard::clearJournal(board);
    }
};
