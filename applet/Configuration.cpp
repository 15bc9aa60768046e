// The parameters of a configuration file: saving them, loading them back in
// two passes, and the start-up defaults. All three walk configuration.def.
#include <cmath>
#include <cstdint>
#include <string>

#include "FgZuWrapperImpl.h"
#include "Fg_ConfigFileParser.h"

using quor::templates::platform::CriticalSectionGuard;

namespace {

// The value type of each kind of key.
using IntValue = uint32_t;
using DoubleValue = double;
using StringValue = std::string;

// A stored file name is limited to what this buffer holds, less its end.
constexpr size_t kFileNameBuffer = 1024;
// The simulator's pixel sequence: active plus passive clocks.
constexpr uint32_t kSequenceClocks = 2000;
// The longest line the simulator generates, in pixels.
constexpr uint32_t kSimulatorMaxLine = 65536;

void writeKey(Fg_ConfigFileParser& parser, const char* key, uint32_t value) {
    // Written as the file's signed integer; read back through the same
    // conversion, so every 32-bit pattern survives the round trip.
    parser.writeConfigFileIntKey(key, static_cast<int>(value));
}
void writeKey(Fg_ConfigFileParser& parser, const char* key, double value) {
    parser.writeConfigFileDoubleKey(key, value);
}
void writeKey(Fg_ConfigFileParser& parser, const char* key, const std::string& value) {
    parser.writeConfigFile(key, value.c_str());
}

// Each reader answers whether the key was found under port 0.
bool readKey(Fg_ConfigFileParser& parser, const char* key, uint32_t& value) {
    int read = 0;
    if (parser.parseIntKeySection(0, key, &read) != 0) return false;
    value = static_cast<uint32_t>(read);
    return true;
}
bool readKey(Fg_ConfigFileParser& parser, const char* key, double& value) {
    return parser.parseDoubleKeySection(0, key, &value) == 0;
}
bool readKey(Fg_ConfigFileParser& parser, const char* key, std::string& value) {
    char buffer[kFileNameBuffer] = {};
    if (parser.parseKeySection(0, key, buffer) != 0) return false;
    buffer[kFileNameBuffer - 1] = '\0';
    value = buffer;
    return true;
}

// One value that cannot be read or written never stops a save.
template <typename Write>
void guarded(Write write) {
    try {
        write();
    } catch (int) {
    }
}

// The simulator's active clocks as programmed, whatever the mode (the
// parameters themselves only answer in pixel-frequency mode).
uint32_t saved_FG_CAMERASIMULATOR_ACTIVE(FgZuWrapperImpl& w) {
    uint32_t active = 0;
    w.get_zu_param_Device1_Process0_CameraSimulator_PixelFrequency_ActivePixel_Number(&active, 0,
                                                                                      FG_PARAM_TYPE_UINT32_T, true);
    return active;
}

uint32_t saved_FG_CAMERASIMULATOR_PASSIVE(FgZuWrapperImpl& w) {
    const uint32_t active = saved_FG_CAMERASIMULATOR_ACTIVE(w);
    return active >= kSequenceClocks ? 0 : kSequenceClocks - active;
}

}  // namespace

