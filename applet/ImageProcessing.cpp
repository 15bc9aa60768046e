// Image processing: the lookup tables of the three colour channels (computed
// from offset, gain, gamma and invert, or loaded from a LUT file, or written
// entry by entry), LUT files, and the white-balance gains.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include "Catalogue.h"
#include "FgZuWrapperImpl.h"
#include "FileLocale.h"
#include "Fg_LutFileParser.h"
#include "SetterPattern.h"
#include "pelagon_errors.h"

using pelagon::fail;
using pelagon::runSetter;

namespace {

constexpr uint32_t kLutSize = 4096;
constexpr uint32_t kLutMax = kLutSize - 1;
constexpr uint32_t kLutBits = 12;
constexpr uint32_t kTypeProcessor = pelagon::symbol::AcqLutTypes::LUT_TYPE_PROCESSING;
constexpr uint32_t kTypeUserFile = pelagon::symbol::AcqLutTypes::LUT_TYPE_CUSTOM;
// The coefficient registers are unsigned fixed point with 10 fractional bits:
// the catalogue's limit is the largest they hold, 4 - 1/1024.
constexpr double kMaxScaling = pelagon::catalogue::FG_SCALINGFACTOR_RED.maximum;

constexpr int kIdCustomFile = pelagon::id::FG_LUT_CUSTOM_FILE;
constexpr int kIdProcessing[] = {300002, 300003, 300004, 300005};  // gain, gamma, offset, invert

using Table = uint32_t[kLutSize];
using Writer = void (FgZuWrapperImpl::*)(const void*, int, int, bool);

struct Channel {
    Table FgZuWrapperImpl::*cache;
    Writer writer;
    const char* section;
};

// Red, green, blue: the order of every recompute, load and save.
const Channel kChannels[] = {
    {&FgZuWrapperImpl::cache_FG_LUT_VALUE_RED_P0,
     &FgZuWrapperImpl::set_zu_param_Device1_Process0_LookupTable_R_LUTcontent, "[red]"},
    {&FgZuWrapperImpl::cache_FG_LUT_VALUE_GREEN_P0,
     &FgZuWrapperImpl::set_zu_param_Device1_Process0_LookupTable_G_LUTcontent, "[green]"},
    {&FgZuWrapperImpl::cache_FG_LUT_VALUE_BLUE_P0,
     &FgZuWrapperImpl::set_zu_param_Device1_Process0_LookupTable_B_LUTcontent, "[blue]"},
};

// Conversion toward zero to a 32-bit signed integer. Results beyond its
// range saturate, so that a curve that overshoots (gamma near 0, say) stays
// at the bright end instead of wrapping.
int32_t truncate32(double v) {
    if (std::isnan(v)) return 0;
    if (v >= 2147483648.0) return std::numeric_limits<int32_t>::max();
    if (v <= -2147483649.0) return std::numeric_limits<int32_t>::min();
    return static_cast<int32_t>(v);
}

void writeWholeTable(FgZuWrapperImpl& w, const Channel& channel, const Table& table) {
    FieldParameterAccess access{};
    access.vtype = FG_PARAM_TYPE_UINT32_T;
    access.index = 0;
    access.count = kLutSize;
    access.p.p_uint32_t = const_cast<uint32_t*>(table);
    (w.*channel.writer)(&access, 0, FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS, true);
}

// Red, green, blue in order, each register first and its cache after it; a
// refused write is thrown at once and leaves that channel and the later ones
// as they were.
void writeChannels(FgZuWrapperImpl& w, const Table* const (&tables)[3]) {
    for (int c = 0; c < 3; ++c) {
        writeWholeTable(w, kChannels[c], *tables[c]);
        std::memcpy(w.*kChannels[c].cache, *tables[c], sizeof(Table));
    }
}

// The three tables a reader filled, released however the load ends.
struct LoadedTables {
    LookupTable tables[3] = {};
    LoadedTables() = default;
    LoadedTables(const LoadedTables&) = delete;
    LoadedTables& operator=(const LoadedTables&) = delete;
    ~LoadedTables() {
        for (LookupTable& t : tables) Fg_LutFileParser::freeTable(&t);
    }
};

void publishAccess(FgZuWrapperImpl& w, int id, bool changeable) {
    if (RegisterInfo* r = w.publishedRecord(id))
        r->accessFlags = changeable ? REG_ACCESS_READ | REG_ACCESS_WRITE | REG_ACCESS_CHANGE : REG_ACCESS_READ;
}

// A processing value: cached, then the tables recomputed; NaN is refused.
void setProcessing(FgZuWrapperImpl& w, double& cache, double value, bool throwOnError, double low, double high) {
    runSetter(
        cache, value, throwOnError,
        [&] {
            if (!(value >= low && value <= high)) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] { w.updateLutProcessing_P0(); });
}

// A range of entries: bounds and element type first, then only the first
// value is range-checked (deliberately: the others go to the register as
// they are). The affected slice is kept aside and put back when the
// register refuses.
void writeRange(FgZuWrapperImpl& w, const Channel& channel, const FieldParameterAccess& access) {
    if (!access.p.p_uint32_t || access.index > kLutMax || access.count > kLutSize ||
        access.index > kLutSize - access.count)
        fail(PGN_ERR_OUT_OF_RANGE);
    if (!FgZuWrapperImpl::lutElementTypeAccepted(FgZuWrapper::elementType(access))) fail(PGN_ERR_INVALID_ARGUMENT);
    if (access.count > 0 && access.p.p_uint32_t[0] > kLutMax) fail(PGN_ERR_OUT_OF_RANGE);

    Table& cache = w.*channel.cache;
    uint32_t saved[kLutSize];
    FieldParameterAccess savedRange{};
    savedRange.vtype = FG_PARAM_TYPE_UINT32_T;
    savedRange.index = access.index;
    savedRange.count = access.count;
    savedRange.p.p_uint32_t = saved;
    FgZuWrapper::getFieldCache(cache, &savedRange);
    FgZuWrapper::setFieldCache(cache, &access);
    try {
        (w.*channel.writer)(&access, 0, FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS, true);
    } catch (int) {
        FgZuWrapper::setFieldCache(cache, &savedRange);
        throw;
    }
}

void setLutValues(FgZuWrapperImpl& w, const Channel& channel, const void* value, int type,
                  bool throwOnError) {
    try {
        if (!value) fail(PGN_ERR_INVALID_ARGUMENT);
        if (type == FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS) {
            writeRange(w, channel, *static_cast<const FieldParameterAccess*>(value));
            return;
        }
        if (!FgZuWrapper::singleRecordFits<FieldParameterInt_s>(type))
            fail(PGN_ERR_INVALID_ARGUMENT);
        FieldParameterInt_s element = *static_cast<const FieldParameterInt_s*>(value);
        if (element.index > kLutMax) fail(PGN_ERR_OUT_OF_RANGE);
        runSetter(
            (w.*channel.cache)[element.index], element.value, true,
            [&] {
                if (element.value > kLutMax) fail(PGN_ERR_OUT_OF_RANGE);
            },
            [&] { (w.*channel.writer)(&element, 0, FG_PARAM_TYPE_STRUCT_FIELDPARAMINT, true); });
    } catch (int) {
        if (throwOnError) throw;
    }
}

// A file name: null is refused; the name is cached, then `apply` runs and a
// failure puts the previous name back.
template <typename Apply>
void setFileName(std::string& cache, const char* value, bool throwOnError, Apply apply) {
    if (!value) {
        if (throwOnError) fail(PGN_ERR_INVALID_ARGUMENT);
        return;
    }
    runSetter(cache, std::string(value), throwOnError, [] {}, apply);
}

void saveTables(FgZuWrapperImpl& w, const std::string& name) {
    LookupTable tables[3] = {};
    for (uint32_t c = 0; c < 3; ++c) {
        tables[c].lut = w.*kChannels[c].cache;
        tables[c].id = c;
        tables[c].nrOfElements = kLutSize;
    }
    pelagon::useFileLocale();
    Fg_LutFileParser parser;
    if (parser.saveLutToFile(name.c_str(), &tables[0], &tables[1], &tables[2]) != 0) fail(PGN_ERR_FILE_IO);
}

// The white balance: 0.0 .. 3.9990234375, written to the coefficient
// register as a double. A value that is not a number fails neither
// comparison and goes to the register as it is; that is deliberate.
void setScaling(FgZuWrapperImpl& w, double& cache, double value, bool throwOnError, Writer writer) {
    runSetter(
        cache, value, throwOnError,
        [&] {
            if (value < 0.0 || value > kMaxScaling) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] { (w.*writer)(&value, 0, FG_PARAM_TYPE_DOUBLE, true); });
}

template <typename T>
void readInto(T* value, T source) {
    if (!value) fail(PGN_ERR_INVALID_ARGUMENT);
    *value = source;
}

}  // namespace

