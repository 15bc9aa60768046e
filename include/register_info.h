/* Parameter-info records: the description of one parameter or group that the
 * applet and the runtime publish (name, id, type, limits, access, unit). */
#ifndef PELAGON_REGISTER_INFO_H
#define PELAGON_REGISTER_INFO_H

#include <stdint.h>

typedef enum REG_FORMAT {
    REG_FORMAT_GROUP = 0,
    REG_FORMAT_UINT = 1,
    REG_FORMAT_FLOAT = 2,
    REG_FORMAT_ENUM = 3,
    REG_FORMAT_LUT = 4,
    REG_FORMAT_STRING = 5,
    REG_FORMAT_DOUBLE = 6,
    REG_FORMAT_UINTFIELD = 7,
    REG_FORMAT_DOUBLEFIELD = 8,
    REG_FORMAT_UINT64 = 9,
    REG_FORMAT_UINTFIELD64 = 10,
    REG_FORMAT_INT = 11,
    REG_FORMAT_INT64 = 12,
    REG_FORMAT_INTFIELD = 13,
    REG_FORMAT_INTFIELD64 = 14,
    REG_FORMAT_STRINGFIELD = 15,
    REG_FORMAT_ENUMFIELD = 16
} REG_FORMAT;

/* accessFlags bits */
enum { REG_ACCESS_READ = 1, REG_ACCESS_WRITE = 2, REG_ACCESS_CHANGE = 4 };

struct RegisterInfo;

typedef struct IntReg_S { int32_t from, to, steps, value; } IntReg_S;
typedef struct UIntReg_S { uint32_t from, to, steps, value; } UIntReg_S;
typedef struct IntReg64_S { int64_t from, to, steps, value; } IntReg64_S;
typedef struct FloatReg_S { float from, to, steps, value; } FloatReg_S;
typedef struct DoubleReg_S { double from, to, steps, value; } DoubleReg_S;

typedef struct IntFieldReg_S {
    int32_t from;
    int32_t to;
    int32_t nrOfElements;
    int32_t index;
    int32_t value;
} IntFieldReg_S;

typedef struct UIntFieldReg_S {
    uint32_t from;
    uint32_t to;
    int32_t nrOfElements;
    int32_t index;
    uint32_t value;
} UIntFieldReg_S;

typedef struct Int64FieldReg_S {
    uint64_t from;
    uint64_t to;
    int32_t nrOfElements;
    int32_t index;
    uint64_t value;
} Int64FieldReg_S;

typedef struct DoubleFieldReg_S {
    double from;
    double to;
    int32_t nrOfElements;
    int32_t index;
    double value;
} DoubleFieldReg_S;

typedef struct GroupReg_S {
    int32_t nrOfElements;            /* children so far */
    struct RegisterInfo** elements;  /* owned array, children in creation order */
    int32_t autoIndex;               /* index that the next child receives */
} GroupReg_S;

typedef struct EnumReg_S {
    int32_t nrOfElements;
    char** enumNames;                /* display names */
    int32_t* enumValues;
    int32_t absValue;
    int32_t indexValue;
    char** enumDefName;              /* symbolic names, or null entries */
} EnumReg_S;

typedef struct LutReg_S { int32_t nrOfElements, nrOfBits, id, number; } LutReg_S;

typedef struct StringReg_S {
    char* string;
    char* FileExtension;
    int32_t strLen;
} StringReg_S;

typedef struct RegisterInfo {
    REG_FORMAT format;
    int32_t index;                   /* position inside the parent group */
    char* name;                      /* display name, or the group title */
    char* parameterName;             /* SDK name; null for groups */
    int32_t accessFlags;
    int32_t rangeFlags;
    int32_t visibilityFlags;
    int32_t id;
    union {
        GroupReg_S gReg;
        UIntReg_S uiReg;
        FloatReg_S fReg;
        EnumReg_S eReg;
        LutReg_S lReg;
        StringReg_S sReg;
        DoubleReg_S dReg;
        UIntFieldReg_S uifReg;
        DoubleFieldReg_S dfReg;
        IntReg64_S iReg64;
        Int64FieldReg_S if64Reg;
        IntReg_S iReg;
        IntFieldReg_S ifReg;
    } u;
    struct RegisterInfo* next;       /* top-level list only */
    struct RegisterInfo* previous;
    int32_t depth;                   /* nesting depth of a group */
    char* parentName;                /* nested groups: the parent's name */
    char* unit;
    int32_t port;
} RegisterInfo;

#endif
