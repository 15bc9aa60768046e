// Demonstration on the virtual board: loads libPelagon.so the way the frame
// grabber runtime does, asks it about itself, creates an instance for a
// virtual board, programs a region of interest and the camera simulator
// through the applet's parameter interface, reads the board's sensors, and
// shows which design registers the applet wrote.
#include <dlfcn.h>
#include <linux/limits.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <type_traits>

#include "applet_info.h"
#include "fg_api.h"
#include "vboard/vboard.h"

namespace {

struct Applet {
    decltype(&::Info) Info;
    decltype(&::Std_entry) Std_entry;
    decltype(&::Fg_FreeGrabber) Fg_FreeGrabber;
    decltype(&::Fg_setParameterWithType) Fg_setParameterWithType;
    decltype(&::Fg_getParameterWithType) Fg_getParameterWithType;
    decltype(&::Fg_getParameterIdByName) Fg_getParameterIdByName;
    decltype(&::Fg_getNrOfParameter) Fg_getNrOfParameter;
};

// The applet sits in ../lib beside this program's folder unless named.
std::string defaultAppletPath() {
    char self[PATH_MAX] = {};
    const ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    std::string dir = n > 0 ? std::string(self, static_cast<size_t>(n)) : std::string("./pelagon-demo");
    dir = dir.substr(0, dir.find_last_of('/'));
    return dir + "/../lib/libPelagon.so";
}

template <typename T>
bool bind(void* lib, const char* name, T& fn) {
    fn = reinterpret_cast<T>(dlsym(lib, name));
    if (!fn) std::fprintf(stderr, "pelagon-demo: the applet does not export %s\n", name);
    return fn != nullptr;
}

const char* text(uint64_t address) { return reinterpret_cast<const char*>(static_cast<uintptr_t>(address)); }

}  // namespace

int main(int argc, char** argv) {
    const std::string path = argc > 1 ? argv[1] : defaultAppletPath();
    void* lib = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!lib) {
        std::fprintf(stderr, "pelagon-demo: cannot load %s: %s\n", path.c_str(), dlerror());
        return 1;
    }
    Applet a{};
    if (!bind(lib, "Info", a.Info) || !bind(lib, "Std_entry", a.Std_entry) ||
        !bind(lib, "Fg_FreeGrabber", a.Fg_FreeGrabber) ||
        !bind(lib, "Fg_setParameterWithType", a.Fg_setParameterWithType) ||
        !bind(lib, "Fg_getParameterWithType", a.Fg_getParameterWithType) ||
        !bind(lib, "Fg_getParameterIdByName", a.Fg_getParameterIdByName) ||
        !bind(lib, "Fg_getNrOfParameter", a.Fg_getNrOfParameter))
        return 1;

    uint64_t size = 0, address = 0;
    a.Info(GET_INFO_FRIENDLY_NAME, 0, 0, nullptr, &address);
    std::printf("applet %s", text(address));
    a.Info(GET_INFO_VERSIONSTRING_DETAIL, 0, 0, nullptr, &address);
    std::printf(" version %s", text(address));
    a.Info(GET_EMBEDDED_HAP, 0, 0, &size, &address);
    std::printf(", design image of %llu bytes inside\n", static_cast<unsigned long long>(size));

    ZUdevice* board = vboard::createBoard();
    Fg_Struct* fg = static_cast<Fg_Struct*>(std::calloc(1, sizeof(Fg_Struct)));
    int error = 0;
    fg->Master = a.Std_entry(board, &error, 0);
    if (!fg->Master) {
        std::fprintf(stderr, "pelagon-demo: the applet refused to start: error %d\n", error);
        return 1;
    }
    std::printf("instance created on a virtual board: %d parameters\n", a.Fg_getNrOfParameter(fg));
    vboard::clearJournal(board);

    // Integer parameters take 32-bit values, floating ones doubles.
    auto set = [&](const char* name, auto value) {
        constexpr bool isDouble = std::is_same_v<decltype(value), double>;
        const int rc = a.Fg_setParameterWithType(fg, a.Fg_getParameterIdByName(fg, name), &value, 0,
                                                 isDouble ? FG_PARAM_TYPE_DOUBLE : FG_PARAM_TYPE_UINT32_T);
        std::printf("  set %-34s %10.10g -> %s (%d)\n", name, static_cast<double>(value),
                    rc == 0 ? "ok" : "refused", rc);
    };
    std::printf("region of interest and formats:\n");
    set("FG_WIDTH", uint32_t{1920});
    set("FG_HEIGHT", uint32_t{1080});
    set("FG_XOFFSET", uint32_t{64});
    set("FG_YOFFSET", uint32_t{1});
    set("FG_PIXELFORMAT", uint32_t{0x313});  // BayerGR12
    set("FG_FORMAT", uint32_t{5});           // 30-bit colour
    set("FG_WIDTH", uint32_t{1000});         // not a multiple of 16
    set("FG_WIDTH", uint32_t{16384});        // does not fit beside the x offset

    auto getDouble = [&](const char* name) {
        double value = 0;
        a.Fg_getParameterWithType(fg, a.Fg_getParameterIdByName(fg, name), &value, 0, FG_PARAM_TYPE_DOUBLE);
        return value;
    };
    std::printf("camera simulator in frame-rate mode:\n");
    set("FG_CAMERASIMULATOR_ENABLE", uint32_t{1});
    set("FG_CAMERASIMULATOR_SELECT_MODE", uint32_t{2});
    set("FG_CAMERASIMULATOR_WIDTH", uint32_t{1020});
    set("FG_CAMERASIMULATOR_HEIGHT", uint32_t{1000});
    set("FG_CAMERASIMULATOR_FRAMERATE", 2000.0);  // above 1.5e9 / (1032 x 1000)
    set("FG_CAMERASIMULATOR_FRAMERATE", 1000.0);
    std::printf("  the generator runs at %.3f frames/s\n", getDouble("FG_CAMERASIMULATOR_FRAMERATE"));

    double temperature = 0;
    uint64_t dna = 0;
    char uid[64] = {};
    a.Fg_getParameterWithType(fg, a.Fg_getParameterIdByName(fg, "FG_SYSTEMMONITOR_FPGA_TEMPERATURE"), &temperature,
                              0, FG_PARAM_TYPE_DOUBLE);
    a.Fg_getParameterWithType(fg, a.Fg_getParameterIdByName(fg, "FG_SYSTEMMONITOR_FPGA_DNA"), &dna, 0,
                              FG_PARAM_TYPE_UINT64_T);
    a.Fg_getParameterWithType(fg, a.Fg_getParameterIdByName(fg, "FG_APPLET_ID"), uid, 0, FG_PARAM_TYPE_CHAR_PTR);
    std::printf("board: FPGA at %.1f degrees Celsius, DNA %014llx, applet id %s\n", temperature,
                static_cast<unsigned long long>(dna), uid);

    std::printf("design registers written:\n");
    for (const vboard::JournalEntry& e : vboard::journal(board))
        std::printf("  %-58s = %llu\n", e.name.c_str(), static_cast<unsigned long long>(e.u));

    const int rc = a.Fg_FreeGrabber(fg);
    std::free(fg);
    vboard::destroyBoard(board);
    std::printf("instance freed (%d)\n", rc);
    return rc == 0 ? 0 : 1;
}
