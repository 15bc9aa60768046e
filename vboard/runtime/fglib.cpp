// The frame grabber runtime of the virtual board: register parameters are
// read and written for real, and acquisition runs the board's acquisition
// engine, which delivers the frames of the emulated design (none while the
// camera, which is not attached, is the image source).
//
// The same source builds the runtime variants that lack some functions:
//   VBOARD_FGLIB_NO_SLAVE_AWARE_INIT  no Fg_InitHandleSlaveAware
//   VBOARD_FGLIB_NO_PLAIN_INIT        no Fg_InitHandle
//   VBOARD_FGLIB_LEGACY               none of the extended acquisition and
//                                     status calls, no last-error query, no
//                                     applet id, no parameter info, no shading
#include <cstring>
#include <limits>
#include <optional>

#include "acquisition.h"
#include "board_state.h"
#include "pelagon_errors.h"
#include "runtime_export.h"

using vboard::Access;
using vboard::RegisterModel;
using vboard::detail::State;
using vboard::detail::state;

namespace {

// The runtime's own parameters. All are 32-bit unsigned values.
struct OwnParameter {
    int id;
    const char* name;
    bool writable;
    uint32_t value;  // for the constant ones
};
constexpr OwnParameter kOwnParameters[] = {
    {FG_RT_TIMEOUT, "FG_TIMEOUT", true, 0},
    {FG_RT_APC_STOP_TIMEOUT, "FG_APC_STOP_TIMEOUT", true, 0},
    {FG_RT_NR_OF_DMAS, "FG_NR_OF_DMAS", false, 1},
    {FG_RT_NR_OF_CAMS, "FG_NR_OF_CAMS", false, 1},
    {FG_RT_NR_OF_PROCESSES, "FG_NR_OF_PROCESSES", false, 1},
    {FG_RT_DMA_PORT, "FG_DMA_PORT", false, 0},
    {FG_RT_CAM_PORT, "FG_CAM_PORT", false, 0},
    {FG_RT_TRANSFER_LEN, "FG_TRANSFER_LEN", false, 0},  // nothing is ever transferred
    {FG_RT_DMASTATUS, "FG_DMASTATUS", false, 0},
};

const OwnParameter* ownParameter(int id) {
    for (const OwnParameter& p : kOwnParameters)
        if (p.id == id)
            return &p;
    return nullptr;
}

// Where the caller's value lives and how its elements are laid out.
enum class Elem { I32, U32, I64, U64, Dbl, Str };

struct Form {
    Elem elem = Elem::U32;
    void* base = nullptr;  // first element in the caller's memory
    unsigned first = 0;    // first register element
    unsigned count = 1;
};

std::size_t elemSize(Elem e) {
    switch (e) {
    case Elem::I32:
    case Elem::U32:
        return 4;
    case Elem::Dbl:
        return sizeof(double);
    default:
        return 8;
    }
}

bool integral(Elem e) { return e == Elem::I32 || e == Elem::U32 || e == Elem::I64 || e == Elem::U64; }

std::optional<Elem> scalarElem(FgParamTypes type) {
    switch (type) {
    case FG_PARAM_TYPE_INT32_T:
        return Elem::I32;
    case FG_PARAM_TYPE_UINT32_T:
        return Elem::U32;
    case FG_PARAM_TYPE_INT64_T:
        return Elem::I64;
    case FG_PARAM_TYPE_UINT64_T:
    case FG_PARAM_TYPE_SIZE_T:
        return Elem::U64;
    case FG_PARAM_TYPE_DOUBLE:
        return Elem::Dbl;
    case FG_PARAM_TYPE_CHAR_PTR:
        return Elem::Str;
    default:
        return std::nullopt;
    }
}

// The caller's form of a typed access to register `r`; false when the type
// does not suit the register or the elements lie outside it.
bool typedForm(const RegisterModel& r, void* value, FgParamTypes type, Form& f) {
    if (std::optional<Elem> scalar = scalarElem(type)) {
        // Scalars address plain registers; SIZE_T is only for unsigned ones.
        if (r.count != 1 || (type == FG_PARAM_TYPE_SIZE_T && r.kind != 'U'))
            return false;
        f = Form{*scalar, value, 0, 1};
    } else if (type == FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS) {
        auto* a = static_cast<FieldParameterAccess*>(value);
        std::optional<Elem> elem = scalarElem(a->vtype);
        if (!elem || *elem == Elem::Str || a->vtype == FG_PARAM_TYPE_SIZE_T)
            return false;
        void* base = nullptr;
        switch (*elem) {
        case Elem::I32:
            base = a->p.p_int32_t;
            break;
        case Elem::U32:
            base = a->p.p_uint32_t;
            break;
        case Elem::I64:
            base = a->p.p_int64_t;
            break;
        case Elem::U64:
            base = a->p.p_uint64_t;
            break;
        default:
            base = a->p.p_double;
            break;
        }
        if (!base)
            return false;
        f = Form{*elem, base, a->index, a->count};
    } else if (type == FG_PARAM_TYPE_STRUCT_FIELDPARAMINT) {
        auto* p = static_cast<FieldParameterInt_s*>(value);
        f = Form{Elem::U32, &p->value, p->index, 1};
    } else if (type == FG_PARAM_TYPE_STRUCT_FIELDPARAMINT64) {
        auto* p = static_cast<FieldParameterInt64_s*>(value);
        f = Form{Elem::U64, &p->value, p->index, 1};
    } else if (type == FG_PARAM_TYPE_STRUCT_FIELDPARAMDOUBLE) {
        auto* p = static_cast<FieldParameterDouble_s*>(value);
        f = Form{Elem::Dbl, &p->value, p->index, 1};
    } else {
        return false;
    }
    bool kindMatches = r.kind == 'U' ? integral(f.elem) : r.kind == 'D' ? f.elem == Elem::Dbl : f.elem == Elem::Str;
    return kindMatches && f.count >= 1 && f.first < r.count && f.count <= r.count - f.first;
}

// Untyped access: the register's natural type, element 0.
Form naturalForm(const RegisterModel& r, void* value) {
    Elem e = r.kind == 'S' ? Elem::Str : r.kind == 'D' ? Elem::Dbl : r.width <= 32 ? Elem::U32 : Elem::U64;
    return Form{e, value, 0, 1};
}

char* elementAt(const Form& f, unsigned i) { return static_cast<char*>(f.base) + i * elemSize(f.elem); }

// The caller's integer element i; nullopt for a negative one.
std::optional<uint64_t> loadUnsigned(const Form& f, unsigned i) {
    const char* p = elementAt(f, i);
    switch (f.elem) {
    case Elem::I32: {
        int32_t v;
        std::memcpy(&v, p, sizeof v);
        return v < 0 ? std::nullopt : std::optional<uint64_t>(static_cast<uint64_t>(v));
    }
    case Elem::U32: {
        uint32_t v;
        std::memcpy(&v, p, sizeof v);
        return v;
    }
    case Elem::I64: {
        int64_t v;
        std::memcpy(&v, p, sizeof v);
        return v < 0 ? std::nullopt : std::optional<uint64_t>(static_cast<uint64_t>(v));
    }
    default: {
        uint64_t v;
        std::memcpy(&v, p, sizeof v);
        return v;
    }
    }
}

// 4-byte reads of wider values deliver the low 32 bits, the way a 32-bit
// register window onto a wider register reads; signed and unsigned receive
// the same bit pattern.
void storeUnsigned(const Form& f, unsigned i, uint64_t value) {
    char* p = elementAt(f, i);
    if (elemSize(f.elem) == 4) {
        auto low = static_cast<uint32_t>(value);
        std::memcpy(p, &low, sizeof low);
    } else {
        std::memcpy(p, &value, sizeof value);
    }
}

int writeRegister(ZUdevice& board, int n, const RegisterModel& r, const Form& f) {
    if (r.readOnly)
        return PGN_ERR_READ_ONLY;
    if (r.kind == 'S') {
        const char* text = static_cast<const char*>(f.base);
        std::size_t length = strnlen(text, r.maxStringLength() + 1);
        if (length > r.maxStringLength())
            return PGN_ERR_OUT_OF_RANGE;
        return board.commitText(n, std::string(text, length), vboard::Path::Parameter);
    }
    std::vector<uint64_t> raws(f.count);
    if (r.kind == 'U' && f.elem == Elem::U32) {
        // Whole tables arrive as unsigned 32-bit elements: one tight loop.
        const uint64_t max = r.maxRaw();
        const char* p = static_cast<const char*>(f.base);
        for (unsigned i = 0; i < f.count; ++i) {
            uint32_t v;
            std::memcpy(&v, p + std::size_t{i} * sizeof v, sizeof v);
            if (v > max)
                return PGN_ERR_OUT_OF_RANGE;
            raws[i] = v;
        }
        return board.commit(n, f.first, raws, vboard::Path::Parameter);
    }
    for (unsigned i = 0; i < f.count; ++i) {
        if (r.kind == 'U') {
            std::optional<uint64_t> v = loadUnsigned(f, i);
            if (!v || *v > r.maxRaw())
                return PGN_ERR_OUT_OF_RANGE;
            raws[i] = *v;
        } else {
            double d;
            std::memcpy(&d, elementAt(f, i), sizeof d);
            if (!r.encodeDouble(d, raws[i]))
                return PGN_ERR_OUT_OF_RANGE;
        }
    }
    return board.commit(n, f.first, raws, vboard::Path::Parameter);
}

int readRegister(ZUdevice& board, int n, const RegisterModel& r, const Form& f) {
    if (r.kind == 'S') {
        std::string text;
        int rc = board.fetchText(n, text);
        if (rc == PGN_OK)
            std::memcpy(f.base, text.c_str(), text.size() + 1);
        return rc;
    }
    std::vector<uint64_t> raws(f.count);
    if (int rc = board.fetch(n, f.first, f.count, raws.data()))
        return rc;
    for (unsigned i = 0; i < f.count; ++i) {
        if (r.kind == 'U') {
            storeUnsigned(f, i, raws[i]);
        } else {
            double d = r.decodeDouble(raws[i]);
            std::memcpy(elementAt(f, i), &d, sizeof d);
        }
    }
    return PGN_OK;
}

uint32_t* ownCell(RuntimeHandle& h, int id) {
    if (id == FG_RT_TIMEOUT)
        return &h.timeout;
    if (id == FG_RT_APC_STOP_TIMEOUT)
        return &h.apcStopTimeout;
    return nullptr;
}

int transferOwn(RuntimeHandle& h, int id, void* value, std::optional<FgParamTypes> type, Access access) {
    const OwnParameter* p = ownParameter(id);
    if (!p)
        return PGN_ERR_INVALID_ARGUMENT;
    Elem e = Elem::U32;
    if (type) {
        std::optional<Elem> scalar = scalarElem(*type);
        if (!scalar || !integral(*scalar) || *type == FG_PARAM_TYPE_SIZE_T)
            return PGN_ERR_INVALID_ARGUMENT;
        e = *scalar;
    }
    Form f{e, value, 0, 1};
    uint32_t* cell = ownCell(h, id);
    if (access == Access::Read) {
        storeUnsigned(f, 0, cell ? *cell : p->value);
        return PGN_OK;
    }
    if (!p->writable)
        return PGN_ERR_READ_ONLY;
    std::optional<uint64_t> v = loadUnsigned(f, 0);
    if (!v || *v > std::numeric_limits<uint32_t>::max())
        return PGN_ERR_OUT_OF_RANGE;
    *cell = static_cast<uint32_t>(*v);
    return PGN_OK;
}

// A parameter read or write; `type` is empty for the untyped calls.
int transfer(RuntimeHandle& h, int id, void* value, unsigned dma, std::optional<FgParamTypes> type, Access access) {
    if (!value || dma != 0)
        return PGN_ERR_INVALID_ARGUMENT;
    if (id < vboard::kRegisterIdBase)
        return transferOwn(h, id, value, type, access);
    ZUdevice& board = *h.board;
    int n = id - vboard::kRegisterIdBase;
    const RegisterModel* r = board.reg(n);
    if (!r)
        return PGN_ERR_INVALID_ARGUMENT;
    Form f;
    if (!type)
        f = naturalForm(*r, value);
    else if (!typedForm(*r, value, *type, f))
        return PGN_ERR_INVALID_ARGUMENT;
    return access == Access::Write ? writeRegister(board, n, *r, f) : readRegister(board, n, *r, f);
}

// Runs `body` on the live handle under the lock and records the outcome as
// the handle's last error: a negative result, or 0 for success (also when
// the result is an id or a count). -2001, not recorded, for an unknown handle.
template <typename Body>
auto onHandle(Fg_Struct* fg, Body body) {
    State& s = state();
    std::lock_guard lock(s.mutex);
    RuntimeHandle* h = s.handle(fg);
    using Result = decltype(body(*h));
    if (!h)
        return static_cast<Result>(PGN_ERR_NO_INSTANCE);
    Result result = body(*h);
    h->record(result < 0 ? static_cast<int>(result) : PGN_OK);
    return result;
}

int refuseDma(unsigned dma) { return dma == 0 ? PGN_OK : PGN_ERR_INVALID_ARGUMENT; }

int notSupported(Fg_Struct* fg) {
    return onHandle(fg, [](RuntimeHandle&) { return PGN_ERR_NOT_SUPPORTED; });
}

// Starts the engine on `mem` (null: the board runs but has nowhere to write).
// A second start while running is accepted and changes nothing.
int startAcquisition(Fg_Struct* fg, unsigned dma, int64_t count, dma_mem* mem) {
    bool fresh = false;
    int result = onHandle(fg, [&](RuntimeHandle& h) {
        if (int rc = refuseDma(dma))
            return rc;
        if (mem && !state().memory(mem))
            return static_cast<int>(PGN_ERR_INVALID_ARGUMENT);
        fresh = !h.acquiring;
        h.acquiring = true;
        return static_cast<int>(PGN_OK);
    });
    if (result != PGN_OK || !fresh)
        return result;
    // The engine's thread takes the state lock, so it is created outside it.
    // It replaces the stopped engine of the previous acquisition (kept for
    // its frame count), unless a stop came in between.
    auto engine = std::make_shared<vboard::detail::Acquisition>(fg, mem ? mem->buffers : nullptr, count);
    std::shared_ptr<vboard::detail::Acquisition> previous;
    {
        State& s = state();
        std::lock_guard lock(s.mutex);
        RuntimeHandle* h = s.handle(fg);
        if (h && h->acquiring) {
            previous = std::move(h->acquisition);
            h->acquisition = std::move(engine);
        }
    }
    if (engine)
        engine->stop();
    return PGN_OK;
}

int stopAcquisition(Fg_Struct* fg, unsigned dma) {
    std::shared_ptr<vboard::detail::Acquisition> running;
    int result = onHandle(fg, [&](RuntimeHandle& h) {
        if (int rc = refuseDma(dma))
            return rc;
        if (!h.acquiring)
            return static_cast<int>(PGN_ERR_INVALID_ARGUMENT);
        h.acquiring = false;
        running = h.acquisition;  // stays, stopped, for the frame count
        return static_cast<int>(PGN_OK);
    });
    if (running)
        running->stop();
    return result;
}

}  // namespace

