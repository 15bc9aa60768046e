// Setters called the way start-up defaults and configuration loading call
// them (throwOnError false): nothing is thrown, and what failed is left as it
// was.
#include "DesignFixture.h"
#include "pelagon_errors.h"

namespace {

using QuietSetters = InstanceFixture;

}  // namespace

TEST_F(QuietSetters, InvalidValuesAreSwallowedAndChangeNothing) {
    EXPECT_NO_THROW(wrapper->set_sdk_param_FG_WIDTH_P0(31, false));
    EXPECT_NO_THROW(wrapper->set_sdk_param_FG_WIDTH_P0(40, false));
    EXPECT_NO_THROW(wrapper->set_sdk_param_FG_PIXELFORMAT_P0(0x314, false));
    EXPECT_NO_THROW(wrapper->set_sdk_param_FG_TIMEOUT_P0(1, false));
    EXPECT_NO_THROW(wrapper->set_sdk_param_FG_CAMERASIMULATOR_SELECT_MODE_P0(7, false));
    EXPECT_NO_THROW(wrapper->set_sdk_param_FG_CAMERASIMULATOR_PIXEL_FREQUENCY_P0(0.3, false));
    EXPECT_EQ(wrapper->cache_FG_WIDTH_P0, 1024u);
    EXPECT_EQ(wrapper->cache_FG_PIXELFORMAT_P0, 785u);
    EXPECT_EQ(wrapper->cache_FG_TIMEOUT_P0, 1000000u);
    EXPECT_EQ(wrapper->cache_FG_CAMERASIMULATOR_SELECT_MODE_P0, 2u);
    EXPECT_EQ(wrapper->cache_FG_CAMERASIMULATOR_PIXEL_FREQUENCY_P0, 40.0);
    EXPECT_TRUE(vboard::journal(board).empty());

    // The same calls with throwOnError report their numbers.
    EXPECT_THROW(wrapper->set_sdk_param_FG_WIDTH_P0(31, true), int);
    EXPECT_THROW(wrapper->set_sdk_param_FG_CAMERASIMULATOR_PIXEL_FREQUENCY_P0(0.3, true), int);
}

TEST_F(QuietSetters, RegisterFaultsAreSwallowedAndTheCacheRestored) {
    vboard::injectFault(board, "Device1_Process0_Buffer_0_DRAM_A_1_YLength", vboard::Access::Write, 1, -9);
    EXPECT_NO_THROW(wrapper->set_sdk_param_FG_HEIGHT_P0(512, false));
    EXPECT_EQ(wrapper->cache_FG_HEIGHT_P0, 1024u);
    EXPECT_EQ(vboard::peek(board, "Device1_Process0_Buffer_0_DRAM_A_0_YLength"), 512u);

    vboard::injectFault(board, "Device1_Process0_CameraSimulator_Enable_SelectSource", vboard::Access::Write, 1, -9);
    EXPECT_NO_THROW(wrapper->set_sdk_param_FG_CAMERASIMULATOR_ENABLE_P0(1, false));
    EXPECT_EQ(wrapper->cache_FG_CAMERASIMULATOR_ENABLE_P0, 0u);
    wrapper->set_sdk_param_FG_CAMERASIMULATOR_ENABLE_P0(1, false);
    EXPECT_EQ(wrapper->cache_FG_CAMERASIMULATOR_ENABLE_P0, 1u);
    EXPECT_EQ(vboard::peek(board, "Device1_Process0_CameraSimulator_Enable_SelectSource"), 1u);
}
