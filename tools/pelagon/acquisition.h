// Acquiring frames into PNG files and sending software trigger pulses, with
// the checks a board without a camera or trigger input needs: frames come
// only from the camera simulator, and a simulator that waits for trigger
// edges gets them only while the trigger system runs.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
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

// Acquires options.frames frames and writes each as
// <folder>/frame-<number>.png. In software trigger mode, with the simulator
// taking trigger edges, it sends one pulse per frame. Shows a progress bar on
// a terminal, one line per file otherwise.
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
