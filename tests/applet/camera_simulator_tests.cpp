// The camera simulator through the exported interface: the registers it
// programs (in order), the rounding to 12-pixel words, the three speed modes
// with their published bounds and access rights, and the rate conversions.
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "AppletHost.h"
#include "pelagon_errors.h"

namespace {

enum Id : int {
    ENABLE = 30099, WIDTH = 30102, LINE_GAP = 30105, HEIGHT = 200322, FRAME_GAP = 200325, PATTERN = 200326,
    PATTERN_OFFSET = 200356, ROLL = 200327, SELECT_MODE = 200328, PIXEL_FREQUENCY = 30106, LINERATE = 200329,
    FRAMERATE = 200352, TRIGGER_MODE = 200355, ACTIVE = 30101, PASSIVE = 30100,
};
enum Mode : uint32_t { PIXEL_FREQUENCY_MODE = 0, LINE_RATE_MODE = 1, FRAME_RATE_MODE = 2 };

const std::string kSim = "Device1_Process0_CameraSimulator_";
constexpr int kFault = -5;

class AppletCameraSimulator : public AppletTest {
protected:

    void enterMode(uint32_t mode) {
        ASSERT_EQ(host.setU32(SELECT_MODE, mode), 0);
        vboard::clearJournal(host.board);
    }
    Writes writes() { return takeWrites(host.board, kSim); }
    uint64_t reg(const std::string& entry) { return vboard::peek(host.board, kSim + entry); }
    uint32_t maxU32(int id) { return host.record(id) ? host.record(id)->u.uiReg.to : 0; }
    double maxDouble(int id) { return host.record(id) ? host.record(id)->u.dReg.to : 0; }
    std::vector<int32_t> timingAccess() {
        std::vector<int32_t> flags;
        for (int id : {PIXEL_FREQUENCY, LINERATE, FRAMERATE, LINE_GAP, FRAME_GAP})
            flags.push_back(host.record(id) ? host.record(id)->accessFlags : -1);
        return flags;
    }
};

}  // namespace

TEST_F(AppletCameraSimulator, SourcePatternRollAndTriggerModeProgramTheirRegisters) {
    vboard::clearJournal(host.board);
    for (auto [id, value] : {std::pair{ENABLE, 1u}, {PATTERN, 2u}, {PATTERN, 3u}, {PATTERN_OFFSET, 255u}, {ROLL, 0u},
                             {ROLL, 1u}, {TRIGGER_MODE, 8u}, {TRIGGER_MODE, 9u}, {TRIGGER_MODE, 0u}})
        EXPECT_EQ(host.setU32(id, value), 0) << "id " << id << " value " << value;
    EXPECT_EQ(writes(), (Writes{{"Enable_SelectSource", 1}, {"EnableX_Enable_Value", 0}, {"Y_Divisor", 256},
                                {"EnableX_Enable_Value", 1}, {"Y_Divisor", 256}, {"Offset_Value", 255},
                                {"Frame_Divisor", 1}, {"Frame_Divisor", 256},
                                {"TriggerValve_FreeRun_Select", 0}, {"TriggerValve_TriggerValve_Mode", 1},
                                {"TriggerValve_FreeRun_Select", 0}, {"TriggerValve_TriggerValve_Mode", 2},
                                {"TriggerValve_FreeRun_Select", 1}, {"TriggerValve_TriggerValve_Mode", 2}}));

    for (auto [id, bad] :
         {std::pair{ENABLE, 2u}, {PATTERN, 0u}, {PATTERN_OFFSET, 256u}, {ROLL, 2u}, {TRIGGER_MODE, 1u}})
        EXPECT_EQ(host.setU32(id, bad), PGN_ERR_OUT_OF_RANGE) << "id " << id;
    EXPECT_TRUE(writes().empty());
    EXPECT_EQ(host.u32(PATTERN), 3u);
}

