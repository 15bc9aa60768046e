// The trigger input stage through the exported interface: selections,
// debounce quantisation, downscale and phase with their published bounds,
// and the input statistics.
#include <cmath>
#include <limits>

#include "TriggerHelpers.h"

using namespace trig;

namespace {

const std::string kDebounce = "TriggerInput_Debounce8_Prescale_Period";
const std::string kStats = "TriggerCam0_InputStatistics_";

class TriggerInput : public TriggerTest {
protected:
    const UIntReg_S& range(int id) { return host.record(id)->u.uiReg; }
};

}  // namespace

TEST_F(TriggerInput, SelectionsAreWrittenUnchanged) {
    const struct {
        Id id;
        uint32_t value;
        const char* reg;
        uint32_t refused;
    } cases[] = {
        {IN_SRC, 7, "TriggerCam0_InputSelect_Select_Select", 8},
        {IN_POLARITY, 1, "TriggerCam0_InputSelect_Polarity_Invert", 2},
        {IN_BYPASS_SRC, 5, "TriggerCam0_InputSelect_BypassSelect_Select", 8},
    };
    for (const auto& c : cases) {
        ASSERT_EQ(host.setU32(c.id, c.value), 0) << c.reg;
        EXPECT_EQ(writes(), (Writes{{c.reg, c.value}}));
        EXPECT_EQ(host.setU32(c.id, c.refused), PGN_ERR_OUT_OF_RANGE) << c.reg;
        EXPECT_EQ(host.u32(c.id), c.value) << c.reg;
    }
}

// The debouncer counts 24 ns units; times round to the nearest unit and
// read back as the time the input works with.
TEST_F(TriggerInput, DebounceIsQuantisedTo24Nanoseconds) {
    const struct {
        double us;
        uint64_t units;
        double readBack;
    } cases[] = {{0.048, 2, 0.048}, {1.512, 63, 1.512}, {1.0, 42, 1.008}, {0.06, 3, 0.072}, {0.059, 2, 0.048}};
    for (const auto& c : cases) {
        ASSERT_EQ(host.setDouble(DEBOUNCE, c.us), 0) << c.us;
        EXPECT_EQ(writes(), (Writes{{kDebounce, c.units}})) << c.us;
        EXPECT_NEAR(host.dbl(DEBOUNCE), c.readBack, 1e-12) << c.us;
    }
    for (double refused : {0.047, 1.513, std::nan(""), -std::numeric_limits<double>::infinity()})
        EXPECT_EQ(host.setDouble(DEBOUNCE, refused), PGN_ERR_OUT_OF_RANGE) << refused;
    EXPECT_TRUE(writes().empty());
}

// 0 <= phase < downscale holds in the values and in the published ranges.
TEST_F(TriggerInput, DownscaleAndPhaseBoundEachOther) {
    ASSERT_EQ(host.setU32(IN_DOWNSCALE, 10), 0);
    EXPECT_EQ(range(IN_PHASE).to, 9u);
    ASSERT_EQ(host.setU32(IN_PHASE, 5), 0);
    EXPECT_EQ(range(IN_DOWNSCALE).from, 6u);
    EXPECT_EQ(writes(), (Writes{{"TriggerCam0_Downscale_Downscale_Downscale", 10},
                                {"TriggerCam0_Downscale_Downscale_SelectedPulse", 6}}));

    ASSERT_EQ(host.setU32(IN_DOWNSCALE, 4), PGN_ERR_OUT_OF_RANGE) << "phase 5 needs at least 6";
    ASSERT_EQ(host.setU32(IN_PHASE, 3), 0);
    ASSERT_EQ(host.setU32(IN_DOWNSCALE, 4), 0);
    EXPECT_EQ(host.setU32(IN_DOWNSCALE, 3), PGN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(host.setU32(IN_PHASE, 4), PGN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(host.u32(IN_DOWNSCALE), 4u);
    EXPECT_EQ(host.u32(IN_PHASE), 3u);

    ASSERT_EQ(host.setU32(IN_PHASE, 0), 0);
    EXPECT_EQ(host.setU32(IN_DOWNSCALE, 0), PGN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(host.setU32(IN_DOWNSCALE, 2147483648u), PGN_ERR_OUT_OF_RANGE);
    ASSERT_EQ(host.setU32(IN_DOWNSCALE, 2147483647u), 0);
    EXPECT_EQ(range(IN_PHASE).to, 2147483646u);
}

TEST_F(TriggerInput, PulseCountAndItsClear) {
    poke(kStats + "ReadPulses_Status", 65535);
    EXPECT_EQ(host.u32(IN_PULSECOUNT), 65535u);
    EXPECT_EQ(host.setU32(IN_PULSECOUNT_CLEAR, 0), PGN_ERR_OUT_OF_RANGE);
    ASSERT_EQ(host.setU32(IN_PULSECOUNT_CLEAR, 1), 0);
    EXPECT_EQ(writes(), (Writes{{kStats + "ClearPulses_Mode", 2}}));
}

// The lowest frequency comes from the longest period, the highest from the
// shortest; a period of zero reads as an infinite frequency.
TEST_F(TriggerInput, FrequenciesComeFromTheMeasuredPeriods) {
    poke(kStats + "ReadPeriod_Status", 125000);  // 1 ms
    poke(kStats + "ReadMax_Status", 1250000);    // 10 ms
    poke(kStats + "ReadMin_Status", 12500);      // 100 us
    EXPECT_NEAR(host.dbl(IN_FREQUENCY), 1000.0, 1e-9);
    EXPECT_NEAR(host.dbl(IN_MINFREQUENCY), 100.0, 1e-9);
    EXPECT_NEAR(host.dbl(IN_MAXFREQUENCY), 10000.0, 1e-9);
    poke(kStats + "ReadPeriod_Status", 0);
    EXPECT_EQ(host.dbl(IN_FREQUENCY), std::numeric_limits<double>::infinity());
    poke(kStats + "ReadMin_Status", 0xFFFFFFFF);
    EXPECT_NEAR(host.dbl(IN_MAXFREQUENCY), 1.0 / (4294967295.0 * 8e-9), 1e-12);
}

// The min/max measurement is cleared by toggling its register.
TEST_F(TriggerInput, MinMaxClearTogglesItsRegister) {
    const std::string clear = kStats + "ClearMinMax_Value";
    ASSERT_EQ(host.setU32(IN_MINMAX_CLEAR, 1), 0);
    ASSERT_EQ(host.setU32(IN_MINMAX_CLEAR, 1), 0);
    EXPECT_EQ(writes(), (Writes{{clear, 1}, {clear, 0}}));
    EXPECT_EQ(peek(clear), 0u);
    EXPECT_EQ(host.setU32(IN_MINMAX_CLEAR, 2), PGN_ERR_OUT_OF_RANGE);
    EXPECT_TRUE(writes().empty());
}