#ifndef VBOARD_FGLIB_NO_SLAVE_AWARE_INIT
VBOARD_EXPORT Fg_Struct* Fg_InitHandleSlaveAware(const char* /*designName*/, ZUdevice* board, fpga_design* design,
                                                 int /*flags*/) {
    return vboard::detail::initHandle(board, design);
}
#endif

#ifndef VBOARD_FGLIB_NO_PLAIN_INIT
VBOARD_EXPORT Fg_Struct* Fg_InitHandle(const char* /*designName*/, ZUdevice* board, fpga_design* design) {
    return vboard::detail::initHandle(board, design);
}
#endif

VBOARD_EXPORT int Fg_FreeGrabber(Fg_Struct* fg) {
    // The handle dies outside the lock: a running acquisition is stopped in
    // its destructor, and the engine's thread needs the lock to end.
    std::unique_ptr<RuntimeHandle> doomed;
    {
        State& s = state();
        std::lock_guard lock(s.mutex);
        auto it = s.handles.find(fg);
        if (it == s.handles.end())
            return PGN_ERR_NO_INSTANCE;
        doomed = std::move(it->second);
        s.handles.erase(it);
    }
    return PGN_OK;
}

VBOARD_EXPORT int Fg_getParameterIdByName(Fg_Struct* fg, const char* name) {
    return onHandle(fg, [name](RuntimeHandle& h) {
        if (!name)
            return static_cast<int>(PGN_ERR_INVALID_ARGUMENT);
        int n = h.board->design->findRegister(name);
        if (n > 0)
            return vboard::kRegisterIdBase + n;
        for (const OwnParameter& p : kOwnParameters)
            if (std::strcmp(p.name, name) == 0)
                return p.id;
        return static_cast<int>(PGN_ERR_INVALID_ARGUMENT);
    });
}

