// Applet-independent base of the applet instance: binds the frame grabber
// runtime by name, hands the design to it, keeps the board and design
// handles, the parameter-info registry and the last error, and offers the
// pass-through to the runtime's own parameters. Everything applet-specific is
// a virtual operation that the applet class overrides.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <type_traits>

#include "fg_api.h"
#include "parameterInfo.h"

class Fg_ConfigFileParser;
class Fg_Error;
struct FgZuWrapperPrivate;

class FgZuWrapper {
public:
    FgZuWrapper();
    FgZuWrapper(const FgZuWrapper&) = delete;
    FgZuWrapper& operator=(const FgZuWrapper&) = delete;

    // Virtual operations, in the order the runtime-facing code relies on.
    virtual bool loadConfig(Fg_ConfigFileParser& parser) = 0;
    virtual bool saveConfig(Fg_ConfigFileParser& parser) = 0;
    virtual int processChannelToDma(int process, int channel) = 0;
    virtual int mapDmaToFormat(int dma) = 0;
    virtual int setDmaAlignment(int dma, int alignment) = 0;
    virtual int getDmaAlignment(int dma) = 0;
    // May throw: a parameter lock still held at destruction is a logic error.
    virtual ~FgZuWrapper() noexcept(false);
    virtual void createUserParameters() = 0;
    // `type` is an FgParamTypes code as the caller passed it, possibly none of them.
    virtual int Fg_setParameterWithType(int id, const void* value, int dma, int type) = 0;
    virtual int Fg_getParameterWithType(int id, void* value, int dma, int type) = 0;
    virtual int Fg_getParameterIdByName(const char* name) = 0;
    virtual const char* Fg_getParameterName(int index) = 0;
    virtual int Fg_getParameterId(int index) = 0;
    virtual int Fg_getParameterCount() = 0;
    virtual int Fg_saveConfig(Fg_Struct* fg, const char* fileName);
    virtual int Fg_loadConfig(Fg_Struct* fg, const char* fileName);
    virtual int Fg_getParameterInfoXML(Fg_Struct* fg, int port, char* infoBuffer, size_t* infoBufferSize);
    virtual ShadingMaster* Fg_AllocShading(int set, int port);
    virtual int Fg_FreeShading(ShadingMaster* state);
    virtual int Shad_SetSubValueLine(ShadingMaster* state, int x, int channel, float sub);
    virtual int Shad_SetMultValueLine(ShadingMaster* state, int x, int channel, float mult);
    virtual int Shad_SetFixedPatternNoiseLine(ShadingMaster* state, int x, int channel, int on);
    virtual int Shad_GetMaxLine(ShadingMaster* state);
    virtual int Shad_GetAccess(ShadingMaster* state);
    virtual int Shad_FreeAccess(ShadingMaster* state);
    virtual int Shad_WriteActLine(ShadingMaster* state, int line);
    virtual uint64_t Fg_getEventMask(const char* name);
    virtual const char* Fg_getEventName(uint64_t mask);
    virtual const char* getManufacturer() = 0;
    virtual const char* getCameraType() = 0;
    virtual const char* getCameraVersion() = 0;
    virtual int getAppletID() = 0;

    // Runtime binding and the design hand-over.
    int initializeDllFunctions(const char* libraryName);
    int runFgInit(const char* designName, ZUdevice* board, fpga_design* design, int flags);
    void initHandles(ZUdevice* board, fpga_design* design);

    fpga_design* designHandle() const;
    ZUdevice* boardHandle() const;
    Fg_Error* fgError() const;
    Fg_ParameterInfo* parameterInfo() const;
    Fg_Struct* wrapperFg() const;  // the table of bound runtime functions
    Fg_Struct* fglibFg() const;    // the runtime's inner handle

    // Process-wide slots of the last board and design handed to the runtime:
    // a non-null argument stores, null reads.
    static ZUdevice* accessDeviceHandle(ZUdevice* board);
    static fpga_design* accessDesignHandle(fpga_design* design);

    // The runtime's typed and untyped parameter calls on the inner handle.
    // Missing runtime function or inner handle: -12.
    int getParameterIdByName(const char* name);
    int getUnwrappedParameterWithType(int id, void* value, unsigned int dma, int type);
    int setUnwrappedParameterWithType(int id, const void* value, unsigned int dma, int type);
    int getUnwrappedParameter(int id, void* value, unsigned int dma);
    int setUnwrappedParameter(int id, const void* value, unsigned int dma);
    RegisterInfo* getUnwrappedParameterInfo();

