// A full software trigger burst: 2040 pulses through the parameter dispatch,
// each followed by the 80 ns pause, with the queue on. Reported per burst,
// as a ratio to the ideal 2040 x 80 ns, and as a ratio to a bare loop of
// the same 2040 pauses measured in the same run (what the operating system
// makes of the pauses alone).
#include <benchmark/benchmark.h>
#include <sys/prctl.h>
#include <time.h>

#include <chrono>

#include "BenchInstance.h"
#include "Targets.h"

namespace {

constexpr uint32_t kPulses = 2040;
constexpr double kIdealSeconds = kPulses * 80e-9;
constexpr int kSendSoftwareTrigger = 8800;
constexpr double kBurstTargetMs = 40;

double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// The pauses alone, at the timer slack the burst itself uses.
double bareSleepLoopSeconds() {
    const int previous = prctl(PR_GET_TIMERSLACK, 0, 0, 0, 0);
    prctl(PR_SET_TIMERSLACK, 1ul, 0, 0, 0);
    const timespec pause{0, 80};
    const auto start = std::chrono::steady_clock::now();
    for (uint32_t i = 0; i < kPulses; ++i) nanosleep(&pause, nullptr);
    const double seconds = secondsSince(start);
    prctl(PR_SET_TIMERSLACK, static_cast<unsigned long>(previous), 0, 0, 0);
    return seconds;
}

void BM_SoftwareTriggerBurst(benchmark::State& state) {
    BenchInstance bench;
    FgZuWrapperImpl& w = *bench.wrapper;
    w.set_sdk_param_FG_AREATRIGGERMODE_P0(4, true);  // software
    w.set_sdk_param_FG_TRIGGERSTATE_P0(0, true);     // active
    w.set_sdk_param_FG_TRIGGERQUEUE_MODE_P0(1, true);
    double burstSeconds = 0.0, bareSeconds = 0.0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        const int result = w.Fg_setParameterWithType(kSendSoftwareTrigger, &kPulses, 0, FG_PARAM_TYPE_UINT32_T);
        const double seconds = secondsSince(start);
        state.SetIterationTime(seconds);
        burstSeconds += seconds;
        if (result != 0) {
            state.SkipWithError("the burst was refused");
            break;
        }
        bareSeconds += bareSleepLoopSeconds();
        vboard::clearJournal(bench.board);
    }
    const auto iterations = static_cast<double>(state.iterations());
    if (iterations > 0) {
        pelagon::bench::withTarget(state, "ms", burstSeconds / iterations * 1e3, kBurstTargetMs);
        state.counters["ratio_to_ideal"] = burstSeconds / iterations / kIdealSeconds;
        state.counters["ratio_to_bare_sleeps"] = burstSeconds / bareSeconds;
        state.counters["bare_sleeps_ms"] = bareSeconds / iterations * 1e3;
    }
}
BENCHMARK(BM_SoftwareTriggerBurst)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

PELAGON_BENCH_MAIN()