bool FgZuWrapperImpl::saveConfig(Fg_ConfigFileParser& parser) {
    CriticalSectionGuard guard(&mParameterLock);
    parser.writeConfigFileByPort(0);

#define PELAGON_SAVE_Cache(NAME, kind) writeKey(parser, #NAME, cache_##NAME##_P0);
#define PELAGON_SAVE_Getter(NAME, kind) \
    kind##Value value{};                \
    get_sdk_param_##NAME##_P0(&value);  \
    writeKey(parser, #NAME, value);
#define PELAGON_SAVE_Hardware(NAME, kind) writeKey(parser, #NAME, saved_##NAME(*this));
#define PELAGON_SAVE_Nothing(NAME, kind)
#define PELAGON_CONFIG_KEY(NAME, kind, source, use) guarded([&] { PELAGON_SAVE_##source(NAME, kind) });
#include "configuration.def"
#undef PELAGON_SAVE_Cache
#undef PELAGON_SAVE_Getter
#undef PELAGON_SAVE_Hardware
#undef PELAGON_SAVE_Nothing
    return true;
}

bool FgZuWrapperImpl::loadConfig(Fg_ConfigFileParser& parser) {
    CriticalSectionGuard guard(&mParameterLock);

    // First pass: every stored value straight into its cache, untested, so
    // that the setters of the second pass see the file's whole state.
#define PELAGON_CACHE_KEY(NAME, kind) \
    if (!readKey(parser, #NAME, cache_##NAME##_P0)) return false;
#define PELAGON_PASS1_Restored(NAME, kind) PELAGON_CACHE_KEY(NAME, kind)
#define PELAGON_PASS1_CachedOnly(NAME, kind) PELAGON_CACHE_KEY(NAME, kind)
#define PELAGON_PASS1_AppliedOnly(NAME, kind)
#define PELAGON_PASS1_SavedOnly(NAME, kind)
#define PELAGON_PASS1_DefaultOnly(NAME, kind)
#define PELAGON_CONFIG_KEY(NAME, kind, source, use) PELAGON_PASS1_##use(NAME, kind)
#include "configuration.def"

    // The simulator's mode setter programs the width it last programmed and
    // the frame rate it last computed; the file's values take their place so
    // that the geometry and rate come back with the mode. Values no mode can
    // program are left to the setters to refuse.
    if (cache_FG_CAMERASIMULATOR_WIDTH_P0 > 0 && cache_FG_CAMERASIMULATOR_WIDTH_P0 <= kSimulatorMaxLine)
        used_width_P0 = cache_FG_CAMERASIMULATOR_WIDTH_P0;
    if (std::isfinite(cache_FG_CAMERASIMULATOR_FRAMERATE_P0) && cache_FG_CAMERASIMULATOR_FRAMERATE_P0 > 0.0)
        used_framerate_P0 = cache_FG_CAMERASIMULATOR_FRAMERATE_P0;

    // Second pass: through the setters, which refuse invalid values silently
    // and program the design.
#define PELAGON_APPLY_KEY(NAME, kind)                        \
    {                                                        \
        kind##Value value{};                                 \
        if (!readKey(parser, #NAME, value)) return false;    \
        set_sdk_param_##NAME##_P0(value, false);             \
    }
#define PELAGON_PASS2_Restored(NAME, kind) PELAGON_APPLY_KEY(NAME, kind)
#define PELAGON_PASS2_AppliedOnly(NAME, kind) PELAGON_APPLY_KEY(NAME, kind)
#define PELAGON_PASS2_CachedOnly(NAME, kind)
#define PELAGON_PASS2_SavedOnly(NAME, kind)
#define PELAGON_PASS2_DefaultOnly(NAME, kind)
#define PELAGON_CONFIG_KEY(NAME, kind, source, use) PELAGON_PASS2_##use(NAME, kind)
#include "configuration.def"
    return true;
}

void FgZuWrapperImpl::setDefaultValues() {
#define PELAGON_DEFAULT(NAME, kind) \
    set_sdk_param_##NAME##_P0(static_cast<kind##Value>(pelagon::catalogue::NAME.powerOn), false);
#define PELAGON_DEFAULT_Restored(NAME, kind) PELAGON_DEFAULT(NAME, kind)
#define PELAGON_DEFAULT_AppliedOnly(NAME, kind) PELAGON_DEFAULT(NAME, kind)
#define PELAGON_DEFAULT_DefaultOnly(NAME, kind) PELAGON_DEFAULT(NAME, kind)
#define PELAGON_DEFAULT_CachedOnly(NAME, kind)
#define PELAGON_DEFAULT_SavedOnly(NAME, kind)
#define PELAGON_CONFIG_KEY(NAME, kind, source, use) PELAGON_DEFAULT_##use(NAME, kind)
#include "configuration.def"
}
