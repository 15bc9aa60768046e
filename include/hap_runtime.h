/* The design runtime (libhaprt.so): loads a design image and answers
 * questions about its register parameters and events. */
#ifndef PELAGON_HAP_RUNTIME_H
#define PELAGON_HAP_RUNTIME_H

#include <stddef.h>

#include "fg_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* One event of a design. */
typedef struct hap_event_data {
    const char* name;
    unsigned int index;        /* position among the design's events */
    int is_firmware_event;     /* 1 when the event is delivered to applications */
} hap_event_data;

fpga_design* HapLoadDesignFromBuffer(const void* image, size_t imageSize, int flags);
fpga_design* HapLoadHapFileWithType(const char* fileName, int boardType, int flags);
int HapUnloadHapFile(fpga_design* design);

/* Register parameters are numbered from 1 to HapGetNrOfRegister(). */
int HapGetNrOfRegister(fpga_design* design);
const char* HapGetRegisterName(fpga_design* design, int reg);
int HapGetRegisterByName(fpga_design* design, const char* name);
/* Width in bits of one element of the register (0 for an unknown register). */
int HapGetRegisterBitRange(fpga_design* design, int reg);
/* The event at `index`, or null when the design has no such event. */
const hap_event_data* HapGetEvent(fpga_design* design, int index);

#ifdef __cplusplus
}
#endif

#endif
