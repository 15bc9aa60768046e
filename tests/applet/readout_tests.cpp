// Reading the board status and identity read-outs and the runtime-level
// values through the typed parameter read.
#include <cstring>
#include <string>
#include <utility>

#include "BoundaryHelpers.h"
#include "pelagon_errors.h"

using boundary::lastError;

namespace {

const std::string kBoardStatus = "Device1_Process0_BoardStatus_";
constexpr int kChannelCurrent = 200350, kChannelVoltage = 200351;

class AppletReadout : public AppletTest {
protected:
    int get(int id, void* value, FgParamTypes type) { return host.api.Fg_getParameterWithType(host.fg, id, value, 0, type); }
    std::string text(int id) {
        char buffer[128];
        std::memset(buffer, 'x', sizeof buffer);
        EXPECT_EQ(get(id, buffer, FG_PARAM_TYPE_CHAR_PTR), 0) << "reading id " << id;
        buffer[sizeof buffer - 1] = '\0';
        return buffer;
    }
};

}  // namespace

TEST_F(AppletReadout, SensorValuesComeFromTheBoardAfreshEachTime) {
    const struct {
        int id;
        const char* reg;
        double value;
    } sensors[] = {
        {200341, "FpgaTemperature", 47.25},     {200342, "FpgaVccInt", 0.953},
        {200343, "FpgaVccAux", 1.797},          {200344, "BoardPower", 14.5},
        {200345, "CxpChipTemperature", 51.0},   {200346, "RamChipTemperature", 39.75},
        {200347, "CxpPowerRegulatorTemperature", 62.5}, {200348, "PowerRegulatorTemperature", -3.25},
    };
    for (const auto& s : sensors) vboard::pokeDouble(host.board, kBoardStatus + s.reg, s.value);
    for (const auto& s : sensors) {
        EXPECT_EQ(host.dbl(s.id), s.value) << s.reg;
        EXPECT_EQ(lastError(host), 0);
    }
    vboard::pokeDouble(host.board, kBoardStatus + "FpgaTemperature", 80.5);
    EXPECT_EQ(host.dbl(200341), 80.5);

    // The 57-bit device identity in full.
    const uint64_t dna = 0x1D2C3B4A5968778ull;
    vboard::poke(host.board, kBoardStatus + "FpgaDNA", dna);
    uint64_t value = ~uint64_t{0};
    EXPECT_EQ(get(200349, &value, FG_PARAM_TYPE_UINT64_T), 0);
    EXPECT_EQ(value, dna);
}

TEST_F(AppletReadout, ChannelFieldsAreReadAsARangeOrOneByOne) {
    for (unsigned i = 0; i < 4; ++i) {
        vboard::pokeDouble(host.board, kBoardStatus + "ChannelCurrent", 0.25 + i, i);
        vboard::pokeDouble(host.board, kBoardStatus + "ChannelVoltage", 12.0 + i, i);
    }
    double values[8] = {-1, -1, -1, -1};
    FieldParameterAccess access{};
    access.vtype = FG_PARAM_TYPE_DOUBLE;
    access.p.p_double = values;
    access.count = 4;
    ASSERT_EQ(get(kChannelCurrent, &access, FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS), 0);
    EXPECT_EQ(values[0], 0.25);
    EXPECT_EQ(values[3], 3.25);
    access.index = 2;
    access.count = 2;
    values[0] = values[1] = values[2] = -1;
    ASSERT_EQ(get(kChannelVoltage, &access, FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS), 0);
    EXPECT_EQ(values[0], 14.0);
    EXPECT_EQ(values[1], 15.0);
    EXPECT_EQ(values[2], -1) << "more elements written than asked for";

    // Any type other than the range form selects the single element.
    FieldParameterDouble_s element{0, 3};
    for (FgParamTypes type : {FG_PARAM_TYPE_STRUCT_FIELDPARAMDOUBLE, FG_PARAM_TYPE_DOUBLE, FG_PARAM_TYPE_UINT32_T}) {
        element.value = 0;
        EXPECT_EQ(get(kChannelCurrent, &element, type), 0) << "type " << type;
        EXPECT_EQ(element.value, 3.25) << "type " << type;
    }
}

