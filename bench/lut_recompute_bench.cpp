// One recompute of the processed lookup tables: the table computed once from
// offset, gain, gamma and invert, then written to the red, green and blue
// LUTcontent registers in this order, each followed by its cache.
//
// Two figures, each with a baseline measured in the same run:
// - BM_LutRecompute, the whole recompute through the virtual runtime, against
//   the three whole-table register writes alone (same table, nothing
//   computed). The virtual runtime checks and journals each of the 3 x 4096
//   elements, so these writes are the floor of any table change here, and the
//   ratio shows what the recompute adds to them.
// - BM_LutComputation, the applet's own share: the table computed and copied
//   into the three caches, against the three copies alone (a plain 3 x 4096
//   entry copy).
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <cstring>

#include "BenchInstance.h"
#include "Baseline.h"

namespace {

using Table = uint32_t[4096];
using pelagon::bench::meanSeconds;
using pelagon::bench::timeAgainst;
using pelagon::bench::withTarget;

constexpr double kRecomputeTargetUs = 200;

void useProcessing(FgZuWrapperImpl& w, double gamma) {
    w.cache_FG_LUT_TYPE_P0 = 3;
    w.cache_FG_PROCESSING_OFFSET_P0 = 0.0;
    w.cache_FG_PROCESSING_GAIN_P0 = 1.0;
    w.cache_FG_PROCESSING_GAMMA_P0 = gamma;
    w.cache_FG_PROCESSING_INVERT_P0 = 0;
}

// Argument: gamma in tenths (10: the straight line, 22: a usual display gamma).
void BM_LutRecompute(benchmark::State& state) {
    BenchInstance bench;
    FgZuWrapperImpl& w = *bench.wrapper;
    useProcessing(w, static_cast<double>(state.range(0)) / 10.0);
    // The journal of the virtual board would grow without end.
    auto clearJournal = [&] { vboard::clearJournal(bench.board); };

    Table table;
    FgZuWrapperImpl::computeLutTable_P0(0.0, 1.0, 1.0, false, table);
    FieldParameterAccess access{};
    access.vtype = FG_PARAM_TYPE_UINT32_T;
    access.count = 4096;
    access.p.p_uint32_t = table;
    const double writesAlone = meanSeconds(
        [&] {
            constexpr int kType = FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS;
            w.set_zu_param_Device1_Process0_LookupTable_R_LUTcontent(&access, 0, kType, true);
            w.set_zu_param_Device1_Process0_LookupTable_G_LUTcontent(&access, 0, kType, true);
            w.set_zu_param_Device1_Process0_LookupTable_B_LUTcontent(&access, 0, kType, true);
        },
        clearJournal);
    const double each =
        timeAgainst(state, writesAlone, "writes_alone_us", [&] { w.updateLutProcessing_P0(); }, clearJournal);
    withTarget(state, "us", each * 1e6, kRecomputeTargetUs);
}

void BM_LutComputation(benchmark::State& state) {
    BenchInstance bench;
    FgZuWrapperImpl& w = *bench.wrapper;
    const double gamma = static_cast<double>(state.range(0)) / 10.0;
    Table table;
    FgZuWrapperImpl::computeLutTable_P0(0.0, 1.0, gamma, false, table);
    auto copyToCaches = [&] {
        std::memcpy(w.cache_FG_LUT_VALUE_RED_P0, table, sizeof(Table));
        std::memcpy(w.cache_FG_LUT_VALUE_GREEN_P0, table, sizeof(Table));
        std::memcpy(w.cache_FG_LUT_VALUE_BLUE_P0, table, sizeof(Table));
        benchmark::ClobberMemory();
    };
    const double copiesAlone = meanSeconds(copyToCaches, [] {});
    timeAgainst(
        state, copiesAlone, "copies_alone_us",
        [&] {
            FgZuWrapperImpl::computeLutTable_P0(0.0, 1.0, gamma, false, table);
            copyToCaches();
        },
        [] {});
}

}  // namespace

BENCHMARK(BM_LutRecompute)->Arg(10)->Arg(22)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_LutComputation)->Arg(10)->Arg(22)->UseManualTime()->Unit(benchmark::kMicrosecond);

PELAGON_BENCH_MAIN()
