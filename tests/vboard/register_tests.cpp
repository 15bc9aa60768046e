// Register parameters through the runtime: reset state, refusals, value
// conversion, and the journal of what was written.
#include <cmath>
#include <limits>

#include "vboard_fixture.h"

using namespace vboard_test;

using VBoardRegisters = BoardTest;
using VBoardJournal = BoardTest;

TEST_F(VBoardRegisters, BindingSetsTheBoardsResetState) {
    EXPECT_EQ(vboard::peekString(board, kAppletUid), "PELAGON-CXP2-BAYER12-30203");
    EXPECT_EQ(vboard::peekString(board, kBuildTime), "2017-08-09 07:26:05");
    EXPECT_NEAR(vboard::peekDouble(board, "Device1_Process0_BoardStatus_FpgaTemperature"), 48.0, 2.0);
    EXPECT_NEAR(vboard::peekDouble(board, "Device1_Process0_BoardStatus_FpgaVccInt"), 0.95, 0.02);
    EXPECT_EQ(vboard::peek(board, kFpgaDna) >> 56, 1u) << "all 57 bits used";
    for (unsigned channel = 0; channel < 4; ++channel)
        EXPECT_EQ(vboard::peekDouble(board, kChannelCurrent, channel), 0.0);

    // Binding again resets the values but keeps the journal.
    ASSERT_EQ(setU(kImageWidth, 100), 0);
    Fg_Struct* second = Fg_InitHandle("Pelagon.hap", board, design);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(vboard::peek(board, kImageWidth), 0u);
    EXPECT_EQ(vboard::journal(board).size(), 1u);
    EXPECT_EQ(Fg_FreeGrabber(second), 0);
}

