// The image delivered to the host: region of interest, pixel and output
// format, bit alignment, trigger packet mode, time-out, image selector and
// the buffer status read-outs.
#include <algorithm>

#include "Catalogue.h"
#include "FgZuWrapperImpl.h"
#include "SetterPattern.h"
#include "pelagon_errors.h"

using pelagon::fail;
using pelagon::runSetter;

namespace {

// The setters' limits are the catalogue's; the offsets narrow them further.
namespace row = pelagon::catalogue;
constexpr uint32_t kMinWidth = row::FG_WIDTH.minimum, kMaxWidth = row::FG_WIDTH.maximum;
constexpr uint32_t kWidthStep = row::FG_WIDTH.step;
constexpr uint32_t kMinHeight = row::FG_HEIGHT.minimum, kMaxHeight = row::FG_HEIGHT.maximum;
constexpr uint32_t kMinTimeout = row::FG_TIMEOUT.minimum, kMaxTimeout = row::FG_TIMEOUT.maximum;
constexpr uint32_t kMinSelectPeriod = row::FG_IMG_SELECT_PERIOD.minimum, kMaxSelectPeriod = row::FG_IMG_SELECT_PERIOD.maximum;
constexpr uint32_t kMaxSelect = row::FG_IMG_SELECT.maximum;
constexpr int kIdWidth = pelagon::id::FG_WIDTH, kIdHeight = pelagon::id::FG_HEIGHT, kIdXOffset = pelagon::id::FG_XOFFSET,
              kIdYOffset = pelagon::id::FG_YOFFSET;
constexpr uint32_t kOverflowFillLevel = 100;

// The Bayer phase seen by the white balance and demosaicing stages: the base
// phase of the pixel format, moved by an odd x or y offset.
uint32_t bayerPhase(uint32_t base, uint32_t xOffset, uint32_t yOffset) {
    if (base > 3) return base;
    return base ^ ((xOffset & 1) + 2 * (yOffset & 1));
}

struct PixelFormat {
    uint32_t basePhase;
    uint32_t depthSelector;  // 0: 8 bit, 1: 10 bit, 2: 12 bit
};

// CoaXPress Bayer codes 0x3OD: O the colour order (GR, RG, GB, BG), D the depth.
PixelFormat decodePixelFormat(uint32_t code) {
    static constexpr uint32_t kBasePhase[] = {3, 2, 0, 1};  // GR, RG, GB, BG
    const uint32_t order = (code >> 4) & 0xF;
    const uint32_t depth = code & 0xF;
    if (((code >> 8) & 0xFF) != 3 || order < 1 || order > 4 || depth < 1 || depth > 3) fail(PGN_ERR_DECODE);
    return {kBasePhase[order - 1], depth - 1};
}

}  // namespace

void FgZuWrapperImpl::writeBayerPhase() {
    const uint32_t phase = bayerPhase(previousBayer_P0, cache_FG_XOFFSET_P0, cache_FG_YOFFSET_P0);
    set_zu_param_Device1_Process0_Bayer_White_BayerInit(&phase, 0, FG_PARAM_TYPE_UINT32_T, true);
    set_zu_param_Device1_Process0_Bayer_Bayer_BayerInit(&phase, 0, FG_PARAM_TYPE_UINT32_T, true);
}

void FgZuWrapperImpl::publishMaximum(int id, uint32_t maximum) {
    if (RegisterInfo* record = publishedRecord(id)) record->u.uiReg.to = maximum;
}

void FgZuWrapperImpl::set_sdk_param_FG_WIDTH_P0(uint32_t w, bool throwOnError) {
    runSetter(
        cache_FG_WIDTH_P0, w, throwOnError,
        [&] {
            if (w < kMinWidth || w > kMaxWidth - std::min(cache_FG_XOFFSET_P0, kMaxWidth)) fail(PGN_ERR_OUT_OF_RANGE);
            if (w % kWidthStep != 0) fail(PGN_ERR_STEP);
        },
        [&] {
            set_zu_param_Device1_Process0_Buffer_0_DRAM_A_0_XLength(&w, 0, FG_PARAM_TYPE_UINT32_T, true);
            set_zu_param_Device1_Process0_Buffer_0_DRAM_A_1_XLength(&w, 0, FG_PARAM_TYPE_UINT32_T, true);
            publishMaximum(kIdXOffset, kMaxWidth - w);
        });
}

void FgZuWrapperImpl::set_sdk_param_FG_HEIGHT_P0(uint32_t h, bool throwOnError) {
    runSetter(
        cache_FG_HEIGHT_P0, h, throwOnError,
        [&] {
            if (h < kMinHeight || h > kMaxHeight - std::min(cache_FG_YOFFSET_P0, kMaxHeight)) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] {
            set_zu_param_Device1_Process0_Buffer_0_DRAM_A_0_YLength(&h, 0, FG_PARAM_TYPE_UINT32_T, true);
            set_zu_param_Device1_Process0_Buffer_0_DRAM_A_1_YLength(&h, 0, FG_PARAM_TYPE_UINT32_T, true);
            publishMaximum(kIdYOffset, kMaxHeight - h);
        });
}

