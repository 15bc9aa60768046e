#include "acquisition.h"

#include <nlohmann/json.hpp>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "pelagon_errors.h"
#include "frame_output.h"
#include "safe_file.h"

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

// The width of the terminal `stream` shows on, or 0 when it is no terminal.
int terminalColumns(std::FILE* stream) {
    const int fd = fileno(stream);
    if (isatty(fd) != 1) return 0;
    winsize size{};
    if (ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
    const char* columns = std::getenv("COLUMNS");
    const int n = columns ? std::atoi(columns) : 0;
    return n > 0 ? n : 80;
}

std::string clock(double seconds) {
    const auto whole = static_cast<long long>(seconds);
    char text[32];
    if (whole >= 3600)
        std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60, whole % 60);
    else
        std::snprintf(text, sizeof text, "%lld:%02lld", whole / 60, whole % 60);
    return text;
}

// A progress line on a terminal, redrawn in place and cut to its width (a
// line that wraps cannot be redrawn); elsewhere nothing but what saved() and
// sent() print for logs.
class Progress {
public:
    Progress(int total, std::FILE* out, bool lines)
        : total_(total), out_(out), columns_(terminalColumns(out)), lines_(lines) {}
    ~Progress() { clear(); }

    bool terminal() const { return columns_ > 0; }

    void saved(int done, const std::string& file, double seconds, int64_t lost) {
        if (!terminal()) {
            if (lines_ && !file.empty()) std::fprintf(out_, "frame %d of %d -> %s\n", done, total_, file.c_str());
            std::fflush(out_);
            return;
        }
        // Shown in this order; on a narrow terminal the lost frames stay
        // longest, then the rate.
        draw("acquiring", done, "frames", {rate(done, seconds), clock(seconds), "lost " + std::to_string(lost)},
             {2, 0, 1});
    }
    // Long runs of pulses only: a bar on a terminal, otherwise a line for
    // every tenth of them.
    void sent(int done) {
        if (total_ < 100) return;
        if (terminal()) return draw("triggering", done, "pulses", {}, {});
        if (done % (total_ / 10) != 0 && done != total_) return;
        std::fprintf(out_, "%d of %d pulses sent\n", done, total_);
        std::fflush(out_);
    }
    // A line of its own above the progress line.
    void print(const std::string& line) {
        clear();
        std::fprintf(out_, "%s\n", line.c_str());
        std::fflush(out_);
    }

private:
    static std::string rate(int done, double seconds) {
        char text[32];
        std::snprintf(text, sizeof text, "%.1f fps", seconds > 0 ? done / seconds : 0.0);
        return text;
    }
    void clear() {
        if (!drawn_) return;
        std::fprintf(out_, "\r\033[K");
        std::fflush(out_);
        drawn_ = false;
    }
    void draw(const char* doing, int done, const char* unit, const std::vector<std::string>& parts,
              const std::vector<std::size_t>& priority) {
        // The last column stays free: some terminals wrap on reaching it.
        const auto room = static_cast<std::size_t>(std::max(1, columns_ - 1));
        std::string count = " ";
        count += std::to_string(done);
        count += '/';
        count += std::to_string(total_);
        count += ' ';
        count += unit;
        std::size_t used = std::strlen(doing) + count.size();
        std::vector<bool> shown(parts.size(), false);
        for (std::size_t i : priority) {
            if (used + 2 + parts[i].size() > room) break;
            used += 2 + parts[i].size();
            shown[i] = true;
        }
        std::string line = doing;
        if (room >= used + 13) {
            const std::size_t width = std::min<std::size_t>(40, room - used - 3);
            const std::size_t filled =
                total_ > 0 ? width * static_cast<std::size_t>(done) / static_cast<std::size_t>(total_) : width;
            line += " [";
            line.append(filled, '#').append(width - filled, '.');
            line += ']';
        }
        line += count;
        for (std::size_t i = 0; i < parts.size(); ++i)
            if (shown[i]) line.append("  ").append(parts[i]);
        if (line.size() > room) line.resize(room);
        std::fprintf(out_, "\r%s\033[K", line.c_str());
        std::fflush(out_);
        drawn_ = true;
    }

    int total_;
    std::FILE* out_;
    int columns_;
    bool lines_;  // a line per saved file where there is no terminal
    bool drawn_ = false;
};

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

// Where frames go, from -o.
struct Target {
    enum Kind { Folder, Pattern, File, Stdout } kind = Folder;
    std::string folder;           // made when missing (not for Stdout)
    std::string before, after;    // a pattern's text around the number
    int digits = 0;               // its zero-padded width
    std::string file;             // the one file

    std::string name(int64_t number) const {
        if (kind == File) return file;
        std::string n = std::to_string(number);
        if (n.size() < static_cast<std::size_t>(digits)) n.insert(0, static_cast<std::size_t>(digits) - n.size(), '0');
        if (kind == Pattern) return before + n + after;
        std::string name = "frame-";
        name += n;
        name += ".png";
        return (std::filesystem::path(folder) / name).string();
    }
};

