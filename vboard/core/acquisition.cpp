#include "acquisition.h"

#include <algorithm>
#include <chrono>
#include <new>

#include "board_state.h"
#include "pelagon_errors.h"

namespace vboard::detail {

namespace {

// The engine looks at the board at least this often, so that frames started
// by a trigger pulse arrive without much delay.
constexpr auto kPoll = std::chrono::milliseconds(2);

}  // namespace

Acquisition::Acquisition(Fg_Struct* fg, std::shared_ptr<BufferSet> buffers, int64_t count)
    : fg_(fg), buffers_(std::move(buffers)), count_(count) {
    {
        State& s = state();
        std::lock_guard lock(s.mutex);
        if (RuntimeHandle* h = s.handle(fg_); h && h->board && h->board->emulation)
            h->board->emulation->startCollecting(Clock::now());
    }
    thread_ = std::thread([this] { run(); });
}

Acquisition::~Acquisition() { stop(); }

void Acquisition::stop() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable() && thread_.get_id() != std::this_thread::get_id())
        thread_.join();
}

int64_t Acquisition::lastFrame() {
    std::lock_guard lock(mutex_);
    return last_;
}

int64_t Acquisition::lostFrames() {
    std::lock_guard lock(mutex_);
    return lost_;
}

int64_t Acquisition::waitFor(int64_t n, int timeoutMs) {
    std::unique_lock lock(mutex_);
    const auto deadline = Clock::now() + std::chrono::milliseconds(std::max(timeoutMs, 0));
    changed_.wait_until(lock, deadline, [&] { return last_ >= n || stopping_ || ended_; });
    return last_ >= n ? last_ : int64_t{kErrTimeout};
}

void Acquisition::run() {
    std::unique_ptr<ImagePipeline> pipeline;
    uint64_t generation = 0;
    for (;;) {
        const Clock::time_point now = Clock::now();
        Clock::time_point next = now + kPoll;
        std::vector<uint64_t> frames;
        std::unique_ptr<ImageSettings> settings;
        uint64_t lostOnBoard = 0;
        {
            State& s = state();
            BoardMutex::Engine engine{s.mutex};
            std::lock_guard lock(engine);
            RuntimeHandle* h = s.handle(fg_);
            if (h && h->board && h->board->emulation) {
                DesignEmulation& design = *h->board->emulation;
                design.sync(now);
                frames = design.takeFrames();
                lostOnBoard = design.lostFrames();
                if (!pipeline || design.generation() != generation) {
                    settings = std::make_unique<ImageSettings>(design.imageSettings());
                    generation = design.generation();
                }
                next = std::min(next, design.nextFrameDue());
            }
        }
        if (settings) pipeline = std::make_unique<ImagePipeline>(std::move(*settings));
        {
            std::lock_guard lock(mutex_);
            lost_ = std::max(lost_, static_cast<int64_t>(lostOnBoard));
        }
        for (uint64_t sequence : frames) {
            if (count_ > 0 && lastFrame() >= count_) break;
            deliver(*pipeline, sequence);
        }

        std::unique_lock lock(mutex_);
        if (count_ > 0 && last_ >= count_) ended_ = true;
        changed_.notify_all();
        if (ended_) {
            changed_.wait(lock, [&] { return stopping_; });
        } else {
            changed_.wait_until(lock, std::max(next, now), [&] { return stopping_; });
        }
        if (stopping_) break;
    }
    State& s = state();
    std::lock_guard lock(s.mutex);
    if (RuntimeHandle* h = s.handle(fg_); h && h->board && h->board->emulation) h->board->emulation->stopCollecting();
}

void Acquisition::deliver(const ImagePipeline& pipeline, uint64_t sequence) {
    const ImageSettings& s = pipeline.settings();
    if (!s.selected(sequence) || s.discarded) return;
    if (!buffers_) {
        std::lock_guard lock(mutex_);
        ++lost_;
        return;
    }
    const int64_t number = lastFrame() + 1;
    {
        std::lock_guard lock(buffers_->mutex);
        const auto slot = static_cast<unsigned>((number - 1) % buffers_->count);
        const std::size_t bytes = pipeline.render(sequence, buffers_->buffer(slot), buffers_->bytes);
        buffers_->info[slot] = FrameInfo{number, s.roiWidth, s.roiHeight, s.format, s.leftAligned, bytes};
    }
    {
        std::lock_guard lock(mutex_);
        last_ = number;
    }
    changed_.notify_all();
}

}  // namespace vboard::detail

namespace vboard {

using detail::BufferSet;
using detail::State;
using detail::state;

dma_mem* allocateMemory(unsigned count, std::size_t bytes) {
    if (count == 0 || bytes == 0) throw Error("vboard: frame memory needs at least one buffer of at least one byte");
    if (bytes > SIZE_MAX / count) throw Error("vboard: " + std::to_string(count) + " buffers of " +
                                              std::to_string(bytes) + " bytes do not fit the address space");
    auto mem = std::make_unique<dma_mem>();
    try {
        mem->buffers = std::make_shared<BufferSet>();
        mem->buffers->count = count;
        mem->buffers->bytes = bytes;
        mem->buffers->data.assign(std::size_t{count} * bytes, 0);
        mem->buffers->info.assign(count, FrameInfo{});
    } catch (const std::bad_alloc&) {
        throw Error("vboard: cannot allocate " + std::to_string(count) + " buffers of " + std::to_string(bytes) +
                    " bytes", PGN_ERR_OUT_OF_MEMORY);
    }
    return state().keep(&State::memories, std::move(mem));
}

void freeMemory(dma_mem* mem) {
    std::unique_ptr<dma_mem> doomed;
    State& s = state();
    std::lock_guard lock(s.mutex);
    auto it = s.memories.find(mem);
    if (it == s.memories.end()) return;
    doomed = std::move(it->second);
    s.memories.erase(it);
}

namespace {

std::shared_ptr<BufferSet> buffersOf(dma_mem* mem) {
    State& s = state();
    std::lock_guard lock(s.mutex);
    if (!s.memory(mem)) throw Error("vboard: unknown frame memory");
    return mem->buffers;
}

}  // namespace

unsigned bufferCount(dma_mem* mem) { return buffersOf(mem)->count; }

std::size_t bufferBytes(dma_mem* mem) { return buffersOf(mem)->bytes; }

FrameInfo copyFrame(dma_mem* mem, int64_t number, std::vector<uint8_t>& out) {
    std::shared_ptr<BufferSet> buffers = buffersOf(mem);
    if (number < 1) throw Error("vboard: frames are numbered from 1, there is no frame " + std::to_string(number));
    std::lock_guard lock(buffers->mutex);
    const auto slot = static_cast<unsigned>((number - 1) % buffers->count);
    const FrameInfo& info = buffers->info[slot];
    if (info.number != number)
        throw Error("vboard: frame " + std::to_string(number) + " is not in memory (its buffer " +
                    (info.number == 0 ? std::string("is empty") : "holds frame " + std::to_string(info.number)) + ")");
    const uint8_t* first = buffers->buffer(slot);
    out.assign(first, first + info.bytes);
    return info;
}

}  // namespace vboard