bool FgZuWrapperImpl::lutElementTypeAccepted(int32_t vtype) {
    return vtype == FG_PARAM_TYPE_INT32_T || vtype == FG_PARAM_TYPE_UINT32_T ||
           vtype == FG_PARAM_TYPE_STRUCT_FIELDPARAMINT;
}

// ---- Lookup table type and processing ------------------------------------------

// One channel's table: b = (i / 4095 + offset) * gain; entries with b < 0
// are 0, the others b^(1/gamma) scaled to 12 bits and rounded; invert
// mirrors the entry before it is clamped to 0..4095. Gamma 0 means an
// infinite exponent and is taken as such.
void FgZuWrapperImpl::computeLutTable_P0(double offset, double gain, double gamma, bool invert,
                                          uint32_t (&table)[4096]) {
    const double exponent =
        gamma != 0.0 ? 1.0 / gamma : std::copysign(std::numeric_limits<double>::infinity(), gamma);
    for (uint32_t i = 0; i < kLutSize; ++i) {
        const double b = (i / 4095.0 + offset) * gain;
        int64_t entry = 0;
        if (b >= 0) {
            // b^1 is b exactly: the straight line (gamma 1, the default) needs no pow.
            const double curve = exponent == 1.0 ? b : std::pow(b, exponent);
            entry = truncate32(curve * 4095.0 + 0.5);
        }
        if (invert) entry = int64_t{kLutMax} - entry;
        table[i] = static_cast<uint32_t>(entry < 0 ? 0 : entry > kLutMax ? kLutMax : entry);
    }
}


