// The trigger rate, the pulse multiplier, the trigger queue and the software
// trigger with their read-outs, and the period-limit monitor.
#include <sys/prctl.h>
#include <time.h>

#include "Catalogue.h"
#include "FgZuWrapperImpl.h"
#include "SetterPattern.h"
#include "TriggerSystem.h"

using pelagon::fail;
using pelagon::runSetter;
using namespace pelagon::trigger;

namespace {

// The slowest rate is the longest period the 32-bit period register holds,
// the fastest one ten ticks.
constexpr double kMinRate = 0.0291038304567337;
constexpr double kMaxRate = 12500000.0;
// The period register counts from this many ticks.
constexpr uint64_t kPeriodOffset = 9;
// Without a queue the generator stage passes pulses at its fastest period.
constexpr uint32_t kUnqueuedPeriod = 10;
constexpr uint32_t kMaxMultiply = pelagon::catalogue::FG_TRIGGER_MULTIPLY_PULSES.maximum;
// Status bits of the monitor.
constexpr uint32_t kPeriodExceededBit = 1, kQueueFullBit = 2;

// Lowers the calling thread's timer slack for as long as it lives. With the
// default slack of 50 us, each of the short sleeps between software pulses
// would last that long while the parameter lock is held.
class TimerSlack {
public:
    explicit TimerSlack(unsigned long nanoseconds) : previous_(prctl(PR_GET_TIMERSLACK, 0, 0, 0, 0)) {
        if (previous_ >= 0) prctl(PR_SET_TIMERSLACK, nanoseconds, 0, 0, 0);
    }
    ~TimerSlack() {
        if (previous_ >= 0) prctl(PR_SET_TIMERSLACK, static_cast<unsigned long>(previous_), 0, 0, 0);
    }
    TimerSlack(const TimerSlack&) = delete;
    TimerSlack& operator=(const TimerSlack&) = delete;

private:
    int previous_;
};

}  // namespace

void FgZuWrapperImpl::set_sdk_param_FG_TRIGGER_FRAMESPERSECOND_P0(double f, bool throwOnError) {
    runSetter(
        cache_FG_TRIGGER_FRAMESPERSECOND_P0, f, throwOnError,
        [&] {
            if (!(f >= kMinRate && f <= kMaxRate)) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] {
            if (!periodCovers(f, pulseFormPeriodNeeded_P0())) fail(PGN_ERR_PERIOD_TOO_SHORT);
            // In range the quotient lies between 10 and 2^32 ticks.
            const auto ticks = static_cast<uint64_t>(1.0 / ((8.0 * f) * 1e-9));
            writeTriggerRegister_P0(PELAGON_TRIGGER_REG(TriggerCam0_Generators_Generator_MinimumPeriod_Number),
                                    static_cast<uint32_t>(ticks - kPeriodOffset));
        });
}

void FgZuWrapperImpl::get_sdk_param_FG_TRIGGER_FRAMESPERSECOND_P0(double* value) {
    readOut(value) = roundTripRate(cache_FG_TRIGGER_FRAMESPERSECOND_P0);
}

void FgZuWrapperImpl::reapplyTriggerRate_P0() {
    set_sdk_param_FG_TRIGGER_FRAMESPERSECOND_P0(roundTripRate(cache_FG_TRIGGER_FRAMESPERSECOND_P0), true);
}

void FgZuWrapperImpl::set_sdk_param_FG_TRIGGER_MULTIPLY_PULSES_P0(uint32_t n, bool throwOnError) {
    const uint32_t old = cache_FG_TRIGGER_MULTIPLY_PULSES_P0;
    runSetter(
        cache_FG_TRIGGER_MULTIPLY_PULSES_P0, n, throwOnError,
        [&] {
            if (n < 1 || n > kMaxMultiply) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] {
            // The selected pulse never exceeds the count in between.
            const int count = PELAGON_TRIGGER_REG(TriggerCam0_Generators_Sequence_Downscale);
            const int selected = PELAGON_TRIGGER_REG(TriggerCam0_Generators_Sequence_SelectedPulse);
            writeTriggerRegister_P0(old < n ? count : selected, n);
            writeTriggerRegister_P0(old < n ? selected : count, n);
            triggerResetSequencer_P0();
        });
}

void FgZuWrapperImpl::set_sdk_param_FG_TRIGGERQUEUE_MODE_P0(uint32_t on, bool throwOnError) {
    runSetter(
        cache_FG_TRIGGERQUEUE_MODE_P0, on, throwOnError,
        [&] {
            if (!pelagon::enums::contains(pelagon::enums::OnOff, on)) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] {
            // In generator mode the queue is out of the path; the next
            // switch of mode or state programs it.
            if (cache_FG_AREATRIGGERMODE_P0 != kGenerator) {
                const int full = PELAGON_TRIGGER_REG(TriggerCam0_Generators_Queue_QueueFullValue_Number);
                const int enabled = PELAGON_TRIGGER_REG(TriggerCam0_Generators_Queue_QueueEnabled_Select);
                if (on == 0) {
                    writeTriggerRegister_P0(PELAGON_TRIGGER_REG(TriggerCam0_Generators_Generator_MinimumPeriod_Number),
                                            kUnqueuedPeriod);
                    writeTriggerRegister_P0(full, 1);
                    writeTriggerRegister_P0(enabled, constZero);
                } else {
                    reapplyTriggerRate_P0();
                    writeTriggerRegister_P0(full, kQueueCapacity);
                    writeTriggerRegister_P0(enabled, constOne);
                }
            }
            publishMaximum(id::FG_SENDSOFTWARETRIGGER, cache_FG_TRIGGERQUEUE_MODE_P0 == 1 ? kQueueCapacity : 1);
        });
}

