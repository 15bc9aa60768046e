/* The frame grabber C interface shared by the runtime library (libfglib5.so)
 * and the applet library: the handle record, the opaque board, design, DMA and
 * shading types, and the functions both sides implement with one signature. */
#ifndef PELAGON_FG_API_H
#define PELAGON_FG_API_H

#include <stddef.h>
#include <stdint.h>

#include "fg_param_types.h"
#include "register_info.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct ZUdevice ZUdevice;         /* a board, owned by the runtime */
typedef struct fpga_design fpga_design;   /* a loaded design, owned by the design runtime */
typedef struct dma_mem dma_mem;           /* DMA memory, owned by the runtime */
typedef struct ShadingMaster ShadingMaster;
typedef struct Fg_Master Fg_Master;       /* the applet instance, opaque to the runtime */
typedef struct Fg_Struct Fg_Struct;

/* Runtime functions the applet binds by name; the member of Fg_Struct that
 * holds each one is DLL_ followed by the function's name. */
typedef int (*Fg_getAppletId_t)(Fg_Struct*, const char*);
typedef int (*Fg_setParameter_t)(Fg_Struct*, int, const void*, unsigned int);
typedef int (*Fg_setParameterWithType_t)(Fg_Struct*, int, const void*, unsigned int, int);
typedef int (*Fg_getParameter_t)(Fg_Struct*, int, void*, unsigned int);
typedef int (*Fg_getParameterWithType_t)(Fg_Struct*, int, void*, unsigned int, int);
typedef int (*Fg_saveConfig_t)(Fg_Struct*, const char*);
typedef int (*Fg_loadConfig_t)(Fg_Struct*, const char*);
typedef int (*Fg_Acquire_t)(Fg_Struct*, unsigned int, int64_t);
typedef int (*Fg_stopAcquire_t)(Fg_Struct*, unsigned int);
typedef int64_t (*Fg_getLastPicNumberBlockingEx_t)(Fg_Struct*, int64_t, unsigned int, int, dma_mem*);
typedef int64_t (*Fg_getLastPicNumberEx_t)(Fg_Struct*, unsigned int, dma_mem*);
typedef int (*Fg_FreeGrabber_t)(Fg_Struct*);
typedef int (*Fg_getLastErrorNumber_t)(Fg_Struct*);
typedef int64_t (*Fg_getStatusEx_t)(Fg_Struct*, int, int64_t, unsigned int, dma_mem*);
typedef int (*Fg_AcquireEx_t)(Fg_Struct*, unsigned int, int64_t, int, dma_mem*);
typedef int (*Fg_stopAcquireEx_t)(Fg_Struct*, unsigned int, dma_mem*, int);
typedef RegisterInfo* (*Fg_getParameterInfo_t)(Fg_Struct*, int);
typedef ShadingMaster* (*Fg_AllocShading_t)(Fg_Struct*, int, int);
typedef int (*Fg_FreeShading_t)(Fg_Struct*, ShadingMaster*);
typedef int (*Shad_SetSubValueLine_t)(Fg_Struct*, ShadingMaster*, int, int, float);
typedef int (*Shad_SetMultValueLine_t)(Fg_Struct*, ShadingMaster*, int, int, float);
typedef int (*Shad_SetFixedPatternNoiseLine_t)(Fg_Struct*, ShadingMaster*, int, int, int);
typedef int (*Shad_GetMaxLine_t)(Fg_Struct*, ShadingMaster*);
typedef int (*Shad_GetAccess_t)(Fg_Struct*, ShadingMaster*);
typedef int (*Shad_FreeAccess_t)(Fg_Struct*, ShadingMaster*);
typedef int (*Shad_WriteActLine_t)(Fg_Struct*, ShadingMaster*, int);
typedef int (*Fg_getParameterIdByName_t)(Fg_Struct*, const char*);
typedef Fg_Struct* (*Fg_InitHandleSlaveAware_t)(const char*, ZUdevice*, fpga_design*, int);
typedef Fg_Struct* (*Fg_InitHandle_t)(const char*, ZUdevice*, fpga_design*);

/* The functions bound into the handle record, in binding order. The list is
 * used to declare the members and to look the names up, so it is the only
 * place that names them. */
#define PELAGON_BOUND_RUNTIME_FUNCTIONS(X) \
    X(Fg_getAppletId)                      \
    X(Fg_setParameter)                     \
    X(Fg_setParameterWithType)             \
    X(Fg_getParameter)                     \
    X(Fg_getParameterWithType)             \
    X(Fg_saveConfig)                       \
    X(Fg_loadConfig)                       \
    X(Fg_Acquire)                          \
    X(Fg_stopAcquire)                      \
    X(Fg_getLastPicNumberBlockingEx)       \
    X(Fg_getLastPicNumberEx)               \
    X(Fg_FreeGrabber)                      \
    X(Fg_getLastErrorNumber)               \
    X(Fg_getStatusEx)                      \
    X(Fg_AcquireEx)                        \
    X(Fg_stopAcquireEx)                    \
    X(Fg_getParameterInfo)                 \
    X(Fg_AllocShading)                     \
    X(Fg_FreeShading)                      \
    X(Shad_SetSubValueLine)                \
    X(Shad_SetMultValueLine)               \
    X(Shad_SetFixedPatternNoiseLine)       \
    X(Shad_GetMaxLine)                     \
    X(Shad_GetAccess)                      \
    X(Shad_FreeAccess)                     \
    X(Shad_WriteActLine)

