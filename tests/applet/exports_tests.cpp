// The exported functions: handle checks, the forwarders to the runtime, and
// the library's dynamic interface.
#include <cstdio>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "BoundaryHelpers.h"
#include "pelagon_errors.h"

using boundary::lastError;

namespace {

const AppletApi& api() { return AppletApi::get(); }

// The output lines of a tool run on the applet library.
std::vector<std::string> runOnLibrary(const std::string& tool) {
    const std::string command = tool + " '" + PELAGON_APPLET_PATH + "'";
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::vector<std::string> lines;
    char buffer[512];
    while (pipe && std::fgets(buffer, sizeof buffer, pipe.get())) {
        std::string line(buffer);
        if (!line.empty() && line.back() == '\n') line.pop_back();
        lines.push_back(line);
    }
    return lines;
}

// Every export that takes the runtime's handle, called with `fg`.
void expectNoInstance(Fg_Struct* fg) {
    const AppletApi& a = api();
    uint32_t value = 0;
    char text[16] = {};
    size_t size = sizeof text;
    ShadingMaster* shading = nullptr;
    EXPECT_EQ(a.Fg_setParameterWithType(fg, 100, &value, 0, FG_PARAM_TYPE_UINT32_T), PGN_ERR_NO_INSTANCE);
    EXPECT_EQ(a.Fg_getParameterWithType(fg, 100, &value, 0, FG_PARAM_TYPE_UINT32_T), PGN_ERR_NO_INSTANCE);
    EXPECT_EQ(a.Fg_setParameter(fg, 100, &value, 0), PGN_ERR_NO_INSTANCE);
    EXPECT_EQ(a.Fg_getParameter(fg, 100, &value, 0), PGN_ERR_NO_INSTANCE);
    EXPECT_EQ(a.Fg_getNrOfParameter(fg), PGN_ERR_NO_INSTANCE);
    EXPECT_EQ(a.Fg_getParameterName(fg, 0), nullptr);
    EXPECT_EQ(a.Fg_getParameterId(fg, 0), PGN_ERR_NO_INSTANCE);
    EXPECT_EQ(a.Fg_getParameterIdByName(fg, "FG_WIDTH"), PGN_ERR_NO_INSTANCE);
    EXPECT_EQ(a.Fg_saveConfig(fg, "never-written.mcf"), PGN_ERR_NO_INSTANCE);
    EXPECT_EQ(a.Fg_loadConfig(fg, "never-read.mcf"), PGN_ERR_NO_INSTANCE);
    EXPECT_EQ(a.Fg_getParameterInfoXML(fg, 0, text, &size), PGN_ERR_NO_INSTANCE);
    EXPECT_EQ(a.Fg_getEventMask(fg, "FG_OVERFLOW_CAM0"), 0u);
    EXPECT_EQ(a.Fg_getEventName(fg, 32), nullptr);
    EXPECT_EQ(a.Fg_getLastErrorNumber(fg), PGN_ERR_NO_INSTANCE);
    EXPECT_EQ(a.Fg_getParameterInfo(fg, 0), nullptr);
    EXPECT_EQ(a.Fg_AllocShading(fg, 0, 0), nullptr);
    EXPECT_EQ(a.Fg_FreeShading(fg, shading), PGN_ERR_NO_INSTANCE);
    EXPECT_EQ(a.Shad_SetSubValueLine(fg, shading, 0, 0, 1.0f), PGN_ERR_NO_INSTANCE);
    EXPECT_EQ(a.Shad_SetMultValueLine(fg, shading, 0, 0, 1.0f), PGN_ERR_NO_INSTANCE);
    EXPECT_EQ(a.Shad_SetFixedPatternNoiseLine(fg, shading, 0, 0, 1), PGN_ERR_NO_INSTANCE);
    EXPECT_EQ(a.Shad_GetMaxLine(fg, shading), PGN_ERR_NO_INSTANCE);
    EXPECT_EQ(a.Shad_GetAccess(fg, shading), PGN_ERR_NO_INSTANCE);
    EXPECT_EQ(a.Shad_FreeAccess(fg, shading), PGN_ERR_NO_INSTANCE);
    EXPECT_EQ(a.Shad_WriteActLine(fg, shading, 0), PGN_ERR_NO_INSTANCE);
    EXPECT_EQ(a.Fg_getAppletId(fg, nullptr), PGN_ERR_NO_INSTANCE);
    EXPECT_EQ(a.Fg_getStatusEx(fg, 0, 0, 0, nullptr), PGN_ERR_NO_INSTANCE);
    EXPECT_EQ(a.Fg_AcquireEx(fg, 0, 1, 0, nullptr), PGN_ERR_NO_INSTANCE);
    EXPECT_EQ(a.Fg_stopAcquireEx(fg, 0, nullptr, 0), PGN_ERR_NO_INSTANCE);
    EXPECT_EQ(a.Fg_getLastPicNumberEx(fg, 0, nullptr), PGN_ERR_NO_INSTANCE);
    EXPECT_EQ(a.Fg_getLastPicNumberBlockingEx(fg, 1, 0, 1, nullptr), PGN_ERR_NO_INSTANCE);
    EXPECT_EQ(a.Fg_FreeGrabber(fg), PGN_ERR_NO_INSTANCE);
}

}  // namespace

