// The C interface of the applet library: creating and ending an instance,
// and the functions the runtime calls with its handle, which find the
// instance in the handle's Master member.
#include <cstdlib>
#include <vector>

#include "AppletConstants.h"
#include "EmbeddedResources.h"
#include "FgZuWrapperImpl.h"
#include "hap_runtime.h"
#include "pelagon_errors.h"

#define PELAGON_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

constexpr int kCameraSimulatorPixelFrequencyId = 30106;

// Instances whose design could not be loaded are kept, never freed: the
// runtime gets no handle for them, and they stay reachable here.
std::vector<FgZuWrapperImpl*>& keptInstances() {
    // Never destroyed, so the kept instances stay reachable even at exit.
    static auto* kept = new std::vector<FgZuWrapperImpl*>;
    return *kept;
}

FgZuWrapperImpl* instance(Fg_Struct* fg) {
    return fg ? static_cast<FgZuWrapperImpl*>(reinterpret_cast<FgZuWrapper*>(fg->Master)) : nullptr;
}

// Runtime forwarders: the runtime's own implementation on its inner handle.
template <typename Result, typename Fn, typename... Args>
Result forward(Fg_Struct* fg, Fn Fg_Struct::*member, Args... args) {
    FgZuWrapperImpl* w = instance(fg);
    if (!w) return PGN_ERR_NO_INSTANCE;
    Fn fn = w->wrapperFg()->*member;
    if (!fn || !w->fglibFg()) return w->setError(PGN_ERR_READ_ONLY);
    const Result result = fn(w->fglibFg(), args...);
    w->setError(result >= 0 ? 0 : w->Fg_getLastErrorNumberZu());
    return result;
}

// Shading forwarders: the instance answers and the answer is recorded.
template <typename Op, typename... Args>
int shading(Fg_Struct* fg, Op op, Args... args) {
    FgZuWrapperImpl* w = instance(fg);
    if (!w) return PGN_ERR_NO_INSTANCE;
    return w->setError((w->*op)(args...));
}

}  // namespace

PELAGON_EXPORT Fg_Master* Std_entry(ZUdevice* board, int* error, int flags) {
    int local = 0;
    int& result = error ? *error : local;
    if (flags & 1) {
        result = PGN_ERR_INVALID_ARGUMENT;
        return nullptr;
    }

    auto* w = new FgZuWrapperImpl;
    result = w->initializeDllFunctions("libfglib5.so");
    if (result != 0) {
        delete w;
        return nullptr;
    }

    fpga_design* design = std::getenv("__QUOR_FORCE_EXTERNAL_HAP")
                              ? HapLoadHapFileWithType(pelagon::kDesignFileName, pelagon::kBoardType, 1)
                              : HapLoadDesignFromBuffer(pelagon_design_image, pelagonDesignImageSize(), 1);
    if (!design) {
        // The instance is deliberately left allocated on this path.
        keptInstances().push_back(w);
        result = PGN_ERR_DESIGN_NOT_LOADED;
        return nullptr;
    }

    result = w->runFgInit(pelagon::kDesignFileName, board, design, flags);
    if (result != 0) {
        HapUnloadHapFile(design);
        delete w;
        return nullptr;
    }

    w->initHandles(board, design);
    w->initInternalMaps();
    w->retrieveIds();
    w->createUserParameters();

    w->used_width_P0 = 1024;
    w->used_line_gap_P0 = 0;
    w->used_height_P0 = 1024;
    w->used_frame_gap_P0 = 0;
    w->max_pixelFrequency_P0 = 1.5e9;
    try {
        RegisterInfo*& record = w->register_info_map[0][kCameraSimulatorPixelFrequencyId];
        if (record) record->u.dReg.to = w->max_pixelFrequency_P0 / 1e6;
        w->used_framerate_P0 = 10.0;
        w->previousBayer_P0 = 2;
        // A defined trigger state before anything else: no output shows a
        // pulse while the generator is held, then the outputs show their
        // cached selections.
        w->triggerOutputsEnable_P0(false);
        w->triggerGeneratorEnable_P0(false);
        w->triggerOutputsEnable_P0(true);
    } catch (...) {
        // Creation goes on with whatever state the set-up reached.
    }
    // Every parameter's default is programmed into the design. Bit 0 was
    // refused above, so this always runs; the test stays for callers that
    // may one day pass it on.
    if (!(flags & 1)) w->setDefaultValues();
    return reinterpret_cast<Fg_Master*>(static_cast<FgZuWrapper*>(w));
}

