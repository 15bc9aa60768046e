// The camera simulator: the internal image generator that can replace the
// camera, with its size, gaps, pattern and speed modes.
//
// The generator counts in words of 12 pixels and in clocks of 8 ns; the user
// speaks pixels, MHz and Hz. The caches keep what the user asked for, the
// used_... members what the generator is actually programmed with (rounded
// to words, gaps forced to 0 in the rate modes).
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <initializer_list>
#include <iterator>
#include <utility>

#include "Catalogue.h"
#include "FgZuWrapperImpl.h"
#include "SetterPattern.h"
#include "pelagon_errors.h"

using pelagon::fail;
using pelagon::runSetter;

namespace {

constexpr uint32_t kWord = 12;              // pixels per generator clock
constexpr double kClock = 8e-9;             // seconds per generator clock
constexpr uint32_t kSequenceLength = 2000;  // clocks per sequence in pixel-frequency mode
constexpr uint32_t kSizeLimit = 65536;      // width + line gap, height + frame gap
constexpr double kMaxPixelFrequencyMHz = pelagon::catalogue::FG_CAMERASIMULATOR_PIXEL_FREQUENCY.maximum;
constexpr double kMinRate = 0.1;  // Hz, line and frame rate
constexpr double kSaturatedFrequencyMHz = 1500.0;

namespace modes = pelagon::symbol::CameraSimulatorMode;
enum Mode : uint32_t {
    kPixelFrequencyMode = modes::FG_PIXEL_FREQUENCY,
    kLineRateMode = modes::FG_LINERATE,
    kFrameRateMode = modes::FG_FRAMERATE
};

namespace id = pelagon::id;
constexpr int kIdWidth = id::FG_CAMERASIMULATOR_WIDTH, kIdLineGap = id::FG_CAMERASIMULATOR_LINE_GAP,
              kIdHeight = id::FG_CAMERASIMULATOR_HEIGHT, kIdFrameGap = id::FG_CAMERASIMULATOR_FRAME_GAP;
constexpr int kIdPixelFrequency = id::FG_CAMERASIMULATOR_PIXEL_FREQUENCY, kIdLineRate = id::FG_CAMERASIMULATOR_LINERATE,
              kIdFrameRate = id::FG_CAMERASIMULATOR_FRAMERATE;

constexpr int32_t kReadOnly = REG_ACCESS_READ;
constexpr int32_t kChangeable = REG_ACCESS_READ | REG_ACCESS_WRITE | REG_ACCESS_CHANGE;

using Writer = void (FgZuWrapperImpl::*)(const void*, int, int, bool);
using Reader = void (FgZuWrapperImpl::*)(void*, int, int, bool);

void writeU32(FgZuWrapperImpl& w, Writer writer, uint32_t value) {
    (w.*writer)(&value, 0, FG_PARAM_TYPE_UINT32_T, true);
}

uint32_t readU32(FgZuWrapperImpl& w, Reader reader) {
    uint32_t value = 0;
    (w.*reader)(&value, 0, FG_PARAM_TYPE_UINT32_T, true);
    return value;
}

uint32_t activeClocks(FgZuWrapperImpl& w) {
    return readU32(w,
                   &FgZuWrapperImpl::get_zu_param_Device1_Process0_CameraSimulator_PixelFrequency_ActivePixel_Number);
}

uint32_t clocksPerLine(FgZuWrapperImpl& w) {
    return readU32(
        w, &FgZuWrapperImpl::get_zu_param_Device1_Process0_CameraSimulator_PixelFrequency_SequenceLength_ImageWidth);
}

// MHz in pixel-frequency mode, from the active clocks programmed.
double programmedPixelFrequency(FgZuWrapperImpl& w) {
    return static_cast<double>(activeClocks(w)) * kWord / kSequenceLength / kClock / 1e6;
}

// Computed in 64 bits so that values near the top of uint32 cannot wrap to small ones.
uint64_t roundUpToWord(uint64_t pixels) { return (pixels + kWord - 1) / kWord * kWord; }

// A size limit from a timing formula, truncated toward zero: negative or
// undefined results leave no room, and nothing exceeds the generator's size.
uint32_t sizeBound(double pixels) {
    if (!(pixels > 0)) return 0;
    if (pixels >= kSizeLimit) return kSizeLimit;
    return static_cast<uint32_t>(pixels);
}

uint32_t remainingSize(uint32_t used) { return used >= kSizeLimit ? 0 : kSizeLimit - used; }

// A rate from a clock count: a generator that was never programmed (count 0)
// reports 0 instead of an infinite rate.
double perSecond(double numerator, double denominator) { return denominator == 0 ? 0.0 : numerator / denominator; }

// Pixels the generator can emit in one period of `rate`; a rate of 0 (never
// programmed) puts no limit on the size.
double pixelsPerPeriod(double pixelRate, double rate) { return rate > 0 ? pixelRate / rate : HUGE_VAL; }

uint32_t mode(const FgZuWrapperImpl& w) { return w.cache_FG_CAMERASIMULATOR_SELECT_MODE_P0; }
double maxPixelRate(const FgZuWrapperImpl& w) { return w.max_pixelFrequency_P0; }

double lineRate(FgZuWrapperImpl& w) {
    double rate = 0;
    w.get_sdk_param_FG_CAMERASIMULATOR_LINERATE_P0(&rate);
    return rate;
}

double frameRate(FgZuWrapperImpl& w) {
    double rate = 0;
    w.get_sdk_param_FG_CAMERASIMULATOR_FRAMERATE_P0(&rate);
    return rate;
}

// The shortest line the generator can emit is the active width plus one word.
double lineRateMaximum(const FgZuWrapperImpl& w) { return maxPixelRate(w) / (w.used_width_P0 + kWord); }

double frameRateMaximum(const FgZuWrapperImpl& w) {
    const uint32_t pixelsPerFrame = (w.used_width_P0 + kWord) * w.cache_FG_CAMERASIMULATOR_HEIGHT_P0;
    return perSecond(maxPixelRate(w), pixelsPerFrame);
}

uint32_t widthBound(FgZuWrapperImpl& w) {
    switch (mode(w)) {
        case kPixelFrequencyMode: return remainingSize(w.used_line_gap_P0);
        case kLineRateMode: return sizeBound(pixelsPerPeriod(maxPixelRate(w), lineRate(w)) - kWord);
        case kFrameRateMode:
            return sizeBound(pixelsPerPeriod(maxPixelRate(w), w.cache_FG_CAMERASIMULATOR_HEIGHT_P0 * frameRate(w)) -
                             kWord);
        default: return kSizeLimit;
    }
}

uint32_t heightBound(FgZuWrapperImpl& w) {
    if (mode(w) == kFrameRateMode)
        return sizeBound(pixelsPerPeriod(maxPixelRate(w), (w.used_width_P0 + kWord) * frameRate(w)));
    return remainingSize(w.used_frame_gap_P0);
}

uint32_t lineGapBound(FgZuWrapperImpl& w) {
    switch (mode(w)) {
        case kPixelFrequencyMode: return remainingSize(w.used_width_P0);
        case kLineRateMode:
            return std::min(remainingSize(w.used_width_P0),
                            sizeBound(pixelsPerPeriod(maxPixelRate(w), lineRate(w)) - w.used_width_P0 - kWord));
        default: return 0;
    }
}

uint32_t frameGapBound(const FgZuWrapperImpl& w) {
    return mode(w) == kPixelFrequencyMode ? remainingSize(w.cache_FG_CAMERASIMULATOR_HEIGHT_P0) : 0;
}

void publishUpperLimit(FgZuWrapperImpl& w, int id, uint32_t limit) {
    if (RegisterInfo* r = w.publishedRecord(id)) r->u.uiReg.to = limit;
}

// A rate maximum never drops to 0, so the published range stays non-empty.
void publishRateLimit(FgZuWrapperImpl& w, int id, double limit) {
    if (RegisterInfo* r = w.publishedRecord(id)) r->u.dReg.to = std::max(limit, DBL_MIN);
}

void publishAccess(FgZuWrapperImpl& w, int id, int32_t flags) {
    if (RegisterInfo* r = w.publishedRecord(id)) r->accessFlags = flags;
}

void publishLineGapLimit(FgZuWrapperImpl& w) { publishUpperLimit(w, kIdLineGap, lineGapBound(w)); }
void publishFrameGapLimit(FgZuWrapperImpl& w) { publishUpperLimit(w, kIdFrameGap, frameGapBound(w)); }

// The crossed registers: Size_ImageHeight takes the whole frame, FrameGap_Number the active lines.
void programHeight(FgZuWrapperImpl& w, uint32_t height, uint32_t gap) {
    if (uint64_t{height} + gap > kSizeLimit) fail(PGN_ERR_OUT_OF_RANGE);
    w.used_height_P0 = height;
    w.used_frame_gap_P0 = gap;
    writeU32(w, &FgZuWrapperImpl::set_zu_param_Device1_Process0_CameraSimulator_Size_ImageHeight, height + gap);
    writeU32(w, &FgZuWrapperImpl::set_zu_param_Device1_Process0_CameraSimulator_FrameGap_Number, height);
}

// In the rate modes every line is one clock pulse of `clocks` length.
void programClocksPerLine(FgZuWrapperImpl& w, uint32_t clocks) {
    writeU32(w,
             &FgZuWrapperImpl::set_zu_param_Device1_Process0_CameraSimulator_PixelFrequency_SequenceLength_ImageWidth,
             clocks);
    writeU32(w, &FgZuWrapperImpl::set_zu_param_Device1_Process0_CameraSimulator_PixelFrequency_ActivePixel_Number, 1);
}

template <size_t N>
void requireListed(const pelagon::enums::Row (&table)[N], uint32_t value) {
    if (!pelagon::enums::contains(table, value)) fail(PGN_ERR_OUT_OF_RANGE);
}

// An enumerated setting: a value of `table`, programmed as the given register writes in order.
template <size_t N>
void setListed(FgZuWrapperImpl& w, uint32_t& cache, uint32_t value, bool throwOnError,
               const pelagon::enums::Row (&table)[N], std::initializer_list<std::pair<Writer, uint32_t>> writes) {
    runSetter(
        cache, value, throwOnError, [&] { requireListed(table, value); },
        [&] {
            for (const auto& [writer, registerValue] : writes) writeU32(w, writer, registerValue);
        });
}

void requireRate(double rate, double maximum) {
    if (std::isnan(rate) || rate < kMinRate || rate > maximum) fail(PGN_ERR_OUT_OF_RANGE);
}

}  // namespace

