// The applet library's exported functions that a host process calls, looked
// up by name in the loaded library. The process also has the runtime's own
// functions of the same names, so these must never be called by name.
#pragma once

#include <dlfcn.h>

#include "applet_info.h"
#include "fg_api.h"

namespace vboard {

#define VBOARD_APPLET_EXPORTS(X)                                                                           \
    X(Std_entry) X(Fg_FreeGrabber) X(Info) X(Fg_setParameterWithType) X(Fg_getParameterWithType)            \
    X(Fg_getParameterIdByName) X(Fg_saveConfig) X(Fg_loadConfig) X(Fg_getParameterInfoXML)                 \
    X(Fg_getEventMask) X(Fg_getEventName) X(Fg_getLastErrorNumber) X(Fg_getParameterInfo) X(Fg_AcquireEx) \
    X(Fg_stopAcquireEx) X(Fg_getLastPicNumberEx) X(Fg_getLastPicNumberBlockingEx) X(Fg_getStatusEx)

struct AppletExports {
#define VBOARD_DECLARE_EXPORT(name) decltype(&::name) name = nullptr;
    VBOARD_APPLET_EXPORTS(VBOARD_DECLARE_EXPORT)
#undef VBOARD_DECLARE_EXPORT
};

// Looks every export up in `library` (a dlopen handle); returns the name of
// the first one it lacks, or null when all were found.
inline const char* bindAppletExports(void* library, AppletExports& api) {
#define VBOARD_LOOKUP_EXPORT(name)                                                   \
    api.name = reinterpret_cast<decltype(&::name)>(dlsym(library, #name));           \
    if (!api.name) return #name;
    VBOARD_APPLET_EXPORTS(VBOARD_LOOKUP_EXPORT)
#undef VBOARD_LOOKUP_EXPORT
    return nullptr;
}

}  // namespace vboard