bool FgZuWrapperImpl::softwareTriggerBusy_P0() {
    const uint32_t ready =
        readTriggerRegister_P0(PELAGON_TRIGGER_REG(TriggerCam0_Generators_Generator_MaximumReached_Status));
    const uint32_t queued = readTriggerRegister_P0(PELAGON_TRIGGER_REG(TriggerCam0_Generators_QueueValue_Status));
    return ready == 0 || queued != 0;
}

void FgZuWrapperImpl::set_sdk_param_FG_SENDSOFTWARETRIGGER_P0(uint32_t n, bool throwOnError) {
    const uint32_t limit = cache_FG_TRIGGERQUEUE_MODE_P0 == 1 ? kQueueCapacity : 1;
    runSetter(
        cache_FG_SENDSOFTWARETRIGGER_P0, n, throwOnError,
        [&] {
            if (n == 0 || n > limit) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] {
            if (cache_FG_AREATRIGGERMODE_P0 != kSoftware) fail(PGN_ERR_NOT_SOFTWARE_MODE);
            if (cache_FG_TRIGGERSTATE_P0 != kActive) fail(PGN_ERR_TRIGGER_NOT_ACTIVE);
            // Without a queue a pulse sent while the last one is in progress is lost.
            if (cache_FG_TRIGGERQUEUE_MODE_P0 == 0 && softwareTriggerBusy_P0()) fail(PGN_ERR_TRIGGER_BUSY);
            const TimerSlack slack(1);
            const timespec pause{0, 80};
            for (uint32_t i = 0; i < n; ++i) {
                writeTriggerRegister_P0(PELAGON_TRIGGER_REG(TriggerCam0_TriggerMode_SoftwareTrigger_Mode), kPulse);
                nanosleep(&pause, nullptr);
            }
        });
}

void FgZuWrapperImpl::get_sdk_param_FG_TRIGGERQUEUE_FILLLEVEL_P0(uint32_t* value) {
    uint32_t& level = readOut(value);
    // Nothing waits while the generator drives the trigger (the generator
    // bit of the mode) or after an immediate stop.
    if ((cache_FG_AREATRIGGERMODE_P0 & kGenerator) != 0 || cache_FG_TRIGGERSTATE_P0 == kAsyncStop) {
        level = 0;
        return;
    }
    if (readTriggerRegister_P0(PELAGON_TRIGGER_REG(Monitoring_ReadQueueStatus_Status)) & kQueueFullBit) {
        level = kQueueCapacity;
        return;
    }
    const uint32_t queued = readTriggerRegister_P0(PELAGON_TRIGGER_REG(TriggerCam0_Generators_QueueValue_Status));
    if (queued != 0) {
        level = queued;
        return;
    }
    // A pulse still in progress counts as one.
    level = readTriggerRegister_P0(PELAGON_TRIGGER_REG(TriggerCam0_Generators_Generator_MaximumReached_Status)) == 0
                ? 1
                : 0;
}

void FgZuWrapperImpl::get_sdk_param_FG_SOFTWARETRIGGER_QUEUE_FILLLEVEL_P0(uint32_t* value) {
    uint32_t& level = readOut(value);
    if (cache_FG_AREATRIGGERMODE_P0 != kSoftware) {
        level = 0;
        return;
    }
    uint32_t queued = 0;
    get_sdk_param_FG_TRIGGERQUEUE_FILLLEVEL_P0(&queued);
    level = queued * cache_FG_TRIGGER_MULTIPLY_PULSES_P0;
}

void FgZuWrapperImpl::get_sdk_param_FG_SOFTWARETRIGGER_IS_BUSY_P0(uint32_t* value) {
    readOut(value) = cache_FG_AREATRIGGERMODE_P0 == kSoftware && softwareTriggerBusy_P0() ? 1 : 0;
}

void FgZuWrapperImpl::get_sdk_param_FG_TRIGGER_EXCEEDED_PERIOD_LIMITS_P0(uint32_t* value) {
    uint32_t& out = readOut(value);
    out = readTriggerRegister_P0(PELAGON_TRIGGER_REG(Monitoring_ReadQueueStatus_Status)) & kPeriodExceededBit;
}

PELAGON_ONE_WRITE_SETTER(FG_TRIGGER_EXCEEDED_PERIOD_LIMITS_CLEAR, Apply, Monitoring_ClearOverrideCam0_Mode, kPulse)