TEST(AppletExports, NullHandleAndHandleWithoutInstanceAreRefused) {
    expectNoInstance(nullptr);
    Fg_Struct empty{};
    expectNoInstance(&empty);
}

TEST(AppletExports, AcquisitionCallsGoToTheRuntime) {
    AppletHost host;
    ASSERT_TRUE(host.ok());
    const AppletApi& a = host.api;

    // The virtual runtime serves DMA 0 only and refuses others as an
    // invalid argument, which becomes the result and the last error.
    EXPECT_EQ(a.Fg_AcquireEx(host.fg, 1, 10, 0, nullptr), PGN_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(lastError(host), PGN_ERR_INVALID_ARGUMENT);

    EXPECT_EQ(a.Fg_AcquireEx(host.fg, 0, 10, 0, nullptr), 0);
    EXPECT_EQ(lastError(host), 0);
    EXPECT_EQ(a.Fg_getLastPicNumberEx(host.fg, 0, nullptr), 0);
    EXPECT_EQ(a.Fg_getStatusEx(host.fg, 0, 0, 0, nullptr), 0);
    // No camera delivers, so waiting for an image times out at once.
    EXPECT_EQ(a.Fg_getLastPicNumberBlockingEx(host.fg, 1, 0, 1, nullptr), vboard::kErrTimeout);
    EXPECT_EQ(lastError(host), vboard::kErrTimeout);
    EXPECT_EQ(a.Fg_stopAcquireEx(host.fg, 0, nullptr, 0), 0);
    EXPECT_EQ(lastError(host), 0);
    // Stopping what is not running is the runtime's refusal.
    const int refused = a.Fg_stopAcquireEx(host.fg, 0, nullptr, 0);
    EXPECT_LT(refused, 0);
    EXPECT_EQ(lastError(host), refused);

    const int appletId = a.Fg_getAppletId(host.fg, nullptr);
    EXPECT_GT(appletId, 0);
    EXPECT_EQ(lastError(host), 0);
    EXPECT_EQ(a.Fg_getAppletId(host.fg, "ignored"), appletId);
}

TEST(AppletExports, LibraryExportsExactlyTheInterface) {
    const std::vector<std::string> lines = runOnLibrary("nm -D --defined-only");
    ASSERT_FALSE(lines.empty()) << "nm gave no output";
    std::set<std::string> exported;
    for (const std::string& line : lines) {
        // "<address> <type> <name>", the name possibly versioned.
        const std::string name = line.substr(line.rfind(' ') + 1);
        exported.insert(name.substr(0, name.find('@')));
    }
    // The same list the test host looks its functions up by.
#define PELAGON_EXPORT_NAME(name) #name,
    const std::set<std::string> expected = {PELAGON_APPLET_EXPORTS(PELAGON_EXPORT_NAME)};
#undef PELAGON_EXPORT_NAME
    EXPECT_EQ(exported, expected);
}

TEST(AppletExports, LibraryNeedsTheDesignRuntimeAndRegisterLibraries) {
    std::set<std::string> needed;
    for (const std::string& line : runOnLibrary("readelf -d")) {
        const std::size_t open = line.find('['), close = line.rfind(']');
        if (line.find("(NEEDED)") != std::string::npos && open != std::string::npos && close > open)
            needed.insert(line.substr(open + 1, close - open - 1));
    }
    for (const char* library : {"libhaprt.so", "libquoriolibrt.so", "libquor_hw.so"})
        EXPECT_TRUE(needed.count(library)) << library << " is not a needed library";
}
