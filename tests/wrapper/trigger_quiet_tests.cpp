// The trigger setters called the way the defaults will call them
// (throwOnError false, in the defaults' order): every value applies.
#include "DesignFixture.h"
#include "pelagon_errors.h"

namespace {

const std::string kTrigger = "Device1_Process1_Trigger_";

class QuietTrigger : public DesignFixture {
protected:
    void SetUp() override {
        DesignFixture::SetUp();
        wrapper->initInternalMaps();
        wrapper->createUserParameters();
        vboard::clearJournal(board);
    }
    uint64_t peek(const std::string& entry) { return vboard::peek(board, kTrigger + entry); }
};

}  // namespace

TEST_F(QuietTrigger, DefaultValuesApplyInTheirOrder) {
    FgZuWrapperImpl& w = *wrapper;
    EXPECT_NO_THROW({
        w.set_sdk_param_FG_AREATRIGGERMODE_P0(1, false);
        w.set_sdk_param_FG_TRIGGERSTATE_P0(2, false);
        w.set_sdk_param_FG_TRIGGER_FRAMESPERSECOND_P0(8.0, false);
        w.set_sdk_param_FG_TRIGGERIN_DEBOUNCE_P0(1.0, false);
        w.set_sdk_param_FG_TRIGGERIN_SRC_P0(0, false);
        w.set_sdk_param_FG_TRIGGERIN_POLARITY_P0(0, false);
        w.set_sdk_param_FG_TRIGGERIN_DOWNSCALE_P0(1, false);
        w.set_sdk_param_FG_TRIGGERIN_DOWNSCALE_PHASE_P0(0, false);
        w.set_sdk_param_FG_TRIGGERIN_BYPASS_SRC_P0(0, false);
        w.set_sdk_param_FG_TRIGGERIN_STATS_PULSECOUNT_CLEAR_P0(1, false);
        w.set_sdk_param_FG_TRIGGER_MULTIPLY_PULSES_P0(1, false);
        w.set_sdk_param_FG_TRIGGERQUEUE_MODE_P0(0, false);
        for (unsigned g = 0; g < 4; ++g) {
            w.setPulseFormDownscale_P0(g, 1, false);
            w.setPulseFormPhase_P0(g, 0, false);
            w.setPulseFormDelay_P0(g, 0.0, false);
            w.setPulseFormWidth_P0(g, g == 0 ? 4000.0 : 4.0, false);
        }
        w.set_sdk_param_FG_TRIGGERCAMERA_OUT_SELECT_P0(0, false);
        for (unsigned n = 0; n < 8; ++n) w.setTriggerOutput_P0(FgZuWrapperImpl::kCameraGpo0 + n, 4, false);
        for (unsigned n = 0; n < 8; ++n)
            w.setTriggerOutput_P0(FgZuWrapperImpl::kBoardOutput0 + n, n == 0 ? 6 : n == 1 ? 7 : 5, false);
        w.set_sdk_param_FG_TRIGGEROUT_STATS_SOURCE_P0(0, false);
    });
    EXPECT_EQ(peek("TriggerCam0_Generators_Generator_MinimumPeriod_Number"), 15624990u);
    EXPECT_EQ(peek("TriggerInput_Debounce8_Prescale_Period"), 42u);
    EXPECT_EQ(peek("TriggerCam0_Downscale_Downscale_SelectedPulse"), 1u);
    EXPECT_EQ(peek("TriggerCam0_PulseFormGenerators_PulseFormGenerator0_Width_Width"), 500000u);
    EXPECT_EQ(peek("TriggerCam0_PulseFormGenerators_PulseFormGenerator3_Width_Width"), 500u);
    EXPECT_EQ(peek("TriggerCam0_TriggerOutput_Select1_Select_Select"), 1u);
    EXPECT_EQ(peek("TriggerCam0_TriggerOutput_Select1_Polarity_Invert"), 1u);
    EXPECT_EQ(peek("TriggerCam0_Generators_Queue_QueueFullValue_Number"), 0u) << "generator mode leaves the queue";
    EXPECT_EQ(w.publishedRecord(8800)->u.uiReg.to, 1u);
    EXPECT_EQ(w.publishedRecord(8800)->accessFlags, 7);
}