// A printf-style number in a file name: %d, %5d or %05d (zero-padded either
// way: file names sort that way), and %% for a percent sign. Nothing else is
// taken, so that no other conversion ever reaches a formatter.
Target parseTarget(const std::string& output, int frames) {
    Target t;
    if (output == "-") {
        t.kind = Target::Stdout;
        return t;
    }
    bool number = false;
    std::string text;
    for (std::size_t i = 0; i < output.size(); ++i) {
        if (output[i] != '%') {
            text += output[i];
            continue;
        }
        std::size_t j = i + 1;
        if (j < output.size() && output[j] == '%') {
            text += '%';
            i = j;
            continue;
        }
        while (j < output.size() && std::isdigit(static_cast<unsigned char>(output[j]))) ++j;
        if (j >= output.size() || output[j] != 'd' || number || j - i > 3)
            throw UsageError("-o " + output +
                             ": a file name takes one frame number as %d or %05d (and %% for a percent sign)");
        t.before = text;
        text.clear();
        t.digits = j > i + 1 ? std::atoi(output.substr(i + 1, j - i - 1).c_str()) : 0;
        number = true;
        i = j;
    }
    const std::filesystem::path path(number ? t.before + "0" + text : text);
    const bool png = path.extension() == ".png" || path.extension() == ".PNG";
    if (number) {
        t.kind = Target::Pattern;
        t.after = text;
    } else if (png) {
        if (frames > 1)
            throw UsageError("-o " + output + " names one file for " + std::to_string(frames) +
                             " frames: give a folder or a name with a number, such as shot-%05d.png");
        t.kind = Target::File;
        t.file = text;
    } else {
        t.folder = text;
        t.digits = 4;
        return t;
    }
    t.folder = path.parent_path().empty() ? "." : path.parent_path().string();
    return t;
}

std::string isoTime(std::chrono::system_clock::time_point when) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(when);
    const auto ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(when.time_since_epoch()).count() % 1000;
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char text[40];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
    std::string out = text;
    char fraction[8];
    std::snprintf(fraction, sizeof fraction, ".%03lldZ", static_cast<long long>(ms));
    return out + fraction;
}

// Standard output as a stream of frames: every byte must arrive, and a
// reader that went away ends the acquisition with a message, not a signal.
void streamOut(const std::string& bytes, std::size_t delivered) {
    if (std::fwrite(bytes.data(), 1, bytes.size(), stdout) == bytes.size() && std::fflush(stdout) == 0) return;
    const int error = errno;
    throw std::runtime_error("cannot write frame " + std::to_string(delivered + 1) +
                             " to standard output: " + errnoText(error));
}

std::string statsText(const std::array<ChannelStats, 3>& stats) {
    std::string text;
    const char* names[] = {"R", "G", "B"};
    for (std::size_t c = 0; c < 3; ++c) {
        char part[96];
        std::snprintf(part, sizeof part, "%s%s %u .. %u mean %.2f", c ? ", " : "", names[c], stats[c].minimum,
                      stats[c].maximum, stats[c].mean);
        text += part;
    }
    return text;
}

nlohmann::ordered_json statsJson(const std::array<ChannelStats, 3>& stats) {
    nlohmann::ordered_json j;
    const char* names[] = {"red", "green", "blue"};
    for (std::size_t c = 0; c < 3; ++c)
        j[names[c]] = {{"min", stats[c].minimum}, {"max", stats[c].maximum}, {"mean", stats[c].mean}};
    return j;
}

