#include "FgZuWrapper.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "FgZuWrapperPrivate.h"
#include "ParameterInfoBuilderXML.h"
#include "hap_runtime.h"
#include "pelagon_errors.h"

namespace {

// Process-wide: the last board and design handed to the runtime. Shared by
// all instances and never cleared, like the runtime's own notion of "the
// current board".
std::atomic<ZUdevice*> gDeviceHandle{nullptr};
std::atomic<fpga_design*> gDesignHandle{nullptr};

// Base of the temporary-file names; advanced by every attempt of every caller.
std::atomic<uint64_t> gTempValue{0};

template <typename T>
T lookup(void* dll, const char* name) {
    return reinterpret_cast<T>(dlsym(dll, name));
}

}  // namespace

FgZuWrapper::FgZuWrapper() : d(new FgZuWrapperPrivate) {
    d->mWrapperFg = static_cast<Fg_Struct*>(std::calloc(1, sizeof(Fg_Struct)));
    d->mParameterInfo = new Fg_ParameterInfo;
}

FgZuWrapper::~FgZuWrapper() noexcept(false) {
    if (d->dll) dlclose(d->dll);
    if (d->mDesignHandle) HapUnloadHapFile(d->mDesignHandle);
    std::free(d->mWrapperFg);
    delete d->mParameterInfo;
    delete d;
    register_info_map.clear();
}

int FgZuWrapper::initializeDllFunctions(const char* libraryName) {
    d->dll = libraryName ? dlopen(libraryName, RTLD_NOW) : nullptr;
    if (!d->dll) return setError(PGN_ERR_RUNTIME_UNAVAILABLE);

    Fg_Struct* fns = d->mWrapperFg;
#define PELAGON_BIND(name) fns->DLL_##name = lookup<name##_t>(d->dll, #name);
    PELAGON_BOUND_RUNTIME_FUNCTIONS(PELAGON_BIND)
#undef PELAGON_BIND
    d->DLL_Fg_getParameterIdByName = lookup<Fg_getParameterIdByName_t>(d->dll, "Fg_getParameterIdByName");
    return 0;
}

int FgZuWrapper::runFgInit(const char* designName, ZUdevice* board, fpga_design* design, int flags) {
    if (!d->dll) return setError(PGN_ERR_RUNTIME_UNAVAILABLE);
    d->Fg_Init_Func_Slave_Aware = lookup<Fg_InitHandleSlaveAware_t>(d->dll, "Fg_InitHandleSlaveAware");
    d->Fg_Init_Func = lookup<Fg_InitHandle_t>(d->dll, "Fg_InitHandle");
    d->DLL_Fg_getLastErrorNumber = lookup<Fg_getLastErrorNumber_t>(d->dll, "Fg_getLastErrorNumber");

    if (d->Fg_Init_Func_Slave_Aware) {
        d->mFglibFg = d->Fg_Init_Func_Slave_Aware(designName, board, design, flags);
    } else if (d->Fg_Init_Func) {
        d->mFglibFg = d->Fg_Init_Func(designName, board, design);
    } else {
        return setError(PGN_ERR_RUNTIME_UNAVAILABLE);
    }

    if (d->mFglibFg) {
        accessDeviceHandle(board);
        accessDesignHandle(design);
        return 0;
    }
    const int error =
        d->DLL_Fg_getLastErrorNumber ? d->DLL_Fg_getLastErrorNumber(nullptr) : PGN_ERR_DESIGN_NOT_LOADED;
    return setError(error);
}

void FgZuWrapper::initHandles(ZUdevice* board, fpga_design* design) {
    d->mBoardHandle = board;
    d->mDesignHandle = design;
}

fpga_design* FgZuWrapper::designHandle() const { return d->mDesignHandle; }
ZUdevice* FgZuWrapper::boardHandle() const { return d->mBoardHandle; }
Fg_Error* FgZuWrapper::fgError() const { return &d->mError; }
Fg_ParameterInfo* FgZuWrapper::parameterInfo() const { return d->mParameterInfo; }
Fg_Struct* FgZuWrapper::wrapperFg() const { return d->mWrapperFg; }
Fg_Struct* FgZuWrapper::fglibFg() const { return d->mFglibFg; }

ZUdevice* FgZuWrapper::accessDeviceHandle(ZUdevice* board) {
    if (board) gDeviceHandle = board;
    return gDeviceHandle;
}

fpga_design* FgZuWrapper::accessDesignHandle(fpga_design* design) {
    if (design) gDesignHandle = design;
    return gDesignHandle;
}

int FgZuWrapper::getParameterIdByName(const char* name) {
    if (!d->DLL_Fg_getParameterIdByName || !d->mFglibFg) return PGN_ERR_READ_ONLY;
    return d->DLL_Fg_getParameterIdByName(d->mFglibFg, name);
}

