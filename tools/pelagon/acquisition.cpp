#include "acquisition.h"

#include <unistd.h>

#include <csignal>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "pelagon_errors.h"
#include "png_output.h"

namespace pelagon_tool {

namespace {

using namespace std::chrono_literals;
constexpr std::size_t kMemoryBudget = 256u << 20;  // frame buffers at most, in bytes
// How often a wait looks for a signal.
constexpr std::chrono::milliseconds kWaitSlice = 50ms;

volatile std::sig_atomic_t caught = 0;

extern "C" void onInterrupt(int signalNumber) {
    caught = signalNumber;
}

bool simulatorIsSource(const Session& s) {
    return s.is("FG_CAMERASIMULATOR_ENABLE", "FG_CAMERASIMULATOR");
}
bool simulatorTriggered(const Session& s) {
    return simulatorIsSource(s) && !s.is("FG_CAMERASIMULATOR_TRIGGER_MODE", "SIMULATION_FREE_RUN");
}
bool softwareTriggered(const Session& s) {
    return simulatorTriggered(s) && s.is("FG_AREATRIGGERMODE", "ATM_SOFTWARE");
}

// How long one frame may take as the board is programmed: a few periods of
// whatever paces the frames, at least two seconds; a second where nothing
// would ever come.
std::chrono::milliseconds frameTimeout(const Session& s, double seconds) {
    if (seconds > 0) return std::chrono::milliseconds(static_cast<int64_t>(seconds * 1000));
    if (!simulatorIsSource(s)) return 1s;
    double period = 1.0 / std::max(0.1, s.number("FG_CAMERASIMULATOR_FRAMERATE"));
    if (simulatorTriggered(s)) {
        if (s.is("FG_AREATRIGGERMODE", "ATM_EXTERNAL") || !s.is("FG_TRIGGERSTATE", "TS_ACTIVE")) return 1s;
        if (s.is("FG_AREATRIGGERMODE", "ATM_GENERATOR"))
            period = std::max(period, 1.0 / std::max(0.01, s.number("FG_TRIGGER_FRAMESPERSECOND")));
    }
    return std::chrono::milliseconds(static_cast<int64_t>(std::max(2.0, 3 * period + 1) * 1000));
}

// What keeps frames from arriving, as a change the user can make.
std::string whyNoFrames(const Session& s) {
    if (!simulatorIsSource(s))
        return "the image source is the camera port, and the virtual board has no camera: use the camera simulator "
               "(--set FG_CAMERASIMULATOR_ENABLE=FG_CAMERASIMULATOR)";
    if (simulatorTriggered(s)) {
        const std::string freeRun =
            " (or let the simulator run free: --set FG_CAMERASIMULATOR_TRIGGER_MODE=SIMULATION_FREE_RUN)";
        if (!s.is("FG_TRIGGERSTATE", "TS_ACTIVE"))
            return "the simulator waits for trigger pulses and the trigger system is stopped: --set "
                   "FG_TRIGGERSTATE=TS_ACTIVE" +
                   freeRun;
        if (s.is("FG_AREATRIGGERMODE", "ATM_EXTERNAL"))
            return "the trigger waits for external pulses, and the virtual board has no trigger inputs: --set "
                   "FG_AREATRIGGERMODE=ATM_GENERATOR or ATM_SOFTWARE" +
                   freeRun;
        const std::string out = s.value("FG_TRIGGERCAMERA_OUT_SELECT");
        if (out.rfind("PULSEGEN", 0) != 0)
            return "the camera trigger output sends no pulses (FG_TRIGGERCAMERA_OUT_SELECT=" + out +
                   "): --set FG_TRIGGERCAMERA_OUT_SELECT=PULSEGEN0" + freeRun;
    }
    return "frames come slower than the time-out allows: raise --timeout, or the simulator's or the trigger's rate";
}

// One software pulse; while the trigger is busy (no queue) it tries again.
void sendPulse(Session& s, std::chrono::milliseconds patience) {
    vboard::Grabber& g = s.grabber();
    const int id = g.id("FG_SENDSOFTWARETRIGGER");
    const auto until = std::chrono::steady_clock::now() + patience;
    for (;;) {
        try {
            g.set<uint32_t>(id, 1);
            return;
        } catch (const vboard::Error& e) {
            if (e.code() == PGN_ERR_TRIGGER_BUSY && std::chrono::steady_clock::now() < until) {
                if (caught != 0) return;
                std::this_thread::sleep_for(1ms);
                continue;
            }
            if (e.code() == PGN_ERR_TRIGGER_BUSY || e.code() == PGN_ERR_NOT_SOFTWARE_MODE ||
                e.code() == PGN_ERR_TRIGGER_NOT_ACTIVE)
                throw HintedError(e,
                                  "software pulses need --set FG_AREATRIGGERMODE=ATM_SOFTWARE --set "
                                  "FG_TRIGGERSTATE=TS_ACTIVE (and the queue, FG_TRIGGERQUEUE_MODE=FG_ON, "
                                  "takes pulses while one is in progress)");
            throw;
        }
    }
}

class Progress {
public:
    explicit Progress(int total) : total_(total), terminal_(isatty(STDOUT_FILENO) == 1) {}
    ~Progress() {
        if (terminal_ && drawn_) std::printf("\n");
    }
    void saved(int done, const std::string& file) {
        if (!terminal_) {
            std::printf("frame %d of %d -> %s\n", done, total_, file.c_str());
            std::fflush(stdout);
            return;
        }
        draw("acquiring", done, "frames");
    }
    // Long runs of pulses only: a bar on a terminal, otherwise a line for
    // every tenth of them.
    void sent(int done) {
        if (total_ < 100) return;
        if (terminal_) return draw("triggering", done, "pulses");
        if (done % (total_ / 10) != 0 && done != total_) return;
        std::printf("%d of %d pulses sent\n", done, total_);
        std::fflush(stdout);
    }

private:
    void draw(const char* doing, int done, const char* unit) {
        constexpr int kWidth = 30;
        const int filled = total_ > 0 ? done * kWidth / total_ : kWidth;
        std::printf("\r%s [%s%s] %d/%d %s", doing, std::string(static_cast<std::size_t>(filled), '#').c_str(),
                    std::string(static_cast<std::size_t>(kWidth - filled), '.').c_str(), done, total_, unit);
        std::fflush(stdout);
        drawn_ = true;
    }