/* The runtime's frame grabber handle. `Master` is the applet instance that
 * the runtime created through Std_entry; the DLL_ members are the runtime
 * functions as bound by name (null where the runtime lacks one). */
struct Fg_Struct {
    Fg_Master* Master;
#define PELAGON_DECLARE_BOUND_MEMBER(name) name##_t DLL_##name;
    PELAGON_BOUND_RUNTIME_FUNCTIONS(PELAGON_DECLARE_BOUND_MEMBER)
#undef PELAGON_DECLARE_BOUND_MEMBER
};

/* Functions with one signature on both sides of the interface. A value type
 * argument is a plain int holding an FgParamTypes code: callers may pass any
 * int, and each side refuses the codes it does not know. */
int Fg_getAppletId(Fg_Struct* fg, const char* ignored);
int Fg_setParameter(Fg_Struct* fg, int id, const void* value, unsigned int dma);
int Fg_setParameterWithType(Fg_Struct* fg, int id, const void* value, unsigned int dma, int type);
int Fg_getParameter(Fg_Struct* fg, int id, void* value, unsigned int dma);
int Fg_getParameterWithType(Fg_Struct* fg, int id, void* value, unsigned int dma, int type);
int Fg_saveConfig(Fg_Struct* fg, const char* fileName);
int Fg_loadConfig(Fg_Struct* fg, const char* fileName);
int Fg_Acquire(Fg_Struct* fg, unsigned int dma, int64_t count);
int Fg_stopAcquire(Fg_Struct* fg, unsigned int dma);
int64_t Fg_getLastPicNumberBlockingEx(Fg_Struct* fg, int64_t picNr, unsigned int dma, int timeout, dma_mem* mem);
int64_t Fg_getLastPicNumberEx(Fg_Struct* fg, unsigned int dma, dma_mem* mem);
int Fg_FreeGrabber(Fg_Struct* fg);
int Fg_getLastErrorNumber(Fg_Struct* fg);
int64_t Fg_getStatusEx(Fg_Struct* fg, int param, int64_t data, unsigned int dma, dma_mem* mem);
int Fg_AcquireEx(Fg_Struct* fg, unsigned int dma, int64_t count, int flag, dma_mem* mem);
int Fg_stopAcquireEx(Fg_Struct* fg, unsigned int dma, dma_mem* mem, int flag);
RegisterInfo* Fg_getParameterInfo(Fg_Struct* fg, int port);
ShadingMaster* Fg_AllocShading(Fg_Struct* fg, int set, int port);
int Fg_FreeShading(Fg_Struct* fg, ShadingMaster* state);
int Shad_SetSubValueLine(Fg_Struct* fg, ShadingMaster* state, int x, int channel, float sub);
int Shad_SetMultValueLine(Fg_Struct* fg, ShadingMaster* state, int x, int channel, float mult);
int Shad_SetFixedPatternNoiseLine(Fg_Struct* fg, ShadingMaster* state, int x, int channel, int on);
int Shad_GetMaxLine(Fg_Struct* fg, ShadingMaster* state);
int Shad_GetAccess(Fg_Struct* fg, ShadingMaster* state);
int Shad_FreeAccess(Fg_Struct* fg, ShadingMaster* state);
int Shad_WriteActLine(Fg_Struct* fg, ShadingMaster* state, int line);
int Fg_getParameterIdByName(Fg_Struct* fg, const char* name);
uint64_t Fg_getEventMask(Fg_Struct* fg, const char* name);
const char* Fg_getEventName(Fg_Struct* fg, uint64_t mask);
int Fg_getNrOfParameter(Fg_Struct* fg);
const char* Fg_getParameterName(Fg_Struct* fg, int index);
int Fg_getParameterId(Fg_Struct* fg, int index);
int Fg_getParameterInfoXML(Fg_Struct* fg, int port, char* infoBuffer, size_t* infoBufferSize);

/* Runtime only: create the runtime's own handle for a design on a board. */
Fg_Struct* Fg_InitHandleSlaveAware(const char* designName, ZUdevice* board, fpga_design* design, int flags);
Fg_Struct* Fg_InitHandle(const char* designName, ZUdevice* board, fpga_design* design);

/* Applet only: create and end the applet instance for a board. */
Fg_Master* Std_entry(ZUdevice* board, int* error, int flags);

/* Runtime-level parameter ids that the applet forwards to the runtime. */
enum {
    FG_RT_TIMEOUT = 600,
    FG_RT_APC_STOP_TIMEOUT = 601,
    FG_RT_NR_OF_DMAS = 3050,
    FG_RT_NR_OF_CAMS = 3060,
    FG_RT_NR_OF_PROCESSES = 3070,
    FG_RT_DMA_PORT = 3080,
    FG_RT_CAM_PORT = 3090,
    FG_RT_TRANSFER_LEN = 5210,
    FG_RT_DMASTATUS = 24092
};

#ifdef __cplusplus
}
#endif

#endif