TEST_F(AppletCameraSimulator, SizesRoundUpToWordsInTheCrossedRegisters) {
    enterMode(PIXEL_FREQUENCY_MODE);
    EXPECT_EQ(host.setU32(WIDTH, 0), PGN_ERR_OUT_OF_RANGE);
    ASSERT_EQ(host.setU32(WIDTH, 1), 0);
    EXPECT_EQ(host.u32(WIDTH), 12u);
    ASSERT_EQ(host.setU32(WIDTH, 100), 0);
    ASSERT_EQ(host.setU32(LINE_GAP, 5), 0);
    ASSERT_EQ(host.setU32(HEIGHT, 100), 0);
    ASSERT_EQ(host.setU32(FRAME_GAP, 20), 0);
    EXPECT_EQ(writes(), (Writes{{"Size_ImageWidth", 1}, {"LineGap_Number", 1}, {"Size_ImageWidth", 9},
                                {"LineGap_Number", 9}, {"Size_ImageWidth", 10}, {"LineGap_Number", 9},
                                {"Size_ImageHeight", 100}, {"FrameGap_Number", 100},
                                {"Size_ImageHeight", 120}, {"FrameGap_Number", 100}}));
    EXPECT_EQ(host.u32(WIDTH), 108u);
    EXPECT_EQ(host.u32(LINE_GAP), 12u);
    EXPECT_EQ(host.u32(FRAME_GAP), 20u);
    // Each size leaves its partner the rest of 65536.
    EXPECT_EQ(maxU32(WIDTH), 65536u - 12);
    EXPECT_EQ(maxU32(LINE_GAP), 65536u - 108);
    EXPECT_EQ(maxU32(HEIGHT), 65536u - 20);
    EXPECT_EQ(maxU32(FRAME_GAP), 65536u - 100);
    EXPECT_EQ(host.setU32(WIDTH, 65536 - 11), PGN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(host.setU32(FRAME_GAP, 65437), PGN_ERR_OUT_OF_RANGE);
}

TEST_F(AppletCameraSimulator, PixelFrequencyBecomesActiveClocksOfA2000ClockSequence) {
    enterMode(PIXEL_FREQUENCY_MODE);
    ASSERT_EQ(host.setDouble(PIXEL_FREQUENCY, 1500.0), 0);
    EXPECT_EQ(writes(), (Writes{{"PixelFrequency_ActivePixel_Number", 2000}, {"PixelFrequency_RepeatPat_Divisor", 1},
                                {"PixelFrequency_SequenceLength_ImageWidth", 2000}}));
    EXPECT_DOUBLE_EQ(host.dbl(PIXEL_FREQUENCY), 1500.0);
    EXPECT_EQ(host.u32(PASSIVE), 0u);
    ASSERT_EQ(host.setDouble(PIXEL_FREQUENCY, 750.0), 0);
    EXPECT_EQ(reg("PixelFrequency_RepeatPat_Divisor"), 2u);
    EXPECT_EQ(host.u32(ACTIVE), 1000u);
    EXPECT_EQ(host.u32(PASSIVE), 1000u);
    ASSERT_EQ(host.setDouble(PIXEL_FREQUENCY, 1.0), 0);
    EXPECT_EQ(reg("PixelFrequency_ActivePixel_Number"), 1u);
    EXPECT_EQ(reg("PixelFrequency_RepeatPat_Divisor"), 2000u);
    EXPECT_DOUBLE_EQ(host.dbl(PIXEL_FREQUENCY), 0.75) << "one active clock of 12 pixels per 16 us";
    writes();

    // 0.3 MHz would not give a single active clock: refused before anything moves.
    for (double bad : {0.3, -1.0, 4000.5, std::numeric_limits<double>::quiet_NaN()})
        EXPECT_EQ(host.setDouble(PIXEL_FREQUENCY, bad), PGN_ERR_OUT_OF_RANGE) << bad;
    EXPECT_TRUE(writes().empty());
    // A mode switch re-applies the cached frequency: still 1 MHz.
    enterMode(LINE_RATE_MODE);
    enterMode(PIXEL_FREQUENCY_MODE);
    EXPECT_EQ(reg("PixelFrequency_ActivePixel_Number"), 1u);
}

TEST_F(AppletCameraSimulator, LineRateSetsTheLineLengthInClocksAndBoundsTheWidth) {
    enterMode(PIXEL_FREQUENCY_MODE);
    ASSERT_EQ(host.setU32(LINE_GAP, 24), 0);
    enterMode(LINE_RATE_MODE);
    EXPECT_EQ(host.u32(LINE_GAP), 0u) << "no line gap in line-rate mode";

    EXPECT_EQ(host.setDouble(LINERATE, 0.09), PGN_ERR_OUT_OF_RANGE);
    ASSERT_EQ(host.setDouble(LINERATE, 1e6), 0);
    EXPECT_EQ(writes(), (Writes{{"PixelFrequency_SequenceLength_ImageWidth", 125},
                                {"PixelFrequency_ActivePixel_Number", 1}, {"Size_ImageWidth", 86},
                                {"LineGap_Number", 86}}));
    EXPECT_DOUBLE_EQ(host.dbl(LINERATE), 1e6);
    EXPECT_DOUBLE_EQ(host.dbl(PIXEL_FREQUENCY), 1500.0);
    // 1500 pixels per line, of which one word at least is gap.
    EXPECT_EQ(maxU32(WIDTH), 1488u);
    EXPECT_EQ(maxU32(LINE_GAP), 1500u - 1032 - 12);
    EXPECT_EQ(host.setU32(WIDTH, 1489), PGN_ERR_OUT_OF_RANGE);
    ASSERT_EQ(host.setU32(WIDTH, 1488), 0);
    EXPECT_DOUBLE_EQ(maxDouble(LINERATE), 1.5e9 / 1500);
    EXPECT_EQ(host.setDouble(LINERATE, 1.5e9 / 1500 * 1.001), PGN_ERR_OUT_OF_RANGE);

    uint32_t untouched = 777;
    ASSERT_EQ(host.getU32(ACTIVE, untouched), 0);
    EXPECT_EQ(untouched, 777u) << "the active part exists only in pixel-frequency mode";
}

TEST_F(AppletCameraSimulator, EachModeMakesOnlyItsOwnTimingChangeable) {
    constexpr int32_t RW = 7, RO = 1;
    enterMode(PIXEL_FREQUENCY_MODE);
    EXPECT_EQ(reg("ControlPixelClock_Mode"), 0u);
    EXPECT_EQ(timingAccess(), (std::vector<int32_t>{RW, RO, RO, RW, RW}));
    ASSERT_EQ(host.setU32(FRAME_GAP, 10), 0);

    enterMode(LINE_RATE_MODE);
    EXPECT_EQ(reg("ControlPixelClock_Mode"), 1u);
    EXPECT_EQ(timingAccess(), (std::vector<int32_t>{RO, RW, RO, RO, RW}));
    EXPECT_EQ(host.u32(FRAME_GAP), 10u);

    enterMode(FRAME_RATE_MODE);
    EXPECT_EQ(timingAccess(), (std::vector<int32_t>{RO, RO, RW, RO, RO}));
    EXPECT_EQ(host.u32(FRAME_GAP), 0u);
    EXPECT_EQ(maxU32(FRAME_GAP), 0u);
    EXPECT_EQ(maxU32(LINE_GAP), 0u);
    EXPECT_EQ(reg("Size_ImageHeight"), 1024u) << "the frame gap is not programmed";
    EXPECT_EQ(host.setU32(FRAME_GAP, 1), PGN_ERR_OUT_OF_RANGE);

    EXPECT_EQ(host.setU32(SELECT_MODE, 3), PGN_ERR_OUT_OF_RANGE);
    EXPECT_TRUE(writes().empty());
    EXPECT_EQ(host.u32(SELECT_MODE), 2u);
}

TEST_F(AppletCameraSimulator, FrameRateSetsClocksPerLineForTheWholeFrame) {
    enterMode(FRAME_RATE_MODE);
    ASSERT_EQ(host.setU32(HEIGHT, 1000), 0);
    ASSERT_EQ(host.setU32(WIDTH, 1020), 0);
    const double maximum = 1.5e9 / (1032.0 * 1000);
    EXPECT_NEAR(maxDouble(FRAMERATE), maximum, 1e-9);
    EXPECT_EQ(host.setDouble(FRAMERATE, maximum * 1.0001), PGN_ERR_OUT_OF_RANGE);
    ASSERT_EQ(host.setDouble(FRAMERATE, maximum), 0);

    vboard::clearJournal(host.board);
    ASSERT_EQ(host.setDouble(FRAMERATE, 77.0), 0);
    EXPECT_EQ(writes(), (Writes{{"PixelFrequency_SequenceLength_ImageWidth", 1623},
                                {"PixelFrequency_ActivePixel_Number", 1}, {"Size_ImageWidth", 85},
                                {"LineGap_Number", 85}, {"Size_ImageHeight", 1000}, {"FrameGap_Number", 1000}}));
    EXPECT_DOUBLE_EQ(host.dbl(FRAMERATE), 1 / (1000.0 * 1623 * 8e-9));

    // A new height keeps the frame rate: the lines get longer.
    ASSERT_EQ(host.setU32(HEIGHT, 500), 0);
    EXPECT_EQ(reg("PixelFrequency_SequenceLength_ImageWidth"), 3247u);
    EXPECT_NEAR(host.dbl(FRAMERATE), 77.0, 0.05);
}

TEST_F(AppletCameraSimulator, FailedRegisterWriteRestoresTheCacheButNotTheRegisters) {
    enterMode(PIXEL_FREQUENCY_MODE);
    ASSERT_EQ(host.setU32(HEIGHT, 100), 0);
    vboard::injectFault(host.board, kSim + "FrameGap_Number", vboard::Access::Write, 1, kFault);
    EXPECT_EQ(host.setU32(HEIGHT, 200), kFault);
    EXPECT_EQ(host.u32(HEIGHT), 100u);
    EXPECT_EQ(reg("Size_ImageHeight"), 200u) << "writes made before the failure stay";

    // A failure in the frequency write nested in a mode switch keeps the old mode.
    enterMode(LINE_RATE_MODE);
    vboard::injectFault(host.board, kSim + "PixelFrequency_RepeatPat_Divisor", vboard::Access::Write, 1, kFault);
    EXPECT_EQ(host.setU32(SELECT_MODE, PIXEL_FREQUENCY_MODE), kFault);
    EXPECT_EQ(host.u32(SELECT_MODE), uint32_t{LINE_RATE_MODE});
    EXPECT_EQ(reg("ControlPixelClock_Mode"), 0u) << "the mode register was already written";
}
