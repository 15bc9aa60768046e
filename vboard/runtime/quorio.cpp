// Raw register I/O by register number: the same storage as the parameter
// view, element 0 of field registers, values as the raw register bits.
#include "board_state.h"
#include "quor_io.h"
#include "pelagon_errors.h"
#include "runtime_export.h"

using vboard::RegisterModel;
using vboard::detail::State;
using vboard::detail::state;

namespace {

// Register `reg` of the design bound to a live board, or null.
const RegisterModel* boardRegister(State& s, ZUdevice* board, unsigned int reg) {
    return s.board(board) ? board->reg(reg) : nullptr;
}

}  // namespace

VBOARD_EXPORT int QuorRegisterRead(ZUdevice* board, unsigned int reg, uint64_t* value) {
    State& s = state();
    std::lock_guard lock(s.mutex);
    const RegisterModel* r = boardRegister(s, board, reg);
    if (!r || !value)
        return PGN_ERR_INVALID_ARGUMENT;
    int n = static_cast<int>(reg);
    if (r->kind != 'S')
        return board->fetch(n, 0, 1, value);
    // A string reads as its first eight bytes, little-endian, zero-padded.
    std::string text;
    if (int rc = board->fetchText(n, text))
        return rc;
    uint64_t word = 0;
    for (std::size_t i = 0; i < text.size() && i < 8; ++i)
        word |= uint64_t{static_cast<unsigned char>(text[i])} << (8 * i);
    *value = word;
    return PGN_OK;
}

VBOARD_EXPORT int QuorRegisterWrite(ZUdevice* board, unsigned int reg, uint64_t value) {
    State& s = state();
    std::lock_guard lock(s.mutex);
    const RegisterModel* r = boardRegister(s, board, reg);
    if (!r)
        return PGN_ERR_INVALID_ARGUMENT;
    // Strings cannot be written word by word.
    if (r->readOnly || r->kind == 'S')
        return PGN_ERR_READ_ONLY;
    if (value > r->maxRaw())
        return PGN_ERR_OUT_OF_RANGE;
    return board->commit(static_cast<int>(reg), 0, {value}, vboard::Path::Raw);
}