AcquireResult acquireInto(Session& s, const AcquireOptions& options, const Target& target) {
    vboard::Grabber& g = s.grabber();
    const std::size_t frameBytes = vboard::frameBytes(g.board());
    // A buffer for every frame when the budget allows, so that none is
    // overwritten however slowly the files are written; otherwise a ring, and
    // frames the acquisition overtakes are skipped.
    const std::size_t affordable = frameBytes > 0 ? std::max<std::size_t>(2, kMemoryBudget / frameBytes) : 2;
    const auto wanted = static_cast<std::size_t>(options.frames);
    const std::size_t ring = options.buffers > 0 ? options.buffers : std::clamp<std::size_t>(wanted, 2, affordable);
    g.allocateBuffers(static_cast<unsigned>(ring));
    const std::string format = s.value("FG_FORMAT");
    const PngText tool = {{"Software", std::string("pelagon ") + PELAGON_TOOL_VERSION}};
    const auto started = std::chrono::steady_clock::now();
    g.start(wanted <= ring ? options.frames : 0);
    if (options.afterStart) options.afterStart();

    const bool software = softwareTriggered(s);
    const std::chrono::milliseconds timeout = frameTimeout(s, options.timeoutSeconds);
    AcquireResult result;
    result.where = target.kind == Target::Stdout   ? "written to standard output"
                   : target.kind == Target::Folder ? "saved in "
                                                   : "saved as ";
    if (target.kind != Target::Stdout) result.where += options.output;
    std::FILE* out = messages(options);
    Progress progress(options.frames, out, !options.json && !options.stats);
    int64_t next = 1, pulsed = 0;
    while (result.delivered < options.frames) {
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
            throw Interrupted(caught, static_cast<std::size_t>(result.delivered),
                              target.kind == Target::Stdout ? "standard output" : target.folder);
        }
        const auto arrived = std::chrono::system_clock::now();
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
        const Samples samples = unpack(frame);
        std::string file;
        if (target.kind == Target::Stdout) {
            if (result.delivered == 0 && options.stream == StreamFormat::Raw)
                std::fprintf(stderr,
                             "pelagon: raw %s frames of %ux%u on standard output (ffmpeg -f rawvideo -pixel_format "
                             "%s -video_size %ux%u -i -)\n",
                             rawPixelFormat(samples), samples.width, samples.height, rawPixelFormat(samples),
                             samples.width, samples.height);
            streamOut(options.stream == StreamFormat::Raw ? raw(samples) : ppm(samples),
                      static_cast<std::size_t>(result.delivered));
        } else {
            file = target.name(next);
            PngText text = {{"Frame", std::to_string(next)}, {"Creation Time", isoTime(arrived)}, {"Format", format}};
            text.insert(text.end(), tool.begin(), tool.end());
            writePng(file, samples, text);
            result.files.push_back(file);
        }
        ++result.delivered;
        result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        result.lost = g.lostFrames();
        const int64_t lost = result.lost + result.skipped;
        if (options.json) {
            nlohmann::ordered_json j = {{"frame", next},
                                        {"file", file.empty() ? nullptr : nlohmann::ordered_json(file)},
                                        {"width", samples.width},
                                        {"height", samples.height},
                                        {"format", format},
                                        {"bits", samples.significant},
                                        {"time", isoTime(arrived)},
                                        {"elapsed", result.seconds},
                                        {"lost", lost}};
            if (options.stats) j["stats"] = statsJson(channelStats(samples));
            std::printf("%s\n", j.dump().c_str());
            std::fflush(stdout);
        } else if (options.stats) {
            std::string line = "frame ";
            line += std::to_string(next);
            if (!file.empty()) line.append(" -> ").append(file);
            line.append(": ").append(statsText(channelStats(samples)));
            progress.print(line);
        }
        progress.saved(static_cast<int>(result.delivered), file, result.seconds, lost);
        ++next;
    }
    g.stop();
    result.lost = g.lostFrames();
    return result;
}

}  // namespace

std::FILE* messages(const AcquireOptions& options) {
    return options.json || options.output == "-" ? stderr : stdout;
}

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

void clearInterrupt() {
    caught = 0;
}

void throwIfInterrupted(std::size_t frames, const std::string& where) {
    if (caught != 0) throw Interrupted(caught, frames, where);
}

Interrupted::Interrupted(int signalNumber, std::size_t frames, const std::string& where)
    : Interrupted(signalNumber, std::to_string(frames) + " frame" + (frames == 1 ? "" : "s") +
                                    (where == "standard output" ? " written to " : " saved in ") + where) {}

Interrupted::Interrupted(int signalNumber, const std::string& done)
    : std::runtime_error("interrupted after " + done + " (" + (signalNumber == SIGINT ? "SIGINT" : "SIGTERM") + ")"),
      signal(signalNumber) {}

AcquireResult acquire(Session& s, const AcquireOptions& options) {
    if (options.frames < 1) throw UsageError("the number of frames must be at least 1");
    const Target target = parseTarget(options.output, options.frames);
    if (target.kind == Target::Stdout) {
        if (options.json) throw UsageError("-o - puts the frames on standard output: it cannot carry --json as well");
        if (isatty(STDOUT_FILENO) == 1)
            throw UsageError("-o - writes binary frames: send standard output to a pipe or a file, not a terminal");
        // A reader that goes away is a failed write with a message.
        std::signal(SIGPIPE, SIG_IGN);
        return acquireInto(s, options, target);
    }
    // With --no-clobber, an existing file stops the acquisition before it starts.
    for (int64_t n = 1; n <= options.frames; ++n) refuseToClobber(target.name(n));
    const std::vector<std::filesystem::path> made = missingFolders(target.folder);
    std::error_code ec;
    std::filesystem::create_directories(target.folder, ec);
    if (ec) throw std::runtime_error("cannot create the folder " + target.folder + ": " + ec.message());
    try {
        return acquireInto(s, options, target);
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
        Progress progress(pulses, stdout, true);
        while (result.sent < pulses) {
            sendPulse(s, timeout);
            if (caught != 0) {
                if (result.acquiring) g.stop();
                throw Interrupted(caught, std::to_string(result.sent) + " pulses sent");
            }
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
