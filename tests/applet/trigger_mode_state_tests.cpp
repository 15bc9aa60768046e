// Trigger mode and state: the register writes of every transition in order,
// the access rights afterwards, the rollback of a transition that fails in
// the middle, and the start-up sequence.
#include <algorithm>
#include <string>

#include "TriggerHelpers.h"

using namespace trig;

namespace {

// The building blocks of the transitions, written out from the board's side.
const std::string kCamera = "TriggerCam0_CameraControl_Select";
const std::string kBoardOut = "TriggerCam0_TriggerOutput_Select";
const std::string kClearQueuePulse = "TriggerCam0_Generators_ClearQueuePulse_Mode";
const std::string kEnableQueue = "TriggerCam0_Generators_EnableQueue_Select";
const std::string kPeriod = "TriggerCam0_Generators_Generator_MinimumPeriod_Number";
const std::string kPulseFormEnable = "TriggerCam0_PulseFormGenerators_Enable_Select";
const std::string kSelectExternal = "TriggerCam0_TriggerMode_SelectExternal_Select";
// 8 pulses per second: 15624999 ticks, less 9.
constexpr uint64_t kPeriodAt8Hz = 15624990;

Writes outputsOff() {
    Writes w;
    for (int n = 0; n < 8; ++n) w.emplace_back(kCamera + std::to_string(n) + "_Select_Select", 5);
    w.emplace_back(kCamera + "Trigger_Select_Select", 5);
    for (int n = 0; n < 8; ++n) w.emplace_back(kBoardOut + std::to_string(n) + "_Select_Select", 5);
    return w;
}

// The selections an instance starts with: camera trigger pulse generator 0,
// GPOs ground, board outputs 0 and 1 the inverted generators 0 and 1, the
// others Vcc.
Writes outputsOn() {
    auto pair = [](const std::string& base, uint64_t selector, uint64_t invert) {
        return Writes{{base + "_Select_Select", selector}, {base + "_Polarity_Invert", invert}};
    };
    Writes w = pair(kCamera + "Trigger", 0, 0);
    for (int n = 0; n < 8; ++n) w = w + pair(kCamera + std::to_string(n), 5, 0);
    w = w + pair(kBoardOut + "0", 0, 1) + pair(kBoardOut + "1", 1, 1);
    for (int n = 2; n < 8; ++n) w = w + pair(kBoardOut + std::to_string(n), 5, 1);
    return w;
}

Writes generatorStart(uint64_t queue) {
    return {{kClearQueuePulse, 1}, {kEnableQueue, queue}, {kPeriod, kPeriodAt8Hz}, {kPulseFormEnable, 1},
            {kClearQueuePulse, 0}};
}
const Writes G1 = generatorStart(0);
const Writes G0 = {{kClearQueuePulse, 1}};
const Writes O0 = outputsOff();
const Writes O1 = outputsOn();
const Writes E1 = {{kSelectExternal, 1}};
const Writes E0 = {{kSelectExternal, 0}};
const Writes P = {{"Monitoring_CheckForMissingFrame_Cam0_ResetMissing_Mode", 2},
                  {"TriggerCam0_PulseFormGenerators_PulseFormGenerator0_ClearDownscale_Mode", 2},
                  {"TriggerCam0_PulseFormGenerators_PulseFormGenerator1_ClearDownscale_Mode", 2},
                  {"TriggerCam0_PulseFormGenerators_PulseFormGenerator2_ClearDownscale_Mode", 2},
                  {"TriggerCam0_PulseFormGenerators_PulseFormGenerator3_ClearDownscale_Mode", 2}};
// Re-arm with the outputs already off, and the full re-arm.
const Writes Rk = Writes{{"TriggerCam0_Downscale_Clear_Mode", 2}} + generatorStart(1) +
                  Writes{{"TriggerCam0_Generators_ClearDownscale_Mode", 2}} + P + O1;
const Writes R = O0 + Rk;
const Writes NONE = {};

struct Transition {
    Mode mode;
    State state;
    Id parameter;  // which of the two changes
    uint32_t value;
    Writes expected;
};

const char* modeName(uint32_t m) { return m == GENERATOR ? "Generator" : m == EXTERNAL ? "External" : "Software"; }
const char* stateName(uint32_t s) { return s == ACTIVE ? "Active" : s == ASYNC_STOP ? "AsyncStop" : "SyncStop"; }

std::string describe(const Transition& t) {
    return std::string(modeName(t.mode)) + "/" + stateName(t.state) + " -> " +
           (t.parameter == AREATRIGGERMODE ? modeName(t.value) : stateName(t.value));
}

// Every change away from every pair.
const Transition kTable[] = {
    {GENERATOR, SYNC_STOP, AREATRIGGERMODE, EXTERNAL, NONE},
    {GENERATOR, SYNC_STOP, AREATRIGGERMODE, SOFTWARE, NONE},
    {GENERATOR, SYNC_STOP, TRIGGERSTATE, ACTIVE, P + G1},
    {GENERATOR, SYNC_STOP, TRIGGERSTATE, ASYNC_STOP, O0},
    {GENERATOR, ASYNC_STOP, AREATRIGGERMODE, EXTERNAL, NONE},
    {GENERATOR, ASYNC_STOP, AREATRIGGERMODE, SOFTWARE, NONE},
    {GENERATOR, ASYNC_STOP, TRIGGERSTATE, ACTIVE, P + O1 + G1},
    {GENERATOR, ASYNC_STOP, TRIGGERSTATE, SYNC_STOP, NONE},
    {GENERATOR, ACTIVE, AREATRIGGERMODE, EXTERNAL, R + E1},
    {GENERATOR, ACTIVE, AREATRIGGERMODE, SOFTWARE, R},
    {GENERATOR, ACTIVE, TRIGGERSTATE, ASYNC_STOP, O0 + G0},
    {GENERATOR, ACTIVE, TRIGGERSTATE, SYNC_STOP, G0},
    {EXTERNAL, SYNC_STOP, AREATRIGGERMODE, GENERATOR, G0},
    {EXTERNAL, SYNC_STOP, AREATRIGGERMODE, SOFTWARE, NONE},
    {EXTERNAL, SYNC_STOP, TRIGGERSTATE, ACTIVE, R + E1},
    {EXTERNAL, SYNC_STOP, TRIGGERSTATE, ASYNC_STOP, O0},
    {EXTERNAL, ASYNC_STOP, AREATRIGGERMODE, GENERATOR, G0},
    {EXTERNAL, ASYNC_STOP, AREATRIGGERMODE, SOFTWARE, NONE},
    {EXTERNAL, ASYNC_STOP, TRIGGERSTATE, ACTIVE, Rk + E1},
    {EXTERNAL, ASYNC_STOP, TRIGGERSTATE, SYNC_STOP, NONE},
    {EXTERNAL, ACTIVE, AREATRIGGERMODE, GENERATOR, E0 + O0 + P + O1 + G1},
    {EXTERNAL, ACTIVE, AREATRIGGERMODE, SOFTWARE, E0 + R},
    {EXTERNAL, ACTIVE, TRIGGERSTATE, ASYNC_STOP, O0 + E0},
    {EXTERNAL, ACTIVE, TRIGGERSTATE, SYNC_STOP, E0},
    {SOFTWARE, SYNC_STOP, AREATRIGGERMODE, GENERATOR, G0},
    {SOFTWARE, SYNC_STOP, AREATRIGGERMODE, EXTERNAL, NONE},
    {SOFTWARE, SYNC_STOP, TRIGGERSTATE, ACTIVE, R},
    {SOFTWARE, SYNC_STOP, TRIGGERSTATE, ASYNC_STOP, O0},
    {SOFTWARE, ASYNC_STOP, AREATRIGGERMODE, GENERATOR, G0},
    {SOFTWARE, ASYNC_STOP, AREATRIGGERMODE, EXTERNAL, NONE},
    {SOFTWARE, ASYNC_STOP, TRIGGERSTATE, ACTIVE, Rk},
    {SOFTWARE, ASYNC_STOP, TRIGGERSTATE, SYNC_STOP, NONE},
    {SOFTWARE, ACTIVE, AREATRIGGERMODE, GENERATOR, O0 + P + O1 + G1},
    {SOFTWARE, ACTIVE, AREATRIGGERMODE, EXTERNAL, R + E1},
    {SOFTWARE, ACTIVE, TRIGGERSTATE, ASYNC_STOP, O0},
    // A sync stop in software mode writes nothing.
    {SOFTWARE, ACTIVE, TRIGGERSTATE, SYNC_STOP, NONE},
};

class TriggerModeState : public TriggerTest {
protected:
    // Marks the rights that a transition publishes, so that a test sees
    // whether they were published again.
    void markAccess(int flags) {
        for (int id : {int{AREATRIGGERMODE}, int{SEND_SOFTWARE_TRIGGER}, int{MISSING_FRAME_CLEAR}, pfgWidth(3)})
            const_cast<RegisterInfo*>(host.record(id))->accessFlags = flags;
    }
    uint32_t newMode(const Transition& t) { return t.parameter == AREATRIGGERMODE ? t.value : t.mode; }
    uint32_t newState(const Transition& t) { return t.parameter == TRIGGERSTATE ? t.value : t.state; }
};

}  // namespace

