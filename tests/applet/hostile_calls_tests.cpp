// Every exported function against what a careless or hostile caller passes:
// null and garbage pointers, ids, DMA indices, every type code and codes
// outside the type enumeration. Each call must answer its error number;
// under the sanitizer build any stray read, write or enum load fails here.
#include <utility>
#include <climits>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "BoundaryHelpers.h"
#include "CatalogueRows.h"
#include "pelagon_errors.h"

using boundary::lastError;

namespace {

constexpr int kInvalid = PGN_ERR_INVALID_ARGUMENT;
constexpr int kNotRecorded = 1;  // the call records no last error

// Every code of the type enumeration, and codes a C caller may pass that are none of them.
const std::vector<int> kDefinedTypes = {0, 1, 2, 3, 4, 5, 6, 7, 4096, 4098, 4099, 4101, 8192, FG_PARAM_TYPE_AUTO};
const std::vector<int> kUndefinedTypes = {INT_MIN, INT_MAX, -2, 8, 4097, 4100, 0x7fff, 0x7fffffff - 1, 16384};

// Room for any value a parameter may write (the longest string included).
struct Buffer {
    alignas(8) unsigned char bytes[1 << 16] = {};
};

using AppletHostileCalls = AppletTest;

// One call of an export with hostile arguments, what it must answer and the
// last error afterwards (kNotRecorded: 0; by default the answer itself).
struct HostileCall {
    HostileCall(const char* w, std::function<int64_t()> c, int64_t r, int rec = 0)
        : what(w), call(std::move(c)), result(r), recorded(rec ? rec : static_cast<int>(r)) {}
    const char* what;
    std::function<int64_t()> call;
    int64_t result;
    int recorded;
};

}  // namespace

