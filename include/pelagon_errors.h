/* Error numbers shared by the applet and the frame grabber runtime, with the
 * meaning each one has for a user. Every failure is a negative number; 0 is
 * success. The list below is the only place either is written: the enum and
 * pelagon_error_text() are made from it. */
#ifndef PELAGON_ERRORS_H
#define PELAGON_ERRORS_H

/* X(NAME, number, meaning) */
#define PELAGON_ERRORS(X)                                                                                      \
    X(PGN_OK, 0, "no error")                                                                                   \
    X(PGN_ERR_READ_ONLY, -12, "the parameter is read-only, or the runtime lacks the function")                 \
    X(PGN_ERR_TRIGGER_BUSY, -60, "the trigger is busy and the queue is off")                                   \
    X(PGN_ERR_DESIGN_NOT_LOADED, -100, "the design image could not be loaded")                                 \
    X(PGN_ERR_OUT_OF_MEMORY, -500, "out of memory, or the buffer is too small")                                \
    X(PGN_ERR_NO_INSTANCE, -2001, "no applet instance behind the handle")                                      \
    X(PGN_ERR_RUNTIME_UNAVAILABLE, -2031, "the frame grabber runtime is missing or unusable")                  \
    X(PGN_ERR_INVALID_ARGUMENT, -2070, "invalid argument: pointer, id, name, index, form or type")             \
    X(PGN_ERR_DECODE, -2075, "the value cannot be decoded")                                                    \
    X(PGN_ERR_FILE_MISSING, -2076, "the file does not exist")                                                  \
    X(PGN_ERR_DOWNSCALE_TOO_SMALL, -2078, "the pulse form generator downscale is too small for the trigger rate") \
    X(PGN_ERR_PERIOD_TOO_SHORT, -2079, "the trigger period is shorter than a pulse form")                      \
    X(PGN_ERR_TIMEOUT, -2120, "time-out: no frame arrived in time")                                            \
    X(PGN_ERR_NOT_SUPPORTED, -2130, "the operation is not supported")                                          \
    X(PGN_ERR_NOT_SOFTWARE_MODE, -2140, "software trigger outside the software trigger mode")                  \
    X(PGN_ERR_TRIGGER_NOT_ACTIVE, -2141, "software trigger while the trigger is not active")                   \
    X(PGN_ERR_BAD_CONFIG, -5000, "malformed configuration file")                                               \
    X(PGN_ERR_FILE_IO, -5001, "the file cannot be read or written")                                            \
    X(PGN_ERR_OUT_OF_RANGE, -6000,                                                                             \
      "value out of range, not in the enumeration, or in conflict with another parameter")                      \
    X(PGN_ERR_STEP, -7080, "value not a multiple of the required step")                                        \
    X(PGN_ERR_KEY_MISSING, -8000, "a key is missing in the configuration file")

#define PELAGON_ERROR_ENUMERATOR(name, number, meaning) name = number,
enum PelagonError { PELAGON_ERRORS(PELAGON_ERROR_ENUMERATOR) };
#undef PELAGON_ERROR_ENUMERATOR

/* The meaning of an error number; a null pointer for numbers not listed. */
static inline const char* pelagon_error_text(int code) {
#define PELAGON_ERROR_CASE(name, number, meaning) \
    if (code == (number)) return meaning;
    PELAGON_ERRORS(PELAGON_ERROR_CASE)
#undef PELAGON_ERROR_CASE
    return 0;
}

#endif