TEST_F(TriggerModeState, EveryTransitionWritesItsRegistersInOrderAndPublishesTheRights) {
    for (const Transition& t : kTable) {
        SCOPED_TRACE(describe(t));
        enter(t.mode, t.state);
        markAccess(3);
        ASSERT_EQ(host.setU32(t.parameter, t.value), 0);
        EXPECT_EQ(writes(), t.expected);
        EXPECT_EQ(host.u32(AREATRIGGERMODE), newMode(t));
        EXPECT_EQ(host.u32(TRIGGERSTATE), newState(t));
        EXPECT_EQ(accessFlags(SEND_SOFTWARE_TRIGGER), newMode(t) == EXTERNAL ? 1 : 7);
        for (int id : {int{AREATRIGGERMODE}, int{MISSING_FRAME_CLEAR}, pfgWidth(3)})
            EXPECT_EQ(accessFlags(id), 7) << id;
        // The external input is selected exactly while external mode is active.
        EXPECT_EQ(peek(kSelectExternal), newMode(t) == EXTERNAL && newState(t) == ACTIVE ? 1u : 0u);
        // The same value again writes nothing but publishes the rights again.
        markAccess(3);
        ASSERT_EQ(host.setU32(t.parameter, t.value), 0);
        EXPECT_TRUE(writes().empty());
        EXPECT_EQ(accessFlags(SEND_SOFTWARE_TRIGGER), newMode(t) == EXTERNAL ? 1 : 7);
    }
}

