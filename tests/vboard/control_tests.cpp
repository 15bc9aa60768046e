// The control interface and the handle life cycle: faults, failing inits,
// stale handles and boards, test access.
#include "vboard_fixture.h"

using namespace vboard_test;

using VBoardFaults = BoardTest;
using VBoardControl = BoardTest;

TEST_F(VBoardFaults, FireOnTheNthMatchingAccessOnly) {
    vboard::injectFault(board, kImageWidth, vboard::Access::Write, 2, -5);
    vboard::injectFault(board, kImageWidth, vboard::Access::Read, 1, -7);
    EXPECT_EQ(set(kImageWidth, 1u, FG_PARAM_TYPE_UINT32_T), 0);
    EXPECT_EQ(set(kImageWidth, 9999u, FG_PARAM_TYPE_UINT32_T), PGN_ERR_OUT_OF_RANGE);  // refused first: not counted
    EXPECT_EQ(set(kImageWidth, 2u, FG_PARAM_TYPE_UINT32_T), -5);
    EXPECT_EQ(Fg_getLastErrorNumber(fg), -5);
    EXPECT_EQ(set(kImageWidth, 3u, FG_PARAM_TYPE_UINT32_T), 0);

    uint32_t value = 42;
    EXPECT_EQ(get(kImageWidth, value, FG_PARAM_TYPE_UINT32_T), -7);
    EXPECT_EQ(value, 42u);  // nothing returned
    EXPECT_EQ(get(kImageWidth, value, FG_PARAM_TYPE_UINT32_T), 0);
    EXPECT_EQ(value, 3u);

    std::vector<vboard::JournalEntry> j = vboard::journal(board);
    ASSERT_EQ(j.size(), 2u);
    EXPECT_EQ(j[1].u, 3u);
}

TEST_F(VBoardFaults, RawPathCountsAndSeveralMayBePending) {
    const unsigned n = static_cast<unsigned>(number(kGreenCoefficient));
    vboard::injectFault(board, kGreenCoefficient, vboard::Access::Write, 1, -11);
    vboard::injectFault(board, kGreenCoefficient, vboard::Access::Write, 3, -33);
    EXPECT_EQ(QuorRegisterWrite(board, n, 1), -11);
    EXPECT_EQ(set(kGreenCoefficient, 1.0, FG_PARAM_TYPE_DOUBLE), 0);
    EXPECT_EQ(QuorRegisterWrite(board, n, 2), -33);
    EXPECT_EQ(QuorRegisterWrite(board, n, 3), 0);

    vboard::injectFault(board, kGreenCoefficient, vboard::Access::Read, 1, -9);
    vboard::clearFaults(board);
    uint64_t word = 0;
    EXPECT_EQ(QuorRegisterRead(board, n, &word), 0);
    EXPECT_EQ(word, 3u);
}

TEST(VBoardFaultSetup, FaultsInjectedBeforeBindingSurviveIt) {
    ZUdevice* board = vboard::createBoard();
    vboard::injectFault(board, kImageWidth, vboard::Access::Write, 1, -9);
    EXPECT_THROW(vboard::injectFault(board, kImageWidth, vboard::Access::Write, 0, -9), vboard::Error);
    EXPECT_THROW(vboard::injectFault(board, kImageWidth, vboard::Access::Write, 1, 0), vboard::Error);

    fpga_design* design = HapLoadDesignFromBuffer(designImage().data(), designImage().size(), 1);
    Fg_Struct* fg = Fg_InitHandle("Pelagon.hap", board, design);
    ASSERT_NE(fg, nullptr);
    uint32_t value = 5;
    EXPECT_EQ(Fg_setParameterWithType(fg, Fg_getParameterIdByName(fg, kImageWidth), &value, 0,
                                      FG_PARAM_TYPE_UINT32_T),
              -9);
    EXPECT_THROW(vboard::injectFault(board, "Device1_Nothing", vboard::Access::Read, 1, -9), vboard::Error);
    Fg_FreeGrabber(fg);
    HapUnloadHapFile(design);
    vboard::destroyBoard(board);
    EXPECT_THROW(vboard::injectFault(board, kImageWidth, vboard::Access::Read, 1, -9), vboard::Error);
}