TEST_F(AppletHostileCalls, EveryExportAnswersGarbageArguments) {
    const AppletApi& a = host.api;
    Fg_Struct* fg = host.fg;
    auto* shading = reinterpret_cast<ShadingMaster*>(uintptr_t{0x10});
    auto* memory = reinterpret_cast<dma_mem*>(uintptr_t{0x20});
    uint32_t u = 0;
    char text[8] = {};
    size_t size = 0;
    auto given = [](const void* p) { return p ? int64_t{1} : int64_t{0}; };
    constexpr int kNone = PGN_ERR_NOT_SUPPORTED, kShort = PGN_ERR_OUT_OF_MEMORY, kPort = PGN_ERR_DECODE;

    const std::vector<HostileCall> calls = {
        {"set with a null value", [&] { return a.Fg_setParameterWithType(fg, 100, nullptr, 0, 2); }, kInvalid},
        {"64-bit get into null", [&] { return a.Fg_getParameterWithType(fg, 100, nullptr, 0, 4); }, kInvalid},
        {"untyped set of an unknown id", [&] { return a.Fg_setParameter(fg, 424242, &u, 0); }, kInvalid},
        {"untyped get into null", [&] { return a.Fg_getParameter(fg, 100, nullptr, 0); }, kInvalid},
        {"untyped get on DMA 7", [&] { return a.Fg_getParameter(fg, 100, &u, 7); }, kInvalid},
        {"name of index -1", [&] { return given(a.Fg_getParameterName(fg, -1)); }, 0, kInvalid},
        {"name of index INT_MAX", [&] { return given(a.Fg_getParameterName(fg, INT_MAX)); }, 0, kInvalid},
        {"id of index INT_MIN", [&] { return a.Fg_getParameterId(fg, INT_MIN); }, kInvalid},
        {"id of the index after the last",
         [&] { return a.Fg_getParameterId(fg, boundary::kNamedParameters); },
         kInvalid},
        // Refused before the lookup, and so not recorded.
        {"id of a null name", [&] { return a.Fg_getParameterIdByName(fg, nullptr); }, kInvalid, kNotRecorded},
        {"id of an empty name", [&] { return a.Fg_getParameterIdByName(fg, ""); }, kInvalid, kNotRecorded},
        {"id of an unknown name", [&] { return a.Fg_getParameterIdByName(fg, "FG_NO_SUCH"); }, kInvalid},
        {"id of a name in lower case", [&] { return a.Fg_getParameterIdByName(fg, "fg_width"); }, kInvalid},
        {"save to a null name", [&] { return a.Fg_saveConfig(fg, nullptr); }, PGN_ERR_FILE_IO},
        {"save into a missing folder", [&] { return a.Fg_saveConfig(fg, "/no-such-folder/x.mcf"); }, PGN_ERR_FILE_IO},
        {"load from a null name", [&] { return a.Fg_loadConfig(fg, nullptr); }, PGN_ERR_FILE_MISSING,
         PGN_ERR_BAD_CONFIG},
        {"XML without a size", [&] { return a.Fg_getParameterInfoXML(fg, 0, text, nullptr); }, kInvalid},
        {"XML into a buffer of size 0", [&] { return a.Fg_getParameterInfoXML(fg, 0, text, &(size = 0)); }, kShort},
        {"XML into a buffer too small", [&] { return a.Fg_getParameterInfoXML(fg, 0, text, &(size = 8)); }, kShort},
        {"XML of port -1", [&] { return a.Fg_getParameterInfoXML(fg, -1, nullptr, &size); }, kPort},
        {"XML of port INT_MAX", [&] { return a.Fg_getParameterInfoXML(fg, INT_MAX, nullptr, &size); }, kPort},
        {"event mask of a null name", [&] { return int64_t(a.Fg_getEventMask(fg, nullptr)); }, 0, kInvalid},
        {"mask of another camera", [&] { return int64_t(a.Fg_getEventMask(fg, "FG_OVERFLOW_CAM1")); }, 0, kInvalid},
        {"event name of mask 0", [&] { return given(a.Fg_getEventName(fg, 0)); }, 0, kInvalid},
        {"event name of an unused bit", [&] { return given(a.Fg_getEventName(fg, 1)); }, 0, kInvalid},
        {"event name of two events", [&] { return given(a.Fg_getEventName(fg, 32 | 4)); }, 0, kInvalid},
        {"event name of all bits", [&] { return given(a.Fg_getEventName(fg, ~uint64_t{0})); }, 0, kInvalid},
        {"parameter info of port -1", [&] { return given(a.Fg_getParameterInfo(fg, -1)); }, 0, kNotRecorded},
        {"parameter info of port INT_MAX", [&] { return given(a.Fg_getParameterInfo(fg, INT_MAX)); }, 0,
         kNotRecorded},
        {"shading of a garbage set and port", [&] { return given(a.Fg_AllocShading(fg, -1, INT_MAX)); }, 0, -1},
        {"shading of set 0, port 0", [&] { return given(a.Fg_AllocShading(fg, 0, 0)); }, 0, -1},
        {"free a garbage shading", [&] { return a.Fg_FreeShading(fg, shading); }, kNone},
        {"sub value of a garbage shading", [&] { return a.Shad_SetSubValueLine(fg, shading, -1, INT_MAX, -1.f); },
         kNone},
        {"mult value of a garbage shading", [&] { return a.Shad_SetMultValueLine(fg, shading, INT_MIN, -1, 1e30f); },
         kNone},
        {"noise line of a garbage shading",
         [&] { return a.Shad_SetFixedPatternNoiseLine(fg, shading, INT_MAX, 7, -5); }, kNone},
        {"max line of a garbage shading", [&] { return a.Shad_GetMaxLine(fg, shading); }, kNone},
        {"max line of no shading", [&] { return a.Shad_GetMaxLine(fg, nullptr); }, kNone},
        {"access to a garbage shading", [&] { return a.Shad_GetAccess(fg, shading); }, kNone},
        {"release of a garbage shading", [&] { return a.Shad_FreeAccess(fg, shading); }, kNone},
        {"line of a garbage shading", [&] { return a.Shad_WriteActLine(fg, shading, -1); }, kNone},
        // The runtime judges the acquisition calls; its refusal and its own last error come back.
        {"status of DMA 5", [&] { return a.Fg_getStatusEx(fg, INT_MIN, -1, 5, memory); }, kInvalid},
        {"acquire into garbage memory", [&] { return a.Fg_AcquireEx(fg, 0, -1, INT_MIN, memory); }, kInvalid},
        {"acquire on DMA UINT_MAX", [&] { return a.Fg_AcquireEx(fg, UINT_MAX, 1, 0, nullptr); }, kInvalid},
        {"stop on DMA 3", [&] { return a.Fg_stopAcquireEx(fg, 3, memory, -1); }, kInvalid},
        {"last picture of DMA 9", [&] { return a.Fg_getLastPicNumberEx(fg, 9, memory); }, kInvalid},
        {"blocking wait on DMA 9", [&] { return a.Fg_getLastPicNumberBlockingEx(fg, INT64_MIN, 9, -1, memory); },
         kInvalid},
        {"an unknown information query", [&] { return a.Info(INT_MIN, -1, -1, nullptr, nullptr); }, kNone,
         kNotRecorded},
        {"symbol of a null name", [&] { return a.Info(GET_INFO_RESOLVE_ENUM, 0, 0, nullptr, nullptr); }, kInvalid,
         kNotRecorded},
    };
    for (const HostileCall& c : calls) {
        ASSERT_EQ(host.u32(24020), 3u);  // last error 0 before each call
        EXPECT_EQ(c.call(), c.result) << c.what;
        EXPECT_EQ(lastError(host), c.recorded == kNotRecorded ? 0 : c.recorded) << c.what;
    }
    // The instance is still whole after all of it.
    EXPECT_EQ(a.Fg_getNrOfParameter(fg), boundary::kNamedParameters);
    EXPECT_EQ(host.setU32(100, 512), 0);
}

