// The live side of `pelagon serve`: one acquisition on the session's board,
// a thread that keeps only the newest frame, and what viewers derive from a
// frame (the full-depth samples, an 8-bit JPEG, a histogram), each made once
// on first demand and shared read-only by every viewer.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "frame_output.h"
#include "session.h"

namespace pelagon_tool {

using SteadyClock = std::chrono::steady_clock;

class LiveFrame {
public:
    LiveFrame(vboard::Frame frame, uint64_t sequence, SteadyClock::time_point arrived);

    // Counts the frames the server has seen, across restarts of the acquisition.
    uint64_t sequence() const { return sequence_; }
    int64_t number() const { return frame_.info.number; }
    SteadyClock::time_point arrived() const { return arrived_; }
    const vboard::FrameInfo& info() const { return frame_.info; }

    const Samples& samples() const;
    // Scaled to 8 bits for display; quality 85.
    const std::string& jpeg() const;
    // How long jpeg() took to make, once made.
    double jpegSeconds() const;
    // 256 bins per channel (R, G, B) over the full range of the samples.
    const std::array<std::vector<uint32_t>, 3>& histogram() const;

private:
    vboard::Frame frame_;
    uint64_t sequence_;
    SteadyClock::time_point arrived_;
    mutable std::once_flag samplesOnce_, jpegOnce_, histogramOnce_;
    mutable Samples samples_;
    mutable std::string jpeg_;
    mutable double jpegSeconds_ = 0;
    mutable std::array<std::vector<uint32_t>, 3> histogram_;
};

// 8-bit RGB of a frame as a JPEG; throws std::runtime_error on failure.
std::string encodeJpeg(const uint8_t* rgb, uint32_t width, uint32_t height, int quality);

struct LiveStats {
    bool acquiring = false;
    int64_t delivered = 0;  // frames since the last start
    int64_t lost = 0;       // frames the board could not deliver since then
    double fps = 0;         // over the last two seconds
    uint32_t fillLevel = 0; // FG_FILLLEVEL, percent
    bool overflow = false;  // FG_OVERFLOW
    std::string problem;    // why no frames come, while that is so
};

class Live {
public:
    explicit Live(Session& session);
    // Stops the acquisition and the thread.
    ~Live();
    Live(const Live&) = delete;
    Live& operator=(const Live&) = delete;

    // The board to oneself: every call on the session goes through it, and
    // the acquisition thread gives way while someone waits for it.
    std::unique_lock<std::mutex> board();

    // With board() held: start (fresh buffers for the frame size as
    // programmed now), stop, and start again when a change made the frames
    // bigger or smaller than the buffers.
    void start();
    void stop();
    bool acquiring() const { return running_; }
    void refit();

    // The newest frame later than sequence `after`, waiting up to `timeout`
    // for one; null when none came or the server is closing.
    std::shared_ptr<const LiveFrame> next(uint64_t after, std::chrono::milliseconds timeout);
    std::shared_ptr<const LiveFrame> latest() const;
    LiveStats stats() const;

    // Wakes every waiter in next() and ends the thread; the acquisition
    // stops.
    void close();

private:
    void loop();
    void publish(std::shared_ptr<const LiveFrame> frame);
    void updateStats(bool board);

    Session& session_;
    std::mutex boardMutex_;
    std::condition_variable boardIdle_;
    std::atomic<int> claims_{0};
    bool running_ = false;  // guarded by boardMutex_
    int64_t next_ = 1;      // guarded by boardMutex_
    SteadyClock::time_point startedAt_, statsAt_;

    mutable std::mutex frameMutex_;
    std::condition_variable frameArrived_;
    std::shared_ptr<const LiveFrame> latest_;
    uint64_t sequence_ = 0;
    bool closing_ = false;
    LiveStats stats_;
    std::deque<SteadyClock::time_point> arrivals_;

    std::thread thread_;
};

}  // namespace pelagon_tool