// ---- Source, pattern, trigger ------------------------------------------------

void FgZuWrapperImpl::set_sdk_param_FG_CAMERASIMULATOR_ENABLE_P0(uint32_t value, bool throwOnError) {
    setListed(*this, cache_FG_CAMERASIMULATOR_ENABLE_P0, value, throwOnError, pelagon::enums::CameraSimulatorSource,
              {{&FgZuWrapperImpl::set_zu_param_Device1_Process0_CameraSimulator_Enable_SelectSource, value}});
}

void FgZuWrapperImpl::set_sdk_param_FG_CAMERASIMULATOR_PATTERN_P0(uint32_t value, bool throwOnError) {
    // x enable and y divisor: horizontal 1, 1; vertical 0, 256; diagonal 1, 256.
    namespace pattern = pelagon::symbol::CameraSimulatorPattern;
    const uint32_t alongX = value == pattern::FG_VERTICAL ? 0 : 1;
    const uint32_t yDivisor = value == pattern::FG_HORIZONTAL ? 1 : 256;
    setListed(*this, cache_FG_CAMERASIMULATOR_PATTERN_P0, value, throwOnError, pelagon::enums::CameraSimulatorPattern,
              {{&FgZuWrapperImpl::set_zu_param_Device1_Process0_CameraSimulator_EnableX_Enable_Value, alongX},
               {&FgZuWrapperImpl::set_zu_param_Device1_Process0_CameraSimulator_Y_Divisor, yDivisor}});
}