PELAGON_EXPORT int Fg_FreeGrabber(Fg_Struct* fg) {
    FgZuWrapperImpl* w = instance(fg);
    if (!w) return PGN_ERR_NO_INSTANCE;
    int result = 0;
    if (Fg_FreeGrabber_t freeInner = w->wrapperFg()->DLL_Fg_FreeGrabber) result = freeInner(w->fglibFg());
    delete w;
    fg->Master = nullptr;
    return result;
}

PELAGON_EXPORT int Fg_setParameterWithType(Fg_Struct* fg, int id, const void* value, unsigned int dma, int type) {
    FgZuWrapperImpl* w = instance(fg);
    return w ? w->Fg_setParameterWithType(id, value, static_cast<int>(dma), type) : PGN_ERR_NO_INSTANCE;
}

PELAGON_EXPORT int Fg_getParameterWithType(Fg_Struct* fg, int id, void* value, unsigned int dma, int type) {
    FgZuWrapperImpl* w = instance(fg);
    if (!w) return PGN_ERR_NO_INSTANCE;
    // A 32-bit parameter read into a 64-bit destination leaves its upper half 0.
    if ((type == FG_PARAM_TYPE_INT64_T || type == FG_PARAM_TYPE_UINT64_T) && value)
        *static_cast<uint64_t*>(value) = 0;
    return w->Fg_getParameterWithType(id, value, static_cast<int>(dma), type);
}

PELAGON_EXPORT int Fg_setParameter(Fg_Struct* fg, int id, const void* value, unsigned int dma) {
    return Fg_setParameterWithType(fg, id, value, dma, FG_PARAM_TYPE_AUTO);
}

PELAGON_EXPORT int Fg_getParameter(Fg_Struct* fg, int id, void* value, unsigned int dma) {
    return Fg_getParameterWithType(fg, id, value, dma, FG_PARAM_TYPE_AUTO);
}

PELAGON_EXPORT int Fg_getNrOfParameter(Fg_Struct* fg) {
    FgZuWrapperImpl* w = instance(fg);
    return w ? w->Fg_getParameterCount() : PGN_ERR_NO_INSTANCE;
}

PELAGON_EXPORT const char* Fg_getParameterName(Fg_Struct* fg, int index) {
    FgZuWrapperImpl* w = instance(fg);
    return w ? w->Fg_getParameterName(index) : nullptr;
}

PELAGON_EXPORT int Fg_getParameterId(Fg_Struct* fg, int index) {
    FgZuWrapperImpl* w = instance(fg);
    return w ? w->Fg_getParameterId(index) : PGN_ERR_NO_INSTANCE;
}

PELAGON_EXPORT int Fg_getParameterIdByName(Fg_Struct* fg, const char* name) {
    FgZuWrapperImpl* w = instance(fg);
    return w ? w->Fg_getParameterIdByName(name) : PGN_ERR_NO_INSTANCE;
}

PELAGON_EXPORT int Fg_saveConfig(Fg_Struct* fg, const char* fileName) {
    FgZuWrapperImpl* w = instance(fg);
    return w ? w->Fg_saveConfig(w->fglibFg(), fileName) : PGN_ERR_NO_INSTANCE;
}

PELAGON_EXPORT int Fg_loadConfig(Fg_Struct* fg, const char* fileName) {
    FgZuWrapperImpl* w = instance(fg);
    return w ? w->Fg_loadConfig(w->fglibFg(), fileName) : PGN_ERR_NO_INSTANCE;
}

PELAGON_EXPORT int Fg_getParameterInfoXML(Fg_Struct* fg, int port, char* infoBuffer, size_t* infoBufferSize) {
    FgZuWrapperImpl* w = instance(fg);
    return w ? w->Fg_getParameterInfoXML(fg, port, infoBuffer, infoBufferSize) : PGN_ERR_NO_INSTANCE;
}

PELAGON_EXPORT uint64_t Fg_getEventMask(Fg_Struct* fg, const char* name) {
    FgZuWrapperImpl* w = instance(fg);
    return w ? w->Fg_getEventMask(name) : 0;
}

PELAGON_EXPORT const char* Fg_getEventName(Fg_Struct* fg, uint64_t mask) {
    FgZuWrapperImpl* w = instance(fg);
    return w ? w->Fg_getEventName(mask) : nullptr;
}