VBOARD_EXPORT int Fg_setParameterWithType(Fg_Struct* fg, int id, const void* value, unsigned int dma,
                                          FgParamTypes type) {
    // Writes only read from `value`.
    return onHandle(fg, [&](RuntimeHandle& h) {
        return transfer(h, id, const_cast<void*>(value), dma, type, Access::Write);
    });
}

VBOARD_EXPORT int Fg_getParameterWithType(Fg_Struct* fg, int id, void* value, unsigned int dma, FgParamTypes type) {
    return onHandle(fg, [&](RuntimeHandle& h) { return transfer(h, id, value, dma, type, Access::Read); });
}

VBOARD_EXPORT int Fg_setParameter(Fg_Struct* fg, int id, const void* value, unsigned int dma) {
    return onHandle(fg, [&](RuntimeHandle& h) {
        return transfer(h, id, const_cast<void*>(value), dma, std::nullopt, Access::Write);
    });
}

VBOARD_EXPORT int Fg_getParameter(Fg_Struct* fg, int id, void* value, unsigned int dma) {
    return onHandle(fg, [&](RuntimeHandle& h) { return transfer(h, id, value, dma, std::nullopt, Access::Read); });
}

// The runtime leaves configuration files to the applet.
VBOARD_EXPORT int Fg_saveConfig(Fg_Struct* fg, const char* /*fileName*/) { return notSupported(fg); }
VBOARD_EXPORT int Fg_loadConfig(Fg_Struct* fg, const char* /*fileName*/) { return notSupported(fg); }

