// The control interface: what tests and demonstrations use to set up boards,
// look inside them and make them misbehave.
#include <cmath>

#include "board_state.h"

namespace vboard {

using detail::State;
using detail::state;

namespace {

ZUdevice& liveBoard(State& s, ZUdevice* board) {
    if (!s.board(board))
        throw Error("vboard: unknown board");
    return *board;
}

struct Named {
    const RegisterModel& reg;
    int n;
};

Named namedRegister(ZUdevice& board, const std::string& name, char kind, unsigned element) {
    if (!board.design)
        throw Error("vboard: no design is bound to the board");
    int n = 0;
    const RegisterModel* r = board.reg(name, &n);
    if (!r)
        throw Error("vboard: the design has no register " + name);
    if (r->kind != kind)
        throw Error("vboard: " + name + " is of kind " + r->kind + ", not " + kind);
    if (element >= r->count)
        throw Error("vboard: " + name + " has " + std::to_string(r->count) + " element(s), no element " +
                    std::to_string(element));
    return {*r, n};
}

ZUdevice::Cells& cellsOf(ZUdevice& board, const Named& r) { return board.cells[static_cast<std::size_t>(r.n - 1)]; }

}  // namespace

ZUdevice* createBoard() {
    return state().keep(&State::boards, std::make_unique<ZUdevice>());
}

void destroyBoard(ZUdevice* board) {
    State& s = state();
    std::lock_guard lock(s.mutex);
    if (!s.board(board))
        return;
    for (auto& [fg, handle] : s.handles)
        if (handle->board == board)
            handle->detach();
    s.boards.erase(board);
}

std::vector<JournalEntry> journal(ZUdevice* board) {
    State& s = state();
    std::lock_guard lock(s.mutex);
    return liveBoard(s, board).journalEntries();
}

void clearJournal(ZUdevice* board) {
    State& s = state();
    std::lock_guard lock(s.mutex);
    liveBoard(s, board).clearJournal();
}

uint64_t peek(ZUdevice* board, const std::string& name, unsigned element) {
    State& s = state();
    std::lock_guard lock(s.mutex);
    ZUdevice& b = liveBoard(s, board);
    Named r = namedRegister(b, name, 'U', element);
    b.sync();
    return cellsOf(b, r).raw[element];
}

double peekDouble(ZUdevice* board, const std::string& name, unsigned element) {
    State& s = state();
    std::lock_guard lock(s.mutex);
    ZUdevice& b = liveBoard(s, board);
    Named r = namedRegister(b, name, 'D', element);
    b.sync();
    return r.reg.decodeDouble(cellsOf(b, r).raw[element]);
}

std::string peekString(ZUdevice* board, const std::string& name) {
    State& s = state();
    std::lock_guard lock(s.mutex);
    ZUdevice& b = liveBoard(s, board);
    return cellsOf(b, namedRegister(b, name, 'S', 0)).text;
}

void poke(ZUdevice* board, const std::string& name, uint64_t value, unsigned element) {
    State& s = state();
    std::lock_guard lock(s.mutex);
    ZUdevice& b = liveBoard(s, board);
    Named r = namedRegister(b, name, 'U', element);
    if (value > r.reg.maxRaw())
        throw Error("vboard: " + std::to_string(value) + " does not fit the " + std::to_string(r.reg.width) +
                    " bits of " + name);
    b.sync();
    cellsOf(b, r).raw[element] = value;
    b.written(r.n);
}

void pokeDouble(ZUdevice* board, const std::string& name, double value, unsigned element) {
    State& s = state();
    std::lock_guard lock(s.mutex);
    ZUdevice& b = liveBoard(s, board);
    Named r = namedRegister(b, name, 'D', element);
    uint64_t raw = 0;
    if (!r.reg.encodeDouble(value, raw))
        throw Error("vboard: " + std::to_string(value) + " is outside the range 0.." +
                    std::to_string(r.reg.maxFixed()) + " of " + name);
    b.sync();
    cellsOf(b, r).raw[element] = raw;
    b.written(r.n);
}

void pokeString(ZUdevice* board, const std::string& name, const std::string& value) {
    State& s = state();
    std::lock_guard lock(s.mutex);
    ZUdevice& b = liveBoard(s, board);
    Named r = namedRegister(b, name, 'S', 0);
    if (value.size() > r.reg.maxStringLength() || value.find('\0') != std::string::npos)
        throw Error("vboard: a string of " + std::to_string(value.size()) + " characters does not fit " + name +
                    " (at most " + std::to_string(r.reg.maxStringLength()) + ", no zero bytes)");
    cellsOf(b, r).text = value;
}

void injectFault(ZUdevice* board, const std::string& name, Access access, unsigned nth, int code) {
    State& s = state();
    std::lock_guard lock(s.mutex);
    ZUdevice& b = liveBoard(s, board);
    if (nth == 0)
        throw Error("vboard: a fault fires on the 1st access at the earliest, not the 0th");
    if (code == 0)
        throw Error("vboard: a fault needs a non-zero error code");
    if (b.design && !b.reg(name, nullptr))
        throw Error("vboard: the design has no register " + name);
    b.faults.push_back(ZUdevice::Fault{name, access, nth, code});
}

void clearFaults(ZUdevice* board) {
    State& s = state();
    std::lock_guard lock(s.mutex);
    liveBoard(s, board).faults.clear();
}

void failNextInit(int code) {
    State& s = state();
    std::lock_guard lock(s.mutex);
    s.pendingInitFailure = code;
}

}  // namespace vboard
