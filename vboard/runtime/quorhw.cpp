// The board hardware library: how many boards there are, and its version.
#include "board_state.h"
#include "quor_io.h"
#include "runtime_export.h"

VBOARD_EXPORT int QuorHwGetBoardCount(void) {
    vboard::detail::State& s = vboard::detail::state();
    std::lock_guard lock(s.mutex);
    return static_cast<int>(s.boards.size());
}

VBOARD_EXPORT const char* QuorHwGetVersion(void) { return "Pelagon virtual board 1.0"; }
