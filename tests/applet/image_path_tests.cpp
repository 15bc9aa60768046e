// Frames acquired from the applet on the virtual board, checked against an
// image computed here from what the test asked for: the simulator's pattern
// at absolute sensor positions, the Bayer order by name, white balance,
// bilinear demosaicing written out neighbour by neighbour, the LUT and the
// output packing. Also the trigger block as a frame source, and the
// acquisition's threading seen from the application.
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cmath>
#include <future>
#include <initializer_list>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "vboard/grabber.h"

namespace {

using namespace std::chrono_literals;

// What a test asks for, in the user's terms.
struct Scene {
    const char* label = "";
    std::string pattern = "FG_DIAGONAL";
    uint32_t patternOffset = 5;
    std::string pixelFormat = "BayerRG12";
    uint32_t simWidth = 64;  // the simulator rounds it up to 72
    uint32_t simHeight = 32;
    uint32_t width = 64, height = 32, yOffset = 0;
    uint32_t xOffset = 0;  // odd values are poked into the buffer registers, the applet takes multiples of 16 only
    std::string format = "FG_COL48";
    std::string alignment = "FG_RIGHT_ALIGNED";
    std::array<double, 3> gains{1.0, 1.0, 1.0};
    bool invertedLut = false;
};

struct Rgb {
    uint32_t r, g, b;
    bool operator==(const Rgb&) const = default;
};


class Expected {
public:
    explicit Expected(const Scene& s) : s_(s) {
        depth_ = std::stoi(s.pixelFormat.substr(7));             // 12 of BayerRG12
        const std::string order = s.pixelFormat.substr(5, 2);  // RG of BayerRG12
        // Colours of the 2 x 2 cell, line by line: RG means R G / G B.
        cell_ = order + (order == "RG" ? "GB" : order == "GR" ? "BG" : order == "GB" ? "RG" : "GR");
        simWidthRounded_ = (s.simWidth + 11) / 12 * 12;
    }

    // The output pixel: demosaiced, through the LUT, in the output format.
    Rgb pixel(int i, int j) const {
        const char own = colourAt(i, j);
        return Rgb{convert(component('R', own, i, j)), convert(component('G', own, i, j)),
                   convert(component('B', own, i, j))};
    }

private:
    uint32_t convert(uint32_t v12) const {
        const uint32_t l = s_.invertedLut ? 4095 - v12 : v12;
        if (s_.format == "FG_COL24") return l >> 4;
        if (s_.format == "FG_COL30") return l >> 2;
        return s_.alignment == "FG_LEFT_ALIGNED" ? l << 4 : l;
    }
    // Colour of window sample (i, j) from its position on the sensor.
    char colourAt(int i, int j) const {
        const uint32_t x = s_.xOffset + static_cast<uint32_t>(i), y = s_.yOffset + static_cast<uint32_t>(j);
        return cell_[(y & 1) * 2 + (x & 1)];
    }
    uint32_t raw(uint32_t x, uint32_t y) const {
        if (x >= simWidthRounded_ || y >= s_.simHeight) return 0;
        uint32_t v = s_.patternOffset;
        if (s_.pattern != "FG_VERTICAL") v += x;
        if (s_.pattern != "FG_HORIZONTAL") v += y % 256;
        return (v % (1u << depth_)) << (12 - depth_);
    }
    int mirrored(int k, int n) const { return k < 0 ? -k : k >= n ? 2 * n - 2 - k : k; }
    uint32_t sample(int i, int j) const {
        const int mi = mirrored(i, static_cast<int>(s_.width)), mj = mirrored(j, static_cast<int>(s_.height));
        const uint32_t v = raw(s_.xOffset + static_cast<uint32_t>(mi), s_.yOffset + static_cast<uint32_t>(mj));
        const char c = colourAt(mi, mj);
        const double gain = s_.gains[c == 'R' ? 0 : c == 'G' ? 1 : 2];
        return std::min<uint32_t>(4095, static_cast<uint32_t>(std::floor(v * gain + 0.5)));
    }
    // The mean of the nearest samples of colour c: the sample itself, else
    // those of the four beside it, else those of the four diagonal ones.
    uint32_t component(char c, char own, int i, int j) const {
        if (c == own) return sample(i, j);
        for (const auto& ring : {std::array<std::array<int, 2>, 4>{{{-1, 0}, {1, 0}, {0, -1}, {0, 1}}},
                                 std::array<std::array<int, 2>, 4>{{{-1, -1}, {1, -1}, {-1, 1}, {1, 1}}}}) {
            uint32_t sum = 0, n = 0;
            for (const auto& d : ring)
                if (colourAt(i + d[0], j + d[1]) == c) {
                    sum += sample(i + d[0], j + d[1]);
                    ++n;
                }
            if (n > 0) return (sum + n / 2) / n;
        }
        ADD_FAILURE() << "no " << c << " sample near " << i << "," << j;
        return 0;
    }

