// What each runtime library exports: its interface functions and nothing
// else, and the variants without the functions they are meant to lack.
#include <dlfcn.h>

#include <cstdio>
#include <set>

#include "vboard_fixture.h"

namespace {

std::set<std::string> definedFunctions(const std::string& library) {
    std::set<std::string> names;
    std::string command = "nm -D --defined-only '" + library + "' 2>/dev/null";
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe)
        return names;
    char line[512];
    while (std::fgets(line, sizeof line, pipe)) {
        char type = 0;
        char name[400] = {};
        if (std::sscanf(line, "%*s %c %399s", &type, name) == 2 && type == 'T')
            names.insert(name);
    }
    pclose(pipe);
    return names;
}

const std::set<std::string> kFglib = {
    "Fg_InitHandleSlaveAware", "Fg_InitHandle", "Fg_FreeGrabber", "Fg_getParameterIdByName",
    "Fg_setParameterWithType", "Fg_getParameterWithType", "Fg_setParameter", "Fg_getParameter",
    "Fg_saveConfig", "Fg_loadConfig", "Fg_Acquire", "Fg_stopAcquire", "Fg_getLastErrorNumber",
    "Fg_getAppletId", "Fg_AcquireEx", "Fg_stopAcquireEx", "Fg_getStatusEx", "Fg_getLastPicNumberEx",
    "Fg_getLastPicNumberBlockingEx", "Fg_getParameterInfo", "Fg_AllocShading", "Fg_FreeShading",
    "Shad_SetSubValueLine", "Shad_SetMultValueLine", "Shad_SetFixedPatternNoiseLine", "Shad_GetMaxLine",
    "Shad_GetAccess", "Shad_FreeAccess", "Shad_WriteActLine"};

std::set<std::string> without(std::set<std::string> all, const std::set<std::string>& missing) {
    for (const std::string& name : missing)
        all.erase(name);
    return all;
}

const std::string kLib = PELAGON_LIB_DIR_PATH;
const std::string kVariants = PELAGON_VARIANT_DIR_PATH;

}  // namespace

TEST(VBoardExports, EachLibraryExportsExactlyItsInterface) {
    EXPECT_EQ(definedFunctions(kLib + "/libfglib5.so"), kFglib);
    EXPECT_EQ(definedFunctions(kLib + "/libhaprt.so"),
              (std::set<std::string>{"HapLoadDesignFromBuffer", "HapLoadHapFileWithType", "HapUnloadHapFile",
                                     "HapGetNrOfRegister", "HapGetRegisterName", "HapGetRegisterByName",
                                     "HapGetRegisterBitRange", "HapGetEvent"}));
    EXPECT_EQ(definedFunctions(kLib + "/libquoriolibrt.so"),
              (std::set<std::string>{"QuorRegisterRead", "QuorRegisterWrite"}));
    EXPECT_EQ(definedFunctions(kLib + "/libquor_hw.so"),
              (std::set<std::string>{"QuorHwGetBoardCount", "QuorHwGetVersion"}));
}

TEST(VBoardExports, VariantsLackTheirFunctions) {
    EXPECT_EQ(definedFunctions(kVariants + "/bare/libfglib5.so"),
              without(kFglib, {"Fg_InitHandleSlaveAware", "Fg_InitHandle"}));
    EXPECT_EQ(definedFunctions(kVariants + "/legacy/libfglib5.so"),
              without(kFglib, {"Fg_InitHandleSlaveAware", "Fg_getLastErrorNumber", "Fg_getAppletId",
                               "Fg_AcquireEx", "Fg_stopAcquireEx", "Fg_getStatusEx", "Fg_getLastPicNumberEx",
                               "Fg_getLastPicNumberBlockingEx", "Fg_getParameterInfo", "Fg_AllocShading",
                               "Fg_FreeShading", "Shad_SetSubValueLine", "Shad_SetMultValueLine",
                               "Shad_SetFixedPatternNoiseLine", "Shad_GetMaxLine", "Shad_GetAccess",
                               "Shad_FreeAccess", "Shad_WriteActLine"}));
}

// The legacy runtime still drives the shared board: its init binds the
// design and its parameter calls reach the same registers.
TEST(VBoardExports, LegacyVariantWorksOnTheSharedBoard) {
    void* legacy = dlopen((kVariants + "/legacy/libfglib5.so").c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(legacy, nullptr) << dlerror();
    auto init = reinterpret_cast<Fg_InitHandle_t>(dlsym(legacy, "Fg_InitHandle"));
    auto setParameter = reinterpret_cast<Fg_setParameter_t>(dlsym(legacy, "Fg_setParameter"));
    auto freeGrabber = reinterpret_cast<Fg_FreeGrabber_t>(dlsym(legacy, "Fg_FreeGrabber"));
    ASSERT_TRUE(init && setParameter && freeGrabber);

    ZUdevice* board = vboard::createBoard();
    const std::string& image = vboard_test::designImage();
    fpga_design* design = HapLoadDesignFromBuffer(image.data(), image.size(), 1);
    Fg_Struct* fg = init("Pelagon.hap", board, design);
    ASSERT_NE(fg, nullptr);
    uint32_t width = 512;
    const int id = vboard::kRegisterIdBase + HapGetRegisterByName(design, vboard_test::kImageWidth);
    EXPECT_EQ(setParameter(fg, id, &width, 0), 0);
    EXPECT_EQ(vboard::peek(board, vboard_test::kImageWidth), 512u);
    EXPECT_EQ(freeGrabber(fg), 0);
    HapUnloadHapFile(design);
    vboard::destroyBoard(board);
    dlclose(legacy);
}

// The application side's library shows its API and nothing else (no
// standard library templates, no runtime functions).
TEST(VBoardExports, TheGrabberLibraryExportsOnlyItsApi) {
    FILE* pipe = popen(("nm -D --defined-only -C '" + kLib + "/libpelagon_grabber.so' 2>/dev/null").c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    char line[2048];
    int count = 0;
    while (std::fgets(line, sizeof line, pipe)) {
        const std::string text(line);
        ++count;
        EXPECT_NE(text.find(" vboard::"), std::string::npos) << text;
    }
    pclose(pipe);
    EXPECT_GT(count, 10);
}