// Every parameter on DMA indices the one DMA channel does not serve and with
// a null value, ids that name nothing even on DMA 0, in both directions.
TEST_F(AppletHostileCalls, BadDmaIndicesNullValuesAndUnknownIdsAreRefused) {
    Buffer value;
    auto expectRefused = [&](int id, void* v, unsigned dma) {
        EXPECT_EQ(host.api.Fg_setParameterWithType(host.fg, id, v, dma, FG_PARAM_TYPE_UINT32_T), kInvalid)
            << "set of " << id << " on DMA " << dma << (v ? "" : " from null");
        EXPECT_EQ(lastError(host), kInvalid);
        EXPECT_EQ(host.api.Fg_getParameterWithType(host.fg, id, v, dma, FG_PARAM_TYPE_UINT32_T), kInvalid)
            << "get of " << id << " on DMA " << dma << (v ? "" : " into null");
        EXPECT_EQ(lastError(host), kInvalid);
    };
    const std::vector<int> unknown = {INT_MIN, -1, 0, 1, 101, 110016, 424242, 1000000, 1000005, 1999999, 2000000};
    std::vector<int> ids = unknown;
    ids.push_back(2000000 + 600);  // the runtime's time-out
    for (const CatalogueRow& p : catalogueRows()) ids.push_back(p.id);
    for (int id : ids) {
        for (unsigned dma : {1u, 2u, 0x80000000u, UINT_MAX}) expectRefused(id, value.bytes, dma);
        expectRefused(id, nullptr, 0);
    }
    for (int id : unknown) expectRefused(id, value.bytes, 0);
    // Not even the 64-bit clearing touches a null destination.
    EXPECT_EQ(host.api.Fg_getParameterWithType(host.fg, 24020, nullptr, 0, FG_PARAM_TYPE_UINT64_T), kInvalid);
}

// Scalars are read and written in their own type whatever the code says;
// the runtime's own parameters take the integer codes and "auto"; read-only
// parameters refuse every write. (The fields, which choose a record by the
// code, get every code in lut_field_tests.cpp.)
TEST_F(AppletHostileCalls, EveryTypeCodeOnEveryParameter) {
    const AppletApi& a = host.api;
    std::vector<int> types = kDefinedTypes;
    types.insert(types.end(), kUndefinedTypes.begin(), kUndefinedTypes.end());
    int readOnly = 0;
    for (const CatalogueRow& p : catalogueRows()) {
        readOnly += !p.writable;
        if (p.kind == ParameterKind::UIntField || p.kind == ParameterKind::DoubleField) continue;
        const bool scalar = p.kind != ParameterKind::Runtime;
        Buffer own;
        const int ownGet = a.Fg_getParameterWithType(host.fg, p.id, own.bytes, 0, FG_PARAM_TYPE_UINT32_T);
        EXPECT_EQ(scalar ? ownGet : 0, 0) << p.name;
        Buffer reference = own;
        const int ownSet = p.writable ? a.Fg_setParameterWithType(host.fg, p.id, reference.bytes, 0, 2) : 0;
        for (int type : types) {
            SCOPED_TRACE(std::string(p.name) + " with type code " + std::to_string(type));
            Buffer value;
            // The runtime's own parameters are unsigned 32-bit numbers.
            const bool integer = type == 1 || type == 2 || type == 3 || type == 4 || type == FG_PARAM_TYPE_AUTO;
            int expected = scalar ? ownGet : integer ? 0 : kInvalid;
            EXPECT_EQ(a.Fg_getParameterWithType(host.fg, p.id, value.bytes, 0, type), expected);
            EXPECT_EQ(lastError(host), expected);

            Buffer written = own;
            expected = p.writable ? ownSet : PGN_ERR_READ_ONLY;
            EXPECT_EQ(a.Fg_setParameterWithType(host.fg, p.id, written.bytes, 0, type), expected);
            EXPECT_EQ(lastError(host), expected);
        }
    }
    // Read only by nature: 40 of the catalogue and the runtime's 7.
    EXPECT_EQ(readOnly, 47);
}