TEST_F(AppletReadout, ChannelRangesOutsideTheFourChannelsAreRefused) {
    double values[8] = {};
    const struct {
        uint32_t index, count;
        bool nullArray = false;
    } outside[] = {{3, 2}, {4, 0}, {4, 1}, {0, 5}, {1, 4}, {0xFFFFFFFFu, 2}, {2, 0xFFFFFFFFu}, {0, 1, true}};
    for (int id : {kChannelCurrent, kChannelVoltage}) {
        for (const auto& o : outside) {
            FieldParameterAccess access{};
            access.vtype = FG_PARAM_TYPE_DOUBLE;
            access.p.p_double = o.nullArray ? nullptr : values;
            access.index = o.index;
            access.count = o.count;
            EXPECT_EQ(get(id, &access, FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS), PGN_ERR_INVALID_ARGUMENT)
                << "id " << id << " index " << o.index << " count " << o.count;
            EXPECT_EQ(lastError(host), PGN_ERR_INVALID_ARGUMENT);
        }
        for (uint32_t index : {4u, 0xFFFFFFFFu}) {
            FieldParameterDouble_s element{0, index};
            EXPECT_EQ(get(id, &element, FG_PARAM_TYPE_STRUCT_FIELDPARAMDOUBLE), PGN_ERR_INVALID_ARGUMENT) << index;
            EXPECT_EQ(lastError(host), PGN_ERR_INVALID_ARGUMENT);
        }
    }
}

TEST_F(AppletReadout, IdentityOfTheApplet) {
    EXPECT_EQ(host.u32(24020), 3u);
    EXPECT_EQ(text(24108), "Pelagon.hap");
    vboard::pokeString(host.board, "Device1_Process0_AppletProperties_AppletUid", "TEST-UID-0042");
    vboard::pokeString(host.board, "Device1_Process0_AppletProperties_BuildTime", "2031-01-02 03:04:05");
    EXPECT_EQ(text(24010), "TEST-UID-0042");
    EXPECT_EQ(text(24011), "2031-01-02 03:04:05");
    EXPECT_EQ(lastError(host), 0);
}

TEST_F(AppletReadout, RegisterFailuresArePassedOn) {
    vboard::injectFault(host.board, kBoardStatus + "FpgaTemperature", vboard::Access::Read, 1, -4242);
    double value = 0;
    EXPECT_EQ(get(200341, &value, FG_PARAM_TYPE_DOUBLE), -4242);
    EXPECT_EQ(lastError(host), -4242);
    EXPECT_EQ(get(200341, &value, FG_PARAM_TYPE_DOUBLE), 0);
}

TEST_F(AppletReadout, DmaStatusIsAskedForDmaZeroAsA32BitValue) {
    // The caller's type would make the runtime refuse; the status is read
    // into the low 32 bits whatever the caller passed.
    uint64_t value = ~uint64_t{0};
    EXPECT_EQ(get(24092, &value, FG_PARAM_TYPE_DOUBLE), 0);
    EXPECT_EQ(value, 0xFFFFFFFF00000000ull);
}

// Typed, untyped and "auto" reads alike answer in the parameter's own type.
TEST_F(AppletReadout, RuntimeLevelValuesComeFromTheRuntime) {
    // One DMA channel, camera and process; nothing transferred without a camera.
    for (auto [id, expected] : {std::pair{3050, 1u}, {3060, 1u}, {3070, 1u}, {3080, 0u}, {3090, 0u}, {5210, 0u}}) {
        uint32_t untyped = 99, automatic = 99;
        EXPECT_EQ(host.u32(id), expected) << id;
        EXPECT_EQ(host.api.Fg_getParameter(host.fg, id, &untyped, 0), 0) << id;
        EXPECT_EQ(get(id, &automatic, FG_PARAM_TYPE_AUTO), 0) << id;
        EXPECT_TRUE(untyped == expected && automatic == expected) << id;
    }
    // The stop time-out lives in the runtime: a change made there directly
    // is what the applet reports.
    ASSERT_EQ(host.setU32(2000000 + 601, 77), 0);
    EXPECT_EQ(host.u32(601), 77u);
    uint32_t untyped = 0;
    EXPECT_EQ(host.api.Fg_getParameter(host.fg, 601, &untyped, 0), 0);
    EXPECT_EQ(untyped, 77u);
}
