// Acquiring frames into PNG files and sending software trigger pulses, with
// the checks a board without a camera or trigger input needs: frames come
// only from the camera simulator, and a simulator that waits for trigger
// edges gets them only while the trigger system runs.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "session.h"

namespace pelagon_tool {

// How frames go to standard output (-o -).
enum class StreamFormat { Ppm, Raw };

struct AcquireOptions {
    int frames = 1;
    // Where the frames go: a folder (frame-NNNN.png in it), a file name with
    // a number in printf style (shots/img-%05d.png), one .png file for a
    // single frame, or "-" for standard output.
    std::string output = ".";
    StreamFormat stream = StreamFormat::Ppm;
    double timeoutSeconds = 0;  // per frame; 0: from the programmed rates
    unsigned buffers = 0;       // frame buffers; 0: one per frame, within 256 MB
    bool stats = false;         // per-channel minimum, maximum and mean of each frame
    bool json = false;          // one JSON object per frame on standard output
    // Runs once the acquisition is started (the demo starts its trigger here).
    std::function<void()> afterStart;
};

struct AcquireResult {
    std::vector<std::string> files;
    int64_t delivered = 0;  // frames written to files or to standard output
    int64_t skipped = 0;    // frames overwritten before they could be saved
    int64_t lost = 0;       // frames the board could not deliver
    double seconds = 0;     // from the start to the last frame
    // "saved in FOLDER", "saved as NAME" or "written to standard output"
    std::string where;
};

// Where the lines for people go while acquiring: standard error when
// standard output carries frames or JSON.
std::FILE* messages(const AcquireOptions& options);

// SIGINT and SIGTERM only set a flag from here on, which acquire() looks at
// between frames and while it waits, so that no file is left half written.
void catchInterrupts();
int interruptSignal();  // the signal that came, 0 while none did
// The exit status of a run a signal ended: 128 + the signal.
inline int interruptStatus(int signal) { return 128 + signal; }

// An acquisition ended by a signal: the frames saved until then stay.
struct Interrupted : std::runtime_error {
    Interrupted(int signalNumber, std::size_t frames, const std::string& where);
    // "interrupted after DONE (SIGINT)"
    Interrupted(int signalNumber, const std::string& done);
    int signal;
};
// The same for a signal that came between the steps of a longer command.
void throwIfInterrupted(std::size_t frames, const std::string& where);
// Forgets a signal that was dealt with (the shell goes on after one).
void clearInterrupt();

// Acquires options.frames frames and hands each on as options.output says.
// In software trigger mode, with the simulator taking trigger edges, it
// sends one pulse per frame. Shows a progress line with the rate, the time
// and the lost frames on a terminal, one line per file otherwise. On failure
// the folders made for the files are removed again when still empty; a
// signal throws Interrupted once the frame in hand is whole.
AcquireResult acquire(Session& s, const AcquireOptions& options);

struct TriggerResult {
    int sent = 0;
    bool acquiring = false;  // the simulator takes the pulses as frames
    int64_t frames = 0;
    uint32_t counted = 0;   // FG_TRIGGEROUT_STATS_PULSECOUNT afterwards
    std::string countedAt;  // FG_TRIGGEROUT_STATS_SOURCE
};

// Sends `pulses` software pulses, one at a time, and reports what came of them.
TriggerResult trigger(Session& s, int pulses, double timeoutSeconds);

}  // namespace pelagon_tool