    int total_;
    bool terminal_;
    bool drawn_ = false;
};

std::string frameFile(const std::string& folder, int64_t number) {
    char name[32];
    std::snprintf(name, sizeof name, "frame-%04lld.png", static_cast<long long>(number));
    return (std::filesystem::path(folder) / name).string();
}

// Waits for frame `n` in short slices, so that a signal is seen soon.
void waitForFrame(vboard::Grabber& g, int64_t n, std::chrono::milliseconds timeout) {
    const auto until = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        if (caught != 0) return;
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
        try {
            g.waitForFrame(n, std::clamp(left, 1ms, kWaitSlice));
            return;
        } catch (const vboard::Error& e) {
            if (e.code() != vboard::kErrTimeout) throw;
            if (left > kWaitSlice) continue;
            throw vboard::Error("waiting " + std::to_string(timeout.count()) + " ms for frame " + std::to_string(n),
                                e.code());
        }
    }
}

// The folders create_directories is about to make, innermost first.
std::vector<std::filesystem::path> missingFolders(const std::string& folder) {
    std::vector<std::filesystem::path> missing;
    std::error_code ec;
    for (std::filesystem::path p = std::filesystem::absolute(folder, ec).lexically_normal();
         !p.empty() && p != p.root_path() && !std::filesystem::exists(p, ec); p = p.parent_path()) {
        if (p.filename().empty()) continue;  // a trailing separator
        missing.push_back(p);
    }
    return missing;
}

AcquireResult acquireInto(Session& s, const AcquireOptions& options) {
    vboard::Grabber& g = s.grabber();
    const std::size_t frameBytes = vboard::frameBytes(g.board());
    // A buffer for every frame when the budget allows, so that none is
    // overwritten however slowly the files are written; otherwise a ring, and
    // frames the acquisition overtakes are skipped.
    const std::size_t affordable = frameBytes > 0 ? std::max<std::size_t>(2, kMemoryBudget / frameBytes) : 2;
    const auto wanted = static_cast<std::size_t>(options.frames);
    g.allocateBuffers(static_cast<unsigned>(std::clamp<std::size_t>(wanted, 2, affordable)));
    g.start(wanted <= affordable ? options.frames : 0);
    if (options.afterStart) options.afterStart();

    const bool software = softwareTriggered(s);
    const std::chrono::milliseconds timeout = frameTimeout(s, options.timeoutSeconds);
    AcquireResult result;
    Progress progress(options.frames);
    int64_t next = 1, pulsed = 0;
    while (static_cast<int>(result.files.size()) < options.frames) {
        if (software && pulsed < next) {
            sendPulse(s, timeout);
            pulsed = next;
        }
        try {
            waitForFrame(g, next, timeout);
        } catch (const vboard::Error& e) {
            if (e.code() == vboard::kErrTimeout) throw HintedError(e, whyNoFrames(s));
            throw;
        }
        if (caught != 0) {
            g.stop();
            throw Interrupted(caught, result.files.size(), options.folder);
        }
        vboard::Frame frame;
        try {
            frame = g.frame(next);
        } catch (const vboard::Error&) {
            // Overwritten while earlier files were written: go on with the newest.
            const int64_t newest = g.lastFrame();
            if (newest <= next) throw;
            result.skipped += newest - next;
            next = newest;
            continue;
        }
        const std::string file = frameFile(options.folder, next);
        writePng(file, toPng(frame));
        result.files.push_back(file);
        progress.saved(static_cast<int>(result.files.size()), file);
        ++next;
    }
    g.stop();
    return result;
}

}  // namespace

