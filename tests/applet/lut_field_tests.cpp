// Entry writes and reads of the LUT fields, and a sweep of every field
// parameter with every element type a caller could name: nothing may move
// elements of another size than the cache or register holds. (The rollback
// of a refused write is in fault_sweep_tests.cpp.)
#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "BoundaryHelpers.h"
#include "LutHost.h"

using namespace lut;
using boundary::lastError;

namespace {

class LutFields : public AppletTest {
protected:
    void SetUp() override {
        AppletTest::SetUp();
        writeDistinctTables(host);
        before = snapshot(host);
        vboard::clearJournal(host.board);
        for (const RegisterInfo* r : leaves(host.api.Fg_getParameterInfo(host.fg, 0)))
            if (r->format == REG_FORMAT_UINTFIELD || r->format == REG_FORMAT_DOUBLEFIELD) fields.push_back(r);
        ASSERT_EQ(fields.size(), 5u);
    }
    int setElement(int id, FieldParameterInt_s element, int type = FG_PARAM_TYPE_STRUCT_FIELDPARAMINT) {
        return host.api.Fg_setParameterWithType(host.fg, id, &element, 0, type);
    }
    Snapshot before;
    std::vector<const RegisterInfo*> fields;  // the three tables and the two channel read-outs
};

}  // namespace

