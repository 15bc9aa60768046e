// The acquisition engine of the virtual board: one thread per running
// acquisition that collects the frames the emulated design completes, passes
// them through the image path and writes them into the frame buffers, and
// the frame buffers themselves (the runtime's DMA memory).
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "fg_api.h"
#include "image_path.h"
#include "vboard/vboard.h"

namespace vboard::detail {

// Frame buffers. The acquisition writes a buffer and the application copies
// one out under `mutex`.
struct BufferSet {
    std::mutex mutex;
    unsigned count = 0;
    std::size_t bytes = 0;
    std::vector<uint8_t> data;    // count * bytes
    std::vector<FrameInfo> info;  // per buffer

    uint8_t* buffer(unsigned i) { return data.data() + std::size_t{i} * bytes; }
};

class VBOARD_API Acquisition {
public:
    // Starts the thread; frames of the board behind `fg` go to `buffers`
    // (none: they are lost). `count` > 0 ends the acquisition after that
    // many frames.
    Acquisition(Fg_Struct* fg, std::shared_ptr<BufferSet> buffers, int64_t count);
    ~Acquisition();
    Acquisition(const Acquisition&) = delete;
    Acquisition& operator=(const Acquisition&) = delete;

    // Ends the thread and waits for it; wakes every waiter. Must be called
    // without the board state lock, which the thread takes.
    void stop();
    int64_t lastFrame();
    int64_t lostFrames();
    // The newest frame number once frame `n` has arrived, or kErrTimeout when
    // `timeoutMs` passes or the acquisition ends first.
    int64_t waitFor(int64_t n, int timeoutMs);

private:
    void run();
    void deliver(const ImagePipeline& pipeline, uint64_t sequence);

    Fg_Struct* fg_;
    std::shared_ptr<BufferSet> buffers_;
    int64_t count_;

    std::mutex mutex_;  // guards the members below
    std::condition_variable changed_;
    bool stopping_ = false;
    bool ended_ = false;
    int64_t last_ = 0;
    int64_t lost_ = 0;

    std::thread thread_;
};

}  // namespace vboard::detail

// The runtime's DMA memory: the application's handle on a buffer set.
struct dma_mem {
    std::shared_ptr<vboard::detail::BufferSet> buffers;
};