void FgZuWrapperImpl::updateLutProcessing_P0() {
    if (cache_FG_LUT_TYPE_P0 != kTypeProcessor) return;
    // The three channels share their parameters: one table serves all three.
    Table table;
    computeLutTable_P0(cache_FG_PROCESSING_OFFSET_P0, cache_FG_PROCESSING_GAIN_P0, cache_FG_PROCESSING_GAMMA_P0,
                       cache_FG_PROCESSING_INVERT_P0 == 1, table);
    writeChannels(*this, {&table, &table, &table});
}

void FgZuWrapperImpl::loadLutFile_P0(const std::string& name) {
    if (cache_FG_LUT_TYPE_P0 != kTypeUserFile || name.empty()) return;
    pelagon::useFileLocale();
    Fg_LutFileParser parser;
    if (!parser.checkFileExist(name.c_str())) fail(PGN_ERR_FILE_MISSING);
    // Files are read leniently: a missing key reads as 0 and a missing entry
    // stays 0, so a table that names no entries changes nothing. Only a file
    // that cannot be read is refused, before any table changes.
    LoadedTables loaded;
    Table merged[3];
    for (int c = 0; c < 3; ++c) {
        LookupTable& t = loaded.tables[c];
        if (parser.getLutFromFile(name.c_str(), &t, kChannels[c].section) != 0) fail(PGN_ERR_FILE_IO);
        // At most a table's worth; a shorter table leaves the rest as it is.
        std::memcpy(merged[c], this->*kChannels[c].cache, sizeof(Table));
        std::memcpy(merged[c], t.lut, sizeof(uint32_t) * std::min(t.nrOfElements, kLutSize));
    }
    writeChannels(*this, {&merged[0], &merged[1], &merged[2]});
}

void FgZuWrapperImpl::set_sdk_param_FG_LUT_TYPE_P0(uint32_t value, bool throwOnError) {
    runSetter(
        cache_FG_LUT_TYPE_P0, value, throwOnError,
        [&] {
            if (!pelagon::enums::contains(pelagon::enums::AcqLutTypes, value)) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] {
            updateLutProcessing_P0();
            loadLutFile_P0(cache_FG_LUT_CUSTOM_FILE_P0);
            publishAccess(*this, kIdCustomFile, value == kTypeUserFile);
            for (int id : kIdProcessing) publishAccess(*this, id, value == kTypeProcessor);
        });
}

void FgZuWrapperImpl::set_sdk_param_FG_PROCESSING_OFFSET_P0(double value, bool throwOnError) {
    setProcessing(*this, cache_FG_PROCESSING_OFFSET_P0, value, throwOnError, -1.0, 1.0);
}

void FgZuWrapperImpl::set_sdk_param_FG_PROCESSING_GAIN_P0(double value, bool throwOnError) {
    setProcessing(*this, cache_FG_PROCESSING_GAIN_P0, value, throwOnError, 0.0, 4096.0);
}