void FgZuWrapperImpl::set_sdk_param_FG_XOFFSET_P0(uint32_t x, bool throwOnError) {
    runSetter(
        cache_FG_XOFFSET_P0, x, throwOnError,
        [&] {
            if (x > kMaxWidth - std::min(cache_FG_WIDTH_P0, kMaxWidth)) fail(PGN_ERR_OUT_OF_RANGE);
            if (x % kWidthStep != 0) fail(PGN_ERR_STEP);
        },
        [&] {
            set_zu_param_Device1_Process0_Buffer_0_DRAM_A_0_XOffset(&x, 0, FG_PARAM_TYPE_UINT32_T, true);
            set_zu_param_Device1_Process0_Buffer_0_DRAM_A_1_XOffset(&x, 0, FG_PARAM_TYPE_UINT32_T, true);
            writeBayerPhase();
            publishMaximum(kIdWidth, kMaxWidth - x);
        });
}

void FgZuWrapperImpl::set_sdk_param_FG_YOFFSET_P0(uint32_t y, bool throwOnError) {
    runSetter(
        cache_FG_YOFFSET_P0, y, throwOnError,
        [&] {
            if (y > kMaxHeight - std::min(cache_FG_HEIGHT_P0, kMaxHeight)) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] {
            set_zu_param_Device1_Process0_Buffer_0_DRAM_A_0_YOffset(&y, 0, FG_PARAM_TYPE_UINT32_T, true);
            set_zu_param_Device1_Process0_Buffer_0_DRAM_A_1_YOffset(&y, 0, FG_PARAM_TYPE_UINT32_T, true);
            writeBayerPhase();
            publishMaximum(kIdHeight, kMaxHeight - y);
        });
}

void FgZuWrapperImpl::set_sdk_param_FG_PIXELFORMAT_P0(uint32_t code, bool throwOnError) {
    PixelFormat format{};
    runSetter(
        cache_FG_PIXELFORMAT_P0, code, throwOnError,
        [&] {
            if (!pelagon::enums::contains(pelagon::enums::cxp_pixel_format_bayer8_10_12, code))
                fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] {
            format = decodePixelFormat(code);
            previousBayer_P0 = format.basePhase;
            writeBayerPhase();
            set_zu_param_Device1_Process0_12BitSelector_PixelFormat_SelectSource(&format.depthSelector, 0,
                                                                                 FG_PARAM_TYPE_UINT32_T, true);
        });
}

void FgZuWrapperImpl::set_sdk_param_FG_FORMAT_P0(uint32_t value, bool throwOnError) {
    // Three output paths run in parallel; SelectSource picks one and the
    // other two are discarded.
    struct Path {
        uint32_t format, select, trash16, trash8, trash10;
    };
    static constexpr Path kPaths[] = {{2, 1, 1, 0, 1}, {5, 2, 1, 1, 0}, {6, 0, 0, 1, 1}};
    runSetter(
        cache_FG_FORMAT_P0, value, throwOnError,
        [&] {
            if (!pelagon::enums::contains(pelagon::enums::FormatColor24_30_48, value)) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] {
            const Path* path = std::find_if(std::begin(kPaths), std::end(kPaths),
                                            [&](const Path& p) { return p.format == value; });
            if (path == std::end(kPaths)) fail(PGN_ERR_OUT_OF_RANGE);
            set_zu_param_Device1_Process0_OutputFormat_FG_FORMAT_SelectSource(&path->select, 0,
                                                                              FG_PARAM_TYPE_UINT32_T, true);
            set_zu_param_Device1_Process0_OutputFormat_VirtualTrash16Bit_EnableTrash_Value(&path->trash16, 0,
                                                                                           FG_PARAM_TYPE_UINT32_T, true);
            set_zu_param_Device1_Process0_OutputFormat_VirtualTrash8Bit_EnableTrash_Value(&path->trash8, 0,
                                                                                          FG_PARAM_TYPE_UINT32_T, true);
            set_zu_param_Device1_Process0_OutputFormat_VirtualTrash10Bit_EnableTrash_Value(&path->trash10, 0,
                                                                                           FG_PARAM_TYPE_UINT32_T, true);
        });
}

void FgZuWrapperImpl::set_sdk_param_FG_BITALIGNMENT_P0(uint32_t value, bool throwOnError) {
    runSetter(
        cache_FG_BITALIGNMENT_P0, value, throwOnError,
        [&] {
            if (!pelagon::enums::contains(pelagon::enums::AlignmentModesBoth, value)) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] {
            set_zu_param_Device1_Process0_OutputFormat_FG_BITALIGNMENT_Value(&value, 0, FG_PARAM_TYPE_UINT32_T, true);
        });
}

