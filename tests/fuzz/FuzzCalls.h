// Typed sets and gets through the exported interface with whatever a C
// caller may pass: ids of the catalogue, of design registers and arbitrary
// ones, every type code and codes outside the type enumeration, any DMA index,
// and for the array parameters range records with any element type, index
// and count. Every value goes in a buffer of exactly the size the call claims
// (the parameter's own type, the record, or `count` elements of the record's
// element type), so the sanitizers see any access beyond it.
//
// A call is decoded from what remains of an input (with FuzzedDataProvider:
// numbers from the end, value bytes and names from the front): direction,
// parameter, type code, DMA index, then the value; make_seeds.py writes seeds
// in this form.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "AppletConstants.h"
#include "FuzzApplet.h"
#include "FuzzCatalogue.h"
#include "FuzzFiles.h"
#include "fg_param_types.h"

namespace {

using pelagon::kDirectRegisterIdBase;
using pelagon::kRuntimeIdBase;

constexpr int kRegisterCount = 160;  // a few beyond the design's registers
// Range records may claim any count; buffers beyond this many elements are
// not allocated (the arrays hold 4096 at most, so a larger range must be
// refused before any element moves).
constexpr uint32_t kMaxElements = 8192;
constexpr size_t kStringBuffer = 4096;  // what a caller provides for a file name

const int kTypeCodes[] = {FG_PARAM_TYPE_INVALID,  FG_PARAM_TYPE_INT32_T,
                          FG_PARAM_TYPE_UINT32_T, FG_PARAM_TYPE_INT64_T,
                          FG_PARAM_TYPE_UINT64_T, FG_PARAM_TYPE_DOUBLE,
                          FG_PARAM_TYPE_CHAR_PTR, FG_PARAM_TYPE_SIZE_T,
                          FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS, FG_PARAM_TYPE_STRUCT_FIELDPARAMINT,
                          FG_PARAM_TYPE_STRUCT_FIELDPARAMINT64, FG_PARAM_TYPE_STRUCT_FIELDPARAMDOUBLE,
                          FG_PARAM_TYPE_COMPLEX_DATATYPE, FG_PARAM_TYPE_AUTO};

bool is64(int type) {
    return type == FG_PARAM_TYPE_INT64_T || type == FG_PARAM_TYPE_UINT64_T || type == FG_PARAM_TYPE_DOUBLE ||
           type == FG_PARAM_TYPE_SIZE_T;
}

// Bytes of one element of a range record's element type: a scalar, or one of
// the single-element records (whose first member is the value); 0 for codes
// that name no element, whose records get no room at all.
size_t elementSize(int32_t vtype) {
    switch (vtype) {
        case FG_PARAM_TYPE_STRUCT_FIELDPARAMINT:
            return sizeof(FieldParameterInt_s);
        case FG_PARAM_TYPE_STRUCT_FIELDPARAMINT64:
            return sizeof(FieldParameterInt64_s);
        case FG_PARAM_TYPE_STRUCT_FIELDPARAMDOUBLE:
            return sizeof(FieldParameterDouble_s);
        case FG_PARAM_TYPE_INT32_T:
        case FG_PARAM_TYPE_UINT32_T:
            return 4;
        case FG_PARAM_TYPE_INT64_T:
        case FG_PARAM_TYPE_UINT64_T:
        case FG_PARAM_TYPE_DOUBLE:
        case FG_PARAM_TYPE_SIZE_T:
            return 8;
        default:
            return 0;
    }
}

int typeCode(FuzzedDataProvider& in) {
    const uint8_t pick = in.ConsumeIntegral<uint8_t>();
    if (pick < 240) return kTypeCodes[pick % std::size(kTypeCodes)];
    return in.ConsumeIntegral<int32_t>();
}

// Mostly small, sometimes anything.
uint32_t smallOrAny(FuzzedDataProvider& in, uint32_t small) {
    return in.ConsumeBool() ? in.ConsumeIntegralInRange<uint32_t>(0, small) : in.ConsumeIntegral<uint32_t>();
}

// A buffer of exactly `n` bytes, zero or, for a set, filled from the input
// (the rest zero); a get takes no value bytes from the input.
struct Buffer {
    Buffer(FuzzedDataProvider& in, size_t n, bool fill) : size(n), bytes(new unsigned char[n ? n : 1]) {
        std::memset(bytes.get(), 0, n);
        if (fill) in.ConsumeData(bytes.get(), n);
    }
    size_t size;
    std::unique_ptr<unsigned char[]> bytes;
};

// File names stay inside the fuzzing folder, or name a few places outside
// that a caller may pass and that nothing can harm.
std::string fileName(FuzzedDataProvider& in) {
    switch (in.ConsumeIntegralInRange(0, 7)) {
        case 0:
            return "";
        case 1:
            return FuzzFolder::path();  // a folder
        case 2:
            return FuzzFolder::path() + "/missing/table.lut";
        case 3:
            return "/dev/null";
        default: {
            // Any bytes (markup characters, invalid UTF-8) but no folder.
            std::string name = in.ConsumeRandomLengthString(8);
            std::replace(name.begin(), name.end(), '/', '_');
            return FuzzFolder::path() + "/" + name + ".lut";
        }
    }
}

struct Call {
    FuzzApplet& applet;
    bool write;
    int id;
    int type;
    unsigned dma;

