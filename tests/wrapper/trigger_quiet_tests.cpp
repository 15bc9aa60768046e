// The start-up defaults on the trigger block: every trigger setter, called
// with throwOnError false in the defaults' order, applies its value.
#include "DesignFixture.h"
#include "pelagon_errors.h"

namespace {

const std::string kTrigger = "Device1_Process1_Trigger_";

class QuietTrigger : public InstanceFixture {
protected:
    uint64_t peek(const std::string& entry) { return vboard::peek(board, kTrigger + entry); }
};

}  // namespace

TEST_F(QuietTrigger, DefaultValuesProgramTheTriggerBlock) {
    FgZuWrapperImpl& w = *wrapper;
    EXPECT_NO_THROW(w.setDefaultValues());
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
