// Routing of typed parameter sets and gets: the parameter lock, the three id
// ranges, and the table from catalogue id to setter and getter.
#include <array>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <map>
#include <type_traits>

#include "AppletConstants.h"
#include "Catalogue.h"
#include "Fail.h"
#include "FgZuWrapperImpl.h"
#include "hap_runtime.h"
#include "pelagon_errors.h"
#include "quor_io.h"

using quor::templates::platform::CriticalSectionGuard;

namespace {

using pelagon::kDirectRegisterIdBase;
using pelagon::kRuntimeIdBase;

using Setter = void (*)(FgZuWrapperImpl&, const void*, int);
using Getter = void (*)(FgZuWrapperImpl&, void*, int, int);

struct Handler {
    int id;
    Setter set;
    Getter get;
};

// Elements `index` .. `index + count - 1` of an array of `size`.
void checkRange(uint64_t index, uint64_t count, uint64_t size) {
    if (index >= size || count > size || index + count > size) pelagon::fail(PGN_ERR_INVALID_ARGUMENT);
}

// The element types a range record may name when it reads an array cache:
// the ones its setter accepts, so that reading and writing agree. Whatever
// is accepted, only elements of the cache's own size are ever moved.
template <typename Element>
bool readableElementType(int32_t vtype) {
    if constexpr (std::is_same_v<Element, double>)
        return vtype == FG_PARAM_TYPE_DOUBLE;
    else
        return FgZuWrapperImpl::lutElementTypeAccepted(vtype);
}

// Array caches: a whole FieldParameterAccess range (type 4096) or one element
// in the record that matches the element type.
template <typename Single, typename Element, size_t N>
void getFieldFromCache(const Element (&cache)[N], void* value, int type) {
    if (type == FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS) {
        auto* access = static_cast<FieldParameterAccess*>(value);
        if (!access->p.p_uint32_t) pelagon::fail(PGN_ERR_INVALID_ARGUMENT);
        checkRange(access->index, access->count, N);
        if (!readableElementType<Element>(FgZuWrapper::elementType(*access))) pelagon::fail(PGN_ERR_INVALID_ARGUMENT);
        FgZuWrapper::getFieldCache(cache, access);
    } else {
        if (!FgZuWrapper::singleRecordFits<Single>(type)) pelagon::fail(PGN_ERR_INVALID_ARGUMENT);
        auto* single = static_cast<Single*>(value);
        checkRange(single->index, 1, N);
        FgZuWrapper::getFieldCache(cache, single);
    }
}

// Setters and getters are found by name, and the catalogue says which a
// parameter must have: a read-only parameter refuses every write, a writable
// one must have its setter; a parameter read by its getter must have it, one
// read from its cache must not, or the applet does not compile.
#define PELAGON_GETTER_CHECKED(NAME, hasGetter)                                                       \
    static_assert((pelagon::catalogue::NAME.read == pelagon::Read::Getter) == (hasGetter),            \
                  #NAME ": the catalogue's read column and the getter members disagree")

#define PELAGON_SCALAR_HANDLER(NAME, ValueType)                                                       \
    {pelagon::catalogue::NAME.id,                                                                     \
     [](auto& w, const void* v, int) {                                                                \
         if constexpr ((pelagon::catalogue::NAME.access & REG_ACCESS_WRITE) == 0)                     \
             pelagon::fail(PGN_ERR_READ_ONLY);                                                        \
         else {                                                                                       \
             static_assert(requires { w.set_sdk_param_##NAME##_P0(ValueType{}, true); },              \
                           "the writable parameter " #NAME " has no setter");                         \
             w.set_sdk_param_##NAME##_P0(*static_cast<const ValueType*>(v), true);                    \
         }                                                                                            \
     },                                                                                               \
     [](auto& w, void* v, int, int) {                                                                 \
         constexpr bool hasGetter = requires { w.get_sdk_param_##NAME##_P0(static_cast<ValueType*>(nullptr)); }; \
         PELAGON_GETTER_CHECKED(NAME, hasGetter);                                                     \
         if constexpr (hasGetter)                                                                     \
             w.get_sdk_param_##NAME##_P0(static_cast<ValueType*>(v));                                 \
         else                                                                                         \
             *static_cast<ValueType*>(v) = w.cache_##NAME##_P0;                                       \
     }},

#define PELAGON_STRING_HANDLER(NAME)                                                                  \
    {pelagon::catalogue::NAME.id,                                                                     \
     [](auto& w, const void* v, int) {                                                                \
         if constexpr ((pelagon::catalogue::NAME.access & REG_ACCESS_WRITE) == 0)                     \
             pelagon::fail(PGN_ERR_READ_ONLY);                                                        \
         else {                                                                                       \
             static_assert(requires { w.set_sdk_param_##NAME##_P0("", true); },                       \
                           "the writable parameter " #NAME " has no setter");                         \
             w.set_sdk_param_##NAME##_P0(static_cast<const char*>(v), true);                          \
         }                                                                                            \
     },                                                                                               \
     [](auto& w, void* v, int, int) {                                                                 \
         constexpr bool hasGetter = requires { w.get_sdk_param_##NAME##_P0(static_cast<char*>(nullptr)); }; \
         PELAGON_GETTER_CHECKED(NAME, hasGetter);                                                     \
         if constexpr (hasGetter)                                                                     \
             w.get_sdk_param_##NAME##_P0(static_cast<char*>(v));                                      \
         else                                                                                         \
             std::strcpy(static_cast<char*>(v), w.cache_##NAME##_P0.c_str());                         \
     }},

// Array parameters: the type selects a range record or a single element, so a
// code outside the type enumeration is refused in both directions.
#define PELAGON_FIELD_HANDLER(NAME, Single)                                                           \
    {pelagon::catalogue::NAME.id,                                                                     \
     [](auto& w, const void* v, int t) {                                                              \
         if constexpr ((pelagon::catalogue::NAME.access & REG_ACCESS_WRITE) == 0)                     \
             pelagon::fail(PGN_ERR_READ_ONLY);                                                        \
         else {                                                                                       \
             static_assert(requires { w.set_sdk_param_##NAME##_P0(v, t, true); },                     \
                           "the writable parameter " #NAME " has no setter");                         \
             if (!FgZuWrapper::knownTypeCode(t)) pelagon::fail(PGN_ERR_INVALID_ARGUMENT);             \
             w.set_sdk_param_##NAME##_P0(v, t, true);                                                 \
         }                                                                                            \
     },                                                                                               \
     [](auto& w, void* v, int, int t) {                                                               \
         constexpr bool hasGetter = requires { w.get_sdk_param_##NAME##_P0(v, t); };                  \
         PELAGON_GETTER_CHECKED(NAME, hasGetter);                                                     \
         if (!FgZuWrapper::knownTypeCode(t))                                                          \
             pelagon::fail(PGN_ERR_INVALID_ARGUMENT);                                                 \
         else if constexpr (hasGetter)                                                                \
             w.get_sdk_param_##NAME##_P0(v, t);                                                       \
         else                                                                                         \
             getFieldFromCache<Single>(w.cache_##NAME##_P0, v, t);                                    \
     }},

// The runtime's own parameters: read through the runtime with the caller's
// DMA index and type, never written by applications.
#define PELAGON_RUNTIME_HANDLER(NAME)                                                                 \
    {pelagon::catalogue::NAME.id, [](auto&, const void*, int) { pelagon::fail(PGN_ERR_READ_ONLY); },  \
     [](auto& w, void* v, int dma, int t) {                                                           \
         const int rc =                                                                               \
             w.getUnwrappedParameterWithType(pelagon::catalogue::NAME.id, v, static_cast<unsigned>(dma), t); \
         if (rc != 0) pelagon::fail(rc);                                                              \
     }},

#define PELAGON_HANDLER_Uint(NAME) PELAGON_SCALAR_HANDLER(NAME, uint32_t)
#define PELAGON_HANDLER_Enum(NAME) PELAGON_SCALAR_HANDLER(NAME, uint32_t)
#define PELAGON_HANDLER_Uint64(NAME) PELAGON_SCALAR_HANDLER(NAME, uint64_t)
#define PELAGON_HANDLER_Double(NAME) PELAGON_SCALAR_HANDLER(NAME, double)
#define PELAGON_HANDLER_String(NAME) PELAGON_STRING_HANDLER(NAME)
#define PELAGON_HANDLER_UintField(NAME) PELAGON_FIELD_HANDLER(NAME, FieldParameterInt_s)
#define PELAGON_HANDLER_DoubleField(NAME) PELAGON_FIELD_HANDLER(NAME, FieldParameterDouble_s)

const Handler kHandlers[] = {
#define PELAGON_PARAM(NAME, KIND, ...) PELAGON_HANDLER_##KIND(NAME)
#define PELAGON_RUNTIME_PARAM(NAME, ...) PELAGON_RUNTIME_HANDLER(NAME)
#include "catalogue.def"
};

// Every call looks its id up here, so the table is an open-addressing hash:
// a lookup is usually one multiply and one probe, where a tree would chase
// a pointer per level. Built once; at most half full, so a miss ends soon.
const Handler* findHandler(int id) {
    constexpr unsigned kSlotBits = 9;
    static_assert(std::size(kHandlers) * 2 <= (1u << kSlotBits), "the handler hash is at most half full");
    struct Slot {
        int id;
        const Handler* handler;  // null: an empty slot
    };
    using Table = std::array<Slot, (1u << kSlotBits)>;
    constexpr auto first = [](int key) { return (static_cast<uint32_t>(key) * 2654435761u) >> (32 - kSlotBits); };
    constexpr uint32_t kMask = (1u << kSlotBits) - 1;
    static const Table table = [&] {
        Table t{};
        for (const Handler& h : kHandlers) {
            uint32_t i = first(h.id);
            while (t[i].handler && t[i].id != h.id) i = (i + 1) & kMask;
            if (!t[i].handler) t[i] = {h.id, &h};  // the first handler of an id serves it
        }
        return t;
    }();
    for (uint32_t i = first(id);; i = (i + 1) & kMask) {
        if (!table[i].handler) return nullptr;
        if (table[i].id == id) return table[i].handler;
    }
}

// The one DMA channel belongs to process 0; anything else is not served.
void checkDma(const std::map<int, int>& dmaProcess, int dma) {
    const auto process = dmaProcess.find(dma);
    if (process == dmaProcess.end() || process->second != 0) pelagon::fail(PGN_ERR_INVALID_ARGUMENT);
}

}  // namespace

namespace {

// The frame of every dispatched call: a null value is refused without the
// lock; otherwise the route runs under the parameter lock, an int it throws
// becomes the result, and the result is recorded as the last error. Other
// exceptions leave (the guard releases the lock).
template <typename Route>
int dispatch(FgZuWrapperImpl& w, const void* value, Route route) {
    if (!value) return w.setError(PGN_ERR_INVALID_ARGUMENT);
    CriticalSectionGuard guard(&w.mParameterLock);
    int result = 0;
    try {
        result = route();
    } catch (int error) {
        result = error;
    }
    return w.setError(result);
}

}  // namespace

int FgZuWrapperImpl::Fg_setParameterWithType(int id, const void* value, int dma, int type) {
    return dispatch(*this, value, [&] {
        if (id > kRuntimeIdBase)
            return setUnwrappedParameterWithType(id - kRuntimeIdBase, value, static_cast<unsigned>(dma), type);
        if (draEnabled && id > kDirectRegisterIdBase) {
            const int reg = id - kDirectRegisterIdBase;
            const uint64_t word = HapGetRegisterBitRange(designHandle(), reg) > 32
                                      ? *static_cast<const uint64_t*>(value)
                                      : *static_cast<const uint32_t*>(value);
            return QuorRegisterWrite(boardHandle(), static_cast<unsigned>(reg), word);
        }
        setParameterWithType(id, value, dma, type);
        return 0;
    });
}

int FgZuWrapperImpl::Fg_getParameterWithType(int id, void* value, int dma, int type) {
    return dispatch(*this, value, [&] {
        if (id > kRuntimeIdBase)
            return getUnwrappedParameterWithType(id - kRuntimeIdBase, value, static_cast<unsigned>(dma), type);
        if (draEnabled && id > kDirectRegisterIdBase) {
            const int reg = id - kDirectRegisterIdBase;
            uint64_t word = 0;
            const int rc = QuorRegisterRead(boardHandle(), static_cast<unsigned>(reg), &word);
            if (rc != 0) return rc;
            if (HapGetRegisterBitRange(designHandle(), reg) > 32)
                *static_cast<uint64_t*>(value) = word;
            else
                *static_cast<uint32_t*>(value) = static_cast<uint32_t>(word);
            return 0;
        }
        getParameterWithType(id, value, dma, type);
        return 0;
    });
}

void FgZuWrapperImpl::setParameterWithType(int id, const void* value, int dma, int type) {
    checkDma(map_dma_process, dma);
    const Handler* handler = findHandler(id);
    if (!handler) pelagon::fail(PGN_ERR_INVALID_ARGUMENT);
    handler->set(*this, value, type);
}

void FgZuWrapperImpl::getParameterWithType(int id, void* value, int dma, int type) {
    checkDma(map_dma_process, dma);
    const Handler* handler = findHandler(id);
    if (!handler) pelagon::fail(PGN_ERR_INVALID_ARGUMENT);
    handler->get(*this, value, dma, type);
}
