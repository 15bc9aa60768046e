// The control interface and the handle life cycle (faults, failing inits,
// stale handles and boards, test access), and the runtime's own parameters,
// acquisition and status of a board without a camera, and the calls it does
// not offer.
#include <chrono>

#include "vboard_fixture.h"

using namespace vboard_test;

using VBoardFaults = BoardTest;
using VBoardControl = BoardTest;
using VBoardRuntime = BoardTest;

TEST_F(VBoardFaults, FireOnTheNthMatchingAccessOnly) {
    vboard::injectFault(board, kImageWidth, vboard::Access::Write, 2, -5);
    vboard::injectFault(board, kImageWidth, vboard::Access::Read, 1, -7);
    EXPECT_EQ(setU(kImageWidth, 1), 0);
    EXPECT_EQ(setU(kImageWidth, 9999), PGN_ERR_OUT_OF_RANGE);  // refused first: not counted
    EXPECT_EQ(setU(kImageWidth, 2), -5);
    EXPECT_EQ(Fg_getLastErrorNumber(fg), -5);
    EXPECT_EQ(setU(kImageWidth, 3), 0);

    uint32_t value = 42;
    EXPECT_EQ(get(kImageWidth, value, FG_PARAM_TYPE_UINT32_T), -7);
    EXPECT_EQ(value, 42u);  // nothing returned
    EXPECT_EQ(get(kImageWidth, value, FG_PARAM_TYPE_UINT32_T), 0);
    EXPECT_EQ(value, 3u);

    const std::vector<vboard::JournalEntry> j = vboard::journal(board);
    ASSERT_EQ(j.size(), 2u);
    EXPECT_EQ(j[1].u, 3u);
}