void FgZuWrapperImpl::set_sdk_param_FG_CAMERASIMULATOR_PATTERN_OFFSET_P0(uint32_t value, bool throwOnError) {
    runSetter(
        cache_FG_CAMERASIMULATOR_PATTERN_OFFSET_P0, value, throwOnError,
        [&] {
            if (value > pelagon::catalogue::FG_CAMERASIMULATOR_PATTERN_OFFSET.maximum) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] { writeU32(*this, &FgZuWrapperImpl::set_zu_param_Device1_Process0_CameraSimulator_Offset_Value, value); });
}

void FgZuWrapperImpl::set_sdk_param_FG_CAMERASIMULATOR_ROLL_P0(uint32_t value, bool throwOnError) {
    // A frame divisor of 256 rolls the pattern, 1 keeps it still.
    const uint32_t divisor = value == pelagon::symbol::OnOff::FG_ON ? 256 : 1;
    setListed(*this, cache_FG_CAMERASIMULATOR_ROLL_P0, value, throwOnError, pelagon::enums::OnOff,
              {{&FgZuWrapperImpl::set_zu_param_Device1_Process0_CameraSimulator_Frame_Divisor, divisor}});
}

void FgZuWrapperImpl::set_sdk_param_FG_CAMERASIMULATOR_TRIGGER_MODE_P0(uint32_t value, bool throwOnError) {
    // Free run opens the valve for good; otherwise a pulse releases one line
    // (valve mode 1) or one frame (valve mode 2).
    namespace trigger = pelagon::symbol::CameraSimulatorTriggerMode;
    const uint32_t freeRun = value == trigger::SIMULATION_FREE_RUN ? 1 : 0;
    const uint32_t valveMode = value == trigger::RISING_EDGE_TRIGGERS_LINE ? 1 : 2;
    setListed(
        *this, cache_FG_CAMERASIMULATOR_TRIGGER_MODE_P0, value, throwOnError,
        pelagon::enums::CameraSimulatorTriggerMode,
        {{&FgZuWrapperImpl::set_zu_param_Device1_Process0_CameraSimulator_TriggerValve_FreeRun_Select, freeRun},
         {&FgZuWrapperImpl::set_zu_param_Device1_Process0_CameraSimulator_TriggerValve_TriggerValve_Mode, valveMode}});
}