int FgZuWrapper::getUnwrappedParameterWithType(int id, void* value, unsigned int dma, int type) {
    if (!d->mWrapperFg->DLL_Fg_getParameterWithType || !d->mFglibFg) return PGN_ERR_READ_ONLY;
    return d->mWrapperFg->DLL_Fg_getParameterWithType(d->mFglibFg, id, value, dma, type);
}

int FgZuWrapper::setUnwrappedParameterWithType(int id, const void* value, unsigned int dma, int type) {
    if (!d->mWrapperFg->DLL_Fg_setParameterWithType || !d->mFglibFg) return PGN_ERR_READ_ONLY;
    return d->mWrapperFg->DLL_Fg_setParameterWithType(d->mFglibFg, id, value, dma, type);
}

int FgZuWrapper::getUnwrappedParameter(int id, void* value, unsigned int dma) {
    if (!d->mWrapperFg->DLL_Fg_getParameter || !d->mFglibFg) return PGN_ERR_READ_ONLY;
    return d->mWrapperFg->DLL_Fg_getParameter(d->mFglibFg, id, value, dma);
}

int FgZuWrapper::setUnwrappedParameter(int id, const void* value, unsigned int dma) {
    if (!d->mWrapperFg->DLL_Fg_setParameter || !d->mFglibFg) return PGN_ERR_READ_ONLY;
    return d->mWrapperFg->DLL_Fg_setParameter(d->mFglibFg, id, value, dma);
}

RegisterInfo* FgZuWrapper::getUnwrappedParameterInfo() {
    if (!d->mWrapperFg->DLL_Fg_getParameterInfo || !d->mFglibFg) return nullptr;
    return d->mWrapperFg->DLL_Fg_getParameterInfo(d->mFglibFg, 0);
}

int32_t FgZuWrapper::elementType(const FieldParameterAccess& field) {
    static_assert(sizeof field.vtype == sizeof(int32_t));
    int32_t code = 0;
    std::memcpy(&code, &field.vtype, sizeof code);
    return code;
}

bool FgZuWrapper::knownTypeCode(int32_t type) {
    switch (type) {
    case FG_PARAM_TYPE_INVALID:
    case FG_PARAM_TYPE_INT32_T:
    case FG_PARAM_TYPE_UINT32_T:
    case FG_PARAM_TYPE_INT64_T:
    case FG_PARAM_TYPE_UINT64_T:
    case FG_PARAM_TYPE_DOUBLE:
    case FG_PARAM_TYPE_CHAR_PTR:
    case FG_PARAM_TYPE_SIZE_T:
    case FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS:
    case FG_PARAM_TYPE_STRUCT_FIELDPARAMINT:
    case FG_PARAM_TYPE_STRUCT_FIELDPARAMINT64:
    case FG_PARAM_TYPE_STRUCT_FIELDPARAMDOUBLE:
    case FG_PARAM_TYPE_COMPLEX_DATATYPE:
    case FG_PARAM_TYPE_AUTO:
        return true;
    default:
        return false;
    }
}

bool FgZuWrapper::copyField(void* cache, size_t elementSize, size_t size, const FieldParameterAccess* field,
                            bool intoCache) {
    if (!cache || !field || !field->p.p_uint32_t) return false;
    const int32_t type = elementType(*field);
    const bool fits = elementSize == sizeof(uint32_t)
                          ? type == FG_PARAM_TYPE_INT32_T || type == FG_PARAM_TYPE_UINT32_T
                          : type == FG_PARAM_TYPE_DOUBLE;
    const size_t index = field->index, count = field->count;
    if (!fits || index > size || count > size - index) return false;
    char* slice = static_cast<char*>(cache) + index * elementSize;
    if (intoCache)
        std::memmove(slice, field->p.p_uint32_t, count * elementSize);
    else
        std::memmove(field->p.p_uint32_t, slice, count * elementSize);
    return true;
}

RegisterInfo* FgZuWrapper::Fg_getParameterInfo(int port) {
    if (port < 0 || port >= Fg_ParameterInfo::kPorts) return nullptr;
    return d->mParameterInfo->getRegisterInfo(port);
}

int FgZuWrapper::Fg_getLastErrorNumber() const { return d->mError.getErrorNumberBuffer(); }

int FgZuWrapper::setError(int code) { return d->mError.setErr(code); }

int FgZuWrapper::Fg_getLastErrorNumberZu() {
    if (!d->mWrapperFg->DLL_Fg_getLastErrorNumber || !d->mFglibFg) return PGN_ERR_READ_ONLY;
    return d->mWrapperFg->DLL_Fg_getLastErrorNumber(d->mFglibFg);
}