TEST_F(VBoardControl, InitFailsOnRequestAndOnUnknownBoardOrDesign) {
    vboard::failNextInit(-777);
    EXPECT_EQ(Fg_InitHandleSlaveAware("Pelagon.hap", board, design, 0), nullptr);
    EXPECT_EQ(Fg_getLastErrorNumber(nullptr), -777);
    Fg_Struct* again = Fg_InitHandle("Pelagon.hap", board, design);  // only the next one failed
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(Fg_getLastErrorNumber(nullptr), 0);
    Fg_FreeGrabber(again);

    fpga_design* unloaded = HapLoadDesignFromBuffer(designImage().data(), designImage().size(), 1);
    HapUnloadHapFile(unloaded);
    EXPECT_EQ(Fg_InitHandle("Pelagon.hap", board, unloaded), nullptr);
    EXPECT_EQ(Fg_getLastErrorNumber(nullptr), PGN_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(Fg_InitHandleSlaveAware("Pelagon.hap", nullptr, design, 0), nullptr);
    EXPECT_EQ(Fg_getLastErrorNumber(nullptr), PGN_ERR_INVALID_ARGUMENT);
}

TEST_F(VBoardControl, StaleAndForeignHandlesAreRefused) {
    Fg_Struct* second = Fg_InitHandle("Pelagon.hap", board, design);
    ASSERT_EQ(Fg_FreeGrabber(second), 0);
    Fg_Struct foreign{};
    uint32_t value = 1;
    for (Fg_Struct* bad : {second, &foreign, static_cast<Fg_Struct*>(nullptr)}) {
        EXPECT_EQ(Fg_setParameterWithType(bad, id(kImageWidth), &value, 0, FG_PARAM_TYPE_UINT32_T),
                  PGN_ERR_NO_INSTANCE);
        EXPECT_EQ(Fg_getParameterIdByName(bad, kImageWidth), PGN_ERR_NO_INSTANCE);
        EXPECT_EQ(Fg_getParameterInfo(bad, 0), nullptr);
        EXPECT_EQ(Fg_AcquireEx(bad, 0, 1, 0, nullptr), PGN_ERR_NO_INSTANCE);
        EXPECT_EQ(Fg_FreeGrabber(bad), PGN_ERR_NO_INSTANCE);
    }
    EXPECT_EQ(Fg_getLastErrorNumber(&foreign), PGN_ERR_NO_INSTANCE);
}

TEST_F(VBoardControl, DestroyingABoardDetachesItsHandles) {
    ZUdevice* other = vboard::createBoard();
    const int boards = QuorHwGetBoardCount();
    Fg_Struct* handle = Fg_InitHandle("Pelagon.hap", other, design);
    ASSERT_NE(handle, nullptr);
    ASSERT_NE(Fg_getParameterInfo(handle, 0), nullptr);
    vboard::destroyBoard(other);
    EXPECT_EQ(QuorHwGetBoardCount(), boards - 1);
    uint32_t value = 1;
    EXPECT_EQ(Fg_setParameterWithType(handle, id(kImageWidth), &value, 0, FG_PARAM_TYPE_UINT32_T),
              PGN_ERR_NO_INSTANCE);
    EXPECT_EQ(Fg_getParameterInfo(handle, 0), nullptr);
    EXPECT_THROW(vboard::journal(other), vboard::Error);
    EXPECT_EQ(Fg_FreeGrabber(handle), 0);  // the handle itself is still released normally
    vboard::destroyBoard(other);           // twice is harmless
    EXPECT_EQ(set(kImageWidth, 2u, FG_PARAM_TYPE_UINT32_T), 0);  // the fixture's board is untouched
}

TEST_F(VBoardControl, TestAccessChecksKindWidthAndElement) {
    vboard::poke(board, kFillLevel, 127);  // read-only status set by the test
    EXPECT_EQ(vboard::peek(board, kFillLevel), 127u);
    vboard::pokeString(board, kAppletUid, "other");
    EXPECT_EQ(vboard::peekString(board, kAppletUid), "other");
    EXPECT_TRUE(vboard::journal(board).empty());

    EXPECT_THROW(vboard::poke(board, kFillLevel, 128), vboard::Error);
    EXPECT_THROW(vboard::poke(board, kGreenCoefficient, 1), vboard::Error);
    EXPECT_THROW(vboard::peekDouble(board, kImageWidth), vboard::Error);
    EXPECT_THROW(vboard::peek(board, kRedLut, 4096), vboard::Error);
    EXPECT_THROW(vboard::pokeDouble(board, kGreenCoefficient, 4.0), vboard::Error);
    EXPECT_THROW(vboard::pokeString(board, kBuildTime, std::string(32, 'x')), vboard::Error);
    EXPECT_THROW(vboard::peek(board, "Device1_Nothing"), vboard::Error);
    ZUdevice* bare = vboard::createBoard();
    EXPECT_THROW(vboard::peek(bare, kImageWidth), vboard::Error);
    vboard::destroyBoard(bare);
    EXPECT_THROW(vboard::peek(nullptr, kImageWidth), vboard::Error);
}
