// Many threads on the exported interface at once: one instance shared by
// eight threads, two instances on two boards, and an acquisition running
// while parameters change. Meant to run under ThreadSanitizer as well; no
// race, no deadlock, no lost update.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "applet_info.h"
#include "vboard/grabber.h"

namespace {

constexpr int kThreads = 8;
// Each loop pass below makes at least this many exported calls.
constexpr int kCallsPerPass = 10;
constexpr int kCallsPerThread = 50000;

// The outputs are independent of each other, so each thread owns one GPO
// and one trigger output and can check that no write of its own is lost.
std::string gpo(int k) { return "FG_TRIGGERCAMERA_GPO" + std::to_string(k); }
std::string triggerOut(int k) { return "FG_TRIGGEROUT_SELECT" + std::to_string(k); }

struct Ids {
    explicit Ids(vboard::Grabber& g)
        : width(g.id("FG_WIDTH")),
          rate(g.id("FG_TRIGGER_FRAMESPERSECOND")),
          lutFile(g.id("FG_LUT_CUSTOM_FILE")),
          dna(g.id("FG_SYSTEMMONITOR_FPGA_DNA")),
          lutRed(g.id("FG_LUT_VALUE_RED")),
          gain(g.id("FG_SCALINGFACTOR_GREEN")),
          format(g.id("FG_FORMAT")) {}
    int width, rate, lutFile, dna, lutRed, gain, format;
};

// One thread's share of the traffic on `g`; returns the last values it wrote
// to its own two parameters.
void traffic(vboard::Grabber& g, const Ids& ids, int k, int passes, std::atomic<int>& failures,
             std::pair<uint32_t, uint32_t>& last) {
    const int ownGpo = g.id(gpo(k)), ownOut = g.id(triggerOut(k));
    const std::string file = "stress-" + std::to_string(k) + ".mcf";
    auto check = [&](bool ok) {
        if (!ok) ++failures;
    };
    for (int i = 0; i < passes; ++i) {
        const uint32_t a = static_cast<uint32_t>((i * 7 + k) % 10), b = static_cast<uint32_t>((i * 3 + k) % 10);
        g.set<uint32_t>(ownGpo, a);
        g.set<uint32_t>(ownOut, b);
        check(g.get<uint32_t>(ownGpo) == a);
        check(g.get<uint32_t>(ownOut) == b);
        last = {a, b};
        check(g.get<uint32_t>(ids.width) % 16 == 0);
        check(g.get<double>(ids.rate) > 0.0);
        g.get<std::string>(ids.lutFile);
        g.get<uint64_t>(ids.dna);
        check(g.getField(ids.lutRed, static_cast<unsigned>(i % 4000), 16).size() == 16);
        g.set<double>(ids.gain, (i % 1000) / 1000.0);  // shared: only its range is checked
        check(g.id("FG_HEIGHT") > 0 && !g.name(ids.format).empty());
        try {
            g.set<uint32_t>(ids.width, 40);  // refused: the error path under load
            ++failures;
        } catch (const vboard::Error&) {
        }
        if (i % 250 == 0) check(g.info(GET_NR_OF_DMAS) == 1);
        if (i % 1000 == k) check(g.xml().size() > 1000);
        if (i % 2500 == k) g.saveConfig(file);
    }
    std::remove(file.c_str());
}

std::string appletPath() { return PELAGON_APPLET_PATH; }

}  // namespace

TEST(Stress, EightThreadsShareOneInstanceWithoutLostUpdates) {
    vboard::Grabber g(appletPath());
    const Ids ids(g);
    std::atomic<int> failures{0};
    std::vector<std::pair<uint32_t, uint32_t>> last(kThreads);
    std::vector<std::thread> threads;
    for (int k = 0; k < kThreads; ++k)
        threads.emplace_back([&, k] {
            traffic(g, ids, k, kCallsPerThread / kCallsPerPass, failures, last[static_cast<size_t>(k)]);
        });
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(failures.load(), 0);
    for (int k = 0; k < kThreads; ++k) {
        EXPECT_EQ(g.get<uint32_t>(g.id(gpo(k))), last[static_cast<size_t>(k)].first) << k;
        EXPECT_EQ(g.get<uint32_t>(g.id(triggerOut(k))), last[static_cast<size_t>(k)].second) << k;
    }
}

TEST(Stress, TwoInstancesOnTwoBoardsKeepTheirOwnValues) {
    vboard::Grabber first(appletPath()), second(appletPath());
    std::atomic<int> failures{0};
    auto drive = [&](vboard::Grabber& g, uint32_t base) {
        const int width = g.id("FG_WIDTH");
        for (int i = 0; i < 5000; ++i) {
            const uint32_t w = base + 16 * static_cast<uint32_t>(i % 8);
            g.set<uint32_t>(width, w);
            if (g.get<uint32_t>(width) != w) ++failures;
        }
    };
    std::thread a([&] { drive(first, 256); }), b([&] { drive(second, 1024); });
    a.join();
    b.join();
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(first.get<uint32_t>(first.id("FG_WIDTH")), 256u + 16 * 7);
    EXPECT_EQ(second.get<uint32_t>(second.id("FG_WIDTH")), 1024u + 16 * 7);
}

// A user dragging a slider sends a stream of sets while frames are expected:
// none of them may hold the frames back. Each changer sets as fast as it can
// while 30 frames of a 200 frames-per-second simulator are awaited.
TEST(Stress, FramesKeepComingWhileSettingsChange) {
    vboard::Grabber g(appletPath());
    for (const char* setting : {"FG_CAMERASIMULATOR_ENABLE=1", "FG_WIDTH=256", "FG_HEIGHT=64",
                                "FG_CAMERASIMULATOR_WIDTH=256", "FG_CAMERASIMULATOR_HEIGHT=64",
                                "FG_CAMERASIMULATOR_FRAMERATE=200"}) {
        const std::string text = setting;
        g.set(text.substr(0, text.find('=')), text.substr(text.find('=') + 1));
    }
    g.allocateBuffers(8);
    const int gain = g.id("FG_PROCESSING_GAIN"), red = g.id("FG_SCALINGFACTOR_RED"),
              pattern = g.id("FG_CAMERASIMULATOR_PATTERN"), rate = g.id("FG_CAMERASIMULATOR_FRAMERATE");
    const struct {
        const char* what;
        std::function<void(int)> change;
    } changers[] = {
        {"gain and white balance",
         [&](int i) {
             g.set<double>(gain, 1.0 + (i % 10) / 10.0);
             g.set<double>(red, (i % 4) / 2.0);
         }},
        {"simulator pattern", [&](int i) { g.set<uint32_t>(pattern, static_cast<uint32_t>(i % 3 + 1)); }},
        {"simulator frame rate", [&](int i) { g.set<double>(rate, 200.0 + (i % 5)); }},
    };
    for (const auto& c : changers) {
        SCOPED_TRACE(c.what);
        g.start();
        std::atomic<bool> done{false};
        std::thread changer([&] {
            for (int i = 0; !done; ++i) c.change(i);
        });
        int64_t seen = 0;
        try {
            // 150 ms of frames: a second leaves room for a loaded machine,
            // while a stream held back by the changes needs several.
            seen = g.waitForFrame(30, std::chrono::seconds(1));
        } catch (const vboard::Error& e) {
            ADD_FAILURE() << e.what() << " after " << g.lastFrame() << " frames";
        }
        done = true;
        changer.join();
        g.stop();
        EXPECT_GE(seen, 30);
    }
}
