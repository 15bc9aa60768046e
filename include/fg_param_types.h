/* Value type codes of typed parameter access and the records used to read and
 * write elements of array parameters. Shared with the frame grabber runtime. */
#ifndef PELAGON_FG_PARAM_TYPES_H
#define PELAGON_FG_PARAM_TYPES_H

#include <stdint.h>

typedef enum FgParamTypes {
    FG_PARAM_TYPE_INVALID = 0,
    FG_PARAM_TYPE_INT32_T = 1,
    FG_PARAM_TYPE_UINT32_T = 2,
    FG_PARAM_TYPE_INT64_T = 3,
    FG_PARAM_TYPE_UINT64_T = 4,
    FG_PARAM_TYPE_DOUBLE = 5,
    FG_PARAM_TYPE_CHAR_PTR = 6,
    FG_PARAM_TYPE_SIZE_T = 7,
    FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS = 4096,
    FG_PARAM_TYPE_STRUCT_FIELDPARAMINT = 4098,
    FG_PARAM_TYPE_STRUCT_FIELDPARAMINT64 = 4099,
    FG_PARAM_TYPE_STRUCT_FIELDPARAMDOUBLE = 4101,
    FG_PARAM_TYPE_COMPLEX_DATATYPE = 8192,
    FG_PARAM_TYPE_AUTO = -1
} FgParamTypes;

/* A range of elements of an array parameter; `vtype` tells how the caller's
 * array is to be read (32/64-bit signed or unsigned, or double). */
typedef struct FieldParameterAccess {
    FgParamTypes vtype;
    uint32_t index;
    uint32_t count;
    uint32_t _pad;
    union {
        int32_t* p_int32_t;
        uint32_t* p_uint32_t;
        int64_t* p_int64_t;
        uint64_t* p_uint64_t;
        double* p_double;
    } p;
} FieldParameterAccess;

/* One unsigned 32-bit element of an array parameter. */
typedef struct FieldParameterInt_s {
    uint32_t value;
    unsigned int index;
} FieldParameterInt_s;

/* One unsigned 64-bit element of an array parameter. */
typedef struct FieldParameterInt64_s {
    uint64_t value;
    unsigned int index;
} FieldParameterInt64_s;

/* One double element of an array parameter. */
typedef struct FieldParameterDouble_s {
    double value;
    unsigned int index;
} FieldParameterDouble_s;

#endif