TEST_F(VBoardRegisters, UnsignedValuesMustFitWidthAndSign) {
    EXPECT_EQ(setU(kImageWidth, 8191), 0);
    EXPECT_EQ(setU(kImageWidth, 8192), PGN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(Fg_getLastErrorNumber(fg), PGN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(set(kImageWidth, int32_t{-1}, FG_PARAM_TYPE_INT32_T), PGN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(set(kImageWidth, int64_t{-1}, FG_PARAM_TYPE_INT64_T), PGN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(vboard::peek(board, kImageWidth), 8191u);  // nothing stored by the refusals

    EXPECT_EQ(set(kImageWidth, int64_t{17}, FG_PARAM_TYPE_INT64_T), 0);
    EXPECT_EQ(set(kImageWidth, size_t{18}, FG_PARAM_TYPE_SIZE_T), 0);
    uint64_t wide = 0, dna = 0;
    EXPECT_EQ(get(kImageWidth, wide, FG_PARAM_TYPE_UINT64_T), 0);
    EXPECT_EQ(wide, 18u);
    EXPECT_EQ(Fg_getLastErrorNumber(fg), 0);

    // A 4-byte read of the 57-bit DNA delivers its low 32 bits.
    uint32_t low = 0;
    EXPECT_EQ(get(kFpgaDna, dna, FG_PARAM_TYPE_UINT64_T), 0);
    EXPECT_EQ(get(kFpgaDna, low, FG_PARAM_TYPE_UINT32_T), 0);
    EXPECT_EQ(dna, vboard::peek(board, kFpgaDna));
    EXPECT_EQ(low, static_cast<uint32_t>(dna));
}

TEST_F(VBoardRegisters, RefusalsOfFormTypeIndexAndAccess) {
    uint32_t u = 1;
    double d = 1.0;
    FieldParameterInt_s element{1, 0};
    EXPECT_EQ(setU(kFillLevel, 1), PGN_ERR_READ_ONLY);
    EXPECT_EQ(setU(kFillLevel, 1000), PGN_ERR_READ_ONLY);
    EXPECT_EQ(get(kFillLevel, u, FG_PARAM_TYPE_UINT32_T), 0);
    EXPECT_EQ(set(kImageWidth, 1.0, FG_PARAM_TYPE_DOUBLE), PGN_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(setU(kGreenCoefficient, 1), PGN_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(setU(kRedLut, 1), PGN_ERR_INVALID_ARGUMENT);  // fields need a field form
    EXPECT_EQ(set(kImageWidth, 1u, FG_PARAM_TYPE_COMPLEX_DATATYPE), PGN_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(set(kImageWidth, element, FG_PARAM_TYPE_STRUCT_FIELDPARAMINT), 0);
    element.index = 1;
    EXPECT_EQ(set(kImageWidth, element, FG_PARAM_TYPE_STRUCT_FIELDPARAMINT), PGN_ERR_INVALID_ARGUMENT);
    element.index = 4096;
    EXPECT_EQ(set(kRedLut, element, FG_PARAM_TYPE_STRUCT_FIELDPARAMINT), PGN_ERR_INVALID_ARGUMENT);

    const int width = id(kImageWidth);
    EXPECT_EQ(Fg_setParameterWithType(fg, width, &u, 1, FG_PARAM_TYPE_UINT32_T), PGN_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(Fg_setParameterWithType(fg, width, nullptr, 0, FG_PARAM_TYPE_UINT32_T), PGN_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(Fg_getParameterWithType(fg, width, nullptr, 0, FG_PARAM_TYPE_UINT32_T), PGN_ERR_INVALID_ARGUMENT);
    for (int unknown : {vboard::kRegisterIdBase, vboard::kRegisterIdBase + 147, 12345, -1})
        EXPECT_EQ(Fg_getParameterWithType(fg, unknown, &d, 0, FG_PARAM_TYPE_DOUBLE), PGN_ERR_INVALID_ARGUMENT);

    EXPECT_EQ(width, vboard::kRegisterIdBase + number(kImageWidth));
    EXPECT_EQ(id("Device1_Nothing"), PGN_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(Fg_getLastErrorNumber(fg), PGN_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(id(nullptr), PGN_ERR_INVALID_ARGUMENT);
    EXPECT_GT(id(kFillLevel), 0);
    EXPECT_EQ(Fg_getLastErrorNumber(fg), 0);  // an id is a success, not an error number
    EXPECT_EQ(vboard::journal(board).size(), 1u);  // only the one accepted write
}

TEST_F(VBoardRegisters, FieldRangesAreCheckedBeforeAnythingIsStored) {
    std::vector<uint32_t> values(97, 5);
    FieldParameterAccess access{FG_PARAM_TYPE_UINT32_T, 4000, 96, 0, {}};
    access.p.p_uint32_t = values.data();
    const auto write = [&] { return set(kRedLut, access, FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS); };
    EXPECT_EQ(write(), 0);
    EXPECT_EQ(vboard::peek(board, kRedLut, 4095), 5u);

    access.count = 97;
    EXPECT_EQ(write(), PGN_ERR_INVALID_ARGUMENT);
    access.count = 0;
    EXPECT_EQ(write(), PGN_ERR_INVALID_ARGUMENT);
    access.count = 96;
    access.vtype = FG_PARAM_TYPE_DOUBLE;
    EXPECT_EQ(write(), PGN_ERR_INVALID_ARGUMENT);
    access.vtype = FG_PARAM_TYPE_UINT32_T;
    access.p.p_uint32_t = nullptr;
    EXPECT_EQ(write(), PGN_ERR_INVALID_ARGUMENT);

    // One element out of range spoils the whole write.
    vboard::clearJournal(board);
    access.p.p_uint32_t = values.data();
    values[50] = 4096;
    std::fill(values.begin(), values.begin() + 50, 9u);
    EXPECT_EQ(write(), PGN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(vboard::peek(board, kRedLut, 4000), 5u);
    EXPECT_TRUE(vboard::journal(board).empty());
}

TEST_F(VBoardRegisters, FixedPointValuesAreQuantisedAndBounded) {
    const double step = 1.0 / 1024, max = 4095.0 / 1024;
    double back = 0;
    uint64_t stored = 0;
    EXPECT_EQ(set(kGreenCoefficient, 1.2345, FG_PARAM_TYPE_DOUBLE), 0);
    EXPECT_EQ(get(kGreenCoefficient, back, FG_PARAM_TYPE_DOUBLE), 0);
    EXPECT_EQ(back, 1264 * step);
    EXPECT_EQ(QuorRegisterRead(board, raw(kGreenCoefficient), &stored), 0);
    EXPECT_EQ(stored, 1264u);

    EXPECT_EQ(set(kGreenCoefficient, max, FG_PARAM_TYPE_DOUBLE), 0);
    EXPECT_EQ(set(kGreenCoefficient, 0.0, FG_PARAM_TYPE_DOUBLE), 0);
    for (double bad : {max + step / 4, -step, 4.0, std::nan(""), std::numeric_limits<double>::infinity()})
        EXPECT_EQ(set(kGreenCoefficient, bad, FG_PARAM_TYPE_DOUBLE), PGN_ERR_OUT_OF_RANGE) << bad;
    EXPECT_EQ(vboard::peekDouble(board, kGreenCoefficient), 0.0);

    // IEEE registers keep any value, read here element-wise.
    vboard::pokeDouble(board, kChannelCurrent, -1e300, 3);
    FieldParameterDouble_s element{0, 3};
    EXPECT_EQ(get(kChannelCurrent, element, FG_PARAM_TYPE_STRUCT_FIELDPARAMDOUBLE), 0);
    EXPECT_EQ(element.value, -1e300);
}

TEST_F(VBoardRegisters, StringsAndUntypedAccess) {
    char text[64] = {};
    EXPECT_EQ(Fg_getParameterWithType(fg, id(kBuildTime), text, 0, FG_PARAM_TYPE_CHAR_PTR), 0);
    EXPECT_STREQ(text, "2017-08-09 07:26:05");
    EXPECT_EQ(Fg_setParameterWithType(fg, id(kBuildTime), "x", 0, FG_PARAM_TYPE_CHAR_PTR), PGN_ERR_READ_ONLY);
    uint64_t word = 0;
    EXPECT_EQ(QuorRegisterRead(board, raw(kAppletUid), &word), 0);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&word), 8), "PELAGON-");

    // Untyped: the register's own type, element 0 of fields.
    uint32_t width = 640, lut = 0;
    EXPECT_EQ(Fg_setParameter(fg, id(kImageWidth), &width, 0), 0);
    EXPECT_EQ(vboard::peek(board, kImageWidth), 640u);
    uint64_t dna = 0;
    EXPECT_EQ(Fg_getParameter(fg, id(kFpgaDna), &dna, 0), 0);
    EXPECT_EQ(dna, vboard::peek(board, kFpgaDna));
    vboard::poke(board, kRedLut, 77, 0);
    EXPECT_EQ(Fg_getParameter(fg, id(kRedLut), &lut, 0), 0);
    EXPECT_EQ(lut, 77u);
    double coefficient = 2.5;
    EXPECT_EQ(Fg_setParameter(fg, id(kGreenCoefficient), &coefficient, 0), 0);
    EXPECT_EQ(vboard::peekDouble(board, kGreenCoefficient), 2.5);
    char uid[64] = {};
    EXPECT_EQ(Fg_getParameter(fg, id(kAppletUid), uid, 0), 0);
    EXPECT_STREQ(uid, "PELAGON-CXP2-BAYER12-30203");
}

TEST_F(VBoardJournal, RecordsEveryWrittenElementInOrder) {
    ASSERT_EQ(setU(kImageWidth, 1024), 0);
    ASSERT_EQ(set(kGreenCoefficient, 1.5, FG_PARAM_TYPE_DOUBLE), 0);
    ASSERT_EQ(setU(kImageWidth, 9000), PGN_ERR_OUT_OF_RANGE);
    std::vector<uint32_t> lut(4096);
    for (uint32_t i = 0; i < lut.size(); ++i) lut[i] = 4095 - i;
    FieldParameterAccess access{FG_PARAM_TYPE_UINT32_T, 0, 4096, 0, {}};
    access.p.p_uint32_t = lut.data();
    ASSERT_EQ(set(kRedLut, access, FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS), 0);
    ASSERT_EQ(set(kRedLut, FieldParameterInt64_s{12, 7}, FG_PARAM_TYPE_STRUCT_FIELDPARAMINT64), 0);
    ASSERT_EQ(QuorRegisterWrite(board, raw(kGreenCoefficient), 512), 0);

    const std::vector<vboard::JournalEntry> j = vboard::journal(board);
    ASSERT_EQ(j.size(), 2u + 4096u + 1u + 1u);
    EXPECT_EQ(std::tie(j[0].reg, j[0].name, j[0].kind, j[0].u),
              std::tuple(number(kImageWidth), kImageWidth, 'U', 1024u));
    EXPECT_EQ(j[0].path, vboard::Path::Parameter);
    EXPECT_EQ(std::tie(j[1].kind, j[1].d), std::tuple('D', 1.5));
    for (unsigned i = 0; i < 4096; ++i)
        ASSERT_EQ(std::tie(j[2 + i].element, j[2 + i].u, j[2 + i].name), std::tuple(i, 4095u - i, kRedLut));
    EXPECT_EQ(std::tie(j[4098].element, j[4098].u), std::tuple(7u, 12u));
    EXPECT_EQ(std::tie(j.back().u, j.back().d), std::tuple(512u, 0.5));
    EXPECT_EQ(j.back().path, vboard::Path::Raw);
    vboard::clearJournal(board);
    EXPECT_TRUE(vboard::journal(board).empty());
}

TEST_F(VBoardJournal, RawPathSharesStorageAndChecks) {
    const unsigned width = raw(kImageWidth);
    uint32_t value = 0;
    uint64_t word = 0;
    EXPECT_EQ(QuorRegisterWrite(board, width, 77), 0);
    EXPECT_EQ(get(kImageWidth, value, FG_PARAM_TYPE_UINT32_T), 0);
    EXPECT_EQ(value, 77u);
    EXPECT_EQ(QuorRegisterWrite(board, width, 8192), PGN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(QuorRegisterWrite(board, raw(kFillLevel), 1), PGN_ERR_READ_ONLY);
    EXPECT_EQ(QuorRegisterWrite(board, raw(kAppletUid), 1), PGN_ERR_READ_ONLY);
    vboard::poke(board, kRedLut, 33, 0);
    EXPECT_EQ(QuorRegisterRead(board, raw(kRedLut), &word), 0);
    EXPECT_EQ(word, 33u);

    for (unsigned bad : {0u, 147u}) EXPECT_EQ(QuorRegisterRead(board, bad, &word), PGN_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(QuorRegisterRead(board, width, nullptr), PGN_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(QuorRegisterWrite(nullptr, width, 1), PGN_ERR_INVALID_ARGUMENT);
    ZUdevice* bare = vboard::createBoard();  // no design bound
    EXPECT_EQ(QuorRegisterWrite(bare, width, 1), PGN_ERR_INVALID_ARGUMENT);
    vboard::destroyBoard(bare);
    EXPECT_EQ(QuorRegisterRead(bare, width, &word), PGN_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(vboard::journal(board).size(), 1u);
}
