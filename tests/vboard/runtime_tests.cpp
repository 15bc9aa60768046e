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
    value = 100;
    EXPECT_EQ(Fg_setParameterWithType(fg, id(kImageWidth), &value, 0, FG_PARAM_TYPE_AUTO), 0);
    EXPECT_EQ(vboard::peek(board, kImageWidth), 100u);
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
