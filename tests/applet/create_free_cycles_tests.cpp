// Creating and ending instances over and over must not cost memory: the
// resident size stays flat after a warm-up, and under the sanitizer build
// LeakSanitizer checks at exit that nothing of any cycle was left behind.
#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "AppletHost.h"
#include "pelagon_errors.h"

namespace {

#if defined(__SANITIZE_ADDRESS__)
// Every allocation goes through the sanitizer's quarantine, which makes the
// resident size meaningless and each cycle many times slower; the leak check
// at exit does the work here, and a few hundred cycles show any leak.
constexpr int kCycles = 300;
constexpr bool kMeasureResident = false;
#else
constexpr int kCycles = 10000;
constexpr bool kMeasureResident = true;
#endif
constexpr int kWarmUp = 200;

long residentBytes() {
    long pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return resident * sysconf(_SC_PAGESIZE);
}

void cycle(const AppletApi& api, ZUdevice* board, Fg_Struct* fg) {
    int error = 1;
    fg->Master = api.Std_entry(board, &error, 0);
    ASSERT_NE(fg->Master, nullptr);
    ASSERT_EQ(error, 0);
    // Touch what an application touches: a set, a get, the description size.
    uint32_t width = 512;
    ASSERT_EQ(api.Fg_setParameterWithType(fg, 100, &width, 0, FG_PARAM_TYPE_UINT32_T), 0);
    ASSERT_EQ(api.Fg_getParameterWithType(fg, 100, &width, 0, FG_PARAM_TYPE_UINT32_T), 0);
    ASSERT_EQ(api.Fg_FreeGrabber(fg), 0);
    ASSERT_EQ(fg->Master, nullptr);
    // The virtual board journals every register write (a start-up makes
    // thousands); that record is the test board's, not the applet's memory.
    vboard::clearJournal(board);
}

}  // namespace

TEST(AppletCreateFreeCycles, ManyCyclesKeepTheResidentSizeFlat) {
    const AppletApi& api = AppletApi::get();
    ZUdevice* board = vboard::createBoard();
    Fg_Struct fg{};
    for (int i = 0; i < kWarmUp; ++i) ASSERT_NO_FATAL_FAILURE(cycle(api, board, &fg));
    const long before = residentBytes();
    for (int i = 0; i < kCycles; ++i) ASSERT_NO_FATAL_FAILURE(cycle(api, board, &fg));
    const long growth = residentBytes() - before;
    vboard::destroyBoard(board);
    std::printf("%d cycles: resident size grew by %ld bytes\n", kCycles, growth);
    // A leak of 100 bytes a cycle would show as 1 MB here.
    if (kMeasureResident) {
        EXPECT_LT(growth, 512 * 1024);
    }
}