// ---- Geometry -----------------------------------------------------------------

// The crossed registers: Size_ImageWidth takes the whole line, LineGap_Number the active words.
void FgZuWrapperImpl::setWidth_P0(uint32_t width, uint32_t gap) {
    const uint64_t roundedWidth = roundUpToWord(width);
    const uint64_t roundedGap = roundUpToWord(gap);
    if (roundedWidth + roundedGap > kSizeLimit) fail(PGN_ERR_OUT_OF_RANGE);
    used_line_gap_P0 = static_cast<uint32_t>(roundedGap);
    used_width_P0 = static_cast<uint32_t>(roundedWidth);
    writeU32(*this, &FgZuWrapperImpl::set_zu_param_Device1_Process0_CameraSimulator_Size_ImageWidth,
             static_cast<uint32_t>((roundedWidth + roundedGap) / kWord));
    writeU32(*this, &FgZuWrapperImpl::set_zu_param_Device1_Process0_CameraSimulator_LineGap_Number,
             static_cast<uint32_t>(roundedWidth / kWord));
}

void FgZuWrapperImpl::update_dynamic_range_FG_CAMERASIMULATOR_WIDTH_P0() {
    publishUpperLimit(*this, kIdWidth, widthBound(*this));
}

void FgZuWrapperImpl::update_dynamic_range_FG_CAMERASIMULATOR_HEIGHT_P0() {
    publishUpperLimit(*this, kIdHeight, heightBound(*this));
}