// Both directions apply the same bounds: a write refuses as out of range, a
// read as an invalid argument; the last element and the whole table fit.
TEST_F(LutFields, RangesMustLieInsideTheTable) {
    std::vector<uint32_t> values(kSize, 5);
    const struct {
        uint32_t index, count;
        bool fits;
    } cases[] = {{4000, 97, false}, {4095, 2, false},       {4096, 0, false}, {4096, 1, false},
                 {0, 4097, false},  {0xFFFFFFFFu, 2, false}, {2, 0xFFFFFFFFu, false}, {1, 0xFFFFFFFFu, false},
                 {4095, 1, true},   {4000, 96, true},        {0, 4096, true}};
    for (const auto& c : cases) {
        SCOPED_TRACE("index " + std::to_string(c.index) + " count " + std::to_string(c.count));
        EXPECT_EQ(setRange(host, RED, range(values.data(), c.index, c.count)), c.fits ? 0 : PGN_ERR_OUT_OF_RANGE);
        EXPECT_EQ(lastError(host), c.fits ? 0 : PGN_ERR_OUT_OF_RANGE);
        FieldParameterAccess read = range(values.data(), c.index, c.count);
        EXPECT_EQ(getRange(host, RED, read), c.fits ? 0 : PGN_ERR_INVALID_ARGUMENT);
        EXPECT_EQ(lastError(host), c.fits ? 0 : PGN_ERR_INVALID_ARGUMENT);
    }
    EXPECT_EQ(registers(host, 0), Table(kSize, 5));
    EXPECT_EQ(setRange(host, GREEN, range(nullptr, 0, 1)), PGN_ERR_OUT_OF_RANGE) << "a range without an array";
    FieldParameterAccess read = range(nullptr, 0, 1);
    EXPECT_EQ(getRange(host, GREEN, read), PGN_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(registers(host, 1), before.hardware[1]);
}

TEST_F(LutFields, APartialRangeChangesOnlyItsEntries) {
    std::vector<uint32_t> values{100, 200, 300};
    ASSERT_EQ(setRange(host, BLUE, range(values.data(), 4093, 3)), 0);
    Table expected = before.hardware[2];
    std::copy(values.begin(), values.end(), expected.begin() + 4093);
    EXPECT_EQ(registers(host, 2), expected);
    EXPECT_EQ(cached(host, 2), expected);
    std::vector<uint32_t> back(3);
    FieldParameterAccess read = range(back.data(), 4093, 3, FG_PARAM_TYPE_INT32_T);
    ASSERT_EQ(getRange(host, BLUE, read), 0);
    EXPECT_EQ(back, values);
}

// Only the first value is range-checked by the applet; the others are the
// register's business (this board refuses them, and the entries roll back).
TEST_F(LutFields, OnlyTheFirstValueIsRangeChecked) {
    std::vector<uint32_t> values{4096, 1};
    EXPECT_EQ(setRange(host, RED, range(values.data(), 0, 2)), PGN_ERR_OUT_OF_RANGE);
    std::vector<int32_t> negative{-1, 1};
    EXPECT_EQ(setRange(host, RED, range(negative.data(), 0, 2, FG_PARAM_TYPE_INT32_T)), PGN_ERR_OUT_OF_RANGE);

    // Named as single-element records, the range passes the applet's type
    // test, so the board's verdict on the type shows how far it got: a
    // second value of 5000 reaches the board, a first value of 4096 does not.
    values = {4095, 5000};
    EXPECT_EQ(setRange(host, RED, range(values.data(), 0, 2, FG_PARAM_TYPE_STRUCT_FIELDPARAMINT)),
              PGN_ERR_INVALID_ARGUMENT);
    values = {4096, 0};
    EXPECT_EQ(setRange(host, RED, range(values.data(), 0, 2, FG_PARAM_TYPE_STRUCT_FIELDPARAMINT)),
              PGN_ERR_OUT_OF_RANGE);

    values = {4095, 5000};
    EXPECT_EQ(setRange(host, RED, range(values.data(), 0, 2)), PGN_ERR_OUT_OF_RANGE) << "refused by the register";
    EXPECT_EQ(snapshot(host), before);
    EXPECT_TRUE(vboard::journal(host.board).empty());
}

TEST_F(LutFields, SingleEntriesAreCheckedAndWrittenAlone) {
    const struct {
        uint32_t value, index;
        int result;
    } cases[] = {{4095, 4095, 0}, {0, 0, 0}, {4096, 3, PGN_ERR_OUT_OF_RANGE}, {1, 4096, PGN_ERR_OUT_OF_RANGE},
                 {1, 0xFFFFFFFFu, PGN_ERR_OUT_OF_RANGE}};
    for (const auto& c : cases) EXPECT_EQ(setElement(BLUE, {c.value, c.index}), c.result) << c.value << " at " << c.index;
    EXPECT_EQ(vboard::journal(host.board).size(), 2u) << "one register element per accepted entry";
    EXPECT_EQ(registers(host, 2)[4095], 4095u);
    EXPECT_EQ(registers(host, 2)[0], 0u);
    FieldParameterInt_s element{0, 4096};
    EXPECT_EQ(host.api.Fg_getParameterWithType(host.fg, BLUE, &element, 0, FG_PARAM_TYPE_STRUCT_FIELDPARAMINT),
              PGN_ERR_INVALID_ARGUMENT);
    // Any type other than the range form means one element.
    ASSERT_EQ(setElement(BLUE, {77, 5}, FG_PARAM_TYPE_UINT32_T), 0);
    element = {0, 5};
    ASSERT_EQ(host.api.Fg_getParameterWithType(host.fg, BLUE, &element, 0, FG_PARAM_TYPE_DOUBLE), 0);
    EXPECT_EQ(element.value, 77u);
}

// Every field parameter with every element type: in both directions only
// the element types that fit are served, exactly `count` elements of the
// cache's size move, and the caller's memory around them stays untouched.
TEST_F(LutFields, EveryFieldWithEveryElementTypeMovesOnlyElementsOfItsOwnSize) {
    const int32_t types[] = {0,    1,    2,    3,     4,    5,    6,  7,  8,     4096,    4097,   4098,
                             4099, 4100, 4101, 8192, 16384, -1, -2, -7, 12345, 0x7fff, INT_MAX, INT_MIN};
    constexpr size_t kGuard = 64;
    constexpr unsigned char kPattern = 0xA5;
    for (const RegisterInfo* field : fields) {
        const bool isDouble = field->format == REG_FORMAT_DOUBLEFIELD;
        const uint32_t count = isDouble ? field->u.dfReg.nrOfElements : field->u.uifReg.nrOfElements;
        const size_t elementSize = isDouble ? sizeof(double) : sizeof(uint32_t);
        for (int32_t type : types) {
            SCOPED_TRACE(std::string(field->parameterName) + " vtype " + std::to_string(type));
            const bool fits = isDouble ? type == FG_PARAM_TYPE_DOUBLE
                                       : type == FG_PARAM_TYPE_INT32_T || type == FG_PARAM_TYPE_UINT32_T;
            // The single-element record code passes the LUT type test but moves nothing.
            const bool accepted = fits || (!isDouble && type == FG_PARAM_TYPE_STRUCT_FIELDPARAMINT);

            // Room for 8-byte elements between two guards.
            std::vector<unsigned char> memory(2 * kGuard + count * sizeof(uint64_t), kPattern);
            FieldParameterAccess access = range(memory.data() + kGuard, 0, count, type);
            EXPECT_EQ(getRange(host, field->id, access), accepted ? 0 : PGN_ERR_INVALID_ARGUMENT);
            const size_t moved = fits ? count * elementSize : 0;
            for (size_t i = kGuard + moved; i < memory.size(); ++i)
                ASSERT_EQ(memory[i], kPattern) << "byte " << i - kGuard << " of the caller's array";
            for (size_t i = 0; i < kGuard; ++i) ASSERT_EQ(memory[i], kPattern);

            // Writes: entries that are valid as 32-bit values, whatever the type says.
            std::vector<uint32_t> values(2 * count);
            for (uint32_t i = 0; i < values.size(); ++i) values[i] = (i * 13) % kSize;
            // The single-element record code is refused by the board instead.
            const int expectedSet = isDouble ? PGN_ERR_READ_ONLY : fits ? 0 : PGN_ERR_INVALID_ARGUMENT;
            EXPECT_EQ(setRange(host, field->id, range(values.data(), 0, count, type)), expectedSet);
            EXPECT_EQ(lastError(host), expectedSet);
            if (isDouble) continue;
            const int c = field->id - RED;
            const Table expected = fits ? Table(values.begin(), values.begin() + count) : before.hardware[c];
            ASSERT_EQ(registers(host, c), expected);
            ASSERT_EQ(cached(host, c), expected);
            ASSERT_EQ(setRange(host, field->id, range(before.hardware[c].data(), 0, count)), 0);
        }
    }
}

// Single elements: any type code other than the range form selects the
// field's own single-element record, except a code that names the record of
// another element type, whose layout differs, and an integer that is no type
// code at all.
TEST_F(LutFields, EveryFieldWithEveryTypeArgumentReadsOnlyItsOwnSingleRecord) {
    const int32_t types[] = {0,    1,    2,  3,  4,     5,      6,     7,         4098,     4099,
                             4101, 8192, -1, -7, 12345, -16384, 16383, INT32_MIN, INT32_MAX};
    constexpr unsigned char kPattern = 0xA5;
    for (const RegisterInfo* field : fields) {
        const bool isDouble = field->format == REG_FORMAT_DOUBLEFIELD;
        const size_t recordSize = isDouble ? sizeof(FieldParameterDouble_s) : sizeof(FieldParameterInt_s);
        for (int32_t type : types) {
            SCOPED_TRACE(std::string(field->parameterName) + " type " + std::to_string(type));
            const bool unknown = type == -7 || type == 12345 || type == -16384 || type == 16383 ||
                                 type == INT32_MIN || type == INT32_MAX;
            const bool other = unknown || (isDouble ? type == FG_PARAM_TYPE_STRUCT_FIELDPARAMINT ||
                                                          type == FG_PARAM_TYPE_STRUCT_FIELDPARAMINT64
                                                    : type == FG_PARAM_TYPE_STRUCT_FIELDPARAMINT64 ||
                                                          type == FG_PARAM_TYPE_STRUCT_FIELDPARAMDOUBLE);
            alignas(8) unsigned char memory[64];
            std::memset(memory, kPattern, sizeof memory);
            const unsigned index = 3;
            std::memcpy(memory + (isDouble ? sizeof(double) : sizeof(uint32_t)), &index, sizeof index);
            EXPECT_EQ(host.api.Fg_getParameterWithType(host.fg, field->id, memory, 0, type),
                      other ? PGN_ERR_INVALID_ARGUMENT : 0);
            for (size_t i = recordSize; i < sizeof memory; ++i) ASSERT_EQ(memory[i], kPattern) << "byte " << i;

            if (isDouble) {
                EXPECT_EQ(host.api.Fg_setParameterWithType(host.fg, field->id, memory, 0, type), PGN_ERR_READ_ONLY);
                continue;
            }
            EXPECT_EQ(setElement(field->id, {42, index}, type), other ? PGN_ERR_INVALID_ARGUMENT : 0);
            const int c = field->id - RED;
            EXPECT_EQ(registers(host, c)[index], other ? before.hardware[c][index] : 42u);
            ASSERT_EQ(setElement(field->id, {before.hardware[c][index], index}), 0);
        }
    }
}