    // Copy between an array cache and the caller's field record. The cache is
    // passed as the array it is, so that its element type and size are known
    // here: a range record moves elements only when its `vtype` names that
    // element type (32-bit caches: signed or unsigned 32-bit; double caches:
    // double) and the range lies inside the cache; single-element records
    // exist only for their own element type. Anything else, or a null record
    // or array, moves nothing and answers false. The parameter's setter
    // checks bounds and types first and reports them; this is the last guard.
    template <typename Element, size_t N>
        requires std::is_same_v<Element, uint32_t> || std::is_same_v<Element, double>
    static bool setFieldCache(Element (&cache)[N], const FieldParameterAccess* field) {
        return copyField(cache, sizeof(Element), N, field, true);
    }
    template <typename Element, size_t N>
        requires std::is_same_v<Element, uint32_t> || std::is_same_v<Element, double>
    static bool getFieldCache(const Element (&cache)[N], FieldParameterAccess* field) {
        return copyField(const_cast<Element*>(cache), sizeof(Element), N, field, false);
    }
    // FieldParameterInt_s with 32-bit caches, FieldParameterDouble_s with double caches.
    template <typename Single, typename Element, size_t N>
        requires std::is_same_v<decltype(Single::value), Element>
    static bool setFieldCache(Element (&cache)[N], const Single* field) {
        if (!field || field->index >= N) return false;
        cache[field->index] = field->value;
        return true;
    }
    template <typename Single, typename Element, size_t N>
        requires std::is_same_v<decltype(Single::value), Element>
    static bool getFieldCache(const Element (&cache)[N], Single* field) {
        if (!field || field->index >= N) return false;
        field->value = cache[field->index];
        return true;
    }

    // The element type code of a range record as the plain integer a C caller
    // stored there: any int may arrive, so it is never read as an enum value.
    static int32_t elementType(const FieldParameterAccess& field);
    // Whether `type` is one of the FgParamTypes codes.
    static bool knownTypeCode(int32_t type);
    // Whether a single-element access with type argument `type` may use a
    // record of type Single: any type selects the single element, but a type
    // that names the record of another element type (a 64-bit integer or
    // double element where 32 bits are held, say) is refused, since its record
    // has another layout.
    template <typename Single>
    static bool singleRecordFits(int32_t type) {
        const bool namesRecord = type == FG_PARAM_TYPE_STRUCT_FIELDPARAMINT ||
                                 type == FG_PARAM_TYPE_STRUCT_FIELDPARAMINT64 ||
                                 type == FG_PARAM_TYPE_STRUCT_FIELDPARAMDOUBLE;
        const int32_t own = std::is_same_v<Single, FieldParameterDouble_s> ? FG_PARAM_TYPE_STRUCT_FIELDPARAMDOUBLE
                                                                             : FG_PARAM_TYPE_STRUCT_FIELDPARAMINT;
        return !namesRecord || type == own;
    }

    // The registry's record for `port` (head of its top-level list).
    RegisterInfo* Fg_getParameterInfo(int port);

    int Fg_getLastErrorNumber() const;
    int setError(int code);
    // The runtime's own last error on the inner handle; -12 when it cannot be asked.
    int Fg_getLastErrorNumberZu();

    // A new empty file "/tmp/coef-XXXXXX.tiff"; the caller owns the returned
    // name (free it with deleteTempFile). Null when no file could be made.
    static char* createTempFile();
    static void deleteTempFile(char* name);

    std::map<int, std::map<int, RegisterInfo*>> register_info_map;
    bool draEnabled = false;

protected:
    FgZuWrapperPrivate* d;

private:
    // Moves a range between the caller's array and a cache of `size`
    // elements of `elementSize` bytes (4: 32-bit integers, 8: doubles).
    static bool copyField(void* cache, size_t elementSize, size_t size, const FieldParameterAccess* field,
                          bool intoCache);
};

namespace pelagon {
// Creates a unique file from `templ`, whose last `suffixLength` characters are
// kept and the six before them must be "XXXXXX". Returns the open descriptor,
// or -1 (the template's first character is then cleared on exhaustion).
// Our own, so that the names do not depend on the C library's generator.
int mkstemps(char* templ, int suffixLength);
}  // namespace pelagon
