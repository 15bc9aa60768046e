// Control interface of the virtual board: lets tests and demonstrations create
// boards, look at what the applet wrote, set read-outs and make register
// accesses fail. All state lives in libpelagon_vboard.so, shared by the
// runtime libraries, so there is exactly one board world per process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "fg_api.h"
#include "pelagon_errors.h"

#define VBOARD_API __attribute__((visibility("default")))

namespace vboard {

inline constexpr int kRegisterIdBase = 0x10000;
inline constexpr int kBoardType = 2647;
inline constexpr int kErrTimeout = PGN_ERR_TIMEOUT;

enum class Access { Read, Write };
enum class Path { Parameter, Raw };

// One element written to a register, by the applet or through the raw path.
struct JournalEntry {
    int reg;           // register number, 1-based
    std::string name;  // full register name
    unsigned element;
    char kind;         // 'U', 'D' or 'S'
    uint64_t u;        // value for U; for D the stored raw bits (fixed-point integer or IEEE pattern)
    double d;          // value for D
    std::string s;     // value for S
    Path path;
};

// Failures of the control interface and of the application side. `code()`
// is the error number behind the failure where there is one (the applet's or
// the runtime's), else 0.
class VBOARD_API Error : public std::runtime_error {
public:
    explicit Error(const std::string& message, int code = 0) : std::runtime_error(message), code_(code) {}
    int code() const { return code_; }

private:
    int code_;
};

VBOARD_API ZUdevice* createBoard();  // a new board with no design bound
// Also detaches the board's runtime handles: they answer -2001 from then on
// until Fg_FreeGrabber releases them. Null or unknown boards are ignored.
VBOARD_API void destroyBoard(ZUdevice* board);
// The register writes in order. A board keeps its newest writes: once more
// than about two million elements have been written since the last clear,
// the oldest million go.
VBOARD_API std::vector<JournalEntry> journal(ZUdevice* board);
VBOARD_API void clearJournal(ZUdevice* board);

// Test access that bypasses read-only status, faults and the journal; width
// and kind are still checked. A poke acts on the design as a write would
// (writing 2 to the software trigger register sends a pulse, for instance). All throw vboard::Error with a clear message
// (unknown board/register, no design bound, wrong kind, bad element, value
// does not fit).
VBOARD_API uint64_t peek(ZUdevice* board, const std::string& name, unsigned element = 0);
VBOARD_API double peekDouble(ZUdevice* board, const std::string& name, unsigned element = 0);
VBOARD_API std::string peekString(ZUdevice* board, const std::string& name);
VBOARD_API void poke(ZUdevice* board, const std::string& name, uint64_t value, unsigned element = 0);
VBOARD_API void pokeDouble(ZUdevice* board, const std::string& name, double value, unsigned element = 0);
VBOARD_API void pokeString(ZUdevice* board, const std::string& name, const std::string& value);

// The nth (1 = next) read or write of the named register from now on -
// through the parameter view or the raw path - fails with `code` (stores and
// returns nothing, journals nothing). Several may be pending. Only accesses
// that pass the argument checks count. The name is checked against the bound
// design; on a board without a design any name is accepted.
VBOARD_API void injectFault(ZUdevice* board, const std::string& name, Access access, unsigned nth, int code);
VBOARD_API void clearFaults(ZUdevice* board);

// --- Acquisition -----------------------------------------------------------
//
// The runtime's acquisition calls work on the frame buffers below (the DMA
// memory that Fg_AcquireEx and the other calls take as `dma_mem*`). While
// acquiring, a thread of the virtual board produces frames from the registers
// of the design and writes frame n (counted from 1 at each start) into buffer
// (n - 1) mod count. Fg_getLastPicNumberBlockingEx takes its time-out in
// milliseconds, returns the newest frame number once frame picNr has arrived,
// and -2120 when the time runs out or the acquisition stops first. A board
// whose image source is the camera never delivers a frame: no camera is
// attached. Started without memory (null), the board delivers nothing.

// The value of FG_FORMAT_SelectSource: which output path is delivered.
enum class OutputFormat : uint8_t { Color48 = 0, Color24 = 1, Color30 = 2 };

// What a buffer holds.
struct FrameInfo {
    int64_t number = 0;  // 0 while the buffer never received a frame
    uint32_t width = 0;
    uint32_t height = 0;
    OutputFormat format = OutputFormat::Color48;
    bool leftAligned = false;  // Color48 only
    std::size_t bytes = 0;     // bytes written, at most the buffer size
};

// Queries of Fg_getStatusEx (the `param` argument); `data` is unused.
enum StatusQuery {
    kStatusFramesDelivered = 1,  // frames written to memory since the start
    kStatusFramesLost = 2,       // frames the image path produced but could not deliver
    kStatusAcquiring = 3,        // 1 while the acquisition runs
};

// `count` buffers of `bytes` each. Throws vboard::Error for a count of 0 or
// 0 bytes, or when the memory cannot be had.
VBOARD_API dma_mem* allocateMemory(unsigned count, std::size_t bytes);
// Frees the memory; an acquisition still writing into it keeps it until it
// stops. Null or unknown memory is ignored.
VBOARD_API void freeMemory(dma_mem* mem);
VBOARD_API unsigned bufferCount(dma_mem* mem);
VBOARD_API std::size_t bufferBytes(dma_mem* mem);
// Copies frame `number` out of the memory into `out`. Throws vboard::Error
// when the memory is unknown or its buffer no longer (or not yet) holds that
// frame.
VBOARD_API FrameInfo copyFrame(dma_mem* mem, int64_t number, std::vector<uint8_t>& out);
// Bytes of one frame as the board is programmed now.
VBOARD_API std::size_t frameBytes(ZUdevice* board);

// The next Fg_InitHandle* returns null with this last error; 0 withdraws a
// pending failure.
VBOARD_API void failNextInit(int code);

}  // namespace vboard
