/* Raw register I/O by register number (libquoriolibrt.so) and the board
 * hardware library (libquor_hw.so). */
#ifndef PELAGON_QUOR_IO_H
#define PELAGON_QUOR_IO_H

#include <stdint.h>

#include "fg_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Register numbers are those of the design runtime (1 to HapGetNrOfRegister). */
int QuorRegisterRead(ZUdevice* board, unsigned int reg, uint64_t* value);
int QuorRegisterWrite(ZUdevice* board, unsigned int reg, uint64_t value);

/* Hardware library. */
int QuorHwGetBoardCount(void);
const char* QuorHwGetVersion(void);

#ifdef __cplusplus
}
#endif

#endif
