// The computed lookup tables, the LUT type with the access rights it
// publishes, the read-only LUT description and the white balance, through
// the exported interface on a virtual board.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "BoundaryHelpers.h"
#include "LutHost.h"

using namespace lut;

namespace {

constexpr int kFault = -9;

// The table written straight from its definition, one channel at a time.
Table reference(double offset, double gain, double gamma, bool invert) {
    Table t(kSize);
    for (uint32_t i = 0; i < kSize; ++i) {
        const double b = (i / 4095.0 + offset) * gain;
        int64_t entry = 0;
        if (b >= 0) {
            const double v = std::pow(b, 1.0 / gamma) * 4095.0 + 0.5;
            entry = v >= 2147483648.0 ? INT32_MAX : static_cast<int32_t>(v);
        }
        if (invert) entry = 4095 - entry;
        t[i] = static_cast<uint32_t>(std::clamp<int64_t>(entry, 0, 4095));
    }
    return t;
}

class ImageProcessing : public AppletTest {
protected:
    void SetUp() override {
        AppletTest::SetUp();
        ASSERT_EQ(host.setU32(TYPE, kProcessor), 0);
    }

    // Sets the four processing values; the last set leaves the tables.
    void process(double offset, double gain, double gamma, uint32_t invert) {
        ASSERT_EQ(host.setDouble(OFFSET, offset), 0);
        ASSERT_EQ(host.setDouble(GAIN, gain), 0);
        ASSERT_EQ(host.setDouble(GAMMA, gamma), 0);
        ASSERT_EQ(host.setU32(INVERT, invert), 0);
    }
    void expectAllChannels(const Table& expected, const std::string& what) {
        for (int c = 0; c < 3; ++c) {
            EXPECT_EQ(registers(host, c), expected) << what << ", register of channel " << c;
            EXPECT_EQ(cached(host, c), expected) << what << ", cache of channel " << c;
        }
    }
};

Table identity() {
    Table t(kSize);
    for (uint32_t i = 0; i < kSize; ++i) t[i] = i;
    return t;
}

}  // namespace

// Every channel equals the table computed for it on its own, for ordinary
// and extreme settings (gamma 0 is an infinite exponent, negative gammas
// overshoot, 1000 flattens, offset -1 darkens).
TEST_F(ImageProcessing, EachChannelEqualsItsOwnComputation) {
    const struct {
        double offset, gain, gamma;
        uint32_t invert;
    } settings[] = {
        {0.0, 1.0, 2.2, 0}, {0.1, 1.5, 0.45, 1}, {-0.3, 3.0, 1.8, 0}, {0.0, 1.0, 0.0, 0},  {0.0, 2.0, 0.0, 0},
        {-1.0, 1.0, 0.5, 0}, {-1.0, 1.0, 0.5, 1},
        {0.0, 1.0, -1.0, 0}, {0.2, 0.5, -1000.0, 1}, {0.0, 1.0, 1000.0, 0}, {1.0, 4096.0, 0.001, 0}, {0.0, 0.0, 1.0, 1},
    };
    for (const auto& s : settings) {
        process(s.offset, s.gain, s.gamma, s.invert);
        expectAllChannels(reference(s.offset, s.gain, s.gamma, s.invert == 1),
                          "offset " + std::to_string(s.offset) + " gain " + std::to_string(s.gain) + " gamma " +
                              std::to_string(s.gamma) + " invert " + std::to_string(s.invert));
    }
    // Tables stated plainly, not through the reference: the identity and
    // its inverse, gain 2 saturating (and dark where inverted), and the
    // edges. Offset -1 leaves b <= 0, and b = 0 at entry 4095 gives 0 to any
    // positive power.
    process(0.0, 1.0, 1.0, 0);
    expectAllChannels(identity(), "identity");
    process(0.0, 1.0, 1.0, 1);
    Table t = identity();
    std::reverse(t.begin(), t.end());
    expectAllChannels(t, "inverted");
    process(0.0, 2.0, 1.0, 0);
    t = registers(host, 2);
    EXPECT_EQ(t[1023], 2046u);
    EXPECT_EQ(t[2047], 4094u);
    EXPECT_EQ(Table(t.begin() + 2048, t.end()), Table(2048, 4095));
    process(0.0, 2.0, 1.0, 1);
    t = registers(host, 0);
    EXPECT_EQ(t[0], 4095u);
    EXPECT_EQ(Table(t.begin() + 2048, t.end()), Table(2048, 0));
    process(-1.0, 1.0, 3.0, 0);
    expectAllChannels(Table(kSize, 0), "offset -1");
    process(0.0, 1.0, 0.0, 0);
    t = registers(host, 1);
    EXPECT_EQ(t[4094], 0u);
    EXPECT_EQ(t[4095], 4095u);
    process(0.0, 1.0, -1.0, 0);
    EXPECT_EQ(registers(host, 1), Table(kSize, 4095)) << "0 to a negative power is infinite: saturated";
    process(0.0, 1.0, 1000.0, 0);
    t = registers(host, 1);
    EXPECT_EQ(t[0], 0u);
    EXPECT_EQ(t[1], 4061u);
    EXPECT_EQ(t[4095], 4095u);
}

