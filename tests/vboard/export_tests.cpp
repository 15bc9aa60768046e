// What each runtime library exports: its interface functions and nothing
// else, and the variants without the functions they are meant to lack (the
// legacy variant at work on the shared board is in the wrapper's variant tests).
#include <cstdio>
#include <set>

#include "vboard_fixture.h"

namespace {

// The lines `nm -D --defined-only <options>` prints for the library.
std::vector<std::string> definedSymbols(const std::string& library, const std::string& options = "") {
    std::vector<std::string> lines;
    FILE* pipe = popen(("nm -D --defined-only " + options + " '" + library + "' 2>/dev/null").c_str(), "r");
    char line[2048];
    while (pipe && std::fgets(line, sizeof line, pipe)) lines.emplace_back(line);
    if (pipe) pclose(pipe);
    return lines;
}

std::set<std::string> definedFunctions(const std::string& library) {
    std::set<std::string> names;
    for (const std::string& line : definedSymbols(library)) {
        char type = 0, name[400] = {};
        if (std::sscanf(line.c_str(), "%*s %c %399s", &type, name) == 2 && type == 'T') names.insert(name);
    }
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
    std::set<std::string> bare = kFglib;
    bare.erase("Fg_InitHandleSlaveAware");
    bare.erase("Fg_InitHandle");
    EXPECT_EQ(definedFunctions(kVariants + "/bare/libfglib5.so"), bare);
    // The legacy runtime has the plain init and parameter calls only.
    EXPECT_EQ(definedFunctions(kVariants + "/legacy/libfglib5.so"),
              (std::set<std::string>{"Fg_InitHandle", "Fg_FreeGrabber", "Fg_getParameterIdByName",
                                     "Fg_setParameterWithType", "Fg_getParameterWithType", "Fg_setParameter",
                                     "Fg_getParameter", "Fg_saveConfig", "Fg_loadConfig", "Fg_Acquire",
                                     "Fg_stopAcquire"}));
}

// The application side's library shows its API and nothing else (no
// standard library templates, no runtime functions).
TEST(VBoardExports, TheGrabberLibraryExportsOnlyItsApi) {
    const std::vector<std::string> lines = definedSymbols(kLib + "/libpelagon_grabber.so", "-C");
    for (const std::string& line : lines) EXPECT_NE(line.find(" vboard::"), std::string::npos) << line;
    EXPECT_GT(lines.size(), 10u);
}