void FgZuWrapperImpl::set_sdk_param_FG_CAMERASIMULATOR_WIDTH_P0(uint32_t w, bool throwOnError) {
    runSetter(
        cache_FG_CAMERASIMULATOR_WIDTH_P0, w, throwOnError,
        [&] {
            if (w == 0 || w > widthBound(*this)) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] {
            // Only pixel-frequency mode has a line gap; the rate modes set the line length in clocks.
            setWidth_P0(w, mode(*this) == kPixelFrequencyMode ? used_line_gap_P0 : 0);
            publishLineGapLimit(*this);
            update_dynamic_range_FG_CAMERASIMULATOR_HEIGHT_P0();
            publishRateLimit(*this, kIdLineRate, lineRateMaximum(*this));
            publishRateLimit(*this, kIdFrameRate, frameRateMaximum(*this));
        });
}

void FgZuWrapperImpl::set_sdk_param_FG_CAMERASIMULATOR_LINE_GAP_P0(uint32_t g, bool throwOnError) {
    runSetter(
        cache_FG_CAMERASIMULATOR_LINE_GAP_P0, g, throwOnError,
        [&] {
            if (g > lineGapBound(*this)) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] {
            setWidth_P0(used_width_P0, g);
            update_dynamic_range_FG_CAMERASIMULATOR_WIDTH_P0();
        });
}

void FgZuWrapperImpl::set_sdk_param_FG_CAMERASIMULATOR_HEIGHT_P0(uint32_t h, bool throwOnError) {
    runSetter(
        cache_FG_CAMERASIMULATOR_HEIGHT_P0, h, throwOnError,
        [&] {
            if (h == 0 || h > heightBound(*this)) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] {
            const bool frameRateMode = mode(*this) == kFrameRateMode;
            programHeight(*this, h, frameRateMode ? 0 : used_frame_gap_P0);
            // The frame rate is kept and the line length follows the new height.
            if (frameRateMode)
                set_sdk_param_FG_CAMERASIMULATOR_FRAMERATE_P0(cache_FG_CAMERASIMULATOR_FRAMERATE_P0, true);
            update_dynamic_range_FG_CAMERASIMULATOR_WIDTH_P0();
            publishFrameGapLimit(*this);
            publishRateLimit(*this, kIdFrameRate, frameRateMaximum(*this));
        });
}

void FgZuWrapperImpl::set_sdk_param_FG_CAMERASIMULATOR_FRAME_GAP_P0(uint32_t g, bool throwOnError) {
    runSetter(
        cache_FG_CAMERASIMULATOR_FRAME_GAP_P0, g, throwOnError,
        [&] {
            if (g > frameGapBound(*this)) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] {
            programHeight(*this, cache_FG_CAMERASIMULATOR_HEIGHT_P0, g);
            update_dynamic_range_FG_CAMERASIMULATOR_HEIGHT_P0();
        });
}

void FgZuWrapperImpl::get_sdk_param_FG_CAMERASIMULATOR_WIDTH_P0(uint32_t* value) {
    if (!value) fail(PGN_ERR_INVALID_ARGUMENT);
    *value = used_width_P0;
}

void FgZuWrapperImpl::get_sdk_param_FG_CAMERASIMULATOR_LINE_GAP_P0(uint32_t* value) {
    if (!value) fail(PGN_ERR_INVALID_ARGUMENT);
    *value = mode(*this) == kPixelFrequencyMode ? used_line_gap_P0 : 0;
}

void FgZuWrapperImpl::get_sdk_param_FG_CAMERASIMULATOR_FRAME_GAP_P0(uint32_t* value) {
    if (!value) fail(PGN_ERR_INVALID_ARGUMENT);
    *value = mode(*this) == kFrameRateMode ? 0 : used_frame_gap_P0;
}

// ---- Speed --------------------------------------------------------------------