TEST_F(ImageProcessing, ARecomputeWritesRedGreenBlueInOrder) {
    vboard::clearJournal(host.board);
    ASSERT_EQ(host.setDouble(GAIN, 0.5), 0);
    std::vector<std::string> order;
    for (const vboard::JournalEntry& e : vboard::journal(host.board))
        if (order.empty() || order.back() != e.name) order.push_back(e.name);
    EXPECT_EQ(order, (std::vector<std::string>{kRegisters[0], kRegisters[1], kRegisters[2]}));
    EXPECT_EQ(vboard::journal(host.board).size(), 3 * kSize);
}

TEST_F(ImageProcessing, ProcessingValuesOutsideTheirRangesAreRefused) {
    process(0.0, 1.0, 1.0, 0);
    vboard::clearJournal(host.board);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const struct {
        int id;
        double value;
    } refused[] = {{OFFSET, -1.0001}, {OFFSET, 1.0001}, {OFFSET, nan},   {GAIN, -0.0001},
                   {GAIN, 4096.001},  {GAIN, nan},      {GAMMA, -1000.5}, {GAMMA, 1000.5}, {GAMMA, nan}};
    for (const auto& r : refused) EXPECT_EQ(host.setDouble(r.id, r.value), PGN_ERR_OUT_OF_RANGE) << r.id;
    EXPECT_EQ(host.setU32(INVERT, 2), PGN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(host.setU32(TYPE, 1), PGN_ERR_OUT_OF_RANGE);
    EXPECT_TRUE(vboard::journal(host.board).empty());
    EXPECT_EQ(host.dbl(OFFSET), 0.0);
    EXPECT_EQ(host.dbl(GAIN), 1.0);
    EXPECT_EQ(host.dbl(GAMMA), 1.0);
    EXPECT_EQ(host.u32(TYPE), kProcessor);
    for (double edge : {-1.0, 1.0}) EXPECT_EQ(host.setDouble(OFFSET, edge), 0);
    for (double edge : {0.0, 4096.0}) EXPECT_EQ(host.setDouble(GAIN, edge), 0);
    for (double edge : {-1000.0, 1000.0, 0.0}) EXPECT_EQ(host.setDouble(GAMMA, edge), 0);
}

// A refused channel write stops the recompute: the value goes back, the
// channels before keep their new table, the failing one and those after
// keep the old one, in the register and in the cache alike.
TEST_F(ImageProcessing, ARegisterFaultRestoresTheValueAndStopsAtTheFailingChannel) {
    process(0.0, 1.0, 1.0, 0);
    vboard::injectFault(host.board, kRegisters[1], vboard::Access::Write, 1, kFault);
    EXPECT_EQ(host.setDouble(GAIN, 2.0), kFault);
    EXPECT_EQ(boundary::lastError(host), kFault);
    EXPECT_EQ(host.dbl(GAIN), 1.0);
    const Table doubled = reference(0.0, 2.0, 1.0, false);
    EXPECT_EQ(registers(host, 0), doubled);
    EXPECT_EQ(cached(host, 0), doubled);
    for (int c : {1, 2}) EXPECT_TRUE(registers(host, c) == identity() && cached(host, c) == identity()) << c;
    // The type switch rolls back the same way.
    ASSERT_EQ(host.setU32(TYPE, kUserFile), 0);
    vboard::injectFault(host.board, kRegisters[0], vboard::Access::Write, 1, kFault);
    EXPECT_EQ(host.setU32(TYPE, kProcessor), kFault);
    EXPECT_EQ(host.u32(TYPE), kUserFile);
    EXPECT_EQ(host.record(CUSTOM_FILE)->accessFlags, 7);
}

TEST_F(ImageProcessing, TheTypePublishesWhichParametersAreChangeable) {
    const int processing[] = {GAIN, GAMMA, OFFSET, INVERT};
    ASSERT_EQ(host.setU32(TYPE, kUserFile), 0);
    EXPECT_EQ(host.record(CUSTOM_FILE)->accessFlags, 7);
    for (int id : processing) EXPECT_EQ(host.record(id)->accessFlags, 1) << id;
    ASSERT_EQ(host.setU32(TYPE, kProcessor), 0);
    EXPECT_EQ(host.record(CUSTOM_FILE)->accessFlags, 1);
    for (int id : processing) EXPECT_EQ(host.record(id)->accessFlags, 7) << id;
}

TEST_F(ImageProcessing, UserFileWithoutANameKeepsTheTables) {
    process(0.0, 1.0, 1.0, 1);
    vboard::clearJournal(host.board);
    ASSERT_EQ(host.setU32(TYPE, kUserFile), 0);
    EXPECT_TRUE(vboard::journal(host.board).empty());
    // Processing values are kept while the type is "User file", not applied.
    ASSERT_EQ(host.setDouble(GAIN, 2.0), 0);
    EXPECT_TRUE(vboard::journal(host.board).empty());
    EXPECT_EQ(registers(host, 0)[0], 4095u);
    ASSERT_EQ(host.setU32(TYPE, kProcessor), 0);
    EXPECT_EQ(registers(host, 0), reference(0.0, 2.0, 1.0, true));
}

// Read only by nature (the every-type sweep checks the refusal).
TEST_F(ImageProcessing, TheLutDescriptionIsTwelveBitsInAndOut) {
    EXPECT_EQ(host.u32(IMPLEMENTATION), 0u);
    EXPECT_EQ(host.u32(IN_BITS), 12u);
    EXPECT_EQ(host.u32(OUT_BITS), 12u);
}

TEST_F(ImageProcessing, WhiteBalanceGainsStayWithinTheirFixedPointRange) {
    const std::string w = "Device1_Process0_Bayer_White_";
    const struct {
        int id;
        std::string reg;
    } gains[] = {{SCALE_RED, w + "RedCoefficient"}, {SCALE_GREEN, w + "GreenCoefficient"},
                 {SCALE_BLUE, w + "BlueCoefficient"}};
    for (const auto& g : gains) {
        for (double accepted : {0.0, 3.9990234375, 1.5}) {
            EXPECT_EQ(host.setDouble(g.id, accepted), 0) << g.reg;
            EXPECT_EQ(vboard::peekDouble(host.board, g.reg), accepted) << g.reg;
        }
        vboard::clearJournal(host.board);
        for (double refused : {4.0, -0.0009765625})
            EXPECT_EQ(host.setDouble(g.id, refused), PGN_ERR_OUT_OF_RANGE) << g.reg << " " << refused;
        EXPECT_TRUE(vboard::journal(host.board).empty());
        // Not a number passes the range test; the register has the last word.
        EXPECT_NE(host.setDouble(g.id, std::numeric_limits<double>::quiet_NaN()), 0);
        EXPECT_EQ(host.dbl(g.id), 1.5) << g.reg;
    }
    // The gains are independent of each other.
    EXPECT_EQ(host.setDouble(SCALE_GREEN, 0.25), 0);
    EXPECT_EQ(host.dbl(SCALE_RED), 1.5);
}
