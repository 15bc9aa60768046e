// Setters called the way start-up defaults and configuration loading call
// them (throwOnError false): nothing is thrown, what failed is left as it
// was, and what succeeded is applied.
#include "DesignFixture.h"
#include "pelagon_errors.h"

using QuietSetters = InstanceFixture;
using QuietTrigger = InstanceFixture;

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

// Every trigger setter, called in the defaults' order, applies its value.
TEST_F(QuietTrigger, DefaultValuesProgramTheTriggerBlock) {
    const auto peek = [this](const std::string& entry) {
        return vboard::peek(board, "Device1_Process1_Trigger_" + entry);
    };
    EXPECT_NO_THROW(wrapper->setDefaultValues());
    EXPECT_EQ(peek("TriggerCam0_Generators_Generator_MinimumPeriod_Number"), 15624990u);
    EXPECT_EQ(peek("TriggerInput_Debounce8_Prescale_Period"), 42u);
    EXPECT_EQ(peek("TriggerCam0_Downscale_Downscale_SelectedPulse"), 1u);
    EXPECT_EQ(peek("TriggerCam0_PulseFormGenerators_PulseFormGenerator0_Width_Width"), 500000u);
    EXPECT_EQ(peek("TriggerCam0_PulseFormGenerators_PulseFormGenerator3_Width_Width"), 500u);
    EXPECT_EQ(peek("TriggerCam0_TriggerOutput_Select1_Select_Select"), 1u);
    EXPECT_EQ(peek("TriggerCam0_TriggerOutput_Select1_Polarity_Invert"), 1u);
    EXPECT_EQ(peek("TriggerCam0_Generators_Queue_QueueFullValue_Number"), 0u) << "generator mode leaves the queue";
    EXPECT_EQ(wrapper->publishedRecord(8800)->u.uiReg.to, 1u);
    EXPECT_EQ(wrapper->publishedRecord(8800)->accessFlags, 7);
}
