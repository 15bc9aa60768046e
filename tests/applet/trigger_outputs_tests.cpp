// Pulse form generators and trigger outputs through the exported interface:
// quantisation of delay and width, the period checks from the generators'
// side, the selector/invert mapping of every output, the Async Stop rule,
// output statistics and the missing-frame monitor.
#include <algorithm>

#include "TriggerHelpers.h"

using namespace trig;

namespace {

class TriggerOutputs : public TriggerTest {};

struct OutputRegisters {
    int id;
    std::string base;  // selector and invert register names share it
};

std::vector<OutputRegisters> allOutputs() {
    std::vector<OutputRegisters> out{{CAMERA_OUT_SELECT, "TriggerCam0_CameraControl_SelectTrigger"}};
    for (int n = 0; n < 8; ++n)
        out.push_back({CAMERA_GPO0 + n, "TriggerCam0_CameraControl_Select" + std::to_string(n)});
    for (int n = 0; n < 8; ++n)
        out.push_back({triggerOutSelect(n), "TriggerCam0_TriggerOutput_Select" + std::to_string(n)});
    return out;
}

Writes selection(const std::string& base, uint64_t selector, uint64_t invert) {
    return {{base + "_Select_Select", selector}, {base + "_Polarity_Invert", invert}};
}

std::string pfg(int g, const std::string& what) {
    return "TriggerCam0_PulseFormGenerators_PulseFormGenerator" + std::to_string(g) + "_" + what;
}

}  // namespace

// Delays round to the nearest tick on every generator; widths round on
// generator 0 and truncate on the others. Both read back in whole ticks.
TEST_F(TriggerOutputs, DelayAndWidthAreQuantisedPerGenerator) {
    for (int g = 0; g < 4; ++g) {
        SCOPED_TRACE(g);
        ASSERT_EQ(host.setDouble(pfgDelay(g), 0.0625), 0);
        ASSERT_EQ(host.setDouble(pfgWidth(g), 1.0155), 0);
        EXPECT_EQ(writes(), (Writes{{pfg(g, "Delay_Delay"), 8}, {pfg(g, "Width_Width"), g == 0 ? 127u : 126u}}));
        EXPECT_DOUBLE_EQ(host.dbl(pfgDelay(g)), 0.064);
        EXPECT_DOUBLE_EQ(host.dbl(pfgWidth(g)), g == 0 ? 1.016 : 1.008);
        for (double refused : {-0.001, 34000000.5})
            EXPECT_EQ(host.setDouble(pfgDelay(g), refused), PGN_ERR_OUT_OF_RANGE);
        for (double refused : {0.0, 0.999, 68000000.5})
            EXPECT_EQ(host.setDouble(pfgWidth(g), refused), PGN_ERR_OUT_OF_RANGE);
        EXPECT_TRUE(writes().empty());
    }
}

// A width the 32-bit tick register cannot hold is refused even where the
// period would allow it.
TEST_F(TriggerOutputs, WidthsBeyondTheRegisterAreRefused) {
    ASSERT_EQ(host.setDouble(FRAMESPERSECOND, 0.0291038304567337), 0);
    ASSERT_EQ(host.setU32(pfgDownscale(1), 7), 0);
    vboard::clearJournal(host.board);
    EXPECT_EQ(host.setDouble(pfgWidth(1), 68000000.0), PGN_ERR_OUT_OF_RANGE);
    EXPECT_TRUE(writes().empty());
    EXPECT_EQ(host.setDouble(pfgWidth(1), 34000000.0), 0);
    EXPECT_EQ(writes(), (Writes{{pfg(1, "Width_Width"), 4250000000u}}));
}

TEST_F(TriggerOutputs, GeneratorsCheckTheRatePeriod) {
    ASSERT_EQ(host.setU32(pfgDownscale(2), 2), 0);
    ASSERT_EQ(host.setDouble(pfgWidth(2), 1500.0), 0);
    ASSERT_EQ(host.setDouble(FRAMESPERSECOND, 1000.0), 0) << "750 us needed";
    EXPECT_EQ(host.setU32(pfgDownscale(2), 1), PGN_ERR_DOWNSCALE_TOO_SMALL);
    EXPECT_EQ(host.u32(pfgDownscale(2)), 2u);
    EXPECT_EQ(host.setDouble(pfgDelay(2), 2000.0), PGN_ERR_PERIOD_TOO_SHORT);
    EXPECT_EQ(host.setDouble(pfgDelay(0), 1000.0), PGN_ERR_PERIOD_TOO_SHORT) << "not strictly shorter";
    EXPECT_EQ(host.setDouble(pfgWidth(2), 2100.0), PGN_ERR_PERIOD_TOO_SHORT);
    EXPECT_DOUBLE_EQ(host.dbl(pfgWidth(2)), 1500.0);
    EXPECT_DOUBLE_EQ(host.dbl(pfgDelay(2)), 0.0);
    ASSERT_EQ(host.setDouble(pfgDelay(0), 999.0), 0);
}

