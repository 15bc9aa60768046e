// Vocabulary the trigger system's sources share: parameter ids by name, the
// mode and state values, and the conversions between time and the trigger
// clock's 8 ns ticks.
#pragma once

#include <algorithm>
#include <cstdint>

#include "Catalogue.h"
#include "Fail.h"
#include "pelagon_errors.h"

// The id member of a trigger block register, named after `Device1_Process1_Trigger_`.
#define PELAGON_TRIGGER_REG(entry) zu_id_Device1_Process1_Trigger_##entry

// The setter of a parameter whose value must be in enumeration `table` and
// which is answered by one write of `written` (the value itself, or the
// pulse of a clear) to the register `entry`.
#define PELAGON_ONE_WRITE_SETTER(NAME, table, entry, written)                                              \
    void FgZuWrapperImpl::set_sdk_param_##NAME##_P0(uint32_t value, bool throwOnError) {                   \
        setWithOneWrite_P0(cache_##NAME##_P0, value, pelagon::enums::contains(pelagon::enums::table, value), \
                           PELAGON_TRIGGER_REG(entry), written, throwOnError);                              \
    }

namespace pelagon::trigger {

namespace id = pelagon::id;

// Area trigger modes are bit values; there is no mode 3.
inline constexpr uint32_t kGenerator = pelagon::symbol::AreaTriggerModes::ATM_GENERATOR,
                          kExternal = pelagon::symbol::AreaTriggerModes::ATM_EXTERNAL,
                          kSoftware = pelagon::symbol::AreaTriggerModes::ATM_SOFTWARE;
inline constexpr uint32_t kActive = pelagon::symbol::TriggerStates::TS_ACTIVE,
                          kAsyncStop = pelagon::symbol::TriggerStates::TS_ASYNC_STOP,
                          kSyncStop = pelagon::symbol::TriggerStates::TS_SYNC_STOP;

// The value the clear and pulse registers take to act once.
inline constexpr uint32_t kPulse = 2;
// The selector source of a constant low level: an output switched off.
inline constexpr uint32_t kOutputOff = 5;
inline constexpr uint32_t kQueueCapacity = 2040;

// The rate as the generator sees it: through its period in ticks and back.
// Computed exactly so, in this order, wherever the rate is re-applied.
inline double roundTripRate(double f) { return 1 / ((1 / (f * 8.0 * 1e-9)) * 8.0 * 1e-9); }

inline double ticksToMicroseconds(uint32_t ticks) { return ticks * 8.0 / 1000.0; }

// Microseconds a pulse form generator needs between two trigger pulses: its
// delay and its width, each spread over its downscale. The two are compared,
// not added, deliberately.
inline double pulseFormSpan(double delayUs, double widthUs, uint32_t downscale) {
    return std::max({delayUs / downscale, widthUs / downscale, 0.0});
}

// True when the period of `rate` pulses per second is longer than `spanUs`.
inline bool periodCovers(double rate, double spanUs) { return 1000000.0 / rate > spanUs; }

// The destination of a getter; a null one is refused.
template <typename T>
T& readOut(T* value) {
    if (!value) pelagon::fail(PGN_ERR_INVALID_ARGUMENT);
    return *value;
}

}  // namespace pelagon::trigger
