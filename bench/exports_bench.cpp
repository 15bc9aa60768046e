// The applet's own cost on its exported interface, each figure against what
// the virtual runtime itself costs for the same register traffic, measured in
// the same run:
// - a cached get (FG_TIMEOUT), against one bare register write;
// - a one-register set (FG_CXP_TRIGGER_PACKET_MODE), against one bare write;
// - FG_WIDTH's set, which writes two registers, against two bare writes;
// - start-up (Std_entry, which programs every default, and Fg_FreeGrabber),
//   against loading the design plus the bare cost of the writes it makes;
// - the XML description of port 0, and a configuration save plus load,
//   against one bare write (absolute targets: under 1 ms and 5 ms).
// A bare write is the runtime's own Fg_setParameterWithType on a register id.
// The get and the sets run in alternating batches with their bare writes, so
// that a loaded machine slows both alike.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "AppletHost.h"
#include "Baseline.h"
#include "BenchInstance.h"
#include "hap_runtime.h"

namespace {

using pelagon::bench::interleavedAgainst;
using pelagon::bench::loopAgainst;
using pelagon::bench::perCall;
using pelagon::bench::withTarget;

// Targets: a set at most 1.3 times the bare writes it makes, a cached get
// under 30 ns, start-up at most 1.5 times its baseline, the XML description
// under 1 ms, a configuration save plus load under 5 ms.
constexpr double kSetRatioTarget = 1.3;
constexpr double kGetTargetNs = 30;
constexpr double kStartUpRatioTarget = 1.5;
constexpr double kXmlTargetUs = 1000;
constexpr double kConfigurationTargetUs = 5000;

constexpr int kCalls = 5000;

// Bare register writes of the virtual runtime on an instance of its own: the
// runtime's Fg_setParameterWithType on a register id, the value toggled.
class BareWrites {
public:
    BareWrites() : reg_(bare_.wrapper->getParameterIdByName("Device1_Process0_Camera_Camera_TxTriggerPacketMode")) {}

    void write() {
        FgZuWrapperImpl& w = *bare_.wrapper;
        value_ ^= 1;
        w.wrapperFg()->DLL_Fg_setParameterWithType(w.fglibFg(), reg_, &value_, 0, FG_PARAM_TYPE_UINT32_T);
        keepJournalSmall(bare_.board);
    }

    // The least of a few rounds, in seconds per write: the machine's other
    // work only ever adds.
    double bestSeconds() {
        double best = perCall([&] { write(); }, kCalls);
        for (int round = 0; round < 4; ++round) best = std::min(best, perCall([&] { write(); }, kCalls));
        return best;
    }

private:
    // The journal of the virtual board would grow without end.
    void keepJournalSmall(ZUdevice* board) {
        if (++writes_ % 4096 == 0) vboard::clearJournal(board);
    }

    BenchInstance bare_;
    const int reg_;
    uint32_t value_ = 0;
    int64_t writes_ = 0;
};

double bareWriteSeconds() { return BareWrites().bestSeconds(); }

void BM_CachedGet(benchmark::State& state) {
    Host host;
    BareWrites bare;
    uint32_t value = 0;
    const double each = interleavedAgainst(
        state, "bare_write_ns",
        [&] {
            benchmark::DoNotOptimize(host.api.Fg_getParameterWithType(host.fg, 600, &value, 0, FG_PARAM_TYPE_UINT32_T));
        },
        [&] { bare.write(); });
    withTarget(state, "get_ns", each * 1e9, kGetTargetNs);
}

// Sets of `id` alternating between two values, against `writes` bare
// register writes per set.
void setAgainstBareWrites(benchmark::State& state, int id, uint32_t first, uint32_t second, int writes) {
    Host host;
    BareWrites bare;
    uint32_t value = first;
    int64_t n = 0;
    interleavedAgainst(
        state, writes == 1 ? "bare_write_ns" : "bare_writes_ns",
        [&] {
            value = value == first ? second : first;
            host.api.Fg_setParameterWithType(host.fg, id, &value, 0, FG_PARAM_TYPE_UINT32_T);
            if (++n % 4096 == 0) vboard::clearJournal(host.grabber.board());
        },
        [&] {
            for (int i = 0; i < writes; ++i) bare.write();
        },
        kSetRatioTarget);
}

// FG_CXP_TRIGGER_PACKET_MODE writes one register.
void BM_OneRegisterSet(benchmark::State& state) { setAgainstBareWrites(state, 200369, 0, 1, 1); }
// FG_WIDTH writes two.
void BM_WidthSet(benchmark::State& state) { setAgainstBareWrites(state, 100, 512, 1024, 2); }

void BM_StartUp(benchmark::State& state) {
    Host host;  // keeps the library loaded
    ZUdevice* board = vboard::createBoard();
    Fg_Struct fg{};
    int error = 0;
    auto cycle = [&] {
        fg.Master = host.api.Std_entry(board, &error, 0);
        host.api.Fg_FreeGrabber(&fg);
    };
    cycle();
    const double writes = static_cast<double>(vboard::journal(board).size());
    vboard::clearJournal(board);
    std::ifstream in(PELAGON_DESIGN_IMAGE_PATH, std::ios::binary);
    const std::vector<char> image{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    const double design = perCall([&] { HapUnloadHapFile(HapLoadDesignFromBuffer(image.data(), image.size(), 1)); }, 50);
    const double baseline = design + writes * bareWriteSeconds();
    loopAgainst(
        state, baseline, "design_plus_bare_writes_ns",
        [&] {
            cycle();
            vboard::clearJournal(board);
        },
        kStartUpRatioTarget);
    state.counters["writes"] = writes;
    vboard::destroyBoard(board);
}

void BM_XmlDescription(benchmark::State& state) {
    Host host;
    const double bare = bareWriteSeconds();
    std::vector<char> buffer;
    const double each = loopAgainst(state, bare, "bare_write_ns", [&] {
        size_t size = 0;
        host.api.Fg_getParameterInfoXML(host.fg, 0, nullptr, &size);
        buffer.resize(size);
        host.api.Fg_getParameterInfoXML(host.fg, 0, buffer.data(), &size);
    });
    withTarget(state, "us", each * 1e6, kXmlTargetUs);
}

void BM_ConfigurationSaveAndLoad(benchmark::State& state) {
    Host host;
    const double bare = bareWriteSeconds();
    const std::string file = "/tmp/pelagon-bench-" + std::to_string(getpid()) + ".mcf";
    const double each = loopAgainst(state, bare, "bare_write_ns", [&] {
        host.api.Fg_saveConfig(host.fg, file.c_str());
        host.api.Fg_loadConfig(host.fg, file.c_str());
        vboard::clearJournal(host.grabber.board());
    });
    withTarget(state, "us", each * 1e6, kConfigurationTargetUs);
    std::remove(file.c_str());
}

}  // namespace

BENCHMARK(BM_CachedGet)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_OneRegisterSet)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_WidthSet)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_StartUp)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_XmlDescription)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ConfigurationSaveAndLoad)->Unit(benchmark::kMicrosecond);
PELAGON_BENCH_MAIN()