// 0 <= phase < downscale <= 7, published on both parameters.
TEST_F(TriggerOutputs, DownscaleAndPhaseBoundEachOtherPerGenerator) {
    for (int g = 0; g < 4; ++g) {
        SCOPED_TRACE(g);
        for (uint32_t refused : {0u, 8u}) EXPECT_EQ(host.setU32(pfgDownscale(g), refused), PGN_ERR_OUT_OF_RANGE);
        ASSERT_EQ(host.setU32(pfgDownscale(g), 5), 0);
        EXPECT_EQ(host.record(pfgPhase(g))->u.uiReg.to, 4u);
        ASSERT_EQ(host.setU32(pfgPhase(g), 3), 0);
        EXPECT_EQ(host.record(pfgDownscale(g))->u.uiReg.from, 4u);
        EXPECT_EQ(writes(), (Writes{{pfg(g, "Downscale_Downscale"), 5}, {pfg(g, "Downscale_SelectedPulse"), 4}}));
        EXPECT_EQ(host.setU32(pfgDownscale(g), 3), PGN_ERR_OUT_OF_RANGE);
        EXPECT_EQ(host.setU32(pfgPhase(g), 5), PGN_ERR_OUT_OF_RANGE);
        EXPECT_EQ(host.u32(pfgDownscale(g)), 5u);
        EXPECT_EQ(host.u32(pfgPhase(g)), 3u);
    }
}

TEST_F(TriggerOutputs, EverySelectionMapsToItsSelectorAndInvert) {
    const uint64_t expected[][2] = {{0, 0}, {1, 0}, {2, 0}, {3, 0}, {5, 0}, {5, 1},
                                    {0, 1}, {1, 1}, {2, 1}, {3, 1}, {4, 0}, {4, 1}};
    const std::string gpo3 = "TriggerCam0_CameraControl_Select3";
    for (uint32_t v = 0; v < 12; ++v) {
        ASSERT_EQ(host.setU32(CAMERA_GPO0 + 3, v), 0) << v;
        EXPECT_EQ(writes(), selection(gpo3, expected[v][0], expected[v][1])) << v;
    }
    EXPECT_EQ(host.setU32(CAMERA_GPO0 + 3, 12), PGN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(host.u32(CAMERA_GPO0 + 3), 11u);
}

TEST_F(TriggerOutputs, EachOutputWritesItsOwnRegistersAndKeepsItsValueWhenAWriteFails) {
    for (const OutputRegisters& o : allOutputs()) {
        SCOPED_TRACE(o.base);
        ASSERT_EQ(host.setU32(o.id, 9), 0);
        EXPECT_EQ(writes(), selection(o.base, 3, 1));
        failWrite(o.base + "_Polarity_Invert", 1, -8);
        EXPECT_EQ(host.setU32(o.id, 1), -8);
        EXPECT_EQ(host.u32(o.id), 9u);
        EXPECT_EQ(writes(), (Writes{{o.base + "_Select_Select", 1}}));
    }
}

// After an immediate stop the board's outputs wait for the outputs to be
// enabled again; the camera's outputs follow at once.
TEST_F(TriggerOutputs, AfterAnAsyncStopBoardOutputsChangeOnlyTheirValue) {
    enter(GENERATOR, ASYNC_STOP);
    ASSERT_EQ(host.setU32(triggerOutSelect(2), 10), 0);
    EXPECT_TRUE(writes().empty());
    EXPECT_EQ(host.u32(triggerOutSelect(2)), 10u);
    ASSERT_EQ(host.setU32(CAMERA_GPO0, 1), 0);
    EXPECT_EQ(writes(), selection("TriggerCam0_CameraControl_Select0", 1, 0));
    ASSERT_EQ(host.setU32(CAMERA_OUT_SELECT, 5), 0);
    EXPECT_EQ(writes(), selection("TriggerCam0_CameraControl_SelectTrigger", 5, 1));

    ASSERT_EQ(host.setU32(TRIGGERSTATE, ACTIVE), 0);
    const Writes started = writes();
    const Writes output2 = selection("TriggerCam0_TriggerOutput_Select2", 4, 0);
    EXPECT_NE(std::search(started.begin(), started.end(), output2.begin(), output2.end()), started.end());
    ASSERT_EQ(host.setU32(triggerOutSelect(2), 11), 0);
    EXPECT_EQ(writes(), selection("TriggerCam0_TriggerOutput_Select2", 4, 1));
}

TEST_F(TriggerOutputs, OutputStatisticsAndMissingFrameMonitor) {
    ASSERT_EQ(host.setU32(OUT_STATS_SOURCE, 3), 0);
    EXPECT_EQ(host.setU32(OUT_STATS_SOURCE, 4), PGN_ERR_OUT_OF_RANGE);
    ASSERT_EQ(host.setU32(OUT_PULSECOUNT_CLEAR, 1), 0);
    EXPECT_EQ(host.setU32(OUT_PULSECOUNT_CLEAR, 0), PGN_ERR_OUT_OF_RANGE);
    ASSERT_EQ(host.setU32(MISSING_FRAME_CLEAR, 1), 0);
    EXPECT_EQ(host.setU32(MISSING_FRAME_CLEAR, 2), PGN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(writes(), (Writes{{"TriggerCam0_OutputStatistics_Select_Select", 3},
                                {"TriggerCam0_OutputStatistics_ClearPulses_Mode", 2},
                                {"Monitoring_ClearMissingFrame_Cam0_Mode", 2}}));
    EXPECT_EQ(host.u32(OUT_STATS_SOURCE), 3u);

    poke("TriggerCam0_OutputStatistics_ReadPulses_Status", 1234);
    EXPECT_EQ(host.u32(OUT_PULSECOUNT), 1234u);
    poke("Monitoring_ReadQueueStatus_Status", 3);
    EXPECT_EQ(host.u32(MISSING_FRAME), 0u);
    poke("Monitoring_ReadQueueStatus_Status", 4);
    EXPECT_EQ(host.u32(MISSING_FRAME), 1u);
}