VBOARD_EXPORT int Fg_Acquire(Fg_Struct* fg, unsigned int dma, int64_t count) {
    return startAcquisition(fg, dma, count, nullptr);
}

VBOARD_EXPORT int Fg_stopAcquire(Fg_Struct* fg, unsigned int dma) { return stopAcquisition(fg, dma); }

#ifndef VBOARD_FGLIB_LEGACY
VBOARD_EXPORT int Fg_getLastErrorNumber(Fg_Struct* fg) {
    State& s = state();
    std::lock_guard lock(s.mutex);
    if (!fg)
        return s.initError;
    RuntimeHandle* h = s.handle(fg, true);
    return h ? h->lastError : PGN_ERR_NO_INSTANCE;
}

// A fixed positive number derived from the design's identity.
VBOARD_EXPORT int Fg_getAppletId(Fg_Struct* fg, const char* /*ignored*/) {
    return onHandle(fg, [](RuntimeHandle& h) {
        uint32_t hash = 2166136261u;
        for (unsigned char c : h.board->design->hapId)
            hash = (hash ^ c) * 16777619u;
        return static_cast<int>(hash & 0x7fffffff) | 1;
    });
}

VBOARD_EXPORT int Fg_AcquireEx(Fg_Struct* fg, unsigned int dma, int64_t count, int /*flag*/, dma_mem* mem) {
    return startAcquisition(fg, dma, count, mem);
}

