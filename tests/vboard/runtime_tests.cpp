// The runtime's own parameters, acquisition and status of a board without a
// camera, and the calls it does not offer.
#include <chrono>

#include "vboard_fixture.h"

using namespace vboard_test;

using VBoardRuntime = BoardTest;

TEST_F(VBoardRuntime, OwnParametersHaveDefaultsAndAccessRights) {
    uint32_t value = 0;
    uint64_t wide = 0;
    EXPECT_EQ(Fg_getParameterWithType(fg, FG_RT_TIMEOUT, &value, 0, FG_PARAM_TYPE_UINT32_T), 0);
    EXPECT_EQ(value, 1000000u);
    EXPECT_EQ(Fg_getParameterWithType(fg, FG_RT_APC_STOP_TIMEOUT, &wide, 0, FG_PARAM_TYPE_UINT64_T), 0);
    EXPECT_EQ(wide, 5u);
    EXPECT_EQ(Fg_getParameter(fg, FG_RT_NR_OF_DMAS, &value, 0), 0);
    EXPECT_EQ(value, 1u);
    EXPECT_EQ(Fg_getParameterWithType(fg, FG_RT_TRANSFER_LEN, &wide, 0, FG_PARAM_TYPE_INT64_T), 0);
    EXPECT_EQ(wide, 0u);

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
