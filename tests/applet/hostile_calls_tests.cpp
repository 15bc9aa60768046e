// Every exported function against what a careless or hostile caller passes:
// null and garbage pointers, ids, DMA indices, every type code and codes
// outside the type enumeration, field records with null arrays, absurd
// ranges and every element type. Each call must answer its error number;
// under the sanitizer build any stray read, write or enum load fails here.
#include <climits>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "BoundaryHelpers.h"
#include "CatalogueRows.h"
#include "hap_runtime.h"
#include "pelagon_errors.h"

using boundary::lastError;

namespace {

constexpr int kNotRecorded = 1;  // the call records no last error

// Every code of the type enumeration, and codes a C caller may pass that are
// none of them.
const std::vector<int> kDefinedTypes = {
    FG_PARAM_TYPE_INVALID,   FG_PARAM_TYPE_INT32_T,  FG_PARAM_TYPE_UINT32_T,
    FG_PARAM_TYPE_INT64_T,   FG_PARAM_TYPE_UINT64_T, FG_PARAM_TYPE_DOUBLE,
    FG_PARAM_TYPE_CHAR_PTR,  FG_PARAM_TYPE_SIZE_T,   FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS,
    FG_PARAM_TYPE_STRUCT_FIELDPARAMINT, FG_PARAM_TYPE_STRUCT_FIELDPARAMINT64,
    FG_PARAM_TYPE_STRUCT_FIELDPARAMDOUBLE, FG_PARAM_TYPE_COMPLEX_DATATYPE, FG_PARAM_TYPE_AUTO};
const std::vector<int> kUndefinedTypes = {INT_MIN, INT_MAX, -2, 8, 4097, 4100, 0x7fff, 0x7fffffff - 1, 16384};

std::vector<int> allTypes() {
    std::vector<int> types = kDefinedTypes;
    types.insert(types.end(), kUndefinedTypes.begin(), kUndefinedTypes.end());
    return types;
}

enum class Kind { Scalar, IntField, DoubleField, Runtime };

struct Parameter {
    int id;
    const char* name;
    Kind kind;
    bool writable;
};

std::vector<Parameter> catalogue() {
    std::vector<Parameter> all;
    for (const CatalogueRow& r : catalogueRows()) {
        const Kind kind = r.kind == ParameterKind::UIntField     ? Kind::IntField
                          : r.kind == ParameterKind::DoubleField ? Kind::DoubleField
                          : r.kind == ParameterKind::Runtime     ? Kind::Runtime
                                                                 : Kind::Scalar;
        all.push_back({r.id, r.name, kind, r.writable});
    }
    return all;
}

// Room for any value a parameter may write (the longest string included).
struct Buffer {
    alignas(8) unsigned char bytes[1 << 16];
    Buffer() { std::memset(bytes, 0, sizeof bytes); }
};

// A field read or write with a type code: a range record (4096) or one
// element, whose record must have the layout of the field's elements.
int expectedFieldAnswer(Kind kind, int type, bool write) {
    if (type == FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS)  // the zeroed record has no array
        return write ? PGN_ERR_OUT_OF_RANGE : PGN_ERR_INVALID_ARGUMENT;
    const int own = kind == Kind::IntField ? FG_PARAM_TYPE_STRUCT_FIELDPARAMINT : FG_PARAM_TYPE_STRUCT_FIELDPARAMDOUBLE;
    const bool namesRecord = type == FG_PARAM_TYPE_STRUCT_FIELDPARAMINT || type == FG_PARAM_TYPE_STRUCT_FIELDPARAMINT64 ||
                             type == FG_PARAM_TYPE_STRUCT_FIELDPARAMDOUBLE;
    return namesRecord && type != own ? PGN_ERR_INVALID_ARGUMENT : 0;
}

bool isUndefined(int type) {
    for (int t : kUndefinedTypes)
        if (t == type) return true;
    return false;
}

// One call of an export with hostile arguments and what it must answer.
struct HostileCall {
    const char* what;
    std::function<int64_t(AppletHost&)> call;
    int64_t result;
    int recorded;  // the last error afterwards, or kNotRecorded
};

}  // namespace

