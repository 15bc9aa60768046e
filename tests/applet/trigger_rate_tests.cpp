// Trigger rate, pulse multiplier, queue and software trigger through the
// exported interface, with status registers poked on the virtual board.
#include <sys/prctl.h>

#include <cmath>
#include <limits>

#include "TriggerHelpers.h"

using namespace trig;

namespace {

const std::string kPeriod = "TriggerCam0_Generators_Generator_MinimumPeriod_Number";
const std::string kReady = "TriggerCam0_Generators_Generator_MaximumReached_Status";
const std::string kQueued = "TriggerCam0_Generators_QueueValue_Status";
const std::string kMonitor = "Monitoring_ReadQueueStatus_Status";
const std::string kSoftwarePulse = "TriggerCam0_TriggerMode_SoftwareTrigger_Mode";

class TriggerRate : public TriggerTest {
protected:
    // The generator idle and the queue empty.
    void idle() {
        poke(kReady, 1);
        poke(kQueued, 0);
        poke(kMonitor, 0);
    }
    uint32_t published(int id) { return host.record(id)->u.uiReg.to; }
};

}  // namespace

TEST_F(TriggerRate, RateEdgesProgramThePeriodRegister) {
    const struct {
        double rate;
        uint64_t period;
    } cases[] = {{12500000.0, 1}, {0.0291038304567337, 4294967287u}, {8.0, 15624990}, {1000.0, 124990}};
    for (const auto& c : cases) {
        ASSERT_EQ(host.setDouble(FRAMESPERSECOND, c.rate), 0) << c.rate;
        EXPECT_EQ(writes(), (Writes{{kPeriod, c.period}})) << c.rate;
        EXPECT_NEAR(host.dbl(FRAMESPERSECOND), c.rate, c.rate * 1e-12);
    }
    for (double refused : {12500000.5, 0.0291, 0.0, -8.0, std::nan(""), std::numeric_limits<double>::infinity()})
        EXPECT_EQ(host.setDouble(FRAMESPERSECOND, refused), PGN_ERR_OUT_OF_RANGE) << refused;
    EXPECT_TRUE(writes().empty());
    EXPECT_NEAR(host.dbl(FRAMESPERSECOND), 1000.0, 1e-9);
}

// The period must be strictly longer than the longest delay or width of a
// generator over its downscale; delay and width are not added.
TEST_F(TriggerRate, PeriodMustExceedWhatThePulseFormsNeed) {
    ASSERT_EQ(host.setDouble(pfgDelay(0), 1000.0), 0);
    EXPECT_EQ(host.setDouble(FRAMESPERSECOND, 1000.0), PGN_ERR_PERIOD_TOO_SHORT);
    EXPECT_DOUBLE_EQ(host.dbl(FRAMESPERSECOND), 8.0);
    vboard::clearJournal(host.board);
    EXPECT_EQ(host.setDouble(FRAMESPERSECOND, 999.0), 0);
    EXPECT_EQ(writes(), (Writes{{kPeriod, 125116}}));

    ASSERT_EQ(host.setDouble(pfgDelay(0), 600.0), 0);
    ASSERT_EQ(host.setDouble(pfgWidth(0), 600.0), 0);
    EXPECT_EQ(host.setDouble(FRAMESPERSECOND, 1600.0), 0) << "600 + 600 must not be needed";
    EXPECT_EQ(host.setDouble(FRAMESPERSECOND, 1700.0), PGN_ERR_PERIOD_TOO_SHORT);

    // Generator 3's downscale spreads its width over two pulses.
    ASSERT_EQ(host.setDouble(FRAMESPERSECOND, 8.0), 0);
    ASSERT_EQ(host.setU32(pfgDownscale(3), 2), 0);
    ASSERT_EQ(host.setDouble(pfgWidth(3), 1500.0), 0);
    EXPECT_EQ(host.setDouble(FRAMESPERSECOND, 1300.0), 0);
    EXPECT_EQ(host.setDouble(FRAMESPERSECOND, 1400.0), PGN_ERR_PERIOD_TOO_SHORT);
}

