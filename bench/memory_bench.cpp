// Memory over many instance lifetimes: 10 000 create/free cycles (Std_entry,
// which programs every default, then Fg_FreeGrabber) on one virtual board,
// as a runtime opening and closing the board again and again would run them.
//
// The baseline is the process after a warm-up of 100 cycles (library loaded,
// allocator pools and the board's journal at their working size). Reported:
// the peak resident memory of the process (VmHWM) and its resident memory
// now (VmRSS) after the warm-up and after the whole run, and the ratio of the
// two peaks (target: at most 1.05, no growth beyond noise). A leak of even a
// few hundred bytes per cycle would show as megabytes here.
#include <benchmark/benchmark.h>

#include <fstream>
#include <string>

#include "AppletHost.h"
#include "Targets.h"
#include "vboard/vboard.h"

namespace {

constexpr int kWarmUpCycles = 100;
constexpr int kCycles = 10000;
constexpr double kPeakGrowthTarget = 1.05;

// A "Vm...:  1234 kB" line of /proc/self/status, in MiB (0 when absent).
double statusMiB(const std::string& key) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind(key + ":", 0) == 0) return std::stod(line.substr(key.size() + 1)) / 1024.0;
    }
    return 0.0;
}

void BM_CreateFreeCycles(benchmark::State& state) {
    Host host;  // keeps the library loaded
    ZUdevice* board = vboard::createBoard();
    auto cycles = [&](int n) {
        for (int i = 0; i < n; ++i) {
            Fg_Struct fg{};
            int error = 0;
            fg.Master = host.api.Std_entry(board, &error, 0);
            host.api.Fg_FreeGrabber(&fg);
            vboard::clearJournal(board);
        }
    };
    cycles(kWarmUpCycles);
    const double peakBefore = statusMiB("VmHWM"), residentBefore = statusMiB("VmRSS");
    for (auto _ : state) cycles(kCycles);
    const double peakAfter = statusMiB("VmHWM"), residentAfter = statusMiB("VmRSS");
    vboard::destroyBoard(board);

    state.counters["cycles"] = kCycles;
    state.counters["peak_warm_MiB"] = peakBefore;
    state.counters["peak_MiB"] = peakAfter;
    state.counters["rss_warm_MiB"] = residentBefore;
    state.counters["rss_MiB"] = residentAfter;
    pelagon::bench::withTarget(state, "ratio", peakBefore > 0 ? peakAfter / peakBefore : 0.0, kPeakGrowthTarget);
}
BENCHMARK(BM_CreateFreeCycles)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

PELAGON_BENCH_MAIN()