void FgZuWrapperImpl::set_sdk_param_FG_CAMERASIMULATOR_SELECT_MODE_P0(uint32_t m, bool throwOnError) {
    // Access of PIXEL_FREQUENCY, LINERATE, FRAMERATE, LINE_GAP, FRAME_GAP per mode.
    static constexpr int kTimingIds[] = {kIdPixelFrequency, kIdLineRate, kIdFrameRate, kIdLineGap, kIdFrameGap};
    static constexpr int32_t kAccess[3][5] = {
        {kChangeable, kReadOnly, kReadOnly, kChangeable, kChangeable},
        {kReadOnly, kChangeable, kReadOnly, kReadOnly, kChangeable},
        {kReadOnly, kReadOnly, kChangeable, kReadOnly, kReadOnly},
    };
    runSetter(
        cache_FG_CAMERASIMULATOR_SELECT_MODE_P0, m, throwOnError,
        [&] { requireListed(pelagon::enums::CameraSimulatorMode, m); },
        [&] {
            for (size_t i = 0; i < std::size(kTimingIds); ++i) publishAccess(*this, kTimingIds[i], kAccess[m][i]);
            writeU32(*this, &FgZuWrapperImpl::set_zu_param_Device1_Process0_CameraSimulator_ControlPixelClock_Mode,
                     m == kPixelFrequencyMode ? 0 : 1);
            setWidth_P0(used_width_P0, cache_FG_CAMERASIMULATOR_LINE_GAP_P0);
            programHeight(*this, cache_FG_CAMERASIMULATOR_HEIGHT_P0, cache_FG_CAMERASIMULATOR_FRAME_GAP_P0);
            switch (m) {
                case kPixelFrequencyMode:
                    set_sdk_param_FG_CAMERASIMULATOR_PIXEL_FREQUENCY_P0(cache_FG_CAMERASIMULATOR_PIXEL_FREQUENCY_P0,
                                                                        true);
                    break;
                case kLineRateMode:
                    set_sdk_param_FG_CAMERASIMULATOR_LINERATE_P0(
                        std::min(lineRateMaximum(*this), cache_FG_CAMERASIMULATOR_LINERATE_P0), true);
                    break;
                default: set_sdk_param_FG_CAMERASIMULATOR_FRAMERATE_P0(used_framerate_P0, true); break;
            }
            update_dynamic_range_FG_CAMERASIMULATOR_WIDTH_P0();
            publishLineGapLimit(*this);
            update_dynamic_range_FG_CAMERASIMULATOR_HEIGHT_P0();
            publishFrameGapLimit(*this);
        });
}

void FgZuWrapperImpl::set_sdk_param_FG_CAMERASIMULATOR_PIXEL_FREQUENCY_P0(double f, bool throwOnError) {
    uint32_t active = 0;
    runSetter(
        cache_FG_CAMERASIMULATOR_PIXEL_FREQUENCY_P0, f, throwOnError,
        [&] {
            if (std::isnan(f) || f < 0 || f > kMaxPixelFrequencyMHz) fail(PGN_ERR_OUT_OF_RANGE);
            // Active clocks out of 2000, each clock 12 pixels: f × 4/3 to the nearest.
            active = static_cast<uint32_t>(f * 1e6 * kSequenceLength * kClock / kWord + 0.5);
            // Below 0.375 MHz no clock of the sequence would be active and the
            // repeat divisor 2000 / active has no value: refused before
            // anything is cached or written.
            if (active == 0) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] {
            // Above 1500 MHz active exceeds the sequence and the divisor
            // becomes 0; the generator then simply runs at its limit.
            writeU32(*this,
                     &FgZuWrapperImpl::set_zu_param_Device1_Process0_CameraSimulator_PixelFrequency_ActivePixel_Number,
                     active);
            writeU32(*this,
                     &FgZuWrapperImpl::set_zu_param_Device1_Process0_CameraSimulator_PixelFrequency_RepeatPat_Divisor,
                     kSequenceLength / active);
            writeU32(*this,
                     &FgZuWrapperImpl::
                         set_zu_param_Device1_Process0_CameraSimulator_PixelFrequency_SequenceLength_ImageWidth,
                     kSequenceLength);
            used_framerate_P0 = frameRate(*this);
        });
}

void FgZuWrapperImpl::set_sdk_param_FG_CAMERASIMULATOR_LINERATE_P0(double r, bool throwOnError) {
    runSetter(
        cache_FG_CAMERASIMULATOR_LINERATE_P0, r, throwOnError, [&] { requireRate(r, lineRateMaximum(*this)); },
        [&] {
            programClocksPerLine(*this, static_cast<uint32_t>(1 / (r * kClock) + 0.5));
            setWidth_P0(used_width_P0, 0);
            used_framerate_P0 = frameRate(*this);
            update_dynamic_range_FG_CAMERASIMULATOR_WIDTH_P0();
            publishLineGapLimit(*this);
        });
}