TEST(AppletHostileCalls, EveryExportAnswersGarbageArguments) {
    AppletHost host;
    ASSERT_TRUE(host.ok());
    const AppletApi& a = host.api;
    auto* garbageShading = reinterpret_cast<ShadingMaster*>(uintptr_t{0x10});
    auto* garbageMemory = reinterpret_cast<dma_mem*>(uintptr_t{0x20});
    uint32_t u = 0;
    char text[8] = {};
    size_t size = 0;
    auto asInt = [](const void* p) { return p ? int64_t{1} : int64_t{0}; };

    const std::vector<HostileCall> calls = {
        {"set with a null value", [&](AppletHost& h) { return a.Fg_setParameterWithType(h.fg, 100, nullptr, 0, 2); },
         PGN_ERR_INVALID_ARGUMENT, PGN_ERR_INVALID_ARGUMENT},
        {"64-bit get into null", [&](AppletHost& h) { return a.Fg_getParameterWithType(h.fg, 100, nullptr, 0, 4); },
         PGN_ERR_INVALID_ARGUMENT, PGN_ERR_INVALID_ARGUMENT},
        {"untyped set of an unknown id", [&](AppletHost& h) { return a.Fg_setParameter(h.fg, 424242, &u, 0); },
         PGN_ERR_INVALID_ARGUMENT, PGN_ERR_INVALID_ARGUMENT},
        {"untyped get into null", [&](AppletHost& h) { return a.Fg_getParameter(h.fg, 100, nullptr, 0); },
         PGN_ERR_INVALID_ARGUMENT, PGN_ERR_INVALID_ARGUMENT},
        {"untyped get on DMA 7", [&](AppletHost& h) { return a.Fg_getParameter(h.fg, 100, &u, 7); },
         PGN_ERR_INVALID_ARGUMENT, PGN_ERR_INVALID_ARGUMENT},
        {"name of index -1", [&](AppletHost& h) { return asInt(a.Fg_getParameterName(h.fg, -1)); }, 0,
         PGN_ERR_INVALID_ARGUMENT},
        {"name of index INT_MAX", [&](AppletHost& h) { return asInt(a.Fg_getParameterName(h.fg, INT_MAX)); }, 0,
         PGN_ERR_INVALID_ARGUMENT},
        {"id of index INT_MIN", [&](AppletHost& h) { return a.Fg_getParameterId(h.fg, INT_MIN); },
         PGN_ERR_INVALID_ARGUMENT, PGN_ERR_INVALID_ARGUMENT},
        {"id of index 135", [&](AppletHost& h) { return a.Fg_getParameterId(h.fg, 135); }, PGN_ERR_INVALID_ARGUMENT,
         PGN_ERR_INVALID_ARGUMENT},
        // Refused before the lookup, and so not recorded.
        {"id of a null name", [&](AppletHost& h) { return a.Fg_getParameterIdByName(h.fg, nullptr); },
         PGN_ERR_INVALID_ARGUMENT, kNotRecorded},
        {"id of an empty name", [&](AppletHost& h) { return a.Fg_getParameterIdByName(h.fg, ""); },
         PGN_ERR_INVALID_ARGUMENT, kNotRecorded},
        {"id of an unknown name", [&](AppletHost& h) { return a.Fg_getParameterIdByName(h.fg, "FG_NO_SUCH"); },
         PGN_ERR_INVALID_ARGUMENT, PGN_ERR_INVALID_ARGUMENT},
        {"save to a null name", [&](AppletHost& h) { return a.Fg_saveConfig(h.fg, nullptr); }, PGN_ERR_FILE_IO,
         PGN_ERR_FILE_IO},
        {"save into a missing folder",
         [&](AppletHost& h) { return a.Fg_saveConfig(h.fg, "/nonexistent-folder/x.mcf"); }, PGN_ERR_FILE_IO,
         PGN_ERR_FILE_IO},
        {"load from a null name", [&](AppletHost& h) { return a.Fg_loadConfig(h.fg, nullptr); },
         PGN_ERR_FILE_MISSING, PGN_ERR_BAD_CONFIG},
        {"XML without a size", [&](AppletHost& h) { return a.Fg_getParameterInfoXML(h.fg, 0, text, nullptr); },
         PGN_ERR_INVALID_ARGUMENT, PGN_ERR_INVALID_ARGUMENT},
        {"XML into a buffer of size 0",
         [&](AppletHost& h) {
             size = 0;
             return a.Fg_getParameterInfoXML(h.fg, 0, text, &size);
         },
         PGN_ERR_OUT_OF_MEMORY, PGN_ERR_OUT_OF_MEMORY},
        {"XML into a buffer too small",
         [&](AppletHost& h) {
             size = sizeof text;
             return a.Fg_getParameterInfoXML(h.fg, 0, text, &size);
         },
         PGN_ERR_OUT_OF_MEMORY, PGN_ERR_OUT_OF_MEMORY},
        {"XML of port -1", [&](AppletHost& h) { return a.Fg_getParameterInfoXML(h.fg, -1, nullptr, &size); },
         PGN_ERR_DECODE, PGN_ERR_DECODE},
        {"XML of port INT_MAX",
         [&](AppletHost& h) { return a.Fg_getParameterInfoXML(h.fg, INT_MAX, nullptr, &size); }, PGN_ERR_DECODE,
         PGN_ERR_DECODE},
        {"event mask of a null name", [&](AppletHost& h) { return int64_t(a.Fg_getEventMask(h.fg, nullptr)); }, 0,
         PGN_ERR_INVALID_ARGUMENT},
        {"event name of mask 0", [&](AppletHost& h) { return asInt(a.Fg_getEventName(h.fg, 0)); }, 0,
         PGN_ERR_INVALID_ARGUMENT},
        {"event name of all bits", [&](AppletHost& h) { return asInt(a.Fg_getEventName(h.fg, ~uint64_t{0})); }, 0,
         PGN_ERR_INVALID_ARGUMENT},
        {"parameter info of port -1", [&](AppletHost& h) { return asInt(a.Fg_getParameterInfo(h.fg, -1)); }, 0,
         kNotRecorded},
        {"parameter info of port INT_MAX", [&](AppletHost& h) { return asInt(a.Fg_getParameterInfo(h.fg, INT_MAX)); },
         0, kNotRecorded},
        {"shading of a garbage set and port", [&](AppletHost& h) { return asInt(a.Fg_AllocShading(h.fg, -1, INT_MAX)); },
         0, -1},
        {"free a garbage shading", [&](AppletHost& h) { return a.Fg_FreeShading(h.fg, garbageShading); },
         PGN_ERR_NOT_SUPPORTED, PGN_ERR_NOT_SUPPORTED},
        {"sub value of a garbage shading",
         [&](AppletHost& h) { return a.Shad_SetSubValueLine(h.fg, garbageShading, -1, INT_MAX, -1.0f); },
         PGN_ERR_NOT_SUPPORTED, PGN_ERR_NOT_SUPPORTED},
        {"mult value of a garbage shading",
         [&](AppletHost& h) { return a.Shad_SetMultValueLine(h.fg, garbageShading, INT_MIN, -1, 1e30f); },
         PGN_ERR_NOT_SUPPORTED, PGN_ERR_NOT_SUPPORTED},
        {"noise line of a garbage shading",
         [&](AppletHost& h) { return a.Shad_SetFixedPatternNoiseLine(h.fg, garbageShading, INT_MAX, 7, -5); },
         PGN_ERR_NOT_SUPPORTED, PGN_ERR_NOT_SUPPORTED},
        {"max line of a garbage shading", [&](AppletHost& h) { return a.Shad_GetMaxLine(h.fg, garbageShading); },
         PGN_ERR_NOT_SUPPORTED, PGN_ERR_NOT_SUPPORTED},
        {"access to a garbage shading", [&](AppletHost& h) { return a.Shad_GetAccess(h.fg, garbageShading); },
         PGN_ERR_NOT_SUPPORTED, PGN_ERR_NOT_SUPPORTED},
        {"release of a garbage shading", [&](AppletHost& h) { return a.Shad_FreeAccess(h.fg, garbageShading); },
         PGN_ERR_NOT_SUPPORTED, PGN_ERR_NOT_SUPPORTED},
        {"line of a garbage shading", [&](AppletHost& h) { return a.Shad_WriteActLine(h.fg, garbageShading, -1); },
         PGN_ERR_NOT_SUPPORTED, PGN_ERR_NOT_SUPPORTED},
        // The runtime judges the acquisition calls; its refusal and its own
        // last error come back.
        {"status of DMA 5", [&](AppletHost& h) { return a.Fg_getStatusEx(h.fg, INT_MIN, -1, 5, garbageMemory); },
         PGN_ERR_INVALID_ARGUMENT, PGN_ERR_INVALID_ARGUMENT},
        {"acquire into garbage memory",
         [&](AppletHost& h) { return a.Fg_AcquireEx(h.fg, 0, -1, INT_MIN, garbageMemory); },
         PGN_ERR_INVALID_ARGUMENT, PGN_ERR_INVALID_ARGUMENT},
        {"acquire on DMA UINT_MAX", [&](AppletHost& h) { return a.Fg_AcquireEx(h.fg, UINT_MAX, 1, 0, nullptr); },
         PGN_ERR_INVALID_ARGUMENT, PGN_ERR_INVALID_ARGUMENT},
        {"stop on DMA 3", [&](AppletHost& h) { return a.Fg_stopAcquireEx(h.fg, 3, garbageMemory, -1); },
         PGN_ERR_INVALID_ARGUMENT, PGN_ERR_INVALID_ARGUMENT},
        {"last picture of DMA 9", [&](AppletHost& h) { return a.Fg_getLastPicNumberEx(h.fg, 9, garbageMemory); },
         PGN_ERR_INVALID_ARGUMENT, PGN_ERR_INVALID_ARGUMENT},
        {"blocking wait on DMA 9",
         [&](AppletHost& h) { return a.Fg_getLastPicNumberBlockingEx(h.fg, INT64_MIN, 9, -1, garbageMemory); },
         PGN_ERR_INVALID_ARGUMENT, PGN_ERR_INVALID_ARGUMENT},
        {"information of an unknown query", [&](AppletHost&) { return a.Info(INT_MIN, -1, -1, nullptr, nullptr); },
         PGN_ERR_NOT_SUPPORTED, kNotRecorded},
        {"symbol of a null name", [&](AppletHost&) { return a.Info(GET_INFO_RESOLVE_ENUM, 0, 0, nullptr, nullptr); },
         PGN_ERR_INVALID_ARGUMENT, kNotRecorded},
    };
    for (const HostileCall& c : calls) {
        ASSERT_EQ(host.u32(24020), 3u);  // last error 0 before each call
        EXPECT_EQ(c.call(host), c.result) << c.what;
        EXPECT_EQ(lastError(host), c.recorded == kNotRecorded ? 0 : c.recorded) << c.what;
    }
    // The instance is still whole after all of it.
    EXPECT_EQ(a.Fg_getNrOfParameter(host.fg), 135);
    EXPECT_EQ(host.setU32(100, 512), 0);
}

