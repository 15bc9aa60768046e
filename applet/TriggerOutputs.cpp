// The four pulse form generators (downscale, phase, delay, width), the
// seventeen outputs that choose what they show, the output statistics and
// the missing-frame monitor.
#include <algorithm>
#include <cstddef>
#include <limits>

#include "Catalogue.h"
#include "FgZuWrapperImpl.h"
#include "SetterPattern.h"
#include "TriggerSystem.h"

using pelagon::fail;
using pelagon::runSetter;
using namespace pelagon::trigger;
namespace enums = pelagon::enums;
using W = FgZuWrapperImpl;

namespace {

constexpr uint32_t kMaxPulseFormDownscale = 7;
constexpr double kMaxDelay = 34000000.0, kMinWidth = 1.0, kMaxWidth = 68000000.0;
constexpr uint32_t kMissingFrameBit = 4;

struct PulseFormGenerator {
    uint32_t W::*downscale;
    uint32_t W::*phase;
    double W::*delay;
    double W::*width;
    int W::*downscaleRegister;
    int W::*selectedPulseRegister;
    int W::*delayRegister;
    int W::*widthRegister;
    int downscaleId;
    int phaseId;
};

#define PELAGON_PULSE_FORM_GENERATOR(g)                                                                         \
    PulseFormGenerator {                                                                                   \
        &W::cache_FG_TRIGGER_PULSEFORMGEN##g##_DOWNSCALE_P0,                                                          \
            &W::cache_FG_TRIGGER_PULSEFORMGEN##g##_DOWNSCALE_PHASE_P0,                                                \
            &W::cache_FG_TRIGGER_PULSEFORMGEN##g##_DELAY_P0, &W::cache_FG_TRIGGER_PULSEFORMGEN##g##_WIDTH_P0,         \
            &W::PELAGON_TRIGGER_REG(TriggerCam0_PulseFormGenerators_PulseFormGenerator##g##_Downscale_Downscale),     \
            &W::PELAGON_TRIGGER_REG(TriggerCam0_PulseFormGenerators_PulseFormGenerator##g##_Downscale_SelectedPulse), \
            &W::PELAGON_TRIGGER_REG(TriggerCam0_PulseFormGenerators_PulseFormGenerator##g##_Delay_Delay),             \
            &W::PELAGON_TRIGGER_REG(TriggerCam0_PulseFormGenerators_PulseFormGenerator##g##_Width_Width),             \
            id::FG_TRIGGER_PULSEFORMGEN##g##_DOWNSCALE, id::FG_TRIGGER_PULSEFORMGEN##g##_DOWNSCALE_PHASE           \
    },
const PulseFormGenerator kGenerators[] = {
#include "TriggerOutputs.def"
};

const PulseFormGenerator& generatorAt(unsigned g) {
    if (g >= std::size(kGenerators)) fail(PGN_ERR_INVALID_ARGUMENT);
    return kGenerators[g];
}

struct Output {
    uint32_t W::*selection;
    int W::*selectorRegister;
    int W::*invertRegister;
};

#define PELAGON_TRIGGER_OUTPUT(NAME, block, n)                                                    \
    Output {                                                                                             \
        &W::cache_##NAME##_P0, &W::PELAGON_TRIGGER_REG(TriggerCam0_##block##_Select##n##_Select_Select), \
            &W::PELAGON_TRIGGER_REG(TriggerCam0_##block##_Select##n##_Polarity_Invert)                   \
    },
const Output kOutputs[W::kTriggerOutputCount] = {
#include "TriggerOutputs.def"
};

// Switching off goes through the camera's GPOs first, then its trigger,
// then the board's outputs.
constexpr unsigned kSwitchOffOrder[W::kTriggerOutputCount] = {1, 2, 3, 4, 5, 6, 7, 8, 0, 9, 10, 11, 12, 13, 14, 15, 16};

// Source selector of each selection value: pulse form generators 0 to 3,
// the input bypass (4) or the constant low level (5). The polarity inverts
// exactly for Vcc, the inverted generators and the inverted bypass.
constexpr uint32_t kSelector[] = {0, 1, 2, 3, 5, 5, 0, 1, 2, 3, 4, 4};
constexpr uint32_t kInvertMask = 0xbe0;

// Ticks of a time in microseconds, truncated or rounded to the nearest;
// times whose ticks a 32-bit register cannot hold are out of range.
uint32_t microsecondsToTicks(double us, bool roundToNearest) {
    const auto ticks = static_cast<uint64_t>(us * 1000 * 0.125 + (roundToNearest ? 0.5 : 0.0));
    if (ticks > std::numeric_limits<uint32_t>::max()) fail(PGN_ERR_OUT_OF_RANGE);
    return static_cast<uint32_t>(ticks);
}

// The delay and width setters: one time is set, the other is read back from
// its register for the period check. The width of generator 0 is rounded,
// those of the others truncated; delays are always rounded.
void setPulseFormTime(W& w, const PulseFormGenerator& gen, bool isDelay, double us, bool roundToNearest,
                      bool throwOnError) {
    const double minimum = isDelay ? 0.0 : kMinWidth;
    const double maximum = isDelay ? kMaxDelay : kMaxWidth;
    const int written = w.*(isDelay ? gen.delayRegister : gen.widthRegister);
    const int other = w.*(isDelay ? gen.widthRegister : gen.delayRegister);
    runSetter(
        w.*(isDelay ? gen.delay : gen.width), us, throwOnError,
        [&] {
            if (!(us >= minimum && us <= maximum)) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] {
            const double otherUs = ticksToMicroseconds(w.readTriggerRegister_P0(other));
            const double rate = roundTripRate(w.cache_FG_TRIGGER_FRAMESPERSECOND_P0);
            if (!periodCovers(rate, pulseFormSpan(us, otherUs, w.*gen.downscale))) fail(PGN_ERR_PERIOD_TOO_SHORT);
            w.writeTriggerRegister_P0(written, microsecondsToTicks(us, roundToNearest));
        });
}

}  // namespace

void FgZuWrapperImpl::setPulseFormDownscale_P0(unsigned g, uint32_t n, bool throwOnError) {
    const PulseFormGenerator& gen = generatorAt(g);
    runSetter(
        this->*gen.downscale, n, throwOnError,
        [&] {
            if (n < uint64_t{this->*gen.phase} + 1 || n > kMaxPulseFormDownscale) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] {
            const double delay = ticksToMicroseconds(readTriggerRegister_P0(this->*gen.delayRegister));
            const double width = ticksToMicroseconds(readTriggerRegister_P0(this->*gen.widthRegister));
            const double rate = roundTripRate(cache_FG_TRIGGER_FRAMESPERSECOND_P0);
            if (!periodCovers(rate, pulseFormSpan(delay, width, n))) fail(PGN_ERR_DOWNSCALE_TOO_SMALL);
            writeTriggerRegister_P0(this->*gen.downscaleRegister, n);
            publishMaximum(gen.phaseId, n - 1);
        });
}

void FgZuWrapperImpl::setPulseFormPhase_P0(unsigned g, uint32_t p, bool throwOnError) {
    const PulseFormGenerator& gen = generatorAt(g);
    runSetter(
        this->*gen.phase, p, throwOnError,
        [&] {
            if (uint64_t{p} + 1 > this->*gen.downscale) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] {
            // The register counts pulses from 1.
            writeTriggerRegister_P0(this->*gen.selectedPulseRegister, p + 1);
            publishMinimum(gen.downscaleId, p + 1);
        });
}

void FgZuWrapperImpl::setPulseFormDelay_P0(unsigned g, double us, bool throwOnError) {
    setPulseFormTime(*this, generatorAt(g), true, us, true, throwOnError);
}

void FgZuWrapperImpl::setPulseFormWidth_P0(unsigned g, double us, bool throwOnError) {
    setPulseFormTime(*this, generatorAt(g), false, us, g == 0, throwOnError);
}

// Delay and width read back as the generator works with them, in whole ticks.
void FgZuWrapperImpl::getPulseFormDelay_P0(unsigned g, double* value) {
    double& out = readOut(value);
    out = ticksToMicroseconds(readTriggerRegister_P0(this->*generatorAt(g).delayRegister));
}

void FgZuWrapperImpl::getPulseFormWidth_P0(unsigned g, double* value) {
    double& out = readOut(value);
    out = ticksToMicroseconds(readTriggerRegister_P0(this->*generatorAt(g).widthRegister));
}

double FgZuWrapperImpl::pulseFormPeriodNeeded_P0() {
    double needed = 0.0;
    for (const PulseFormGenerator& gen : kGenerators) {
        const double delay = ticksToMicroseconds(readTriggerRegister_P0(this->*gen.delayRegister));
        const double width = ticksToMicroseconds(readTriggerRegister_P0(this->*gen.widthRegister));
        needed = std::max(needed, pulseFormSpan(delay, width, this->*gen.downscale));
    }
    return needed;
}

void FgZuWrapperImpl::setTriggerOutput_P0(unsigned output, uint32_t v, bool throwOnError) {
    if (output >= kTriggerOutputCount) fail(PGN_ERR_INVALID_ARGUMENT);
    const Output& out = kOutputs[output];
    runSetter(
        this->*out.selection, v, throwOnError,
        [&] {
            if (!enums::contains(enums::TriggerOutSelection_Gen4, v)) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] {
            // After an immediate stop the board's outputs stay off until the
            // outputs are enabled again, which applies the new selection.
            // The camera's outputs follow at once in every state.
            if (output >= kBoardOutput0 && cache_FG_TRIGGERSTATE_P0 == kAsyncStop) return;
            writeTriggerRegister_P0(this->*out.selectorRegister, kSelector[v]);
            writeTriggerRegister_P0(this->*out.invertRegister, (kInvertMask >> v) & 1);
        });
}

// Off writes the constant-low source to every selector and leaves the
// polarities, so an inverted output rests high. On re-applies the cached
// selections.
void FgZuWrapperImpl::triggerOutputsEnable_P0(bool enable) {
    if (enable) {
        for (unsigned output = 0; output < kTriggerOutputCount; ++output)
            setTriggerOutput_P0(output, this->*kOutputs[output].selection, true);
        return;
    }
    for (unsigned output : kSwitchOffOrder)
        writeTriggerRegister_P0(this->*kOutputs[output].selectorRegister, kOutputOff);
}

PELAGON_ONE_WRITE_SETTER(FG_TRIGGEROUT_STATS_SOURCE, TriggerOutStatsSources_Gen4,
                         TriggerCam0_OutputStatistics_Select_Select, value)

PELAGON_ONE_WRITE_SETTER(FG_TRIGGEROUT_STATS_PULSECOUNT_CLEAR, Apply, TriggerCam0_OutputStatistics_ClearPulses_Mode,
                         kPulse)

PELAGON_ONE_WRITE_SETTER(FG_MISSING_CAMERA_FRAME_RESPONSE_CLEAR, Apply, Monitoring_ClearMissingFrame_Cam0_Mode, kPulse)

void FgZuWrapperImpl::get_sdk_param_FG_TRIGGEROUT_STATS_PULSECOUNT_P0(uint32_t* value) {
    readOut(value) = readTriggerRegister_P0(PELAGON_TRIGGER_REG(TriggerCam0_OutputStatistics_ReadPulses_Status));
}

void FgZuWrapperImpl::get_sdk_param_FG_MISSING_CAMERA_FRAME_RESPONSE_P0(uint32_t* value) {
    uint32_t& out = readOut(value);
    out = (readTriggerRegister_P0(PELAGON_TRIGGER_REG(Monitoring_ReadQueueStatus_Status)) & kMissingFrameBit) ? 1 : 0;
}