void FgZuWrapperImpl::set_sdk_param_FG_CAMERASIMULATOR_FRAMERATE_P0(double r, bool throwOnError) {
    runSetter(
        cache_FG_CAMERASIMULATOR_FRAMERATE_P0, r, throwOnError, [&] { requireRate(r, frameRateMaximum(*this)); },
        [&] {
            const uint32_t height = cache_FG_CAMERASIMULATOR_HEIGHT_P0;
            programClocksPerLine(*this, static_cast<uint32_t>(1 / (r * kClock) / height + 0.5));
            setWidth_P0(used_width_P0, 0);
            programHeight(*this, height, 0);
            update_dynamic_range_FG_CAMERASIMULATOR_WIDTH_P0();
            update_dynamic_range_FG_CAMERASIMULATOR_HEIGHT_P0();
        });
}

void FgZuWrapperImpl::get_sdk_param_FG_CAMERASIMULATOR_ACTIVE_P0(uint32_t* value) {
    if (!value) fail(PGN_ERR_INVALID_ARGUMENT);
    if (mode(*this) != kPixelFrequencyMode) return;
    *value = activeClocks(*this);
}

void FgZuWrapperImpl::get_sdk_param_FG_CAMERASIMULATOR_PASSIVE_P0(uint32_t* value) {
    if (!value) fail(PGN_ERR_INVALID_ARGUMENT);
    if (mode(*this) != kPixelFrequencyMode) return;
    const uint32_t active = activeClocks(*this);
    // Above 1500 MHz the active part exceeds the sequence: nothing is passive.
    *value = active >= kSequenceLength ? 0 : kSequenceLength - active;
}

void FgZuWrapperImpl::get_sdk_param_FG_CAMERASIMULATOR_PIXEL_FREQUENCY_P0(double* value) {
    if (!value) fail(PGN_ERR_INVALID_ARGUMENT);
    // The rate modes run the generator at full speed and pace it per line.
    *value = mode(*this) == kPixelFrequencyMode ? programmedPixelFrequency(*this) : kSaturatedFrequencyMHz;
}

void FgZuWrapperImpl::get_sdk_param_FG_CAMERASIMULATOR_LINERATE_P0(double* value) {
    if (!value) fail(PGN_ERR_INVALID_ARGUMENT);
    switch (mode(*this)) {
        case kPixelFrequencyMode:
            *value = perSecond(programmedPixelFrequency(*this) * 1e6, used_width_P0 + used_line_gap_P0);
            break;
        case kLineRateMode: *value = perSecond(1, clocksPerLine(*this) * kClock); break;
        case kFrameRateMode: *value = perSecond(kWord, used_width_P0 * kClock); break;
        default: fail(PGN_ERR_DECODE);
    }
}

void FgZuWrapperImpl::get_sdk_param_FG_CAMERASIMULATOR_FRAMERATE_P0(double* value) {
    if (!value) fail(PGN_ERR_INVALID_ARGUMENT);
    const uint32_t height = cache_FG_CAMERASIMULATOR_HEIGHT_P0;
    switch (mode(*this)) {
        case kPixelFrequencyMode: {
            const uint32_t pixelsPerFrame = (used_width_P0 + used_line_gap_P0) * (height + used_frame_gap_P0);
            *value = perSecond(programmedPixelFrequency(*this) * 1e6, pixelsPerFrame);
            break;
        }
        case kLineRateMode:
            *value = perSecond(perSecond(1, clocksPerLine(*this) * kClock), height + used_frame_gap_P0);
            break;
        case kFrameRateMode: {
            const uint32_t clocksPerFrame = height * clocksPerLine(*this);
            *value = perSecond(1, clocksPerFrame * kClock);
            break;
        }
        default: fail(PGN_ERR_DECODE);
    }
}
