// The trigger block's state machine: where pulses come from (area trigger
// mode) and whether they are produced (trigger state), the register
// sequences that move the block between the nine pairs, and the access
// rights of the trigger parameters that follow the mode.
#include <algorithm>
#include <iterator>

#include "Catalogue.h"
#include "FgZuWrapperImpl.h"
#include "SetterPattern.h"
#include "TriggerSystem.h"

using pelagon::fail;
using pelagon::runSetter;
using namespace pelagon::trigger;

namespace {

// The steps a transition is made of.
enum Step : uint8_t {
    kEnd = 0,
    kOutputsOff,
    kOutputsOn,
    kGeneratorOn,
    kGeneratorOff,
    kExternalOn,
    kExternalOff,
    kClearPulseForms,
    // Re-arm: outputs off, clear the input downscaler, reset the queue and
    // the sequencer, clear the pulse forms, outputs on.
    kRearm,
    // The same where the outputs are already off: without the first step.
    kRearmOutputsOff
};

inline constexpr uint32_t kNever = ~0u;

// Steps taken when the new mode (or the new state) is `when`.
struct Branch {
    uint32_t when = kNever;
    Step steps[5] = {};
};

// From the old pair: first the branch of the new mode, then that of the new
// state. A setter changes only one of the two, so a change of mode takes
// no state branch (the state stays) and a change of state no mode branch.
struct Transition {
    uint32_t mode, state;
    Branch byNewMode[2];
    Branch byNewState[2];
};

// Each row: the old pair, the branches by new mode, the branches by new state.
constexpr Transition kTransitions[] = {
    {kGenerator, kSyncStop,
     {},
     {{kActive, {kClearPulseForms, kGeneratorOn}}, {kAsyncStop, {kOutputsOff}}}},
    {kGenerator, kAsyncStop,
     {},
     {{kActive, {kClearPulseForms, kOutputsOn, kGeneratorOn}}}},
    {kGenerator, kActive,
     {{kExternal, {kRearm, kExternalOn}}, {kSoftware, {kRearm}}},
     {{kAsyncStop, {kOutputsOff, kGeneratorOff}}, {kSyncStop, {kGeneratorOff}}}},
    {kExternal, kSyncStop,
     {{kGenerator, {kGeneratorOff}}},
     {{kActive, {kRearm, kExternalOn}}, {kAsyncStop, {kOutputsOff}}}},
    {kExternal, kAsyncStop,
     {{kGenerator, {kGeneratorOff}}},
     {{kActive, {kRearmOutputsOff, kExternalOn}}}},
    {kExternal, kActive,
     {{kGenerator, {kExternalOff, kOutputsOff, kClearPulseForms, kOutputsOn, kGeneratorOn}},
      {kSoftware, {kExternalOff, kRearm}}},
     {{kAsyncStop, {kOutputsOff, kExternalOff}}, {kSyncStop, {kExternalOff}}}},
    {kSoftware, kSyncStop,
     {{kGenerator, {kGeneratorOff}}},
     {{kActive, {kRearm}}, {kAsyncStop, {kOutputsOff}}}},
    {kSoftware, kAsyncStop,
     {{kGenerator, {kGeneratorOff}}},
     {{kActive, {kRearmOutputsOff}}}},
    // A sync stop in software mode writes nothing: no pulse comes unless software sends one.
    {kSoftware, kActive,
     {{kGenerator, {kOutputsOff, kClearPulseForms, kOutputsOn, kGeneratorOn}}, {kExternal, {kRearm, kExternalOn}}},
     {{kAsyncStop, {kOutputsOff}}}},
};

const Branch* branchFor(const Branch (&branches)[2], uint32_t value) {
    for (const Branch& b : branches)
        if (b.when == value) return &b;
    return nullptr;
}

// Sets one element of the pair (`cache`, the mode's or the state's) and runs
// the transition from the old pair to the new one; the value is cached
// before the transition and restored if a write of it fails.
void changeModeOrState(FgZuWrapperImpl& w, uint32_t& cache, uint32_t value, bool valid, bool throwOnError) {
    const uint32_t oldMode = w.cache_FG_AREATRIGGERMODE_P0;
    const uint32_t oldState = w.cache_FG_TRIGGERSTATE_P0;
    runSetter(
        cache, value, throwOnError,
        [&] {
            if (!valid) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] {
            w.switchTriggerModeAndState_P0(oldMode, oldState, w.cache_FG_AREATRIGGERMODE_P0,
                                           w.cache_FG_TRIGGERSTATE_P0);
        });
}

}  // namespace

void FgZuWrapperImpl::set_sdk_param_FG_AREATRIGGERMODE_P0(uint32_t mode, bool throwOnError) {
    changeModeOrState(*this, cache_FG_AREATRIGGERMODE_P0, mode,
                      pelagon::enums::contains(pelagon::enums::AreaTriggerModes, mode), throwOnError);
}

