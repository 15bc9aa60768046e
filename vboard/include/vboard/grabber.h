// The application side of the virtual board: what a program (a test, the
// command-line tool, a demonstration) uses to run an applet library the way a
// frame grabber runtime runs it on a real board, and to acquire images.
//
//   vboard::Grabber grabber("build/default/lib/libPelagon.so");
//   grabber.set("FG_CAMERASIMULATOR_ENABLE", "FG_CAMERASIMULATOR");  // by text
//   grabber.set<uint32_t>(grabber.id("FG_FORMAT"), 2);                // typed
//   grabber.allocateBuffers(4);            // 4 buffers of the current frame size
//   grabber.start();                       // until stop()
//   int64_t n = grabber.waitForFrame(1, std::chrono::seconds(2));
//   vboard::Frame f = grabber.frame(n);    // bytes with width, height, format
//   grabber.stop();
//
// Every failure throws vboard::Error: its message says what was attempted and,
// where the applet or the runtime refused, the error number and its meaning;
// code() is that number (0 for failures of the host itself, such as a library
// that does not load). Calls on one Grabber may come from several threads:
// parameter calls are serialised by the applet, and waitForFrame may block
// while another thread calls stop(), which wakes it.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fg_api.h"
#include "vboard/applet_exports.h"
#include "vboard/vboard.h"

namespace vboard {

// The meaning of an error number of the applet or the runtime, in words
// ("unknown error" for numbers neither uses).
VBOARD_API std::string errorText(int code);

// The applet library to load when the caller names none: $PELAGON_APPLET when
// set and not empty; else, relative to the folder of the loaded
// libpelagon_grabber.so, pelagon/applets/libPelagon.so when it exists (the
// installed layout); else libPelagon.so in that folder (a build tree, where
// every library lands in build/<preset>/lib). The result need not exist:
// Grabber's constructor says so when it does not load.
VBOARD_API std::string defaultAppletPath();

// One parameter as the applet publishes it (the records of port 0).
struct ParameterInfo {
    int id = 0;
    std::string name;         // SDK name, as FG_WIDTH
    std::string displayName;  // as "Width"
    std::string group;        // the groups it sits in, outermost first, joined by " / "
    REG_FORMAT format = REG_FORMAT_UINT;
    int access = 0;           // REG_ACCESS_READ | REG_ACCESS_WRITE | REG_ACCESS_CHANGE
    std::string unit;
    // Limits of numeric parameters (0 where the format has none).
    double minimum = 0, maximum = 0, step = 0;
    unsigned elements = 0;  // field parameters: how many elements they hold
    struct Entry {
        std::string displayName;
        std::string symbol;  // as FG_COL48; may be empty
        int32_t value = 0;
    };
    std::vector<Entry> entries;  // enumerations only

    bool writable() const { return (access & REG_ACCESS_WRITE) != 0; }
};

struct Frame {
    FrameInfo info;
    std::vector<uint8_t> bytes;  // info.bytes of them; layout as FrameInfo::format says
};

class VBOARD_API Grabber {
public:
    // Loads the applet library (dlopen by path), asks its information query
    // for the board type, creates a virtual board and an applet instance on
    // it through Std_entry, and keeps the instance in the handle's Master.
    explicit Grabber(const std::string& appletPath, int flags = 0);
    // Stops a running acquisition, ends the instance (Fg_FreeGrabber), frees
    // the frame memory and the board, and unloads the library, in that order.
    ~Grabber();
    Grabber(const Grabber&) = delete;
    Grabber& operator=(const Grabber&) = delete;

    // The applet's information query (Info): its result; out1/out2 receive
    // the answers that come through pointers. Negative results throw.
    int64_t info(int code, uint64_t* out1 = nullptr, uint64_t* out2 = nullptr) const;

    // --- Parameters -------------------------------------------------------
    // Ids and names: the applet's own, and the design's registers where the
    // applet offers them. Unknown names or ids throw.
    int id(const std::string& name) const;
    std::string name(int id) const;
    std::vector<ParameterInfo> parameters() const;
    ParameterInfo parameter(int id) const;

    // Typed access, for T = int32_t, uint32_t, int64_t, uint64_t, double and
    // std::string (FG_PARAM_TYPE_CHAR_PTR).
    template <typename T>
    void set(int id, const T& value);
    template <typename T>
    T get(int id) const;
    // Elements of field parameters (the lookup tables, for instance).
    void setField(int id, unsigned index, const std::vector<uint32_t>& values);
    std::vector<uint32_t> getField(int id, unsigned index, unsigned count) const;
    std::vector<double> getDoubleField(int id, unsigned index, unsigned count) const;

    // Access by text, in the parameter's own type: numbers for numeric
    // parameters, for enumerations also the symbol ("FG_COL48") or the display
    // name ("Color 48bit"), strings as they are. Malformed text throws
    // without touching the applet.
    void set(const std::string& name, const std::string& text);
    void setText(int id, const std::string& text);
    // The current value as text; enumerations as their symbol where they
    // have one.
    std::string getText(int id) const;

    void saveConfig(const std::string& path);
    void loadConfig(const std::string& path);
    std::string xml(int port = 0) const;  // the GenICam description
    uint64_t eventMask(const std::string& name) const;
    std::string eventName(uint64_t mask) const;
    int lastError() const;  // the applet's last error of this instance

    // --- Acquisition --------------------------------------------------------
    // Frame memory for the next start: `count` buffers of `bytes` each
    // (0: the size of a frame as the board is programmed now). Replaces the
    // previous memory; refused while acquiring.
    void allocateBuffers(unsigned count, std::size_t bytes = 0);
    unsigned bufferCount() const;
    std::size_t bufferBytes() const;
    // Starts acquiring into the buffers (Fg_AcquireEx through the applet);
    // `frames` > 0 ends the acquisition after that many frames, otherwise it
    // runs until stop(). Without buffers, buffers for 4 frames are allocated.
    void start(int64_t frames = 0);
    // Stops (Fg_stopAcquireEx); nothing happens when not acquiring.
    void stop();
    bool acquiring() const;
    // Frames delivered since the start (Fg_getLastPicNumberEx).
    int64_t lastFrame() const;
    int64_t lostFrames() const;
    // Waits until frame n (counted from 1) has arrived and returns the newest
    // frame number (Fg_getLastPicNumberBlockingEx). Throws Error with code
    // PGN_ERR_TIMEOUT (-2120) when the time runs out or the acquisition stops first.
    int64_t waitForFrame(int64_t n, std::chrono::milliseconds timeout);
    // A copy of frame n, taken while its buffer still holds it (n > count of
    // buffers frames ago is overwritten and throws).
    Frame frame(int64_t n) const;

    // --- Underneath -------------------------------------------------------
    ZUdevice* board() const;    // for vboard::peek and vboard::poke
    Fg_Struct* handle() const;  // the handle whose Master is the instance
    const AppletExports& exports() const;  // the applet's functions, from its library
    dma_mem* memory() const;    // null before allocateBuffers/start

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace vboard