VBOARD_EXPORT int Fg_stopAcquireEx(Fg_Struct* fg, unsigned int dma, dma_mem* /*mem*/, int /*flag*/) {
    return stopAcquisition(fg, dma);
}

// Queries other than those of vboard::StatusQuery answer 0.
VBOARD_EXPORT int64_t Fg_getStatusEx(Fg_Struct* fg, int param, int64_t /*data*/, unsigned int dma,
                                     dma_mem* /*mem*/) {
    std::shared_ptr<vboard::detail::Acquisition> engine;
    int64_t result = onHandle(fg, [&](RuntimeHandle& h) {
        engine = h.acquisition;  // used outside the lock
        if (int rc = refuseDma(dma))
            return int64_t{rc};
        return int64_t{param == vboard::kStatusAcquiring && h.acquiring ? 1 : 0};
    });
    if (result < 0 || !engine)
        return result;
    if (param == vboard::kStatusFramesDelivered)
        return engine->lastFrame();
    if (param == vboard::kStatusFramesLost)
        return engine->lostFrames();
    return result;
}

VBOARD_EXPORT int64_t Fg_getLastPicNumberEx(Fg_Struct* fg, unsigned int dma, dma_mem* /*mem*/) {
    std::shared_ptr<vboard::detail::Acquisition> engine;
    int64_t result = onHandle(fg, [&](RuntimeHandle& h) {
        engine = h.acquisition;  // used outside the lock
        return int64_t{refuseDma(dma)};
    });
    return result < 0 || !engine ? result : engine->lastFrame();
}

