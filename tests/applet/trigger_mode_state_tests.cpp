// Trigger mode and state: the register writes of every transition in order,
// the access rights afterwards, the rollback of a transition that fails in
// the middle, and the start-up sequence.
#include <algorithm>
#include <string>
#include <vector>

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

// A start: the generator re-armed (its outputs on, unless already on), or
// the full re-arm, with the external input selected in external mode.
Writes start(uint32_t mode, bool outputsOff) {
    if (mode == GENERATOR) return P + (outputsOff ? O1 : NONE) + G1;
    return (outputsOff ? Rk : R) + (mode == EXTERNAL ? E1 : NONE);
}
// A stop holds the generator or deselects the external input.
Writes stop(uint32_t mode) { return mode == GENERATOR ? G0 : mode == EXTERNAL ? E0 : NONE; }

struct Transition {
    uint32_t mode, state;
    Id parameter;  // which of the two changes
    uint32_t value;
    // Stopped, only a change to the generator holds it; active, a mode change
    // leaves the external input, switches the outputs off and starts anew.
    // An immediate stop also switches the outputs off.
    Writes expected() const {
        if (parameter == AREATRIGGERMODE)
            return state != ACTIVE ? (value == GENERATOR ? G0 : NONE)
                                   : (mode == EXTERNAL ? E0 : NONE) + O0 + start(value, true);
        if (value == ACTIVE) return start(mode, state == ASYNC_STOP);
        return (value == ASYNC_STOP ? O0 : NONE) + (state == ACTIVE ? stop(mode) : NONE);
    }
};

const char* modeName(uint32_t m) { return m == GENERATOR ? "Generator" : m == EXTERNAL ? "External" : "Software"; }
const char* stateName(uint32_t s) { return s == ACTIVE ? "Active" : s == ASYNC_STOP ? "AsyncStop" : "SyncStop"; }

std::string describe(const Transition& t) {
    return std::string(modeName(t.mode)) + "/" + stateName(t.state) + " -> " +
           (t.parameter == AREATRIGGERMODE ? modeName(t.value) : stateName(t.value));
}

// Every change away from every pair.
const std::vector<Transition> kTable = [] {
    std::vector<Transition> table;
    for (uint32_t mode : {GENERATOR, EXTERNAL, SOFTWARE})
        for (uint32_t state : {SYNC_STOP, ASYNC_STOP, ACTIVE}) {
            for (uint32_t to : {GENERATOR, EXTERNAL, SOFTWARE})
                if (to != mode) table.push_back({mode, state, AREATRIGGERMODE, to});
            for (uint32_t to : {ACTIVE, ASYNC_STOP, SYNC_STOP})
                if (to != state) table.push_back({mode, state, TRIGGERSTATE, to});
        }
    return table;
}();

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
        EXPECT_EQ(writes(), t.expected());
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
        const Writes expected = t.expected();
        if (expected.empty()) continue;
        SCOPED_TRACE(describe(t));
        enter(t.mode, t.state);
        markAccess(3);
        const size_t middle = expected.size() / 2;
        const std::string& target = expected[middle].first;
        const auto nth = static_cast<unsigned>(std::count_if(expected.begin(), expected.begin() + middle + 1,
                                                             [&](const auto& w) { return w.first == target; }));
        failWrite(target, nth, kFault);
        EXPECT_EQ(host.setU32(t.parameter, t.value), kFault);
        EXPECT_EQ(writes(), Writes(expected.begin(), expected.begin() + middle));
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