    Scene s_;
    int depth_ = 12;
    std::string cell_;
    uint32_t simWidthRounded_ = 0;
};

// The pixels of a frame as the output format packs them.
std::vector<Rgb> unpack(const vboard::Frame& f) {
    std::vector<Rgb> pixels(std::size_t{f.info.width} * f.info.height);
    const uint8_t* b = f.bytes.data();
    for (std::size_t p = 0; p < pixels.size(); ++p) {
        switch (f.info.format) {
            case vboard::OutputFormat::Color24: pixels[p] = Rgb{b[3 * p], b[3 * p + 1], b[3 * p + 2]}; break;
            case vboard::OutputFormat::Color48: {
                auto word = [&](std::size_t k) { return uint32_t{b[6 * p + 2 * k]} | uint32_t{b[6 * p + 2 * k + 1]} << 8; };
                pixels[p] = Rgb{word(0), word(1), word(2)};
                break;
            }
            case vboard::OutputFormat::Color30: {
                uint64_t bits = 0;
                const std::size_t first = p * 30 / 8, skip = p * 30 % 8;
                for (std::size_t k = 0; k < 5 && first + k < f.bytes.size(); ++k) bits |= uint64_t{b[first + k]} << (8 * k);
                bits >>= skip;
                pixels[p] = Rgb{static_cast<uint32_t>(bits & 1023), static_cast<uint32_t>((bits >> 10) & 1023),
                                static_cast<uint32_t>((bits >> 20) & 1023)};
                break;
            }
        }
    }
    return pixels;
}

// Compares every `step`-th pixel of the frame with the expected image.
int mismatches(const vboard::Frame& f, const Scene& s, uint32_t step = 1) {
    const Expected expected(s);
    const std::vector<Rgb> got = unpack(f);
    int count = 0;
    for (uint32_t j = 0; j < s.height; j += step)
        for (uint32_t i = 0; i < s.width; i += step) {
            const Rgb want = expected.pixel(static_cast<int>(i), static_cast<int>(j));
            const Rgb& have = got[std::size_t{j} * s.width + i];
            if (!(have == want) && ++count <= 3)
                ADD_FAILURE() << "pixel " << i << "," << j << ": got " << have.r << " " << have.g << " " << have.b
                              << ", expected " << want.r << " " << want.g << " " << want.b;
        }
    return count;
}


class Board {
public:
    // The simulator and image path of the scene.
    explicit Board(const Scene& s = Scene{}) : g(PELAGON_APPLET_PATH) {
        simulator(s);
        imagePath(s);
    }

    void poke(const std::string& name, uint64_t v) { vboard::poke(g.board(), name, v); }
    uint64_t peek(const std::string& name) { return vboard::peek(g.board(), name); }

    void set(std::initializer_list<std::pair<const char*, std::string>> settings) {
        for (const auto& [name, value] : settings) g.set(name, value);
    }

    // The simulator, free running, through the applet's own parameters; a
    // pixel frequency of 2 MHz (set after the size, which the frame-rate
    // mode would otherwise rescale) gives about 1000 frames of 72 x 32 a second.
    void simulator(const Scene& s) {
        set({{"FG_CAMERASIMULATOR_ENABLE", "FG_CAMERASIMULATOR"}, {"FG_CAMERASIMULATOR_WIDTH", std::to_string(s.simWidth)},
             {"FG_CAMERASIMULATOR_HEIGHT", std::to_string(s.simHeight)}, {"FG_CAMERASIMULATOR_PIXEL_FREQUENCY", "2"},
             {"FG_CAMERASIMULATOR_PATTERN", s.pattern},
             {"FG_CAMERASIMULATOR_PATTERN_OFFSET", std::to_string(s.patternOffset)}, {"FG_CAMERASIMULATOR_ROLL", "FG_OFF"},
             {"FG_CAMERASIMULATOR_TRIGGER_MODE", "SIMULATION_FREE_RUN"}});
    }

