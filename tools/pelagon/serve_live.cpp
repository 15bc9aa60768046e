#include "serve_live.h"

#include <turbojpeg.h>

#include <algorithm>
#include <stdexcept>

namespace pelagon_tool {

using namespace std::chrono_literals;

namespace {

// Frame memory for the live view: a few buffers, within 64 MB.
constexpr std::size_t kLiveMemory = 64u << 20;
// How long the acquisition thread holds the board per wait, so that a
// parameter write never waits long for it.
constexpr std::chrono::milliseconds kWaitSlice = 5ms;
constexpr auto kStatsEvery = 250ms;
constexpr auto kFpsWindow = 2s;
constexpr int kJpegQuality = 85;

// Why no frames come, as something the user can change.
std::string whyNoFrames(const Session& s) {
    if (!s.is("FG_CAMERASIMULATOR_ENABLE", "FG_CAMERASIMULATOR"))
        return "the image source is the camera port and the virtual board has no camera: set "
               "FG_CAMERASIMULATOR_ENABLE to FG_CAMERASIMULATOR";
    if (s.is("FG_CAMERASIMULATOR_TRIGGER_MODE", "SIMULATION_FREE_RUN")) return "";
    if (!s.is("FG_TRIGGERSTATE", "TS_ACTIVE"))
        return "the simulator waits for trigger pulses and the trigger is stopped: set FG_TRIGGERSTATE to TS_ACTIVE";
    if (s.is("FG_AREATRIGGERMODE", "ATM_EXTERNAL"))
        return "the trigger waits for external pulses, which the virtual board does not have";
    if (s.is("FG_AREATRIGGERMODE", "ATM_SOFTWARE")) return "the trigger waits for software pulses";
    return "";
}

}  // namespace

std::string encodeJpeg(const uint8_t* rgb, uint32_t width, uint32_t height, int quality) {
    tjhandle handle = tjInitCompress();
    if (!handle) throw std::runtime_error("cannot start the JPEG encoder");
    unsigned char* out = nullptr;
    unsigned long size = 0;
    const int failed = tjCompress2(handle, rgb, static_cast<int>(width), 0, static_cast<int>(height), TJPF_RGB, &out,
                                   &size, TJSAMP_420, quality, TJFLAG_FASTDCT);
    std::string bytes;
    std::string message;
    if (failed == 0)
        bytes.assign(reinterpret_cast<const char*>(out), size);
    else
        message = tjGetErrorStr2(handle);
    tjFree(out);
    tjDestroy(handle);
    if (failed != 0) throw std::runtime_error("JPEG encoding failed: " + message);
    return bytes;
}

LiveFrame::LiveFrame(vboard::Frame frame, uint64_t sequence, SteadyClock::time_point arrived)
    : frame_(std::move(frame)), sequence_(sequence), arrived_(arrived) {}

const Samples& LiveFrame::samples() const {
    std::call_once(samplesOnce_, [this] { samples_ = unpack(frame_); });
    return samples_;
}

const std::string& LiveFrame::jpeg() const {
    std::call_once(jpegOnce_, [this] {
        const auto began = SteadyClock::now();
        const uint32_t w = frame_.info.width, h = frame_.info.height;
        const std::size_t bytes = std::size_t{w} * h * 3;
        if (w == 0 || h == 0) return;
        if (frame_.info.format == vboard::OutputFormat::Color24 && frame_.bytes.size() >= bytes) {
            // Already 8-bit RGB: no copy.
            jpeg_ = encodeJpeg(frame_.bytes.data(), w, h, kJpegQuality);
        } else {
            const Samples& s = samples();
            std::vector<uint8_t> rgb(s.rgb.size());
            const int shift = s.bits - 8;
            for (std::size_t k = 0; k < rgb.size(); ++k) rgb[k] = static_cast<uint8_t>(s.rgb[k] >> shift);
            jpeg_ = encodeJpeg(rgb.data(), w, h, kJpegQuality);
        }
        jpegSeconds_ = std::chrono::duration<double>(SteadyClock::now() - began).count();
    });
    return jpeg_;
}

double LiveFrame::jpegSeconds() const {
    jpeg();
    return jpegSeconds_;
}

const std::array<std::vector<uint32_t>, 3>& LiveFrame::histogram() const {
    std::call_once(histogramOnce_, [this] {
        const Samples& s = samples();
        for (std::vector<uint32_t>& bins : histogram_) bins.assign(256, 0);
        const int shift = s.bits - 8;
        for (std::size_t k = 0; k < s.rgb.size(); ++k) ++histogram_[k % 3][std::min(255, s.rgb[k] >> shift)];
    });
    return histogram_;
}

Live::Live(Session& session) : session_(session), thread_([this] { loop(); }) {}

Live::~Live() {
    close();
}

std::unique_lock<std::mutex> Live::board() {
    ++claims_;
    std::unique_lock<std::mutex> lock(boardMutex_);
    --claims_;
    return lock;
}

void Live::start() {
    vboard::Grabber& g = session_.grabber();
    if (running_) return;
    {
        std::lock_guard<std::mutex> lock(frameMutex_);
        if (closing_) return;
    }
    const std::size_t bytes = vboard::frameBytes(g.board());
    const std::size_t buffers = bytes > 0 ? std::clamp<std::size_t>(kLiveMemory / bytes, 2, 8) : 2;
    g.allocateBuffers(static_cast<unsigned>(buffers));
    g.start();
    running_ = true;
    next_ = 1;
    startedAt_ = SteadyClock::now();
    {
        std::lock_guard<std::mutex> lock(frameMutex_);
        arrivals_.clear();
    }
    updateStats(true);
    boardIdle_.notify_all();
}

void Live::stop() {
    if (!running_) return;
    running_ = false;
    session_.grabber().stop();
    updateStats(true);
}

void Live::refit() {
    vboard::Grabber& g = session_.grabber();
    if (!running_ || vboard::frameBytes(g.board()) == g.bufferBytes()) return;
    stop();
    start();
}

std::shared_ptr<const LiveFrame> Live::next(uint64_t after, std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(frameMutex_);
    frameArrived_.wait_for(lock, timeout, [&] { return closing_ || (latest_ && latest_->sequence() > after); });
    if (closing_ || !latest_ || latest_->sequence() <= after) return nullptr;
    return latest_;
}

std::shared_ptr<const LiveFrame> Live::latest() const {
    std::lock_guard<std::mutex> lock(frameMutex_);
    return latest_;
}

LiveStats Live::stats() const {
    std::lock_guard<std::mutex> lock(frameMutex_);
    LiveStats s = stats_;
    const auto now = SteadyClock::now();
    std::size_t recent = 0;
    for (const SteadyClock::time_point t : arrivals_)
        if (now - t <= kFpsWindow) ++recent;
    if (recent >= 2) {
        const double span =
            std::chrono::duration<double>(arrivals_.back() - arrivals_[arrivals_.size() - recent]).count();
        const double idle = std::chrono::duration<double>(now - arrivals_.back()).count();
        const double period = span / static_cast<double>(recent - 1);
        // A stream that went quiet has no rate, whatever it had before.
        s.fps = period > 0 && idle <= std::max(1.0, 3 * period) ? 1 / period : 0;
    }
    return s;
}

void Live::close() {
    {
        std::lock_guard<std::mutex> lock(frameMutex_);
        closing_ = true;
    }
    frameArrived_.notify_all();
    boardIdle_.notify_all();
    if (thread_.joinable()) thread_.join();
    std::unique_lock<std::mutex> lock = board();
    try {
        stop();
    } catch (const vboard::Error&) {
        // Closing goes on: the grabber's destructor stops it again.
    }
}

void Live::publish(std::shared_ptr<const LiveFrame> frame) {
    {
        std::lock_guard<std::mutex> lock(frameMutex_);
        arrivals_.push_back(frame->arrived());
        while (arrivals_.size() > 1 && frame->arrived() - arrivals_.front() > kFpsWindow) arrivals_.pop_front();
        latest_ = std::move(frame);
    }
    frameArrived_.notify_all();
}

// With the board held: the board's counters and read-outs.
void Live::updateStats(bool force) {
    const auto now = SteadyClock::now();
    if (!force && now - statsAt_ < kStatsEvery) return;
    statsAt_ = now;
    LiveStats s;
    s.acquiring = running_;
    vboard::Grabber& g = session_.grabber();
    try {
        if (running_) {
            s.delivered = g.lastFrame();
            s.lost = g.lostFrames();
        }
        s.fillLevel = session_.enumValue("FG_FILLLEVEL");
        s.overflow = session_.enumValue("FG_OVERFLOW") != 0;
        bool quiet = false;
        if (running_) {
            std::lock_guard<std::mutex> lock(frameMutex_);
            quiet = now - (arrivals_.empty() ? startedAt_ : arrivals_.back()) > 1s;
        }
        if (quiet) s.problem = whyNoFrames(session_);
    } catch (const vboard::Error& e) {
        s.problem = e.what();
    }
    std::lock_guard<std::mutex> lock(frameMutex_);
    if (!running_) {
        s.delivered = stats_.delivered;
        s.lost = stats_.lost;
        arrivals_.clear();
    }
    stats_ = s;
}

void Live::loop() {
    for (;;) {
        // Whoever waits for the board goes first.
        while (claims_.load() > 0) std::this_thread::sleep_for(100us);
        std::unique_lock<std::mutex> lock(boardMutex_);
        {
            std::lock_guard<std::mutex> frames(frameMutex_);
            if (closing_) return;
        }
        if (!running_) {
            boardIdle_.wait_for(lock, 50ms);
            continue;
        }
        vboard::Grabber& g = session_.grabber();
        int64_t newest = 0;
        try {
            newest = g.waitForFrame(next_, kWaitSlice);
        } catch (const vboard::Error&) {
            updateStats(false);
            continue;
        }
        const SteadyClock::time_point arrived = SteadyClock::now();
        vboard::Frame frame;
        try {
            frame = g.frame(newest);
        } catch (const vboard::Error&) {
            // Refilled before it could be copied: the next one will do.
            next_ = newest + 1;
            continue;
        }
        next_ = newest + 1;
        updateStats(false);
        lock.unlock();
        uint64_t sequence = 0;
        {
            std::lock_guard<std::mutex> frames(frameMutex_);
            sequence = ++sequence_;
        }
        publish(std::make_shared<const LiveFrame>(std::move(frame), sequence, arrived));
    }
}

}  // namespace pelagon_tool