TEST(AppletHostileCalls, StartAndEndWithoutABoardOrInstance) {
    const AppletApi& a = AppletApi::get();
    int error = 1;
    EXPECT_EQ(a.Std_entry(nullptr, &error, 1), nullptr);
    EXPECT_EQ(error, PGN_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(a.Std_entry(nullptr, nullptr, -1), nullptr);  // bit 0 set: refused before anything else
    EXPECT_EQ(a.Fg_FreeGrabber(nullptr), PGN_ERR_NO_INSTANCE);
    Fg_Struct empty{};
    EXPECT_EQ(a.Fg_FreeGrabber(&empty), PGN_ERR_NO_INSTANCE);
}

// Every id range with DMA indices the one DMA channel does not serve, and ids
// that name nothing, in both directions.
TEST(AppletHostileCalls, BadDmaIndicesAndIdsAreRefusedForEveryParameter) {
    AppletHost host;
    ASSERT_TRUE(host.ok());
    Buffer value;
    std::vector<int> ids = {INT_MIN, -1, 0, 1000001, 1999999, 2000000, INT_MAX};
    for (const Parameter& p : catalogue()) ids.push_back(p.id);
    for (int id : ids) {
        for (unsigned dma : {1u, 2u, 0x80000000u, UINT_MAX}) {
            EXPECT_EQ(host.api.Fg_setParameterWithType(host.fg, id, value.bytes, dma, FG_PARAM_TYPE_UINT32_T),
                      PGN_ERR_INVALID_ARGUMENT)
                << "set of " << id << " on DMA " << dma;
            EXPECT_EQ(host.api.Fg_getParameterWithType(host.fg, id, value.bytes, dma, FG_PARAM_TYPE_UINT32_T),
                      PGN_ERR_INVALID_ARGUMENT)
                << "get of " << id << " on DMA " << dma;
            EXPECT_EQ(lastError(host), PGN_ERR_INVALID_ARGUMENT);
        }
    }
}

// Scalars are read and written in their own type whatever the code says;
// field parameters choose a record by the code and refuse codes outside the
// enumeration; the runtime's own parameters take the integer codes and
// "auto".
TEST(AppletHostileCalls, EveryTypeCodeOnEveryParameter) {
    AppletHost host;
    ASSERT_TRUE(host.ok());
    const AppletApi& a = host.api;
    for (const Parameter& p : catalogue()) {
        Buffer own;
        const int ownGet = a.Fg_getParameterWithType(host.fg, p.id, own.bytes, 0, FG_PARAM_TYPE_UINT32_T);
        if (p.kind == Kind::Scalar) {
            EXPECT_EQ(ownGet, 0) << p.name;
        }
        Buffer reference = own;
        const int ownSet =
            p.writable ? a.Fg_setParameterWithType(host.fg, p.id, reference.bytes, 0, FG_PARAM_TYPE_UINT32_T) : 0;
        for (int type : allTypes()) {
            SCOPED_TRACE(std::string(p.name) + " with type code " + std::to_string(type));
            Buffer value;
            int expected = 0;
            switch (p.kind) {
            case Kind::Scalar:
                expected = ownGet;
                break;
            case Kind::IntField:
            case Kind::DoubleField:
                expected = isUndefined(type) ? PGN_ERR_INVALID_ARGUMENT : expectedFieldAnswer(p.kind, type, false);
                break;
            case Kind::Runtime:
                // The runtime's own parameters are unsigned 32-bit numbers.
                expected = type == FG_PARAM_TYPE_INT32_T || type == FG_PARAM_TYPE_UINT32_T ||
                                   type == FG_PARAM_TYPE_INT64_T || type == FG_PARAM_TYPE_UINT64_T ||
                                   type == FG_PARAM_TYPE_AUTO
                               ? 0
                               : PGN_ERR_INVALID_ARGUMENT;
                break;
            }
            EXPECT_EQ(a.Fg_getParameterWithType(host.fg, p.id, value.bytes, 0, type), expected);
            EXPECT_EQ(lastError(host), expected);

            if (!p.writable) {
                EXPECT_EQ(a.Fg_setParameterWithType(host.fg, p.id, own.bytes, 0, type), PGN_ERR_READ_ONLY);
                continue;
            }
            Buffer written = p.kind == Kind::Scalar ? own : Buffer{};
            expected = p.kind == Kind::Scalar ? ownSet
                       : isUndefined(type)    ? PGN_ERR_INVALID_ARGUMENT
                                              : expectedFieldAnswer(p.kind, type, true);
            EXPECT_EQ(a.Fg_setParameterWithType(host.fg, p.id, written.bytes, 0, type), expected);
            EXPECT_EQ(lastError(host), expected);
        }
    }
}

namespace {

// A range record over `array`, its element type stored as the int a C
// caller would store (the record's member has the enumeration's type).
FieldParameterAccess rangeRecord(int vtype, uint32_t index, uint32_t count, void* array) {
    FieldParameterAccess access{};
    static_assert(sizeof access.vtype == sizeof vtype);
    std::memcpy(&access.vtype, &vtype, sizeof vtype);
    access.index = index;
    access.count = count;
    access.p.p_uint32_t = static_cast<uint32_t*>(array);
    return access;
}

struct RangeCase {
    const char* what;
    uint32_t index;
    uint32_t count;
    bool nullArray;
    int lutSet;   // answer of a LUT write
    int lutGet;   // answer of a LUT read
    int channel;  // answer of a channel current read (4 doubles)
};

}  // namespace

TEST(AppletHostileCalls, FieldRecordsWithAbsurdRanges) {
    AppletHost host;
    ASSERT_TRUE(host.ok());
    constexpr int kLutRed = 300009, kChannelCurrent = 200350;
    const RangeCase cases[] = {
        {"a null array", 0, 1, true, PGN_ERR_OUT_OF_RANGE, PGN_ERR_INVALID_ARGUMENT, PGN_ERR_INVALID_ARGUMENT},
        {"index past the end", 4096, 1, false, PGN_ERR_OUT_OF_RANGE, PGN_ERR_INVALID_ARGUMENT,
         PGN_ERR_INVALID_ARGUMENT},
        {"too many elements", 0, 4097, false, PGN_ERR_OUT_OF_RANGE, PGN_ERR_INVALID_ARGUMENT,
         PGN_ERR_INVALID_ARGUMENT},
        {"a range over the end", 4095, 2, false, PGN_ERR_OUT_OF_RANGE, PGN_ERR_INVALID_ARGUMENT,
         PGN_ERR_INVALID_ARGUMENT},
        {"a range that wraps around", UINT_MAX, 2, false, PGN_ERR_OUT_OF_RANGE, PGN_ERR_INVALID_ARGUMENT,
         PGN_ERR_INVALID_ARGUMENT},
        {"the largest count", 1, UINT_MAX, false, PGN_ERR_OUT_OF_RANGE, PGN_ERR_INVALID_ARGUMENT,
         PGN_ERR_INVALID_ARGUMENT},
        {"the last element", 4095, 1, false, 0, 0, PGN_ERR_INVALID_ARGUMENT},
    };
    for (const RangeCase& c : cases) {
        SCOPED_TRACE(c.what);
        std::vector<uint32_t> lut(8192, 7);
        std::vector<double> channels(8, 0.0);
        FieldParameterAccess access = rangeRecord(FG_PARAM_TYPE_UINT32_T, c.index, c.count, c.nullArray ? nullptr : lut.data());
        EXPECT_EQ(host.api.Fg_setParameterWithType(host.fg, kLutRed, &access, 0, FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS),
                  c.lutSet);
        EXPECT_EQ(lastError(host), c.lutSet);
        EXPECT_EQ(host.api.Fg_getParameterWithType(host.fg, kLutRed, &access, 0, FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS),
                  c.lutGet);
        access = rangeRecord(FG_PARAM_TYPE_DOUBLE, c.index, c.count, c.nullArray ? nullptr : channels.data());
        EXPECT_EQ(host.api.Fg_getParameterWithType(host.fg, kChannelCurrent, &access, 0,
                                                   FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS),
                  c.channel);
        EXPECT_EQ(lastError(host), c.channel);
    }
    // Single elements past the end.
    FieldParameterInt_s element{1, 4096};
    EXPECT_EQ(host.api.Fg_setParameterWithType(host.fg, kLutRed, &element, 0, FG_PARAM_TYPE_STRUCT_FIELDPARAMINT),
              PGN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(host.api.Fg_getParameterWithType(host.fg, kLutRed, &element, 0, FG_PARAM_TYPE_STRUCT_FIELDPARAMINT),
              PGN_ERR_INVALID_ARGUMENT);
    FieldParameterDouble_s channel{0.0, UINT_MAX};
    EXPECT_EQ(host.api.Fg_getParameterWithType(host.fg, kChannelCurrent, &channel, 0,
                                               FG_PARAM_TYPE_STRUCT_FIELDPARAMDOUBLE),
              PGN_ERR_INVALID_ARGUMENT);
}

// Every element type in a range record: a LUT takes 32-bit integers, the
// channel read-outs take doubles; anything else is refused before an element
// moves.
TEST(AppletHostileCalls, FieldRecordsWithEveryElementType) {
    AppletHost host;
    ASSERT_TRUE(host.ok());
    constexpr int kLutGreen = 300010, kChannelVoltage = 200351;
    for (int vtype : allTypes()) {
        SCOPED_TRACE("element type " + std::to_string(vtype));
        std::vector<uint64_t> array(16, 5);
        FieldParameterAccess access = rangeRecord(vtype, 2, 2, array.data());
        const bool lutType = vtype == FG_PARAM_TYPE_INT32_T || vtype == FG_PARAM_TYPE_UINT32_T;
        // The single-element code passes the LUT's own check and is the
        // runtime's to refuse as a range element type.
        const int lutSet = lutType ? 0 : PGN_ERR_INVALID_ARGUMENT;
        EXPECT_EQ(host.api.Fg_setParameterWithType(host.fg, kLutGreen, &access, 0, FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS),
                  lutSet);
        EXPECT_EQ(lastError(host), lutSet);
        EXPECT_EQ(host.api.Fg_getParameterWithType(host.fg, kLutGreen, &access, 0, FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS),
                  lutType || vtype == FG_PARAM_TYPE_STRUCT_FIELDPARAMINT ? 0 : PGN_ERR_INVALID_ARGUMENT);
        EXPECT_EQ(host.api.Fg_getParameterWithType(host.fg, kChannelVoltage, &access, 0,
                                                   FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS),
                  vtype == FG_PARAM_TYPE_DOUBLE ? 0 : PGN_ERR_INVALID_ARGUMENT);
        // Nothing was written beyond the two elements asked for.
        for (size_t i = 4; i < array.size(); ++i) EXPECT_EQ(array[i], 5u) << "element " << i;
    }
}

// The untyped calls and "auto" answer in the parameter's own type, for the
// applet's parameters and for the runtime's, passed through or forwarded.
TEST(AppletHostileCalls, UntypedCallsUseTheParametersOwnType) {
    AppletHost host;
    ASSERT_TRUE(host.ok());
    const AppletApi& a = host.api;
    uint32_t value = 0;
    for (int id : {601, 3050, 3060, 3070, 3080, 3090, 5210}) {
        EXPECT_EQ(a.Fg_getParameter(host.fg, id, &value, 0), 0) << id;
        EXPECT_EQ(a.Fg_getParameterWithType(host.fg, id, &value, 0, FG_PARAM_TYPE_AUTO), 0) << id;
    }
    EXPECT_EQ(a.Fg_getParameter(host.fg, 3050, &value, 0), 0);
    EXPECT_EQ(value, 1u);

    // The runtime's time-out through the pass-through range, both ways.
    value = 4321;
    EXPECT_EQ(a.Fg_setParameter(host.fg, 2000000 + 600, &value, 0), 0);
    value = 0;
    EXPECT_EQ(a.Fg_getParameter(host.fg, 2000000 + 600, &value, 0), 0);
    EXPECT_EQ(value, 4321u);

    // A design register by the runtime's id, in its own type (a double).
    const char* temperature = "Device1_Process0_BoardStatus_FpgaTemperature";
    const int n = HapGetRegisterByName(boundary::currentDesign(), temperature);
    ASSERT_GT(n, 0);
    vboard::pokeDouble(host.board, temperature, 41.25);
    double celsius = 0;
    EXPECT_EQ(a.Fg_getParameter(host.fg, 2000000 + vboard::kRegisterIdBase + n, &celsius, 0), 0);
    EXPECT_EQ(celsius, 41.25);
}
