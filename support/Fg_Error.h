/* Last error number of one applet instance. Parameter calls record it under
 * the parameter lock, but the pass-through acquisition calls record it from
 * whatever thread they run on, so the number itself is atomic. */
#ifndef PELAGON_SUPPORT_FG_ERROR_H
#define PELAGON_SUPPORT_FG_ERROR_H

#include <atomic>

class Fg_Error {
public:
    Fg_Error() = default;

    // Records code and hands it back, so a failing operation can write
    // `return error.setErr(code);`.
    int setErr(int code);

    // Always answers "not supported" and records nothing; callers of the
    // runtime's level-2 error interface rely on exactly this.
    int setErrLevel2(int code, const char* text);

    int getErrorNumberBuffer() const;

private:
    std::atomic<int> error_number_buffer{0};
};

#endif
