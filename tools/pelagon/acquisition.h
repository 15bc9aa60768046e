// Acquiring frames into PNG files and sending software trigger pulses, with
// the checks a board without a camera or trigger input needs: frames come
// only from the camera simulator, and a simulator that waits for trigger
// edges gets them only while the trigger system runs.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "session.h"

namespace pelagon_tool {

struct AcquireOptions {
    int frames = 1;
    std::string folder = ".";
    double timeoutSeconds = 0;  // per frame; 0: from the programmed rates
    // Runs once the acquisition is started (the demo starts its trigger here).
    std::function<void()> afterStart;
};

struct AcquireResult {
    std::vector<std::string> files;
    int64_t skipped = 0;  // frames overwritten before they could be saved
};

// SIGINT and SIGTERM only set a flag from here on, which acquire() looks at
// between frames and while it waits, so that no file is left half written.
void catchInterrupts();
int interruptSignal();  // the signal that came, 0 while none did
// The exit status of a run a signal ended: 128 + the signal.
inline int interruptStatus(int signal) { return 128 + signal; }

// An acquisition ended by a signal: the frames saved until then stay.
struct Interrupted : std::runtime_error {
    Interrupted(int signalNumber, std::size_t frames, const std::string& folder);
    int signal;
};

// Acquires options.frames frames and writes each as
// <folder>/frame-<number>.png. In software trigger mode, with the simulator
// taking trigger edges, it sends one pulse per frame. Shows a progress bar on
// a terminal, one line per file otherwise. On failure the folder is removed
// again when it was made here and is still empty; a signal throws Interrupted.
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