// The selected pulse never exceeds the count in between.
TEST_F(TriggerRate, PulseMultiplierWritesInTheOrderThatKeepsTheSelectedPulseBelowTheCount) {
    const std::string count = "TriggerCam0_Generators_Sequence_Downscale";
    const std::string selected = "TriggerCam0_Generators_Sequence_SelectedPulse";
    const std::string reset = "TriggerCam0_Generators_ClearDownscale_Mode";
    ASSERT_EQ(host.setU32(MULTIPLY_PULSES, 5), 0);
    EXPECT_EQ(writes(), (Writes{{count, 5}, {selected, 5}, {reset, 2}}));
    ASSERT_EQ(host.setU32(MULTIPLY_PULSES, 3), 0);
    EXPECT_EQ(writes(), (Writes{{selected, 3}, {count, 3}, {reset, 2}}));
    ASSERT_EQ(host.setU32(MULTIPLY_PULSES, 3), 0);
    EXPECT_EQ(writes(), (Writes{{selected, 3}, {count, 3}, {reset, 2}}));
    for (uint32_t refused : {0u, 65536u}) EXPECT_EQ(host.setU32(MULTIPLY_PULSES, refused), PGN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(host.u32(MULTIPLY_PULSES), 3u);
}

TEST_F(TriggerRate, QueueModeProgramsTheQueueOutsideGeneratorModeAndPublishesThePulseLimit) {
    const std::string full = "TriggerCam0_Generators_Queue_QueueFullValue_Number";
    const std::string enabled = "TriggerCam0_Generators_Queue_QueueEnabled_Select";
    ASSERT_EQ(host.setU32(QUEUE_MODE, 1), 0);
    EXPECT_TRUE(writes().empty()) << "generator mode leaves the queue to the next start";
    EXPECT_EQ(published(SEND_SOFTWARE_TRIGGER), 2040u);

    enter(SOFTWARE, SYNC_STOP);
    ASSERT_EQ(host.setU32(QUEUE_MODE, 0), 0);
    EXPECT_EQ(writes(), (Writes{{kPeriod, 10}, {full, 1}, {enabled, 0}}));
    EXPECT_EQ(published(SEND_SOFTWARE_TRIGGER), 1u);
    ASSERT_EQ(host.setU32(QUEUE_MODE, 1), 0);
    EXPECT_EQ(writes(), (Writes{{kPeriod, 15624990}, {full, 2040}, {enabled, 1}}));
    EXPECT_EQ(published(SEND_SOFTWARE_TRIGGER), 2040u);

    EXPECT_EQ(host.setU32(QUEUE_MODE, 2), PGN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(host.u32(QUEUE_MODE), 1u);
}

// Refusals come in this order: the pulse count, the mode, the state, and
// with the queue off a busy generator.
TEST_F(TriggerRate, SoftwareTriggerRefusalsComeInOrderAndKeepTheLastCount) {
    poke(kReady, 0);  // busy
    EXPECT_EQ(host.setU32(SEND_SOFTWARE_TRIGGER, 0), PGN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(host.setU32(SEND_SOFTWARE_TRIGGER, 2), PGN_ERR_OUT_OF_RANGE) << "one pulse at a time without a queue";
    EXPECT_EQ(host.setU32(SEND_SOFTWARE_TRIGGER, 1), PGN_ERR_NOT_SOFTWARE_MODE);
    enter(SOFTWARE, SYNC_STOP);
    EXPECT_EQ(host.setU32(SEND_SOFTWARE_TRIGGER, 1), PGN_ERR_TRIGGER_NOT_ACTIVE);
    ASSERT_EQ(host.setU32(TRIGGERSTATE, ACTIVE), 0);
    vboard::clearJournal(host.board);
    EXPECT_EQ(host.setU32(SEND_SOFTWARE_TRIGGER, 1), PGN_ERR_TRIGGER_BUSY);
    poke(kReady, 1);
    poke(kQueued, 4);
    EXPECT_EQ(host.setU32(SEND_SOFTWARE_TRIGGER, 1), PGN_ERR_TRIGGER_BUSY);
    EXPECT_TRUE(writes().empty());
    EXPECT_EQ(host.u32(SEND_SOFTWARE_TRIGGER), 1u);

    // With the queue on, a busy generator does not refuse.
    ASSERT_EQ(host.setU32(QUEUE_MODE, 1), 0);
    vboard::clearJournal(host.board);
    ASSERT_EQ(host.setU32(SEND_SOFTWARE_TRIGGER, 2040), 0);
    EXPECT_EQ(writes(), Writes(2040, {kSoftwarePulse, 2}));
    EXPECT_EQ(host.u32(SEND_SOFTWARE_TRIGGER), 2040u);
    EXPECT_EQ(host.setU32(SEND_SOFTWARE_TRIGGER, 2041), PGN_ERR_OUT_OF_RANGE);
}

TEST_F(TriggerRate, AFailingPulseEndsTheBurstAndRestoresTheTimerSlack) {
    enter(SOFTWARE, ACTIVE);
    ASSERT_EQ(host.setU32(QUEUE_MODE, 1), 0);
    vboard::clearJournal(host.board);
    ASSERT_EQ(prctl(PR_SET_TIMERSLACK, 200000ul, 0, 0, 0), 0);

    ASSERT_EQ(host.setU32(SEND_SOFTWARE_TRIGGER, 5), 0);
    EXPECT_EQ(prctl(PR_GET_TIMERSLACK, 0, 0, 0, 0), 200000);
    EXPECT_EQ(writes(), Writes(5, {kSoftwarePulse, 2}));

    failWrite(kSoftwarePulse, 3, -23);
    EXPECT_EQ(host.setU32(SEND_SOFTWARE_TRIGGER, 10), -23);
    EXPECT_EQ(writes(), Writes(2, {kSoftwarePulse, 2})) << "pulses sent stay sent";
    EXPECT_EQ(host.u32(SEND_SOFTWARE_TRIGGER), 5u);
    EXPECT_EQ(prctl(PR_GET_TIMERSLACK, 0, 0, 0, 0), 200000);
    prctl(PR_SET_TIMERSLACK, 0ul, 0, 0, 0);
}

TEST_F(TriggerRate, QueueFillLevelsAndBusyFlagFollowTheStatusRegisters) {
    // Generator mode reads nothing: a failing read would show.
    vboard::injectFault(host.board, reg(kMonitor), vboard::Access::Read, 1, -99);
    vboard::injectFault(host.board, reg(kReady), vboard::Access::Read, 1, -99);
    EXPECT_EQ(host.u32(QUEUE_FILLLEVEL), 0u);
    EXPECT_EQ(host.u32(SOFTWARE_QUEUE_FILLLEVEL), 0u);
    EXPECT_EQ(host.u32(SOFTWARE_IS_BUSY), 0u);
    vboard::clearFaults(host.board);

    enter(SOFTWARE, ACTIVE);
    ASSERT_EQ(host.setU32(MULTIPLY_PULSES, 3), 0);
    const struct {
        uint64_t monitor, queued, ready;
        uint32_t level, busy;
    } cases[] = {
        {2, 0, 1, 2040, 0},  // queue full
        {0, 17, 1, 17, 1},   // pulses waiting
        {1, 0, 0, 1, 1},     // one pulse in progress; the period flag does not count
        {0, 0, 1, 0, 0},     // idle
    };
    for (const auto& c : cases) {
        poke(kMonitor, c.monitor);
        poke(kQueued, c.queued);
        poke(kReady, c.ready);
        EXPECT_EQ(host.u32(QUEUE_FILLLEVEL), c.level) << c.monitor << " " << c.queued << " " << c.ready;
        EXPECT_EQ(host.u32(SOFTWARE_QUEUE_FILLLEVEL), 3 * c.level);
        EXPECT_EQ(host.u32(SOFTWARE_IS_BUSY), c.busy);
    }

    poke(kQueued, 17);
    enter(EXTERNAL, ACTIVE);
    EXPECT_EQ(host.u32(QUEUE_FILLLEVEL), 17u);
    EXPECT_EQ(host.u32(SOFTWARE_QUEUE_FILLLEVEL), 0u);
    EXPECT_EQ(host.u32(SOFTWARE_IS_BUSY), 0u);
    enter(EXTERNAL, ASYNC_STOP);
    EXPECT_EQ(host.u32(QUEUE_FILLLEVEL), 0u);
}

TEST_F(TriggerRate, PeriodLimitFlagAndItsClear) {
    poke(kMonitor, 6);
    EXPECT_EQ(host.u32(EXCEEDED_PERIOD_LIMITS), 0u);
    poke(kMonitor, 1);
    EXPECT_EQ(host.u32(EXCEEDED_PERIOD_LIMITS), 1u);
    EXPECT_EQ(host.setU32(EXCEEDED_PERIOD_LIMITS_CLEAR, 0), PGN_ERR_OUT_OF_RANGE);
    ASSERT_EQ(host.setU32(EXCEEDED_PERIOD_LIMITS_CLEAR, 1), 0);
    EXPECT_EQ(writes(), (Writes{{"Monitoring_ClearOverrideCam0_Mode", 2}}));
}
