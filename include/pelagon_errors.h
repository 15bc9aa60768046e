/* Error numbers shared by the applet and the frame grabber runtime.
 * Every failure is a negative number; 0 is success. */
#ifndef PELAGON_ERRORS_H
#define PELAGON_ERRORS_H

enum PelagonError {
    PGN_OK = 0,
    PGN_ERR_READ_ONLY = -12,             /* write refused: read-only parameter; or runtime function missing */
    PGN_ERR_TRIGGER_BUSY = -60,          /* software trigger while busy and queue off */
    PGN_ERR_DESIGN_NOT_LOADED = -100,    /* design image not loaded, or refused without a reason */
    PGN_ERR_OUT_OF_MEMORY = -500,        /* allocation failed; buffer too small */
    PGN_ERR_NO_INSTANCE = -2001,         /* null handle or handle without an applet instance */
    PGN_ERR_RUNTIME_UNAVAILABLE = -2031, /* runtime library missing or without init function */
    PGN_ERR_INVALID_ARGUMENT = -2070,    /* bad pointer, id, name, index, form or type */
    PGN_ERR_DECODE = -2075,              /* value cannot be decoded; port without parameters */
    PGN_ERR_FILE_MISSING = -2076,        /* LUT or configuration file does not exist */
    PGN_ERR_DOWNSCALE_TOO_SMALL = -2078, /* pulse form generator downscale too small for the rate */
    PGN_ERR_PERIOD_TOO_SHORT = -2079,    /* trigger period shorter than a pulse form */
    PGN_ERR_NOT_SUPPORTED = -2130,       /* operation not offered; unknown information query */
    PGN_ERR_NOT_SOFTWARE_MODE = -2140,   /* software trigger outside software trigger mode */
    PGN_ERR_TRIGGER_NOT_ACTIVE = -2141,  /* software trigger while the trigger is stopped */
    PGN_ERR_BAD_CONFIG = -5000,          /* malformed configuration file */
    PGN_ERR_FILE_IO = -5001,             /* file unreadable or unwritable */
    PGN_ERR_OUT_OF_RANGE = -6000,        /* value out of range, not in the enumeration, or conflicting */
    PGN_ERR_STEP = -7080,                /* value not a multiple of the required step */
    PGN_ERR_KEY_MISSING = -8000          /* key missing in a configuration file */
};

#endif