TEST_F(VBoardFaults, RawPathCountsAndSeveralMayBePending) {
    const unsigned n = raw(kGreenCoefficient);
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
    const int width = Fg_getParameterIdByName(fg, kImageWidth);
    EXPECT_EQ(Fg_setParameterWithType(fg, width, &value, 0, FG_PARAM_TYPE_UINT32_T), -9);
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
    EXPECT_EQ(setU(kImageWidth, 2), 0);  // the fixture's board is untouched
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

TEST_F(VBoardRuntime, OwnParametersHaveDefaultsAndAccessRights) {
    uint32_t value = 0, dmas = 0;
    uint64_t wide = 0, stop = 0, length = 1;
    EXPECT_EQ(Fg_getParameterWithType(fg, FG_RT_TIMEOUT, &value, 0, FG_PARAM_TYPE_UINT32_T), 0);
    EXPECT_EQ(Fg_getParameterWithType(fg, FG_RT_APC_STOP_TIMEOUT, &stop, 0, FG_PARAM_TYPE_UINT64_T), 0);
    EXPECT_EQ(Fg_getParameter(fg, FG_RT_NR_OF_DMAS, &dmas, 0), 0);
    EXPECT_EQ(Fg_getParameterWithType(fg, FG_RT_TRANSFER_LEN, &length, 0, FG_PARAM_TYPE_INT64_T), 0);
    EXPECT_EQ(std::tuple(value, stop, dmas, length), std::tuple(1000000u, 5u, 1u, 0u));

    value = 7;
    EXPECT_EQ(Fg_setParameterWithType(fg, FG_RT_TIMEOUT, &value, 0, FG_PARAM_TYPE_UINT32_T), 0);
    EXPECT_EQ(Fg_getParameter(fg, FG_RT_TIMEOUT, &wide, 0), 0);
    EXPECT_EQ(static_cast<uint32_t>(wide), 7u);
    EXPECT_EQ(Fg_setParameterWithType(fg, FG_RT_DMASTATUS, &value, 0, FG_PARAM_TYPE_UINT32_T), PGN_ERR_READ_ONLY);
    EXPECT_EQ(Fg_setParameterWithType(fg, FG_RT_NR_OF_CAMS, &value, 0, FG_PARAM_TYPE_UINT32_T), PGN_ERR_READ_ONLY);
    double d = 1;
    EXPECT_EQ(Fg_setParameterWithType(fg, FG_RT_TIMEOUT, &d, 0, FG_PARAM_TYPE_DOUBLE), PGN_ERR_INVALID_ARGUMENT);
    int32_t negative = -1;
    EXPECT_EQ(Fg_setParameterWithType(fg, FG_RT_TIMEOUT, &negative, 0, FG_PARAM_TYPE_INT32_T), PGN_ERR_OUT_OF_RANGE);
    wide = uint64_t{1} << 32;
    EXPECT_EQ(Fg_setParameterWithType(fg, FG_RT_TIMEOUT, &wide, 0, FG_PARAM_TYPE_UINT64_T), PGN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(Fg_getParameterWithType(fg, 4242, &value, 0, FG_PARAM_TYPE_UINT32_T), PGN_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(id("FG_TIMEOUT"), FG_RT_TIMEOUT);
    EXPECT_EQ(id("FG_DMASTATUS"), FG_RT_DMASTATUS);
}

TEST_F(VBoardRuntime, AcquisitionNeverDeliversAnImage) {
    EXPECT_EQ(Fg_AcquireEx(fg, 1, 10, 0, nullptr), PGN_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(Fg_stopAcquireEx(fg, 0, nullptr, 0), PGN_ERR_INVALID_ARGUMENT);  // not running
    EXPECT_EQ(Fg_AcquireEx(fg, 0, 10, 0, nullptr), 0);
    EXPECT_EQ(Fg_getLastPicNumberEx(fg, 0, nullptr), 0);
    EXPECT_EQ(Fg_getStatusEx(fg, 0, 0, 0, nullptr), 0);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Fg_getLastPicNumberBlockingEx(fg, 1, 0, 10, nullptr), vboard::kErrTimeout);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));  // no real wait
    EXPECT_EQ(Fg_getLastErrorNumber(fg), vboard::kErrTimeout);
    EXPECT_EQ(Fg_stopAcquireEx(fg, 0, nullptr, 0), 0);
    EXPECT_EQ(Fg_Acquire(fg, 0, 1), 0);
    EXPECT_EQ(Fg_stopAcquire(fg, 0), 0);
    EXPECT_EQ(Fg_stopAcquire(fg, 0), PGN_ERR_INVALID_ARGUMENT);

    const int appletId = Fg_getAppletId(fg, nullptr);
    EXPECT_GT(appletId, 0);
    EXPECT_EQ(Fg_getAppletId(fg, "ignored"), appletId);
}

TEST_F(VBoardRuntime, ShadingAndConfigurationAreNotOffered) {
    EXPECT_EQ(Fg_AllocShading(fg, 0, 0), nullptr);
    EXPECT_EQ(Fg_getLastErrorNumber(fg), PGN_ERR_NOT_SUPPORTED);
    EXPECT_EQ(Fg_FreeShading(fg, nullptr), PGN_ERR_NOT_SUPPORTED);
    EXPECT_EQ(Shad_SetSubValueLine(fg, nullptr, 0, 0, 1.0f), PGN_ERR_NOT_SUPPORTED);
    EXPECT_EQ(Shad_WriteActLine(fg, nullptr, 0), PGN_ERR_NOT_SUPPORTED);
    EXPECT_EQ(Fg_saveConfig(fg, "/tmp/x.mcf"), PGN_ERR_NOT_SUPPORTED);
    EXPECT_EQ(Fg_loadConfig(fg, "/tmp/x.mcf"), PGN_ERR_NOT_SUPPORTED);
    EXPECT_EQ(Shad_GetMaxLine(nullptr, nullptr), PGN_ERR_NO_INSTANCE);
}

// "Auto" asks for the parameter's own type, as the untyped calls do; an
// integer that is no type code, as a type or as a field's element type, is
// refused.
TEST_F(VBoardRuntime, AutoTypeMeansTheParametersOwnTypeAndUnknownCodesAreRefused) {
    uint32_t value = 4321;
    EXPECT_EQ(Fg_setParameterWithType(fg, FG_RT_TIMEOUT, &value, 0, FG_PARAM_TYPE_AUTO), 0);
    value = 0;
    EXPECT_EQ(Fg_getParameterWithType(fg, FG_RT_TIMEOUT, &value, 0, FG_PARAM_TYPE_AUTO), 0);
    EXPECT_EQ(value, 4321u);
    for (int own : {FG_RT_APC_STOP_TIMEOUT, FG_RT_NR_OF_DMAS, FG_RT_NR_OF_CAMS, FG_RT_NR_OF_PROCESSES, FG_RT_DMA_PORT,
                    FG_RT_CAM_PORT, FG_RT_TRANSFER_LEN})
        EXPECT_EQ(Fg_getParameterWithType(fg, own, &value, 0, FG_PARAM_TYPE_AUTO), 0) << own;

    value = 1u << 13;  // one more than the 13-bit register holds
    EXPECT_EQ(Fg_setParameterWithType(fg, id(kImageWidth), &value, 0, FG_PARAM_TYPE_AUTO), PGN_ERR_OUT_OF_RANGE);
    vboard::pokeDouble(board, kGreenCoefficient, 1.5);
    double coefficient = 0;
    EXPECT_EQ(Fg_getParameterWithType(fg, id(kGreenCoefficient), &coefficient, 0, FG_PARAM_TYPE_AUTO), 0);
    EXPECT_EQ(coefficient, 1.5);

    for (int type : {INT32_MIN, INT32_MAX, -2, 8, 4097}) {
        EXPECT_EQ(Fg_getParameterWithType(fg, FG_RT_TIMEOUT, &value, 0, type), PGN_ERR_INVALID_ARGUMENT) << type;
        EXPECT_EQ(Fg_setParameterWithType(fg, id(kImageWidth), &value, 0, type), PGN_ERR_INVALID_ARGUMENT) << type;
        uint32_t entries[2] = {1, 2};
        FieldParameterAccess access{};
        std::memcpy(&access.vtype, &type, sizeof type);  // as a C caller stores it
        access.count = 2;
        access.p.p_uint32_t = entries;
        EXPECT_EQ(Fg_setParameterWithType(fg, id(kRedLut), &access, 0, FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS),
                  PGN_ERR_INVALID_ARGUMENT)
            << type;
    }
}