    // The image path: the ROI, formats and alignment through the applet; LUT
    // and gains straight into the registers, independent of the applet's
    // processing parameters.
    void imagePath(const Scene& s) {
        set({{"FG_PIXELFORMAT", s.pixelFormat}, {"FG_WIDTH", std::to_string(s.width)},
             {"FG_HEIGHT", std::to_string(s.height)}, {"FG_YOFFSET", std::to_string(s.yOffset)},
             {"FG_FORMAT", s.format}, {"FG_BITALIGNMENT", s.alignment}, {"FG_IMG_SELECT_PERIOD", "1"}});
        if (s.xOffset % 16 != 0) {
            // As the applet would program an odd offset: both buffer halves
            // and the phase corrected for the odd column.
            poke("Device1_Process0_Buffer_0_DRAM_A_0_XOffset", s.xOffset);
            poke("Device1_Process0_Buffer_0_DRAM_A_1_XOffset", s.xOffset);
            const uint64_t phase = peek("Device1_Process0_Bayer_Bayer_BayerInit") ^ (s.xOffset & 1);
            poke("Device1_Process0_Bayer_White_BayerInit", phase);
            poke("Device1_Process0_Bayer_Bayer_BayerInit", phase);
        } else {
            g.set("FG_XOFFSET", std::to_string(s.xOffset));
        }
        const char* luts[] = {"R", "G", "B"};
        const char* gains[] = {"Red", "Green", "Blue"};
        for (int c = 0; c < 3; ++c) {
            for (unsigned i = 0; i < 4096; ++i)
                vboard::poke(g.board(), std::string("Device1_Process0_LookupTable_") + luts[c] + "_LUTcontent",
                             s.invertedLut ? 4095 - i : i, i);
            vboard::pokeDouble(g.board(), std::string("Device1_Process0_Bayer_White_") + gains[c] + "Coefficient",
                               s.gains[static_cast<std::size_t>(c)]);
        }
    }

    // The trigger system through the applet's parameters: pulse form
    // generator 0 (which the camera trigger output shows) passes every pulse,
    // and the output statistics count it.
    void triggerSystem(const std::string& mode, const std::string& rate) {
        // The queue mode programs the queue outside generator mode only.
        set({{"FG_TRIGGER_PULSEFORMGEN0_DOWNSCALE", "1"}, {"FG_TRIGGER_PULSEFORMGEN0_WIDTH", "10"},
             {"FG_TRIGGER_FRAMESPERSECOND", rate}, {"FG_TRIGGERCAMERA_OUT_SELECT", "PULSEGEN0"},
             {"FG_TRIGGEROUT_STATS_SOURCE", "PULSEGEN0"}, {"FG_TRIGGEROUT_STATS_PULSECOUNT_CLEAR", "FG_APPLY"},
             {"FG_AREATRIGGERMODE", mode}, {"FG_TRIGGERQUEUE_MODE", "FG_ON"}, {"FG_TRIGGERSTATE", "TS_SYNC_STOP"},
             {"FG_TRIGGERSTATE", "TS_ACTIVE"}});
    }
    uint32_t pulsesCounted() { return g.get<uint32_t>(g.id("FG_TRIGGEROUT_STATS_PULSECOUNT")); }

