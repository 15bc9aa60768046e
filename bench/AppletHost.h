// The applet as a runtime sees it: the library loaded by a virtual board's
// grabber on a new board, and its exported functions.
#pragma once

#include "vboard/grabber.h"

struct Host {
    vboard::Grabber grabber{PELAGON_APPLET_PATH};
    const vboard::AppletExports& api = grabber.exports();
    Fg_Struct* fg = grabber.handle();
};