// A write that fails in the middle: the writes before it stay made, the
// parameter keeps its old value and the rights are not republished.
TEST_F(TriggerModeState, AFailingWriteInTheMiddleKeepsTheOldValue) {
    constexpr int kFault = -4711;
    for (const Transition& t : kTable) {
        if (t.expected.empty()) continue;
        SCOPED_TRACE(describe(t));
        enter(t.mode, t.state);
        markAccess(3);
        const size_t middle = t.expected.size() / 2;
        const std::string& target = t.expected[middle].first;
        const auto nth = static_cast<unsigned>(std::count_if(t.expected.begin(), t.expected.begin() + middle + 1,
                                                             [&](const auto& w) { return w.first == target; }));
        failWrite(target, nth, kFault);
        EXPECT_EQ(host.setU32(t.parameter, t.value), kFault);
        EXPECT_EQ(writes(), Writes(t.expected.begin(), t.expected.begin() + middle));
        EXPECT_EQ(host.u32(AREATRIGGERMODE), t.mode);
        EXPECT_EQ(host.u32(TRIGGERSTATE), t.state);
        EXPECT_DOUBLE_EQ(host.dbl(FRAMESPERSECOND), 8.0);
        EXPECT_EQ(accessFlags(SEND_SOFTWARE_TRIGGER), 3);
        vboard::clearFaults(host.board);
    }
}

TEST_F(TriggerModeState, ValuesOutsideTheTablesAreRefusedWithoutEffect) {
    enter(EXTERNAL, ACTIVE);
    for (uint32_t mode : {0u, 3u, 8u, 5u}) EXPECT_EQ(host.setU32(AREATRIGGERMODE, mode), PGN_ERR_OUT_OF_RANGE);
    for (uint32_t state : {3u, 4u, 0xFFFFFFFFu}) EXPECT_EQ(host.setU32(TRIGGERSTATE, state), PGN_ERR_OUT_OF_RANGE);
    EXPECT_TRUE(writes().empty());
    EXPECT_EQ(host.u32(AREATRIGGERMODE), EXTERNAL);
    EXPECT_EQ(host.u32(TRIGGERSTATE), ACTIVE);
}

// Outputs off, generator held, outputs on with the selections the instance
// starts with, before anything else is written.
TEST(TriggerStartUp, AFreshInstanceStartsWithOutputsOffGeneratorHeldOutputsOn) {
    AppletHost host;
    ASSERT_TRUE(host.ok());
    const Writes expected = O0 + G0 + O1;
    Writes journal = takeWrites(host.board, kPrefix);
    ASSERT_GE(journal.size(), expected.size());
    journal.resize(expected.size());
    EXPECT_EQ(journal, expected);
}