    // Every dispatched call leaves its result as the last error.
    void run(void* value) const {
        const int result = write ? applet.Fg_setParameterWithType(applet.fg, id, value, dma, type)
                                 : applet.Fg_getParameterWithType(applet.fg, id, value, dma, type);
        if (applet.Fg_getLastErrorNumber(applet.fg) != result) __builtin_trap();
    }

    // A value of `size` bytes; a 64-bit type code on a read claims 8 bytes.
    void scalar(FuzzedDataProvider& in, size_t size) const {
        if (!write && (type == FG_PARAM_TYPE_INT64_T || type == FG_PARAM_TYPE_UINT64_T)) size = std::max<size_t>(size, 8);
        Buffer b(in, size, write);
        run(b.bytes.get());
    }

    void text(FuzzedDataProvider& in) const {
        if (write) {
            const std::string name = fileName(in);
            run(const_cast<char*>(name.c_str()));
        } else {
            Buffer b(in, kStringBuffer, false);
            run(b.bytes.get());
        }
    }

    template <typename Single>
    void element(FuzzedDataProvider& in) const {
        Single record{};
        if (write) in.ConsumeData(&record.value, sizeof record.value);
        record.index = smallOrAny(in, 4200);
        run(&record);
    }

    void range(FuzzedDataProvider& in) const {
        // A C caller may leave any number in the element type: it is written
        // as the int it is, never loaded as the enumeration.
        const int32_t vtype = typeCode(in);
        const uint32_t index = smallOrAny(in, 4200);
        const uint32_t count = smallOrAny(in, 4200);
        const bool noArray = in.ConsumeIntegralInRange(0, 15) == 0;
        const size_t elements = std::min(count, kMaxElements);
        Buffer array(in, noArray ? 0 : elements * elementSize(vtype), write);
        auto record = std::make_unique<FieldParameterAccess>();
        std::memcpy(&record->vtype, &vtype, sizeof vtype);
        record->index = index;
        record->count = count;
        record->p.p_uint32_t = noArray ? nullptr : reinterpret_cast<uint32_t*>(array.bytes.get());
        run(record.get());
    }

    void field(FuzzedDataProvider& in, ParameterKind kind) const {
        switch (type) {
            case FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS:
                return range(in);
            case FG_PARAM_TYPE_STRUCT_FIELDPARAMINT:
                return element<FieldParameterInt_s>(in);
            case FG_PARAM_TYPE_STRUCT_FIELDPARAMINT64:
                return element<FieldParameterInt64_s>(in);
            case FG_PARAM_TYPE_STRUCT_FIELDPARAMDOUBLE:
                return element<FieldParameterDouble_s>(in);
            default:  // any other code: one element of the field's own record
                return kind == ParameterKind::DoubleField ? element<FieldParameterDouble_s>(in)
                                                      : element<FieldParameterInt_s>(in);
        }
    }
};

// One call; with `setsOnly` always a set.
void fuzzCall(FuzzApplet& applet, FuzzedDataProvider& in, bool setsOnly) {
    const bool write = setsOnly || in.ConsumeBool();
    const uint8_t which = in.ConsumeIntegral<uint8_t>();
    const std::vector<CatalogueRow>& rows = fuzzParameters();
    const CatalogueRow* parameter = nullptr;
    int id = 0;
    if (which < 224) {
        parameter = &rows[in.ConsumeIntegralInRange<size_t>(0, rows.size() - 1)];
        id = parameter->id;
    } else if (which < 240) {
        id = kDirectRegisterIdBase + in.ConsumeIntegralInRange(-1, kRegisterCount);
    } else {
        id = in.ConsumeIntegral<int>();
    }
    const int type = typeCode(in);
    const uint8_t dmaPick = in.ConsumeIntegral<uint8_t>();
    const unsigned dma = dmaPick < 224 ? 0u : dmaPick < 240 ? dmaPick - 224u : in.ConsumeIntegral<unsigned>();
    const Call call{applet, write, id, type, dma};

    if (!parameter) {
        // Registers and unknown ids: a 64-bit word is the most any of them
        // takes. Ids of the runtime's own range are served by the runtime,
        // which sizes the value by the type code: only a scalar code lets the
        // caller know the size.
        if (id > kRuntimeIdBase && !is64(type) && type != FG_PARAM_TYPE_INT32_T &&
            type != FG_PARAM_TYPE_UINT32_T)
            return;
        return call.scalar(in, 8);
    }
    switch (parameter->kind) {
        case ParameterKind::UInt:
            return call.scalar(in, 4);
        case ParameterKind::UInt64:
        case ParameterKind::Double:
            return call.scalar(in, 8);
        case ParameterKind::Runtime:
            return call.scalar(in, is64(type) ? 8 : 4);
        case ParameterKind::String:
            return call.text(in);
        case ParameterKind::UIntField:
        case ParameterKind::DoubleField:
            return call.field(in, parameter->kind);
    }
}

}  // namespace