PELAGON_EXPORT int Fg_getLastErrorNumber(Fg_Struct* fg) {
    FgZuWrapperImpl* w = instance(fg);
    return w ? w->Fg_getLastErrorNumber() : PGN_ERR_NO_INSTANCE;
}

PELAGON_EXPORT RegisterInfo* Fg_getParameterInfo(Fg_Struct* fg, int port) {
    FgZuWrapperImpl* w = instance(fg);
    if (!w || !w->wrapperFg()->DLL_Fg_getParameterInfo || !w->fglibFg()) return nullptr;
    return w->Fg_getParameterInfo(port);
}

PELAGON_EXPORT ShadingMaster* Fg_AllocShading(Fg_Struct* fg, int set, int port) {
    FgZuWrapperImpl* w = instance(fg);
    return w ? w->Fg_AllocShading(set, port) : nullptr;
}

PELAGON_EXPORT int Fg_FreeShading(Fg_Struct* fg, ShadingMaster* state) {
    return shading(fg, &FgZuWrapper::Fg_FreeShading, state);
}
PELAGON_EXPORT int Shad_SetSubValueLine(Fg_Struct* fg, ShadingMaster* state, int x, int channel, float sub) {
    return shading(fg, &FgZuWrapper::Shad_SetSubValueLine, state, x, channel, sub);
}
PELAGON_EXPORT int Shad_SetMultValueLine(Fg_Struct* fg, ShadingMaster* state, int x, int channel, float mult) {
    return shading(fg, &FgZuWrapper::Shad_SetMultValueLine, state, x, channel, mult);
}
PELAGON_EXPORT int Shad_SetFixedPatternNoiseLine(Fg_Struct* fg, ShadingMaster* state, int x, int channel, int on) {
    return shading(fg, &FgZuWrapper::Shad_SetFixedPatternNoiseLine, state, x, channel, on);
}
PELAGON_EXPORT int Shad_GetMaxLine(Fg_Struct* fg, ShadingMaster* state) {
    return shading(fg, &FgZuWrapper::Shad_GetMaxLine, state);
}
PELAGON_EXPORT int Shad_GetAccess(Fg_Struct* fg, ShadingMaster* state) {
    return shading(fg, &FgZuWrapper::Shad_GetAccess, state);
}
PELAGON_EXPORT int Shad_FreeAccess(Fg_Struct* fg, ShadingMaster* state) {
    return shading(fg, &FgZuWrapper::Shad_FreeAccess, state);
}
PELAGON_EXPORT int Shad_WriteActLine(Fg_Struct* fg, ShadingMaster* state, int line) {
    return shading(fg, &FgZuWrapper::Shad_WriteActLine, state, line);
}

PELAGON_EXPORT int Fg_getAppletId(Fg_Struct* fg, const char* ignored) {
    return forward<int>(fg, &Fg_Struct::DLL_Fg_getAppletId, ignored);
}
PELAGON_EXPORT int64_t Fg_getStatusEx(Fg_Struct* fg, int param, int64_t data, unsigned int dma, dma_mem* mem) {
    return forward<int64_t>(fg, &Fg_Struct::DLL_Fg_getStatusEx, param, data, dma, mem);
}
PELAGON_EXPORT int Fg_AcquireEx(Fg_Struct* fg, unsigned int dma, int64_t count, int flag, dma_mem* mem) {
    return forward<int>(fg, &Fg_Struct::DLL_Fg_AcquireEx, dma, count, flag, mem);
}
PELAGON_EXPORT int Fg_stopAcquireEx(Fg_Struct* fg, unsigned int dma, dma_mem* mem, int flag) {
    return forward<int>(fg, &Fg_Struct::DLL_Fg_stopAcquireEx, dma, mem, flag);
}
PELAGON_EXPORT int64_t Fg_getLastPicNumberEx(Fg_Struct* fg, unsigned int dma, dma_mem* mem) {
    return forward<int64_t>(fg, &Fg_Struct::DLL_Fg_getLastPicNumberEx, dma, mem);
}
PELAGON_EXPORT int64_t Fg_getLastPicNumberBlockingEx(Fg_Struct* fg, int64_t picNr, unsigned int dma, int timeout,
                                                     dma_mem* mem) {
    return forward<int64_t>(fg, &Fg_Struct::DLL_Fg_getLastPicNumberBlockingEx, picNr, dma, timeout, mem);
}
