// One applet instance on one virtual board for the whole fuzzing process,
// created the way the frame grabber runtime creates it: libPelagon.so loaded
// by path, Std_entry on a new board, the instance in the Master member of a
// handle record. Creating an instance programs the whole design, far too slow
// to repeat per input, so every input works on the state the earlier ones
// left behind (which is what a long-running application does too).
#pragma once

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

#include "fg_api.h"
#include "vboard/applet_exports.h"
#include "vboard/vboard.h"

struct FuzzApplet : vboard::AppletExports {
    ZUdevice* board = nullptr;
    Fg_Struct* fg = nullptr;

    // The process's instance; the process ends when it cannot be made.
    static FuzzApplet& get() {
        static FuzzApplet* applet = make();
        return *applet;
    }

    // The board keeps a journal of every register write; a fuzzing run
    // writes millions, which nobody reads here.
    void forgetWrites() { vboard::clearJournal(board); }

private:
    [[noreturn]] static void die(const char* what) {
        std::fprintf(stderr, "fuzz: cannot set up the applet instance: %s\n", what);
        std::exit(2);
    }
    static FuzzApplet* make() {
        void* library = dlopen(PELAGON_APPLET_PATH, RTLD_NOW | RTLD_LOCAL);
        if (!library) die(dlerror());
        auto* a = new FuzzApplet;
        if (const char* missing = vboard::bindAppletExports(library, *a)) die(missing);
        a->board = vboard::createBoard();
        a->fg = static_cast<Fg_Struct*>(std::calloc(1, sizeof(Fg_Struct)));
        int error = 0;
        a->fg->Master = a->Std_entry(a->board, &error, 0);
        if (!a->fg->Master) die("Std_entry refused");
        return a;
    }
};
