// The trigger input stage: source, polarity, debouncer, downscaler with its
// phase, the unfiltered bypass source, and the input statistics.
#include "Catalogue.h"
#include "FgZuWrapperImpl.h"
#include "SetterPattern.h"
#include "TriggerSystem.h"

using pelagon::fail;
using pelagon::runSetter;
using namespace pelagon::trigger;
namespace enums = pelagon::enums;

namespace {

// The debouncer counts in units of three trigger clock ticks (24 ns).
constexpr double kMinDebounce = 0.048, kMaxDebounce = 1.512;
constexpr double kDebounceUnitNs = 24.0;
constexpr uint64_t kDownscaleLimit = 2147483648u;

// Hertz of a measured period in ticks; a zero period reads as infinite.
double frequencyOfPeriod(uint32_t ticks) { return 1.0 / (ticks * 8.0 * 1e-9); }

}  // namespace

PELAGON_ONE_WRITE_SETTER(FG_TRIGGERIN_SRC, TriggerInSource, TriggerCam0_InputSelect_Select_Select, value)

PELAGON_ONE_WRITE_SETTER(FG_TRIGGERIN_POLARITY, TriggerPolarity, TriggerCam0_InputSelect_Polarity_Invert, value)

PELAGON_ONE_WRITE_SETTER(FG_TRIGGERIN_BYPASS_SRC, TriggerInSource, TriggerCam0_InputSelect_BypassSelect_Select, value)

void FgZuWrapperImpl::set_sdk_param_FG_TRIGGERIN_DEBOUNCE_P0(double us, bool throwOnError) {
    runSetter(
        cache_FG_TRIGGERIN_DEBOUNCE_P0, us, throwOnError,
        [&] {
            if (!(us >= kMinDebounce && us <= kMaxDebounce)) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] {
            // Rounded to the nearest unit: 2 to 63 over the range.
            const auto units = static_cast<uint32_t>(us * 1000.0 / kDebounceUnitNs + 0.5);
            writeTriggerRegister_P0(PELAGON_TRIGGER_REG(TriggerInput_Debounce8_Prescale_Period), units);
        });
}

// The debounce time the input works with, not the one asked for.
void FgZuWrapperImpl::get_sdk_param_FG_TRIGGERIN_DEBOUNCE_P0(double* value) {
    double& out = readOut(value);
    out = readTriggerRegister_P0(PELAGON_TRIGGER_REG(TriggerInput_Debounce8_Prescale_Period)) * 8.0 * 3.0 / 1000.0;
}

// Downscale and phase keep 0 <= phase < downscale, in the values and in the
// published ranges: to raise the phase beyond the downscale, raise the
// downscale first.
void FgZuWrapperImpl::set_sdk_param_FG_TRIGGERIN_DOWNSCALE_P0(uint32_t n, bool throwOnError) {
    runSetter(
        cache_FG_TRIGGERIN_DOWNSCALE_P0, n, throwOnError,
        [&] {
            if (n < uint64_t{cache_FG_TRIGGERIN_DOWNSCALE_PHASE_P0} + 1 || n >= kDownscaleLimit)
                fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] {
            writeTriggerRegister_P0(PELAGON_TRIGGER_REG(TriggerCam0_Downscale_Downscale_Downscale), n);
            publishMaximum(id::FG_TRIGGERIN_DOWNSCALE_PHASE, n - 1);
        });
}

void FgZuWrapperImpl::set_sdk_param_FG_TRIGGERIN_DOWNSCALE_PHASE_P0(uint32_t p, bool throwOnError) {
    runSetter(
        cache_FG_TRIGGERIN_DOWNSCALE_PHASE_P0, p, throwOnError,
        [&] {
            if (uint64_t{p} + 1 > cache_FG_TRIGGERIN_DOWNSCALE_P0) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] {
            // The register counts pulses from 1.
            writeTriggerRegister_P0(PELAGON_TRIGGER_REG(TriggerCam0_Downscale_Downscale_SelectedPulse), p + 1);
            publishMinimum(id::FG_TRIGGERIN_DOWNSCALE, p + 1);
        });
}

PELAGON_ONE_WRITE_SETTER(FG_TRIGGERIN_STATS_PULSECOUNT_CLEAR, Apply, TriggerCam0_InputStatistics_ClearPulses_Mode,
                         kPulse)

// The min/max measurement restarts on every change of its clear register,
// so the clear toggles it rather than pulsing it.
void FgZuWrapperImpl::set_sdk_param_FG_TRIGGERIN_STATS_MINMAXFREQUENCY_CLEAR_P0(uint32_t value, bool throwOnError) {
    runSetter(
        cache_FG_TRIGGERIN_STATS_MINMAXFREQUENCY_CLEAR_P0, value, throwOnError,
        [&] {
            if (!enums::contains(enums::Apply, value)) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] {
            const int reg = PELAGON_TRIGGER_REG(TriggerCam0_InputStatistics_ClearMinMax_Value);
            writeTriggerRegister_P0(reg, readTriggerRegister_P0(reg) == 0 ? constOne : constZero);
        });
}

void FgZuWrapperImpl::get_sdk_param_FG_TRIGGERIN_STATS_PULSECOUNT_P0(uint32_t* value) {
    readOut(value) = readTriggerRegister_P0(PELAGON_TRIGGER_REG(TriggerCam0_InputStatistics_ReadPulses_Status));
}

void FgZuWrapperImpl::get_sdk_param_FG_TRIGGERIN_STATS_FREQUENCY_P0(double* value) {
    double& out = readOut(value);
    out = frequencyOfPeriod(readTriggerRegister_P0(PELAGON_TRIGGER_REG(TriggerCam0_InputStatistics_ReadPeriod_Status)));
}

// The lowest frequency is that of the longest period measured.
void FgZuWrapperImpl::get_sdk_param_FG_TRIGGERIN_STATS_MINFREQUENCY_P0(double* value) {
    double& out = readOut(value);
    out = frequencyOfPeriod(readTriggerRegister_P0(PELAGON_TRIGGER_REG(TriggerCam0_InputStatistics_ReadMax_Status)));
}

void FgZuWrapperImpl::get_sdk_param_FG_TRIGGERIN_STATS_MAXFREQUENCY_P0(double* value) {
    double& out = readOut(value);
    out = frequencyOfPeriod(readTriggerRegister_P0(PELAGON_TRIGGER_REG(TriggerCam0_InputStatistics_ReadMin_Status)));
}