    vboard::Grabber g;
};


class AcquiredPixels : public ::testing::TestWithParam<Scene> {};

TEST_P(AcquiredPixels, MatchTheImageComputedFromTheSettings) {
    const Scene& s = GetParam();
    Board b(s);
    b.g.start(1);
    ASSERT_EQ(b.g.waitForFrame(1, 5s), 1);
    const vboard::Frame f = b.g.frame(1);
    ASSERT_EQ(f.info.width, s.width);
    ASSERT_EQ(f.info.height, s.height);
    const std::size_t pixels = std::size_t{s.width} * s.height;
    const std::size_t bytes = s.format == "FG_COL24" ? pixels * 3 : s.format == "FG_COL30" ? (pixels * 30 + 7) / 8 : pixels * 6;
    ASSERT_EQ(f.bytes.size(), bytes);
    EXPECT_EQ(mismatches(f, s), 0);
}

Scene scene(const char* label, void (*change)(Scene&)) {
    Scene s;
    s.label = label;
    change(s);
    return s;
}

INSTANTIATE_TEST_SUITE_P(
    Settings, AcquiredPixels,
    ::testing::Values(scene("IdentityLut48Right", [](Scene&) {}),
                      scene("InvertedLut", [](Scene& s) { s.invertedLut = true; }),
                      scene("RedGainSaturates", [](Scene& s) { s.gains = {3.5, 1.0, 0.5}; }),
                      scene("Color24", [](Scene& s) { s.format = "FG_COL24"; }),
                      scene("Color48LeftAligned", [](Scene& s) { s.alignment = "FG_LEFT_ALIGNED"; }),
                      scene("Color30Packed", [](Scene& s) { s.format = "FG_COL30"; }),
                      scene("OddYOffsetPastTheImage", [](Scene& s) { s.yOffset = 1; }),
                      scene("OddXOffsetPastTheImage", [](Scene& s) { s.xOffset = 17; }),
                      scene("HorizontalGB8", [](Scene& s) { s.pattern = "FG_HORIZONTAL"; s.pixelFormat = "BayerGB8"; }),
                      scene("VerticalBG10Gains", [](Scene& s) {
                          s.pattern = "FG_VERTICAL";
                          s.pixelFormat = "BayerBG10";
                          s.gains = {1.5, 0.75, 2.0};
                          s.format = "FG_COL24";
                      }),
                      scene("DiagonalGR12Offset200", [](Scene& s) {
                          s.pixelFormat = "BayerGR12";
                          s.patternOffset = 200;
                          s.simHeight = 300;
                          s.height = 300;
                          s.invertedLut = true;
                      })),
    [](const ::testing::TestParamInfo<Scene>& param) { return std::string(param.param.label); });

// The tables and gains as the applet computes and programs them from its
// processing parameters, rather than poked.
TEST(ImagePathProcessing, TheAppletsLutAndGainsShowInThePixels) {
    Scene s;
    s.invertedLut = true;
    s.gains = {2.0, 1.0, 0.5};
    Board b(s);
    b.set({{"FG_LUT_TYPE", "LUT_TYPE_PROCESSING"}, {"FG_PROCESSING_OFFSET", "0"}, {"FG_PROCESSING_GAIN", "1"},
           {"FG_PROCESSING_GAMMA", "1"}, {"FG_PROCESSING_INVERT", "FG_ON"}, {"FG_SCALINGFACTOR_RED", "2"},
           {"FG_SCALINGFACTOR_GREEN", "1"}, {"FG_SCALINGFACTOR_BLUE", "0.5"}});
    b.g.start(1);
    ASSERT_EQ(b.g.waitForFrame(1, 5s), 1);
    EXPECT_EQ(mismatches(b.g.frame(1), s, 5), 0);
}

TEST(ImagePathRoll, EachFrameStepsThePatternByOne) {
    Scene s;
    s.pattern = "FG_HORIZONTAL";
    Board b(s);
    b.g.set("FG_CAMERASIMULATOR_ROLL", "FG_ON");
    b.g.allocateBuffers(2);
    b.g.start(2);
    ASSERT_EQ(b.g.waitForFrame(2, 5s), 2);
    const std::vector<Rgb> first = unpack(b.g.frame(1)), second = unpack(b.g.frame(2));
    ASSERT_EQ(first.size(), second.size());
    for (std::size_t p = 0; p < first.size(); ++p) {
        ASSERT_EQ(second[p].r, first[p].r + 1) << "pixel " << p;
        ASSERT_EQ(second[p].b, first[p].b + 1) << "pixel " << p;
    }
}

// Without the simulator nothing arrives: a wait times out with the runtime's
// number, and a stop wakes a waiter long before its time-out.
TEST(ImagePathSource, TheCameraNeverDeliversTheWaitTimesOutAndAStopWakesAWaiter) {
    Board b;
    b.g.set("FG_CAMERASIMULATOR_ENABLE", "FG_CAMPORT");
    b.g.start();
    try {
        b.g.waitForFrame(1, 200ms);
        FAIL() << "a frame arrived without a camera";
    } catch (const vboard::Error& e) {
        EXPECT_EQ(e.code(), vboard::kErrTimeout);
        EXPECT_NE(std::string(e.what()).find("-2120"), std::string::npos) << e.what();
    }
    EXPECT_EQ(b.g.lastFrame(), 0);
    auto waiter = std::async(std::launch::async, [&] {
        const auto begin = std::chrono::steady_clock::now();
        try {
            b.g.waitForFrame(1, 20s);
        } catch (const vboard::Error& e) {
            EXPECT_EQ(e.code(), vboard::kErrTimeout);
        }
        return std::chrono::steady_clock::now() - begin;
    });
    std::this_thread::sleep_for(100ms);
    b.g.stop();
    EXPECT_LT(waiter.get(), 10s);
}


TEST(ImagePathTrigger, SoftwarePulsesGiveOneFrameEachAndAreCounted) {
    Board b;
    b.g.set("FG_CAMERASIMULATOR_TRIGGER_MODE", "RISING_EDGE_TRIGGERS_FRAME");
    // 100 pulses per second: each frame (about 1 ms) is done before the next pulse.
    b.triggerSystem("ATM_SOFTWARE", "100");
    b.g.allocateBuffers(8);
    b.g.start();
    constexpr int kPulses = 5;
    b.g.set("FG_SENDSOFTWARETRIGGER", std::to_string(kPulses));
    EXPECT_EQ(b.g.waitForFrame(kPulses, 5s), kPulses);
    EXPECT_THROW(b.g.waitForFrame(kPulses + 1, 100ms), vboard::Error);
    EXPECT_EQ(b.g.lastFrame(), kPulses);
    EXPECT_EQ(b.pulsesCounted(), uint32_t{kPulses});
    EXPECT_EQ(b.g.get<uint32_t>(b.g.id("FG_TRIGGERQUEUE_FILLLEVEL")), 0u);
    EXPECT_EQ(b.g.get<uint32_t>(b.g.id("FG_MISSING_CAMERA_FRAME_RESPONSE")), 0u);
}

TEST(ImagePathTrigger, TheGeneratorAtFiftyPulsesPerSecondGivesAboutFiftyFrames) {
    Board b;
    b.g.set("FG_CAMERASIMULATOR_TRIGGER_MODE", "RISING_EDGE_TRIGGERS_FRAME");
    b.g.allocateBuffers(8);
    b.g.start();
    const auto begin = std::chrono::steady_clock::now();
    b.triggerSystem("ATM_GENERATOR", "50");
    std::this_thread::sleep_for(1s);
    const int64_t frames = b.g.lastFrame();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    b.g.stop();
    EXPECT_GE(frames, static_cast<int64_t>(35 * seconds));
    EXPECT_LE(frames, static_cast<int64_t>(65 * seconds) + 1);
    EXPECT_GE(b.pulsesCounted(), static_cast<uint32_t>(frames));
}


TEST(ImagePathAcquisition, RestartsCountFromOneAndClosingEndsARunningAcquisition) {
    Board b;
    b.g.allocateBuffers(4);
    for (int round = 0; round < 3; ++round) {
        b.g.start();
        EXPECT_GE(b.g.waitForFrame(3, 5s), 3);
        b.g.stop();
        const int64_t last = b.g.lastFrame();
        std::this_thread::sleep_for(20ms);
        EXPECT_EQ(b.g.lastFrame(), last) << "frames after the stop";
        EXPECT_EQ(b.g.frame(last).info.number, last);
    }
    b.g.stop();  // stopping again is harmless
    b.g.start();
    EXPECT_GE(b.g.waitForFrame(1, 5s), 1);
}  // the destructor stops the acquisition and frees the board under it

TEST(ImagePathGrabber, RefusalsCarryTheNumberAndItsMeaning) {
    Board b;
    try {
        b.g.set("FG_WIDTH", "40");
        FAIL() << "width 40 accepted";
    } catch (const vboard::Error& e) {
        EXPECT_EQ(e.code(), -7080);
        EXPECT_NE(std::string(e.what()).find("FG_WIDTH to 40"), std::string::npos) << e.what();
        EXPECT_NE(std::string(e.what()).find("multiple"), std::string::npos) << e.what();
    }
    EXPECT_THROW(b.g.set("FG_FORMAT", "FG_COL47"), vboard::Error);
    EXPECT_THROW(b.g.set("FG_WIDTH", "12x"), vboard::Error);
    EXPECT_THROW(b.g.id("FG_NO_SUCH_THING"), vboard::Error);
    b.g.set("FG_FORMAT", "FG_COL48");
    EXPECT_EQ(b.g.getText(b.g.id("FG_FORMAT")), "FG_COL48");
    b.g.set("FG_FORMAT", "Color 24bit");
    EXPECT_EQ(b.g.get<uint32_t>(b.g.id("FG_FORMAT")), 2u);
    EXPECT_THROW(vboard::Grabber("/nonexistent/libPelagon.so"), vboard::Error);

    // The published description, as a parameter listing shows it.
    const vboard::ParameterInfo format = b.g.parameter(b.g.id("FG_FORMAT"));
    EXPECT_EQ(format.name, "FG_FORMAT");
    EXPECT_EQ(format.format, REG_FORMAT_ENUM);
    EXPECT_FALSE(format.group.empty());
    ASSERT_EQ(format.entries.size(), 3u);
    EXPECT_EQ(format.entries[2].symbol, "FG_COL48");
    const vboard::ParameterInfo width = b.g.parameter(b.g.id("FG_WIDTH"));
    EXPECT_EQ(width.minimum, 32);
    EXPECT_EQ(width.step, 16);
    EXPECT_EQ(width.unit, "pixel");
    EXPECT_TRUE(width.writable());
}

}  // namespace
