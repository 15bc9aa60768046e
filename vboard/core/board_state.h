// The state behind the virtual board, shared by the runtime libraries through
// libpelagon_vboard.so: loaded designs, boards with their register storage,
// journal and faults, and the runtime's frame grabber handles. Everything
// here is guarded by the one mutex of State.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <string>
#include <unordered_map>
#include <vector>

#include "design_model.h"
#include "emulation.h"
#include "fg_api.h"
#include "hap_runtime.h"
#include "vboard/vboard.h"

class Fg_ParameterInfo;
namespace vboard::detail {
class Acquisition;
}

// A design loaded by the design runtime. The model is shared with the boards
// it is bound to, so unloading the design does not pull it from under them.
struct fpga_design {
    std::shared_ptr<const vboard::DesignModel> model;
    std::vector<hap_event_data> events;  // names point into the model
};

// A virtual board: the register storage of the bound design, the journal of
// register writes and the pending faults.
struct VBOARD_API ZUdevice {
    struct Fault {
        std::string name;
        vboard::Access access;
        unsigned remaining;  // accesses until it fires, this one included
        int code;
    };
    // One register: raw element values (U value, fixed-point integer or IEEE
    // bits), or the text of a string register.
    struct Cells {
        std::vector<uint64_t> raw;
        std::string text;
    };

    std::shared_ptr<const vboard::DesignModel> design;
    std::vector<Cells> cells;  // cells[n - 1] belongs to register n
    // The journal keeps one small record per element written; names and
    // decoded values are filled in only when it is read, so that a write of
    // a 4096-entry table allocates nothing per element.
    struct JournalRecord {
        int reg;
        unsigned element;
        uint64_t raw;
        vboard::Path path;
        uint32_t design;  // index into journalDesigns
        uint32_t text;    // index into journalTexts (string registers)
    };
    std::vector<JournalRecord> journal;
    std::vector<std::string> journalTexts;
    // Every design the journal has seen, so that records made before a
    // rebind still name their own registers.
    std::vector<std::shared_ptr<const vboard::DesignModel>> journalDesigns;
    std::vector<vboard::JournalEntry> journalEntries() const;
    void clearJournal();
    // Index of the bound design in journalDesigns, added when new.
    uint32_t journalDesign();
    // The journal holds at most this many records; past it the oldest half
    // is dropped.
    static constexpr std::size_t kJournalLimit = std::size_t{1} << 21;
    void trimJournal();
    std::vector<Fault> faults;
    // What the design does on its own (trigger block, simulator timing);
    // present while a design is bound.
    std::unique_ptr<vboard::DesignEmulation> emulation;

    // Binds a design and sets every register to its reset value. The journal
    // and pending faults are kept.
    void bind(std::shared_ptr<const vboard::DesignModel> model);
    // Register n of the bound design, or null.
    const vboard::RegisterModel* reg(long long n) const;
    const vboard::RegisterModel* reg(const std::string& name, int* number) const;

    // Brings the emulated design up to now before a register is looked at or
    // changed, and lets it act on a register just stored.
    void sync();
    void written(int n);

    // Counts the access against pending faults; the code of a fault that
    // fires now, else 0.
    int takeFault(const vboard::RegisterModel& r, vboard::Access access);
    // Stores elements first.. of register n (fault check first, then store,
    // then one journal entry per element). Values must already fit.
    int commit(int n, unsigned first, const std::vector<uint64_t>& raws, vboard::Path path);
    int commitText(int n, const std::string& text, vboard::Path path);
    // Copies elements first.. of register n to `out` (fault check first).
    int fetch(int n, unsigned first, unsigned count, uint64_t* out);
    int fetchText(int n, std::string& out);
};

// The runtime's frame grabber handle. The Fg_Struct comes first: its address
// is what the runtime hands out.
struct VBOARD_API RuntimeHandle {
    Fg_Struct fg{};
    ZUdevice* board = nullptr;  // null once the board was destroyed
    std::shared_ptr<const vboard::DesignModel> design;
    int lastError = 0;
    bool acquiring = false;
    uint32_t timeout = 1000000;
    uint32_t apcStopTimeout = 5;
    std::unique_ptr<Fg_ParameterInfo> info;  // parameter-info tree, built on first request
    // The running acquisition, or the last one, stopped. Its thread takes
    // the state lock, so it is stopped only without the lock held.
    std::shared_ptr<vboard::detail::Acquisition> acquisition;

    RuntimeHandle();
    ~RuntimeHandle();
    RuntimeHandle(const RuntimeHandle&) = delete;
    RuntimeHandle& operator=(const RuntimeHandle&) = delete;

    int record(int result) { return lastError = result; }
    // Frees what the handle holds of its board and design.
    void detach();
};

namespace vboard::detail {

// The lock of the board world. The applet's register traffic may come in a
// tight loop (a slider being dragged), and a plain mutex goes to whoever asks
// first after an unlock, which on a busy machine is nearly always the thread
// that has just let go: the acquisition engine could wait for seconds. So
// the engine announces itself, and everyone else lets it have its turn before
// taking the lock.
class BoardMutex {
public:
    void lock() {
        while (engineWaiting_.load(std::memory_order_acquire) > 0) std::this_thread::yield();
        mutex_.lock();
    }
    void unlock() { mutex_.unlock(); }
    void lockForEngine() {
        engineWaiting_.fetch_add(1, std::memory_order_acq_rel);
        mutex_.lock();
        engineWaiting_.fetch_sub(1, std::memory_order_acq_rel);
    }
    // The engine's side, for std::lock_guard.
    struct Engine {
        BoardMutex& m;
        void lock() { m.lockForEngine(); }
        void unlock() { m.unlock(); }
    };

private:
    std::mutex mutex_;
    std::atomic<int> engineWaiting_{0};
};

struct VBOARD_API State {
    BoardMutex mutex;
    std::unordered_map<ZUdevice*, std::unique_ptr<ZUdevice>> boards;
    std::unordered_map<fpga_design*, std::unique_ptr<fpga_design>> designs;
    std::unordered_map<Fg_Struct*, std::unique_ptr<RuntimeHandle>> handles;
    std::unordered_map<dma_mem*, std::unique_ptr<dma_mem>> memories;
    int initError = 0;          // last error of the latest Fg_InitHandle*
    int pendingInitFailure = 0; // failNextInit

    // Takes the lock and files a new object in one of the maps; returns the
    // handle it is known by.
    template <typename T>
    T* keep(std::unordered_map<T*, std::unique_ptr<T>> State::*map, std::unique_ptr<T> item) {
        std::lock_guard lock(mutex);
        T* handle = item.get();
        (this->*map).emplace(handle, std::move(item));
        return handle;
    }

    // Null for null or unknown pointers.
    ZUdevice* board(ZUdevice* b);
    fpga_design* design(fpga_design* d);
    dma_mem* memory(dma_mem* m);
    // Null for unknown handles; detached handles only with `evenDetached`.
    RuntimeHandle* handle(Fg_Struct* fg, bool evenDetached = false);
};

// The process-wide state. Never destroyed, so calls made while the process
// exits still find it.
VBOARD_API State& state();

// Both take the lock themselves. loadDesign refuses malformed images and,
// when `boardType` is not 0, images for another board type.
VBOARD_API fpga_design* loadDesign(const void* image, std::size_t size, int boardType = 0);
VBOARD_API Fg_Struct* initHandle(ZUdevice* board, fpga_design* design);

// The head of the handle's parameter-info tree (built on first use). Caller
// holds the lock.
VBOARD_API RegisterInfo* parameterTree(RuntimeHandle& handle);

}  // namespace vboard::detail