void FgZuWrapperImpl::set_sdk_param_FG_TRIGGERSTATE_P0(uint32_t state, bool throwOnError) {
    changeModeOrState(*this, cache_FG_TRIGGERSTATE_P0, state,
                      pelagon::enums::contains(pelagon::enums::TriggerStates, state), throwOnError);
}

void FgZuWrapperImpl::switchTriggerModeAndState_P0(uint32_t oldMode, uint32_t oldState, uint32_t newMode,
                                                   uint32_t newState) {
    auto run = [this](const Branch* branch) {
        if (!branch) return;
        for (Step step : branch->steps) {
            switch (step) {
            case kOutputsOff: triggerOutputsEnable_P0(false); break;
            case kOutputsOn: triggerOutputsEnable_P0(true); break;
            case kGeneratorOn: triggerGeneratorEnable_P0(true); break;
            case kGeneratorOff: triggerGeneratorEnable_P0(false); break;
            case kExternalOn: triggerExternalEnable_P0(true); break;
            case kExternalOff: triggerExternalEnable_P0(false); break;
            case kClearPulseForms: triggerClearPulseFormDownscales_P0(); break;
            case kRearm:
                triggerOutputsEnable_P0(false);
                [[fallthrough]];
            case kRearmOutputsOff:
                triggerClearDownscale_P0();
                triggerResetQueue_P0();
                triggerResetSequencer_P0();
                triggerClearPulseFormDownscales_P0();
                triggerOutputsEnable_P0(true);
                break;
            case kEnd: break;
            }
        }
    };
    const Transition* row = std::find_if(std::begin(kTransitions), std::end(kTransitions), [&](const Transition& t) {
        return t.mode == oldMode && t.state == oldState;
    });
    if (row != std::end(kTransitions)) {
        run(branchFor(row->byNewMode, newMode));
        run(branchFor(row->byNewState, newState));
    }

    if (newMode == kExternal) {
        setAllTriggerAccessModesToRWC_P0();
        // Software pulses mean nothing while the input drives the trigger.
        if (RegisterInfo* record = publishedRecord(id::FG_SENDSOFTWARETRIGGER)) record->accessFlags = 1;
    } else if (newMode == kGenerator || newMode == kSoftware) {
        setAllTriggerAccessModesToRWC_P0();
    }
}

void FgZuWrapperImpl::triggerGeneratorEnable_P0(bool enable) {
    writeTriggerRegister_P0(PELAGON_TRIGGER_REG(TriggerCam0_Generators_ClearQueuePulse_Mode), constOne);
    if (!enable) return;
    writeTriggerRegister_P0(PELAGON_TRIGGER_REG(TriggerCam0_Generators_EnableQueue_Select), constZero);
    reapplyTriggerRate_P0();
    writeTriggerRegister_P0(PELAGON_TRIGGER_REG(TriggerCam0_PulseFormGenerators_Enable_Select), constOne);
    writeTriggerRegister_P0(PELAGON_TRIGGER_REG(TriggerCam0_Generators_ClearQueuePulse_Mode), constZero);
}

// The generator enable with the queue in the path: in external and software
// mode every pulse passes the queue.
void FgZuWrapperImpl::triggerResetQueue_P0() {
    writeTriggerRegister_P0(PELAGON_TRIGGER_REG(TriggerCam0_Generators_ClearQueuePulse_Mode), constOne);
    writeTriggerRegister_P0(PELAGON_TRIGGER_REG(TriggerCam0_Generators_EnableQueue_Select), constOne);
    reapplyTriggerRate_P0();
    writeTriggerRegister_P0(PELAGON_TRIGGER_REG(TriggerCam0_PulseFormGenerators_Enable_Select), constOne);
    writeTriggerRegister_P0(PELAGON_TRIGGER_REG(TriggerCam0_Generators_ClearQueuePulse_Mode), constZero);
}

void FgZuWrapperImpl::triggerExternalEnable_P0(bool enable) {
    writeTriggerRegister_P0(PELAGON_TRIGGER_REG(TriggerCam0_TriggerMode_SelectExternal_Select),
                            enable ? constOne : constZero);
}

void FgZuWrapperImpl::triggerClearDownscale_P0() {
    writeTriggerRegister_P0(PELAGON_TRIGGER_REG(TriggerCam0_Downscale_Clear_Mode), kPulse);
}

void FgZuWrapperImpl::triggerResetSequencer_P0() {
    writeTriggerRegister_P0(PELAGON_TRIGGER_REG(TriggerCam0_Generators_ClearDownscale_Mode), kPulse);
}

// Every restart of the pulse form generators also starts a fresh check for
// frames the camera did not deliver.
void FgZuWrapperImpl::triggerClearPulseFormDownscales_P0() {
    for (int reg : {PELAGON_TRIGGER_REG(Monitoring_CheckForMissingFrame_Cam0_ResetMissing_Mode),
                    PELAGON_TRIGGER_REG(TriggerCam0_PulseFormGenerators_PulseFormGenerator0_ClearDownscale_Mode),
                    PELAGON_TRIGGER_REG(TriggerCam0_PulseFormGenerators_PulseFormGenerator1_ClearDownscale_Mode),
                    PELAGON_TRIGGER_REG(TriggerCam0_PulseFormGenerators_PulseFormGenerator2_ClearDownscale_Mode),
                    PELAGON_TRIGGER_REG(TriggerCam0_PulseFormGenerators_PulseFormGenerator3_ClearDownscale_Mode)})
        writeTriggerRegister_P0(reg, kPulse);
}