// The caller asks for the size with a null buffer first, then passes a buffer
// of that size; a buffer too small is refused without touching its size.
int FgZuWrapper::Fg_getParameterInfoXML(Fg_Struct*, int port, char* infoBuffer, size_t* infoBufferSize) {
    if (infoBufferSize == nullptr) return setError(PGN_ERR_INVALID_ARGUMENT);
    if (infoBuffer != nullptr && *infoBufferSize == 0) return setError(PGN_ERR_OUT_OF_MEMORY);
    if (d->mParameterInfo == nullptr || d->mParameterInfo->getRegisterInfo(port) == nullptr)
        return setError(PGN_ERR_DECODE);
    std::string document;
    try {
        document = ParameterInfoBuilderXML(*d->mParameterInfo, *this, port).build();
    } catch (const std::bad_alloc&) {
        return setError(PGN_ERR_OUT_OF_MEMORY);
    }
    if (infoBuffer != nullptr) {
        if (document.size() >= *infoBufferSize) return setError(PGN_ERR_OUT_OF_MEMORY);
        std::memcpy(infoBuffer, document.c_str(), document.size() + 1);
    }
    *infoBufferSize = document.size() + 1;
    return setError(PGN_OK);
}

// This design has no shading unit: allocation fails with -1, every other
// shading operation is not supported.
ShadingMaster* FgZuWrapper::Fg_AllocShading(int, int) {
    setError(-1);
    return nullptr;
}
int FgZuWrapper::Fg_FreeShading(ShadingMaster*) { return PGN_ERR_NOT_SUPPORTED; }
int FgZuWrapper::Shad_SetSubValueLine(ShadingMaster*, int, int, float) { return PGN_ERR_NOT_SUPPORTED; }
int FgZuWrapper::Shad_SetMultValueLine(ShadingMaster*, int, int, float) { return PGN_ERR_NOT_SUPPORTED; }
int FgZuWrapper::Shad_SetFixedPatternNoiseLine(ShadingMaster*, int, int, int) { return PGN_ERR_NOT_SUPPORTED; }
int FgZuWrapper::Shad_GetMaxLine(ShadingMaster*) { return PGN_ERR_NOT_SUPPORTED; }
int FgZuWrapper::Shad_GetAccess(ShadingMaster*) { return PGN_ERR_NOT_SUPPORTED; }
int FgZuWrapper::Shad_FreeAccess(ShadingMaster*) { return PGN_ERR_NOT_SUPPORTED; }
int FgZuWrapper::Shad_WriteActLine(ShadingMaster*, int) { return PGN_ERR_NOT_SUPPORTED; }

// Events straight from the design: bit i of the mask is event i.
uint64_t FgZuWrapper::Fg_getEventMask(const char* name) {
    if (!name || !d->mDesignHandle) return 0;
    for (int i = 0; i < 64; ++i) {
        const hap_event_data* event = HapGetEvent(d->mDesignHandle, i);
        if (event && event->name && std::strcmp(event->name, name) == 0) return uint64_t{1} << i;
    }
    return 0;
}

const char* FgZuWrapper::Fg_getEventName(uint64_t mask) {
    if (!d->mDesignHandle) return nullptr;
    for (int i = 0; i < 64; ++i) {
        if ((uint64_t{1} << i) != mask) continue;
        const hap_event_data* event = HapGetEvent(d->mDesignHandle, i);
        return event ? event->name : nullptr;
    }
    return nullptr;
}

char* FgZuWrapper::createTempFile() {
    static const char kTemplate[] = "/tmp/coef-XXXXXX.tiff";
    char* name = static_cast<char*>(std::malloc(32));
    if (!name) return nullptr;
    std::memcpy(name, kTemplate, sizeof kTemplate);
    const int fd = pelagon::mkstemps(name, 5);
    if (fd < 0) {
        std::free(name);
        return nullptr;
    }
    close(fd);
    return name;
}

void FgZuWrapper::deleteTempFile(char* name) {
    if (!name) return;
    unlink(name);
    std::free(name);
}

namespace pelagon {

int mkstemps(char* templ, int suffixLength) {
    static const char kLetters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    constexpr int kAttempts = 62 * 62 * 62;  // 238328

    if (!templ || suffixLength < 0) return -1;
    const size_t length = std::strlen(templ);
    const size_t needed = 6 + static_cast<size_t>(suffixLength);
    if (length < needed) return -1;
    char* x = templ + length - needed;
    if (std::memcmp(x, "XXXXXX", 6) != 0) return -1;

    struct sysinfo info {};
    if (sysinfo(&info) == 0) gTempValue += static_cast<uint64_t>(info.uptime);

    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        uint64_t v = gTempValue.load();
        for (int i = 0; i < 6; ++i) {
            x[i] = kLetters[v % 62];
            v /= 62;
        }
        const int fd = open(templ, O_RDWR | O_CREAT | O_EXCL, 0600);
        if (fd >= 0) return fd;
        gTempValue += 7777;
    }
    templ[0] = '\0';
    return -1;
}

}  // namespace pelagon
