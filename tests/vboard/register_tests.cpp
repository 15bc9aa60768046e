// Register parameters through the runtime: reset state, refusals, value
// conversion, the journal of what was written, and the parameter-info tree.
#include <cmath>
#include <limits>
#include <set>

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

namespace {

// The record at {"Process0", "Bayer", "White_GreenCoefficient"} and the like, or null.
RegisterInfo* at(RegisterInfo* head, const std::vector<std::string>& path) {
    RegisterInfo* r = head;
    while (r && path.front() != r->name) r = r->next;
    for (std::size_t i = 1; i < path.size() && r; ++i) {
        RegisterInfo* group = r->format == REG_FORMAT_GROUP ? r : nullptr;
        r = nullptr;
        for (int k = 0; group && k < group->u.gReg.nrOfElements; ++k)
            if (path[i] == group->u.gReg.elements[k]->name) r = group->u.gReg.elements[k];
    }
    return r;
}

void collectLeaves(const RegisterInfo* r, std::vector<const RegisterInfo*>& out) {
    if (r->format != REG_FORMAT_GROUP) return out.push_back(r);
    for (int i = 0; i < r->u.gReg.nrOfElements; ++i) collectLeaves(r->u.gReg.elements[i], out);
}

}  // namespace

using VBoardTree = BoardTest;

TEST_F(VBoardTree, GroupsFollowTheBlockNames) {
    RegisterInfo* head = Fg_getParameterInfo(fg, 0);
    ASSERT_NE(head, nullptr);
    EXPECT_STREQ(head->name, "Process0");
    ASSERT_NE(head->next, nullptr);
    EXPECT_STREQ(head->next->name, "Process1");
    EXPECT_EQ(head->next->next, nullptr);

    RegisterInfo* control = at(head, {"Process1", "Trigger", "TriggerCam0", "CameraControl"});
    ASSERT_NE(control, nullptr);
    EXPECT_EQ(control->depth, 3);
    EXPECT_STREQ(control->parentName, "TriggerCam0");
    RegisterInfo* leaf = at(head, {"Process1", "Trigger", "TriggerCam0", "CameraControl", "Select0_Select_Select"});
    ASSERT_NE(leaf, nullptr);
    EXPECT_STREQ(leaf->parameterName, "Device1_Process1_Trigger_TriggerCam0_CameraControl_Select0_Select_Select");
    EXPECT_EQ(leaf->id, id(leaf->parameterName));
    EXPECT_EQ(std::tie(leaf->format, leaf->u.uiReg.to, leaf->accessFlags), std::tuple(REG_FORMAT_UINT, 7u, 3));
    EXPECT_EQ(leaf->unit, nullptr);
    EXPECT_NE(at(head, {"Process0", "Buffer", "0_DRAM_A_0_XLength"}), nullptr);

    EXPECT_EQ(Fg_getParameterInfo(fg, 0), head);  // built once
    EXPECT_EQ(Fg_getParameterInfo(fg, 1), nullptr);
}

TEST_F(VBoardTree, EveryRegisterIsOneLeafOfItsKind) {
    RegisterInfo* head = Fg_getParameterInfo(fg, 0);
    std::vector<const RegisterInfo*> leaves;
    for (RegisterInfo* r = head; r; r = r->next) collectLeaves(r, leaves);
    ASSERT_EQ(leaves.size(), 146u);
    std::set<int> ids;
    for (const RegisterInfo* leaf : leaves) {
        ids.insert(leaf->id);
        const int n = leaf->id - vboard::kRegisterIdBase;
        ASSERT_EQ(n, number(leaf->parameterName));
        const bool readOnly = !designRegisters()[static_cast<std::size_t>(n - 1)].writable;
        EXPECT_EQ(leaf->accessFlags, readOnly ? 1 : 3) << leaf->parameterName;
    }
    EXPECT_EQ(ids.size(), 146u);

    // The leaf at the path, which must be of the format (else a blank record).
    const auto leaf = [head](const std::vector<std::string>& path, REG_FORMAT format) -> const RegisterInfo& {
        static const RegisterInfo blank{};
        const RegisterInfo* r = at(head, path);
        EXPECT_TRUE(r && r->format == format) << path.back();
        return r && r->format == format ? *r : blank;
    };
    EXPECT_EQ(static_cast<uint64_t>(leaf({"Process0", "BoardStatus", "FpgaDNA"}, REG_FORMAT_UINT64).u.iReg64.to),
              (uint64_t{1} << 57) - 1);
    const UIntFieldReg_S& lut = leaf({"Process0", "LookupTable", "R_LUTcontent"}, REG_FORMAT_UINTFIELD).u.uifReg;
    EXPECT_EQ(std::tie(lut.nrOfElements, lut.to), std::tuple(4096, 4095u));
    const DoubleReg_S& green = leaf({"Process0", "Bayer", "White_GreenCoefficient"}, REG_FORMAT_DOUBLE).u.dReg;
    EXPECT_EQ(std::tie(green.to, green.steps), std::tuple(4095.0 / 1024, 1.0 / 1024));
    EXPECT_EQ(leaf({"Process0", "BoardStatus", "ChannelCurrent"}, REG_FORMAT_DOUBLEFIELD).u.dfReg.nrOfElements, 4);
    leaf({"Process0", "AppletProperties", "BuildTime"}, REG_FORMAT_STRING);
    const RegisterInfo& format = leaf({"Process0", "OutputFormat", "FG_FORMAT_SelectSource"}, REG_FORMAT_ENUM);
    ASSERT_EQ(format.u.eReg.nrOfElements, 3);
    EXPECT_STREQ(format.u.eReg.enumNames[2], "Color30");
    EXPECT_EQ(format.u.eReg.enumValues[2], 2);
    EXPECT_STREQ(format.u.eReg.enumDefName[2], "Color30");
}