void FgZuWrapperImpl::set_sdk_param_FG_CXP_TRIGGER_PACKET_MODE_P0(uint32_t value, bool throwOnError) {
    runSetter(
        cache_FG_CXP_TRIGGER_PACKET_MODE_P0, value, throwOnError,
        [&] {
            if (!pelagon::enums::contains(pelagon::enums::CXPTriggerPacketMode, value)) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] {
            const uint32_t risingEdgeOnly = value == 1 ? 1 : 0;
            set_zu_param_Device1_Process0_Camera_Camera_TxTriggerPacketMode(&risingEdgeOnly, 0,
                                                                           FG_PARAM_TYPE_UINT32_T, true);
        });
}

// The time-out is the runtime's own; the applet only checks and passes it on.
void FgZuWrapperImpl::set_sdk_param_FG_TIMEOUT_P0(uint32_t t, bool throwOnError) {
    runSetter(
        cache_FG_TIMEOUT_P0, t, throwOnError,
        [&] {
            if (t < kMinTimeout || t > kMaxTimeout) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] {
            const int rc = setUnwrappedParameterWithType(FG_RT_TIMEOUT, &t, 0, FG_PARAM_TYPE_UINT32_T);
            if (rc != 0) fail(rc);
        });
}

void FgZuWrapperImpl::set_sdk_param_FG_IMG_SELECT_PERIOD_P0(uint32_t p, bool throwOnError) {
    runSetter(
        cache_FG_IMG_SELECT_PERIOD_P0, p, throwOnError,
        [&] {
            if (p < kMinSelectPeriod || p > kMaxSelectPeriod || p <= cache_FG_IMG_SELECT_P0) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] {
            set_zu_param_Device1_Process0_ImageSelector_FG_IMG_SELECT_PERIOD_Divisor(&p, 0, FG_PARAM_TYPE_UINT32_T,
                                                                                    true);
        });
}

void FgZuWrapperImpl::set_sdk_param_FG_IMG_SELECT_P0(uint32_t s, bool throwOnError) {
    runSetter(
        cache_FG_IMG_SELECT_P0, s, throwOnError,
        [&] {
            if (s > kMaxSelect || s >= cache_FG_IMG_SELECT_PERIOD_P0) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] {
            set_zu_param_Device1_Process0_ImageSelector_FG_IMG_SELECT_PHASE_Number(&s, 0, FG_PARAM_TYPE_UINT32_T,
                                                                                  true);
        });
}

// Percent of the image buffer in use: full on overflow, else the fuller half.
uint32_t FgZuWrapperImpl::readFillLevel() {
    uint32_t overflow = 0;
    get_zu_param_Device1_Process0_Overflow_OverflowOccurred(&overflow, 0, FG_PARAM_TYPE_UINT32_T, true);
    if (overflow == 1) return kOverflowFillLevel;
    uint32_t a0 = 0, a1 = 0;
    get_zu_param_Device1_Process0_Buffer_0_DRAM_A_0_FillLevel(&a0, 0, FG_PARAM_TYPE_UINT32_T, true);
    get_zu_param_Device1_Process0_Buffer_0_DRAM_A_1_FillLevel(&a1, 0, FG_PARAM_TYPE_UINT32_T, true);
    return std::max(a0, a1);
}

void FgZuWrapperImpl::get_sdk_param_FG_FILLLEVEL_P0(uint32_t* value) {
    if (!value) fail(PGN_ERR_INVALID_ARGUMENT);
    *value = readFillLevel();
}

void FgZuWrapperImpl::get_sdk_param_FG_OVERFLOW_P0(uint32_t* value) {
    if (!value) fail(PGN_ERR_INVALID_ARGUMENT);
    get_zu_param_Device1_Process0_Overflow_OverflowOccurred(value, 0, FG_PARAM_TYPE_UINT32_T, true);
}

// Bit 0 always set (the link delivers a clock), bit 5 the overflow flag,
// bits 6 and 7 the quarter of the buffer in use.
void FgZuWrapperImpl::get_sdk_param_FG_CAMSTATUS_EXTENDED_P0(uint32_t* value) {
    if (!value) fail(PGN_ERR_INVALID_ARGUMENT);
    const uint32_t fillLevel = readFillLevel();
    uint32_t overflow = 0;
    get_zu_param_Device1_Process0_Overflow_OverflowOccurred(&overflow, 0, FG_PARAM_TYPE_UINT32_T, true);
    const uint32_t quarter = fillLevel >= 75 ? 3 : fillLevel >= 50 ? 2 : fillLevel >= 25 ? 1 : 0;
    *value = 1u | ((overflow & 1u) << 5) | (quarter << 6);
}