// Waits (time-out in milliseconds) outside the lock, on the engine itself;
// the time-out is recorded as the last error after the wait.
VBOARD_EXPORT int64_t Fg_getLastPicNumberBlockingEx(Fg_Struct* fg, int64_t picNr, unsigned int dma, int timeout,
                                                    dma_mem* /*mem*/) {
    std::shared_ptr<vboard::detail::Acquisition> engine;
    int64_t result = onHandle(fg, [&](RuntimeHandle& h) {
        engine = h.acquisition;  // used outside the lock
        int rc = refuseDma(dma);
        return int64_t{rc != PGN_OK ? rc : h.acquiring ? PGN_OK : vboard::kErrTimeout};
    });
    if (result < 0)
        return result;
    int64_t waited = engine ? engine->waitFor(picNr, timeout) : vboard::kErrTimeout;
    return onHandle(fg, [waited](RuntimeHandle&) { return waited; });
}

VBOARD_EXPORT RegisterInfo* Fg_getParameterInfo(Fg_Struct* fg, int port) {
    State& s = state();
    std::lock_guard lock(s.mutex);
    RuntimeHandle* h = s.handle(fg);
    if (!h)
        return nullptr;
    RegisterInfo* head = port == 0 ? vboard::detail::parameterTree(*h) : nullptr;
    h->record(head ? PGN_OK : PGN_ERR_INVALID_ARGUMENT);
    return head;
}

// Shading is not offered by this board.
VBOARD_EXPORT ShadingMaster* Fg_AllocShading(Fg_Struct* fg, int /*set*/, int /*port*/) {
    notSupported(fg);
    return nullptr;
}
VBOARD_EXPORT int Fg_FreeShading(Fg_Struct* fg, ShadingMaster*) { return notSupported(fg); }
VBOARD_EXPORT int Shad_SetSubValueLine(Fg_Struct* fg, ShadingMaster*, int, int, float) { return notSupported(fg); }
VBOARD_EXPORT int Shad_SetMultValueLine(Fg_Struct* fg, ShadingMaster*, int, int, float) { return notSupported(fg); }
VBOARD_EXPORT int Shad_SetFixedPatternNoiseLine(Fg_Struct* fg, ShadingMaster*, int, int, int) {
    return notSupported(fg);
}
VBOARD_EXPORT int Shad_GetMaxLine(Fg_Struct* fg, ShadingMaster*) { return notSupported(fg); }
VBOARD_EXPORT int Shad_GetAccess(Fg_Struct* fg, ShadingMaster*) { return notSupported(fg); }
VBOARD_EXPORT int Shad_FreeAccess(Fg_Struct* fg, ShadingMaster*) { return notSupported(fg); }
VBOARD_EXPORT int Shad_WriteActLine(Fg_Struct* fg, ShadingMaster*, int) { return notSupported(fg); }
#endif
