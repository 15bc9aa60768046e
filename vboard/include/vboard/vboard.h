// Control interface of the virtual board: lets tests and demonstrations create
// boards, look at what the applet wrote, set read-outs and make register
// accesses fail. All state lives in libpelagon_vboard.so, shared by the
// runtime libraries, so there is exactly one board world per process.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "fg_api.h"

#define VBOARD_API __attribute__((visibility("default")))

namespace vboard {

inline constexpr int kRegisterIdBase = 0x10000;
inline constexpr int kBoardType = 2647;
inline constexpr int kErrTimeout = -2120;

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

class VBOARD_API Error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

VBOARD_API ZUdevice* createBoard();  // a new board with no design bound
// Also detaches the board's runtime handles: they answer -2001 from then on
// until Fg_FreeGrabber releases them. Null or unknown boards are ignored.
VBOARD_API void destroyBoard(ZUdevice* board);
VBOARD_API std::vector<JournalEntry> journal(ZUdevice* board);
VBOARD_API void clearJournal(ZUdevice* board);

// Test access that bypasses read-only status, faults and the journal; width
// and kind are still checked. All throw vboard::Error with a clear message
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

// The next Fg_InitHandle* returns null with this last error; 0 withdraws a
// pending failure.
VBOARD_API void failNextInit(int code);

}  // namespace vboard
