// The applet as a runtime sees it: the library loaded by a virtual board's
// grabber, and its exported functions looked up by name.
#pragma once

#include <dlfcn.h>

#include <stdexcept>

#include "applet_info.h"
#include "fg_api.h"
#include "vboard/grabber.h"

// The applet's exports, from the library the grabber has loaded.
struct Exports {
    Exports() : library(dlopen(PELAGON_APPLET_PATH, RTLD_NOW | RTLD_NOLOAD)) {
        if (!library) throw std::runtime_error("the applet library is not loaded");
        set = reinterpret_cast<decltype(set)>(dlsym(library, "Fg_setParameterWithType"));
        get = reinterpret_cast<decltype(get)>(dlsym(library, "Fg_getParameterWithType"));
        entry = reinterpret_cast<decltype(entry)>(dlsym(library, "Std_entry"));
        freeGrabber = reinterpret_cast<decltype(freeGrabber)>(dlsym(library, "Fg_FreeGrabber"));
        xml = reinterpret_cast<decltype(xml)>(dlsym(library, "Fg_getParameterInfoXML"));
        save = reinterpret_cast<decltype(save)>(dlsym(library, "Fg_saveConfig"));
        load = reinterpret_cast<decltype(load)>(dlsym(library, "Fg_loadConfig"));
    }
    ~Exports() { dlclose(library); }
    void* library;
    decltype(&::Fg_setParameterWithType) set = nullptr;
    decltype(&::Fg_getParameterWithType) get = nullptr;
    decltype(&::Std_entry) entry = nullptr;
    decltype(&::Fg_FreeGrabber) freeGrabber = nullptr;
    decltype(&::Fg_getParameterInfoXML) xml = nullptr;
    decltype(&::Fg_saveConfig) save = nullptr;
    decltype(&::Fg_loadConfig) load = nullptr;
};

// A grabber with the applet on a new virtual board, and the applet's exports.
struct Host {
    vboard::Grabber grabber{PELAGON_APPLET_PATH};
    Exports api;
    Fg_Struct* fg = grabber.handle();
};
