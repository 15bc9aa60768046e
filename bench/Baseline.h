// Timing a piece of work against a baseline measured in the same run, so
// that every figure also reads as a ratio that a shared, noisy machine does
// not distort as much as the absolute time.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <vector>

#include "Targets.h"

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

// Reports the ratio of `each` seconds to `baseline` seconds (shown in
// `scale` units as `baselineName`), with `ratioTarget` as its bound when
// there is one (above zero).
inline void reportRatio(benchmark::State& state, double each, double baseline, const char* baselineName,
                        double scale, double ratioTarget) {
    state.counters[baselineName] = baseline * scale;
    const double ratio = baseline > 0 ? each / baseline : 0.0;
    if (ratioTarget > 0)
        withTarget(state, "ratio", ratio, ratioTarget);
    else
        state.counters["ratio"] = ratio;
}

// Times `work` per iteration and reports it also as a ratio to `baseline`;
// returns the mean seconds of one run of `work`.
template <typename Work, typename After>
double timeAgainst(benchmark::State& state, double baseline, const char* baselineName, Work work, After after,
                   double ratioTarget = 0) {
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
    const double each = runs ? total / static_cast<double>(runs) : 0.0;
    reportRatio(state, each, baseline, baselineName, 1e6, ratioTarget);
    return each;
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
// iteration to `baseline` seconds (shown in nanoseconds as `baselineName`);
// returns the seconds per iteration.
template <typename Work>
double loopAgainst(benchmark::State& state, double baseline, const char* baselineName, Work work,
                   double ratioTarget = 0) {
    const Clock::time_point start = Clock::now();
    for (auto _ : state) work();
    const double each = state.iterations() ? secondsSince(start) / static_cast<double>(state.iterations()) : 0.0;
    reportRatio(state, each, baseline, baselineName, 1e9, ratioTarget);
    return each;
}

inline double median(std::vector<double> values) {
    if (values.empty()) return 0.0;
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

// Work that takes about as long as its baseline, timed against it in
// alternating batches of `batch` calls each, so that both see the same
// machine load; the figures are the median batch of each, per call. One
// benchmark iteration is one batch of `work` (its time is the batch's), and
// the counters give "ns" per call of `work`, `baselineName` per call of
// `baseline`, and their ratio. Returns the seconds per call of `work`.
// Register with UseManualTime().
template <typename Work, typename BaselineWork>
double interleavedAgainst(benchmark::State& state, const char* baselineName, Work work, BaselineWork baseline,
                          double ratioTarget = 0, int batch = 1000) {
    std::vector<double> works, baselines;
    for (auto _ : state) {
        const double each = perCall(work, batch);
        state.SetIterationTime(each * batch);
        works.push_back(each);
        baselines.push_back(perCall(baseline, batch));
    }
    const double each = median(works);
    state.counters["ns"] = each * 1e9;
    state.counters["batch"] = batch;
    reportRatio(state, each, median(baselines), baselineName, 1e9, ratioTarget);
    return each;
}

}  // namespace pelagon::bench
