// Shared set-up of the virtual board tests: the registers they use, and a
// board with the generated design bound through the runtime.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "fg_api.h"
#include "hap_runtime.h"
#include "pelagon_errors.h"
#include "quor_io.h"
#include "design_rows.h"
#include "vboard/vboard.h"

namespace vboard_test {

// Registers the tests use, by their place in the design.
inline const char* const kImageWidth = "Device1_Process0_CameraSimulator_Size_ImageWidth";  // U 13
inline const char* const kRedLut = "Device1_Process0_LookupTable_R_LUTcontent";            // U 12 x 4096
inline const char* const kGreenCoefficient = "Device1_Process0_Bayer_White_GreenCoefficient";  // D 12.10
inline const char* const kFillLevel = "Device1_Process0_Buffer_0_DRAM_A_0_FillLevel";        // U 7, RO
inline const char* const kFpgaDna = "Device1_Process0_BoardStatus_FpgaDNA";                   // U 57, RO
inline const char* const kChannelCurrent = "Device1_Process0_BoardStatus_ChannelCurrent";    // D 64 x 4, RO
inline const char* const kAppletUid = "Device1_Process0_AppletProperties_AppletUid";         // S 512, RO
inline const char* const kBuildTime = "Device1_Process0_AppletProperties_BuildTime";

class BoardTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(designImage().empty()) << "design image missing: " << PELAGON_DESIGN_IMAGE_PATH;
        board = vboard::createBoard();
        design = HapLoadDesignFromBuffer(designImage().data(), designImage().size(), 1);
        ASSERT_NE(design, nullptr);
        fg = Fg_InitHandleSlaveAware("Pelagon.hap", board, design, 0);
        ASSERT_NE(fg, nullptr);
    }

    void TearDown() override {
        Fg_FreeGrabber(fg);
        HapUnloadHapFile(design);
        vboard::destroyBoard(board);
    }

    int id(const char* name) { return Fg_getParameterIdByName(fg, name); }
    int number(const char* name) { return HapGetRegisterByName(design, name); }
    unsigned raw(const char* name) { return static_cast<unsigned>(number(name)); }  // for the raw path

    template <typename T>
    int set(const char* name, T value, FgParamTypes type) {
        return Fg_setParameterWithType(fg, id(name), &value, 0, type);
    }
    template <typename T>
    int get(const char* name, T& value, FgParamTypes type) {
        return Fg_getParameterWithType(fg, id(name), &value, 0, type);
    }
    int setU(const char* name, uint32_t value) { return set(name, value, FG_PARAM_TYPE_UINT32_T); }

    ZUdevice* board = nullptr;
    fpga_design* design = nullptr;
    Fg_Struct* fg = nullptr;
};

}  // namespace vboard_test