void FgZuWrapperImpl::set_sdk_param_FG_PROCESSING_GAMMA_P0(double value, bool throwOnError) {
    setProcessing(*this, cache_FG_PROCESSING_GAMMA_P0, value, throwOnError, -1000.0, 1000.0);
}

void FgZuWrapperImpl::set_sdk_param_FG_PROCESSING_INVERT_P0(uint32_t value, bool throwOnError) {
    runSetter(
        cache_FG_PROCESSING_INVERT_P0, value, throwOnError,
        [&] {
            if (!pelagon::enums::contains(pelagon::enums::OnOff, value)) fail(PGN_ERR_OUT_OF_RANGE);
        },
        [&] { updateLutProcessing_P0(); });
}

// ---- Table entries ------------------------------------------------------------

void FgZuWrapperImpl::set_sdk_param_FG_LUT_VALUE_RED_P0(const void* value, int type, bool throwOnError) {
    setLutValues(*this, kChannels[0], value, type, throwOnError);
}

void FgZuWrapperImpl::set_sdk_param_FG_LUT_VALUE_GREEN_P0(const void* value, int type, bool throwOnError) {
    setLutValues(*this, kChannels[1], value, type, throwOnError);
}

void FgZuWrapperImpl::set_sdk_param_FG_LUT_VALUE_BLUE_P0(const void* value, int type, bool throwOnError) {
    setLutValues(*this, kChannels[2], value, type, throwOnError);
}

void FgZuWrapperImpl::get_sdk_param_FG_LUT_IN_BITS_P0(uint32_t* value) { readInto(value, kLutBits); }

void FgZuWrapperImpl::get_sdk_param_FG_LUT_OUT_BITS_P0(uint32_t* value) { readInto(value, kLutBits); }

// ---- LUT files ------------------------------------------------------------------

void FgZuWrapperImpl::set_sdk_param_FG_LUT_CUSTOM_FILE_P0(const char* value, bool throwOnError) {
    // While the type is "Processor" the name is only kept; it is loaded when
    // the type changes to "User file".
    setFileName(cache_FG_LUT_CUSTOM_FILE_P0, value, throwOnError,
                [&] { loadLutFile_P0(cache_FG_LUT_CUSTOM_FILE_P0); });
}

void FgZuWrapperImpl::set_sdk_param_FG_LUT_SAVE_FILE_P0(const char* value, bool throwOnError) {
    setFileName(cache_FG_LUT_SAVE_FILE_P0, value, throwOnError, [&] {
        if (!cache_FG_LUT_SAVE_FILE_P0.empty()) saveTables(*this, cache_FG_LUT_SAVE_FILE_P0);
    });
}

// ---- White balance ----------------------------------------------------------------

void FgZuWrapperImpl::set_sdk_param_FG_SCALINGFACTOR_RED_P0(double value, bool throwOnError) {
    setScaling(*this, cache_FG_SCALINGFACTOR_RED_P0, value, throwOnError,
               &FgZuWrapperImpl::set_zu_param_Device1_Process0_Bayer_White_RedCoefficient);
}

void FgZuWrapperImpl::set_sdk_param_FG_SCALINGFACTOR_GREEN_P0(double value, bool throwOnError) {
    setScaling(*this, cache_FG_SCALINGFACTOR_GREEN_P0, value, throwOnError,
               &FgZuWrapperImpl::set_zu_param_Device1_Process0_Bayer_White_GreenCoefficient);
}

void FgZuWrapperImpl::set_sdk_param_FG_SCALINGFACTOR_BLUE_P0(double value, bool throwOnError) {
    setScaling(*this, cache_FG_SCALINGFACTOR_BLUE_P0, value, throwOnError,
               &FgZuWrapperImpl::set_zu_param_Device1_Process0_Bayer_White_BlueCoefficient);
}

void FgZuWrapperImpl::get_sdk_param_FG_SCALINGFACTOR_RED_P0(double* value) {
    readInto(value, cache_FG_SCALINGFACTOR_RED_P0);
}

void FgZuWrapperImpl::get_sdk_param_FG_SCALINGFACTOR_GREEN_P0(double* value) {
    readInto(value, cache_FG_SCALINGFACTOR_GREEN_P0);
}

void FgZuWrapperImpl::get_sdk_param_FG_SCALINGFACTOR_BLUE_P0(double* value) {
    readInto(value, cache_FG_SCALINGFACTOR_BLUE_P0);
}
