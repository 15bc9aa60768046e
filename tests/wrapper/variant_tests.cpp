// Binding runtimes that lack functions. This executable does not link the
// runtime: each test (its own process under ctest) loads one variant first,
// which the wrapper's dlopen by name then finds.
#include <dlfcn.h>

#include <string>

#include "DesignFixture.h"
#include "pelagon_errors.h"

namespace {

// Loads the variant unless a runtime is already loaded in this process.
bool loadVariant(const char* variant) {
    const std::string path = std::string(PELAGON_VARIANT_DIR) + "/" + variant + "/libfglib5.so";
    void* loaded = dlopen("libfglib5.so", RTLD_NOW | RTLD_NOLOAD);
    void* wanted = dlopen(path.c_str(), RTLD_NOW | RTLD_GLOBAL);
    return wanted != nullptr && (loaded == nullptr || loaded == wanted);
}

#define REQUIRE_VARIANT(name) \
    if (!loadVariant(name)) GTEST_SKIP() << "another runtime is loaded; run each test in its own process (ctest)"

}  // namespace

TEST(RuntimeVariant, WithoutInitFunctionsTheDesignCannotBeHandedOver) {
    REQUIRE_VARIANT("bare");
    ZUdevice* board = vboard::createBoard();
    FgZuWrapperImpl w;
    ASSERT_EQ(w.initializeDllFunctions("libfglib5.so"), 0);
    EXPECT_EQ(w.runFgInit("Pelagon.hap", board, nullptr, 0), PGN_ERR_RUNTIME_UNAVAILABLE);
    EXPECT_EQ(w.Fg_getLastErrorNumber(), PGN_ERR_RUNTIME_UNAVAILABLE);
    vboard::destroyBoard(board);
}

TEST(RuntimeVariant, LegacyRuntimeBindsWhatItHasAndInitialisesThroughThePlainInit) {
    REQUIRE_VARIANT("legacy");
    ZUdevice* board = vboard::createBoard();
    const std::string& image = designImage();
    fpga_design* design = HapLoadDesignFromBuffer(image.data(), image.size(), 1);
    ASSERT_NE(design, nullptr);
    {
        FgZuWrapperImpl w;
        ASSERT_EQ(w.initializeDllFunctions("libfglib5.so"), 0);
        EXPECT_EQ(w.wrapperFg()->DLL_Fg_AcquireEx, nullptr);
        EXPECT_EQ(w.wrapperFg()->DLL_Fg_getLastErrorNumber, nullptr);
        EXPECT_NE(w.wrapperFg()->DLL_Fg_setParameterWithType, nullptr);
        ASSERT_EQ(w.runFgInit("Pelagon.hap", board, design, 0), 0);
        w.initHandles(board, design);
        EXPECT_NE(w.fglibFg(), nullptr);
        // The runtime cannot be asked for its last error.
        EXPECT_EQ(w.Fg_getLastErrorNumberZu(), PGN_ERR_READ_ONLY);
        EXPECT_EQ(w.getUnwrappedParameterInfo(), nullptr);
        w.retrieveIds();
        EXPECT_EQ(w.zu_id_Device1_Process0_Overflow_OverflowOccurred,
                  vboard::kRegisterIdBase + HapGetRegisterByName(design, "Device1_Process0_Overflow_OverflowOccurred"));
        // Its parameter calls reach the shared board's registers.
        const uint32_t width = 512;
        EXPECT_EQ(w.setUnwrappedParameter(w.zu_id_Device1_Process0_CameraSimulator_Size_ImageWidth, &width, 0), 0);
        EXPECT_EQ(vboard::peek(board, "Device1_Process0_CameraSimulator_Size_ImageWidth"), 512u);
        w.wrapperFg()->DLL_Fg_FreeGrabber(w.fglibFg());
    }
    vboard::destroyBoard(board);
}

TEST(RuntimeVariant, RefusalWithoutALastErrorFunctionIsReportedAsDesignNotLoaded) {
    REQUIRE_VARIANT("legacy");
    ZUdevice* board = vboard::createBoard();
    FgZuWrapperImpl w;
    ASSERT_EQ(w.initializeDllFunctions("libfglib5.so"), 0);
    vboard::failNextInit(-4711);
    EXPECT_EQ(w.runFgInit("Pelagon.hap", board, nullptr, 0), PGN_ERR_DESIGN_NOT_LOADED);
    vboard::destroyBoard(board);
}
