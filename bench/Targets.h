// Targets beside the figures. A benchmark that has a target reports the
// figure as a counter X and its upper bound as a counter "target_X"; the
// console then shows both as columns, and PELAGON_BENCH_MAIN ends the
// program with one line per such figure: value, target, and whether it was
// met. Every target here is an upper bound.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <vector>

namespace pelagon::bench {

inline constexpr const char* kTargetPrefix = "target_";

// Reports `value` as counter `figure` with `target` as its upper bound.
inline void withTarget(benchmark::State& state, const std::string& figure, double value, double target) {
    state.counters[figure] = value;
    state.counters[kTargetPrefix + figure] = target;
}

class TargetReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.error_occurred) continue;
            // Of the aggregates, the median speaks for the repetitions.
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name != "median") continue;
            for (const auto& [name, counter] : run.counters) {
                if (name.rfind(kTargetPrefix, 0) != 0) continue;
                const std::string figure = name.substr(std::char_traits<char>::length(kTargetPrefix));
                const auto measured = run.counters.find(figure);
                if (measured == run.counters.end()) continue;
                rows_.push_back({run.benchmark_name(), figure, measured->second.value, counter.value});
            }
        }
    }

    void Finalize() override {
        ConsoleReporter::Finalize();
        if (rows_.empty()) return;
        std::printf("\n%-52s %-16s %12s %12s  %s\n", "Targets", "figure", "value", "at most", "met");
        for (const Row& row : rows_)
            std::printf("%-52s %-16s %12.4g %12.4g  %s\n", row.benchmark.c_str(), row.figure.c_str(), row.value,
                        row.target, row.value <= row.target ? "yes" : "NO");
        std::printf("\n");
        std::fflush(stdout);
    }

private:
    struct Row {
        std::string benchmark, figure;
        double value, target;
    };
    std::vector<Row> rows_;
};

inline int runWithTargets(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    TargetReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}

}  // namespace pelagon::bench

#define PELAGON_BENCH_MAIN() \
    int main(int argc, char** argv) { return pelagon::bench::runWithTargets(argc, argv); }
