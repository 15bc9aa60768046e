// Timing a piece of work against a baseline measured in the same run, so
// that every figure also reads as a ratio that a shared, noisy machine does
// not distort as much as the absolute time.
#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>

namespace pelagon::bench {

using Clock = std::chrono::steady_clock;
constexpr int kBaselineRuns = 300;

// Mean seconds of `kBaselineRuns` runs of `work`; `after` runs untimed.
template <typename Work, typename After>
double meanSeconds(Work work, After after) {
    double total = 0;
    for (int run = 0; run < kBaselineRuns; ++run) {
        const Clock::time_point start = Clock::now();
        work();
        total += std::chrono::duration<double>(Clock::now() - start).count();
        after();
    }
    return total / kBaselineRuns;
}

// Times `work` per iteration and reports it also as a ratio to `baseline`.
template <typename Work, typename After>
void timeAgainst(benchmark::State& state, double baseline, const char* baselineName, Work work, After after) {
    double total = 0;
    int64_t runs = 0;
    for (auto _ : state) {
        const Clock::time_point start = Clock::now();
        work();
        const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
        state.SetIterationTime(elapsed);
        total += elapsed;
        ++runs;
        after();
    }
    state.counters[baselineName] = baseline * 1e6;
    state.counters["ratio"] = runs ? total / runs / baseline : 0.0;
}

inline double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// Seconds per call of `work`, over `calls` calls timed together (for work too
// short to time one call at a time).
template <typename Work>
double perCall(Work work, int calls) {
    const Clock::time_point start = Clock::now();
    for (int i = 0; i < calls; ++i) work();
    return secondsSince(start) / calls;
}

// The benchmark loop over `work`, reported also as a ratio of its time per
// iteration to `baseline` seconds (shown in nanoseconds as `baselineName`).
template <typename Work>
void loopAgainst(benchmark::State& state, double baseline, const char* baselineName, Work work) {
    const Clock::time_point start = Clock::now();
    for (auto _ : state) work();
    const double each = secondsSince(start) / static_cast<double>(state.iterations());
    state.counters[baselineName] = baseline * 1e9;
    state.counters["ratio"] = each / baseline;
}

}  // namespace pelagon::bench
