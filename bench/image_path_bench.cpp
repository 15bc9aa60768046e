// The emulated image path, one 1024 x 1024 frame at a time: simulator
// pattern, region of interest, white balance, demosaicing, lookup tables and
// output packing, as the applet programs them. Each figure (frame_ms, the
// median) comes with the median time to copy the same output bytes with
// memcpy, measured in the same loop, and the ratio of the two (x_memcpy,
// target at most 5).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Baseline.h"
#include "BenchInstance.h"
#include "image_path.h"

namespace {

using pelagon::bench::median;

constexpr uint32_t kSize = 1024;
constexpr double kMemcpyRatioTarget = 5;

// A board programmed through the applet: the simulator's diagonal pattern,
// rolling, 12 bit RG Bayer, a 1024 x 1024 region, the output format under
// test; gains and LUTs (set by other parts of the applet) poked directly.
vboard::ImageSettings programmed(uint32_t format) {
    BenchInstance b;
    FgZuWrapperImpl& w = *b.wrapper;
    w.set_sdk_param_FG_CAMERASIMULATOR_ENABLE_P0(1, true);
    w.set_sdk_param_FG_CAMERASIMULATOR_SELECT_MODE_P0(0, true);
    w.set_sdk_param_FG_CAMERASIMULATOR_PIXEL_FREQUENCY_P0(1500.0, true);
    w.set_sdk_param_FG_CAMERASIMULATOR_WIDTH_P0(kSize, true);
    w.set_sdk_param_FG_CAMERASIMULATOR_HEIGHT_P0(kSize, true);
    w.set_sdk_param_FG_CAMERASIMULATOR_PATTERN_P0(3, true);
    w.set_sdk_param_FG_CAMERASIMULATOR_ROLL_P0(1, true);
    w.set_sdk_param_FG_PIXELFORMAT_P0(0x323, true);
    w.set_sdk_param_FG_WIDTH_P0(kSize, true);
    w.set_sdk_param_FG_HEIGHT_P0(kSize, true);
    w.set_sdk_param_FG_FORMAT_P0(format, true);
    w.set_sdk_param_FG_BITALIGNMENT_P0(1, true);
    const char* channels[] = {"R", "G", "B"};
    const char* colours[] = {"Red", "Green", "Blue"};
    for (int c = 0; c < 3; ++c) {
        for (unsigned i = 0; i < 4096; ++i)
            vboard::poke(b.board, std::string("Device1_Process0_LookupTable_") + channels[c] + "_LUTcontent", 4095 - i, i);
        vboard::pokeDouble(b.board, std::string("Device1_Process0_Bayer_White_") + colours[c] + "Coefficient", 1.25);
    }
    return vboard::imageSettings(b.board);
}

// Renders frame after frame; each is followed by a copy of its bytes, timed
// alike, so that both see the same machine load. `fresh` builds the pipeline
// anew for every frame: nothing is reused from earlier frames.
void run(benchmark::State& state, bool fresh) {
    const vboard::ImageSettings settings = programmed(static_cast<uint32_t>(state.range(0)));
    auto pipeline = std::make_unique<vboard::ImagePipeline>(settings);
    std::vector<uint8_t> frame(pipeline->frameBytes()), copy(frame.size());
    std::vector<double> renders, copies;
    uint64_t k = 0;
    for (auto _ : state) {
        auto begin = std::chrono::steady_clock::now();
        if (fresh) pipeline = std::make_unique<vboard::ImagePipeline>(settings);
        pipeline->render(k++, frame.data(), frame.size());
        benchmark::DoNotOptimize(frame.data());
        benchmark::ClobberMemory();
        auto middle = std::chrono::steady_clock::now();
        std::memcpy(copy.data(), frame.data(), frame.size());
        benchmark::DoNotOptimize(copy.data());
        benchmark::ClobberMemory();
        auto end = std::chrono::steady_clock::now();
        renders.push_back(std::chrono::duration<double>(middle - begin).count());
        copies.push_back(std::chrono::duration<double>(end - middle).count());
    }
    const double render = median(renders), memcpyTime = median(copies);
    state.counters["frame_ms"] = render * 1e3;
    state.counters["memcpy_ms"] = memcpyTime * 1e3;
    pelagon::bench::withTarget(state, "x_memcpy", render / memcpyTime, kMemcpyRatioTarget);
    state.counters["MB"] = static_cast<double>(frame.size()) / 1e6;
}

// A rolling pattern: every frame differs from the one before.
void BM_ImagePathFrame(benchmark::State& state) { run(state, false); }
// The first frame after the settings change: every line computed.
void BM_ImagePathFirstFrame(benchmark::State& state) { run(state, true); }

// FG_FORMAT: 2 = 24 bit, 5 = 30 bit, 6 = 48 bit.
BENCHMARK(BM_ImagePathFrame)->Arg(2)->Arg(5)->Arg(6)->ArgName("FG_FORMAT")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ImagePathFirstFrame)->Arg(2)->Arg(5)->Arg(6)->ArgName("FG_FORMAT")->Unit(benchmark::kMillisecond);

}  // namespace

PELAGON_BENCH_MAIN()