void FgZuWrapperImpl::setAllTriggerAccessModesToRWC_P0() {
    static constexpr int kIds[] = {
        id::FG_AREATRIGGERMODE,
        id::FG_TRIGGERSTATE,
        id::FG_TRIGGER_FRAMESPERSECOND,
        id::FG_TRIGGER_EXCEEDED_PERIOD_LIMITS_CLEAR,
        id::FG_TRIGGERIN_DEBOUNCE,
        id::FG_TRIGGERIN_SRC,
        id::FG_TRIGGERIN_POLARITY,
        id::FG_SENDSOFTWARETRIGGER,
        id::FG_TRIGGERIN_DOWNSCALE,
        id::FG_TRIGGERIN_DOWNSCALE_PHASE,
        id::FG_TRIGGER_MULTIPLY_PULSES,
        id::FG_TRIGGERQUEUE_MODE,
        id::FG_TRIGGER_PULSEFORMGEN0_DOWNSCALE,
        id::FG_TRIGGER_PULSEFORMGEN0_DOWNSCALE_PHASE,
        id::FG_TRIGGER_PULSEFORMGEN0_DELAY,
        id::FG_TRIGGER_PULSEFORMGEN0_WIDTH,
        id::FG_TRIGGER_PULSEFORMGEN1_DOWNSCALE,
        id::FG_TRIGGER_PULSEFORMGEN1_DOWNSCALE_PHASE,
        id::FG_TRIGGER_PULSEFORMGEN1_DELAY,
        id::FG_TRIGGER_PULSEFORMGEN1_WIDTH,
        id::FG_TRIGGER_PULSEFORMGEN2_DOWNSCALE,
        id::FG_TRIGGER_PULSEFORMGEN2_DOWNSCALE_PHASE,
        id::FG_TRIGGER_PULSEFORMGEN2_DELAY,
        id::FG_TRIGGER_PULSEFORMGEN2_WIDTH,
        id::FG_TRIGGER_PULSEFORMGEN3_DOWNSCALE,
        id::FG_TRIGGER_PULSEFORMGEN3_DOWNSCALE_PHASE,
        id::FG_TRIGGER_PULSEFORMGEN3_DELAY,
        id::FG_TRIGGER_PULSEFORMGEN3_WIDTH,
        id::FG_TRIGGERCAMERA_OUT_SELECT,
        id::FG_TRIGGERCAMERA_GPO0,
        id::FG_TRIGGERCAMERA_GPO1,
        id::FG_TRIGGERCAMERA_GPO2,
        id::FG_TRIGGERCAMERA_GPO3,
        id::FG_TRIGGERCAMERA_GPO4,
        id::FG_TRIGGERCAMERA_GPO5,
        id::FG_TRIGGERCAMERA_GPO6,
        id::FG_TRIGGERCAMERA_GPO7,
        id::FG_TRIGGEROUT_SELECT0,
        id::FG_TRIGGEROUT_SELECT1,
        id::FG_TRIGGEROUT_SELECT2,
        id::FG_TRIGGEROUT_SELECT3,
        id::FG_TRIGGEROUT_SELECT4,
        id::FG_TRIGGEROUT_SELECT5,
        id::FG_TRIGGEROUT_SELECT6,
        id::FG_TRIGGEROUT_SELECT7,
        id::FG_MISSING_CAMERA_FRAME_RESPONSE_CLEAR,
    };
    static_assert(std::size(kIds) == 46);
    for (int parameter : kIds)
        if (RegisterInfo* record = publishedRecord(parameter)) record->accessFlags = 7;
}

void FgZuWrapperImpl::writeTriggerRegister_P0(int zuId, uint32_t value) {
    writeRegister(zuId, &value, 0, FG_PARAM_TYPE_UINT32_T, true);
}

uint32_t FgZuWrapperImpl::readTriggerRegister_P0(int zuId) {
    uint32_t value = 0;
    readRegister(zuId, &value, 0, FG_PARAM_TYPE_UINT32_T, true);
    return value;
}

void FgZuWrapperImpl::setWithOneWrite_P0(uint32_t& cache, uint32_t value, bool valid, int zuId, uint32_t written,
                                         bool throwOnError) {
    runSetter(
        cache, value, throwOnError,
        [&] {
            if (!valid) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] { writeTriggerRegister_P0(zuId, written); });
}

void FgZuWrapperImpl::publishMinimum(int parameter, uint32_t minimum) {
    if (RegisterInfo* record = publishedRecord(parameter)) record->u.uiReg.from = minimum;
}
