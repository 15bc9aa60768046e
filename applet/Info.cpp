// The information query: what the runtime may ask about the applet before
// and after it creates an instance. No instance, no lock.
#include <cstdint>
#include <map>
#include <string>

#include "AppletConstants.h"
#include "EmbeddedResources.h"
#include "applet_info.h"
#include "pelagon_errors.h"
#include "FgZuWrapper.h"

namespace {

#define PELAGON_DESIGN_IDENTITY(hapId, bitstreamId, appletUid, buildTime) \
    constexpr const char* kHapId = hapId;                                 \
    constexpr const char* kBitstreamId = bitstreamId;
#include "pelagon_design.def"

constexpr const char* kDescription =
    "Acquisition Applet with support of Zephane technology, 12 bit image processing (per color component), white "
    "balancing and lookup table for one CoaXPress Bayer area scan camera with 2 ports (12.5GB/s) and supported "
    "transfer speed of CXP-1 (1.250 Gbps) to CXP-6 (6.250 Gbps).";
constexpr const char* kCategory = "Ostrakits:Area";
constexpr const char* kTags =
    "class=standard,family=acquisition,type=single,sensortype=area,color=Bayer,interface=cxp,lag=2";
constexpr const char* kFriendlyName = "Pelagon";
constexpr const char* kVersionString = "3.0.2.3";
constexpr const char* kVersionStringDetail = "3.0.2.3.20170809.072605";
constexpr int kVersion = 0x30000;

uint32_t datatypes = DMA_DATATYPE_RGB24;

uint64_t address(const void* p) { return reinterpret_cast<uintptr_t>(p); }

// Stores through an out pointer that may be null; the query still succeeds.
int answer(uint64_t* out, uint64_t value) {
    if (out) *out = value;
    return 0;
}

// The symbolic names of every enumeration of the catalogue with their values.
int resolveEnum(const uint64_t* out1) {
    static std::map<std::string, int32_t> map_enum_name_enum_value;
    if (!out1) return PGN_ERR_INVALID_ARGUMENT;
    if (map_enum_name_enum_value.empty()) {
#define PELAGON_ENUM_ROW(table, display, value, symbol) map_enum_name_enum_value.emplace(#symbol, value);
#include "catalogue.def"
    }
    // The out pointer is the symbol's name itself.
    const char* name = reinterpret_cast<const char*>(out1);
    const auto it = map_enum_name_enum_value.find(name);
    return it == map_enum_name_enum_value.end() ? PGN_ERR_INVALID_ARGUMENT : it->second;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int Info(int code, int arg1, int arg2, uint64_t* out1,
                                                            uint64_t* out2) {
    switch (code) {
        case GET_ISCAM_COLOR:
        case GET_IS_SMART_APPLET:
        case GET_HAP_NAME:
        case GET_PX_TYPE:
        case GET_IS_CUSTOM:
        case GET_IS_MEDIUM:
        case GET_IS_FULL:
            return 0;
        case GET_IS_ADVANCED_ACQUISITION_APPLET:
        case GET_NR_OF_PORTS:
        case GET_NR_OF_CAMS:
        case GET_NR_OF_DMAS:
        case GET_IS_AREA:
        case GET_INFO_NR_OF_PROCESSES:
            return 1;
        case GET_VERSION:
            return kVersion;
        case GET_BOARD_TYPE:
            return pelagon::kBoardType;
        case GET_PNG_ICON:
            if (arg1 != 0 || arg2 != 0) {
                answer(out1, 0);
                answer(out2, 0);
            }
            answer(out1, pelagonIconSize());
            return answer(out2, address(pelagon_icon_png));
        case GET_EMBEDDED_HAP:
            answer(out1, pelagonDesignImageSize());
            return answer(out2, address(pelagon_design_image));
        case GET_HAP_ID:
            return answer(out2, address(kHapId));
        case GET_BITSTREAM_ID:
            return answer(out2, address(kBitstreamId));
        case GET_INFO_DESCRIPTION:
            return answer(out2, address(kDescription));
        case GET_INFO_CATEGORY:
            return answer(out2, address(kCategory));
        case GET_INFO_TAGS:
            return answer(out2, address(kTags));
        case GET_INFO_DEVICE_HANDLE:
            return answer(out1, address(FgZuWrapper::accessDeviceHandle(nullptr)));
        case GET_INFO_DESIGN_HANDLE:
            return answer(out1, address(FgZuWrapper::accessDesignHandle(nullptr)));
        case GET_INFO_FRIENDLY_NAME:
            return answer(out2, address(kFriendlyName));
        case GET_INFO_VERSIONSTRING:
            return answer(out2, address(kVersionString));
        case GET_INFO_VERSIONSTRING_DETAIL:
            return answer(out2, address(kVersionStringDetail));
        case GET_INFO_RESOLVE_ENUM:
            return resolveEnum(out1);
        case GET_INFO_NR_OF_PROCESS_CHANNELS:
        case GET_INFO_NR_OF_PROCESS_CAMERAS:
            return arg1 == 0 ? 1 : PGN_ERR_INVALID_ARGUMENT;
        case GET_INFO_PROCESS_CHANNEL_DMA:
        case GET_INFO_PROCESS_CAMERA_PORT:
            return arg1 == 0 && arg2 == 0 ? 0 : PGN_ERR_INVALID_ARGUMENT;
        case GET_INFO_DMA_DIRECTION:
            return arg1 == 0 ? 1 : PGN_ERR_INVALID_ARGUMENT;
        case GET_INFO_DMA_DATATYPE:
            return arg1 == 0 ? static_cast<int>(datatypes) : PGN_ERR_INVALID_ARGUMENT;
        default:
            return PGN_ERR_NOT_SUPPORTED;
    }
}