void catchInterrupts() {
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

int interruptSignal() {
    return caught;
}

Interrupted::Interrupted(int signalNumber, std::size_t frames, const std::string& folder)
    : std::runtime_error("interrupted after " + std::to_string(frames) + " frames: " + std::to_string(frames) +
                         " files saved in " + folder + " (" + (signalNumber == SIGINT ? "SIGINT" : "SIGTERM") + ")"),
      signal(signalNumber) {}

AcquireResult acquire(Session& s, const AcquireOptions& options) {
    if (options.frames < 1) throw UsageError("the number of frames must be at least 1");
    const std::vector<std::filesystem::path> made = missingFolders(options.folder);
    std::error_code ec;
    std::filesystem::create_directories(options.folder, ec);
    if (ec) throw std::runtime_error("cannot create the folder " + options.folder + ": " + ec.message());
    try {
        return acquireInto(s, options);
    } catch (...) {
        // Nothing to show for it: the folders made for it go again.
        for (const std::filesystem::path& p : made)
            if (!std::filesystem::is_empty(p, ec) || ec || !std::filesystem::remove(p, ec)) break;
        throw;
    }
}

TriggerResult trigger(Session& s, int pulses, double timeoutSeconds) {
    // The output pulse counter has 16 bits: more pulses could not be counted.
    if (pulses < 1 || pulses > 65535) throw UsageError("the number of pulses must be 1 .. 65535");
    vboard::Grabber& g = s.grabber();
    TriggerResult result;
    result.acquiring = simulatorTriggered(s);
    if (result.acquiring) {
        g.allocateBuffers(4);
        g.start();
    }
    const std::chrono::milliseconds timeout = frameTimeout(s, timeoutSeconds);
    {
        Progress progress(pulses);
        while (result.sent < pulses) {
            sendPulse(s, timeout);
            progress.sent(++result.sent);
        }
    }

    // Pulses wait in the queue and leave at the trigger's rate: let them go
    // before counting.
    const int busy = g.id("FG_SOFTWARETRIGGER_IS_BUSY");
    const auto until = std::chrono::steady_clock::now() + timeout * pulses;
    while (g.get<uint32_t>(busy) != 0 && std::chrono::steady_clock::now() < until) std::this_thread::sleep_for(1ms);
    if (result.acquiring) {
        try {
            g.waitForFrame(pulses, timeout);
        } catch (const vboard::Error& e) {
            if (e.code() != vboard::kErrTimeout) throw;
        }
        result.frames = g.lastFrame();
        g.stop();
    }
    result.counted = g.get<uint32_t>(g.id("FG_TRIGGEROUT_STATS_PULSECOUNT"));
    result.countedAt = s.value("FG_TRIGGEROUT_STATS_SOURCE");
    return result;
}

}  // namespace pelagon_tool
