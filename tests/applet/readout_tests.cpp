// Reading the board status and identity read-outs and the runtime-level
// values through the typed parameter read, and refusing writes to every
// read-only parameter.
#include <cstring>
#include <set>
#include <string>

#include "BoundaryHelpers.h"
#include "pelagon_errors.h"

using boundary::lastError;

namespace {

constexpr const char* kBoardStatus = "Device1_Process0_BoardStatus_";

class AppletReadout : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(host.ok()); }

    int get(int id, void* value, FgParamTypes type, unsigned dma = 0) {
        return host.api.Fg_getParameterWithType(host.fg, id, value, dma, type);
    }
    std::string text(int id) {
        char buffer[128];
        std::memset(buffer, 'x', sizeof buffer);
        EXPECT_EQ(get(id, buffer, FG_PARAM_TYPE_CHAR_PTR), 0) << "reading id " << id;
        buffer[sizeof buffer - 1] = '\0';
        return buffer;
    }

    AppletHost host;
};

constexpr int kChannelCurrent = 200350;
constexpr int kChannelVoltage = 200351;

}  // namespace

TEST_F(AppletReadout, SensorValuesComeFromTheBoard) {
    const struct {
        int id;
        const char* reg;
        double value;
    } sensors[] = {
        {200341, "FpgaTemperature", 47.25},
        {200342, "FpgaVccInt", 0.953},
        {200343, "FpgaVccAux", 1.797},
        {200344, "BoardPower", 14.5},
        {200345, "CxpChipTemperature", 51.0},
        {200346, "RamChipTemperature", 39.75},
        {200347, "CxpPowerRegulatorTemperature", 62.5},
        {200348, "PowerRegulatorTemperature", -3.25},
    };
    for (const auto& s : sensors) vboard::pokeDouble(host.board, std::string(kBoardStatus) + s.reg, s.value);
    for (const auto& s : sensors) {
        EXPECT_EQ(host.dbl(s.id), s.value) << s.reg;
        EXPECT_EQ(lastError(host), 0);
    }
    // Read afresh each time, not cached.
    vboard::pokeDouble(host.board, std::string(kBoardStatus) + "FpgaTemperature", 80.5);
    EXPECT_EQ(host.dbl(200341), 80.5);
}

TEST_F(AppletReadout, FpgaDnaIsReadAsA64BitValue) {
    const uint64_t dna = 0x1D2C3B4A5968778ull;  // 57 bits
    vboard::poke(host.board, std::string(kBoardStatus) + "FpgaDNA", dna);
    uint64_t value = ~uint64_t{0};
    EXPECT_EQ(get(200349, &value, FG_PARAM_TYPE_UINT64_T), 0);
    EXPECT_EQ(value, dna);
}

TEST_F(AppletReadout, ChannelFieldsAreReadAsARange) {
    for (unsigned i = 0; i < 4; ++i) {
        vboard::pokeDouble(host.board, std::string(kBoardStatus) + "ChannelCurrent", 0.25 + i, i);
        vboard::pokeDouble(host.board, std::string(kBoardStatus) + "ChannelVoltage", 12.0 + i, i);
    }
    double values[4] = {-1, -1, -1, -1};
    FieldParameterAccess access{};
    access.vtype = FG_PARAM_TYPE_DOUBLE;
    access.p.p_double = values;

    access.index = 0;
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
}

TEST_F(AppletReadout, ChannelRangesOutsideTheFourChannelsAreRefused) {
    double values[8] = {};
    FieldParameterAccess access{};
    access.vtype = FG_PARAM_TYPE_DOUBLE;
    access.p.p_double = values;
    const struct {
        uint32_t index, count;
    } outside[] = {{3, 2}, {4, 0}, {4, 1}, {0, 5}, {1, 4}, {0xFFFFFFFFu, 2}, {2, 0xFFFFFFFFu}};
    for (int id : {kChannelCurrent, kChannelVoltage}) {
        for (const auto& o : outside) {
            access.index = o.index;
            access.count = o.count;
            EXPECT_EQ(get(id, &access, FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS), PGN_ERR_INVALID_ARGUMENT)
                << "id " << id << " index " << o.index << " count " << o.count;
            EXPECT_EQ(lastError(host), PGN_ERR_INVALID_ARGUMENT);
        }
    }
}

TEST_F(AppletReadout, ChannelElementsAreReadOneByOne) {
    vboard::pokeDouble(host.board, std::string(kBoardStatus) + "ChannelCurrent", 1.5, 3);
    FieldParameterDouble_s element{};
    element.index = 3;
    // Any type other than the range form selects the single element.
    for (FgParamTypes type : {FG_PARAM_TYPE_STRUCT_FIELDPARAMDOUBLE, FG_PARAM_TYPE_DOUBLE, FG_PARAM_TYPE_UINT32_T}) {
        element.value = 0;
        EXPECT_EQ(get(kChannelCurrent, &element, type), 0) << "type " << type;
        EXPECT_EQ(element.value, 1.5) << "type " << type;
    }
    element.index = 4;
    EXPECT_EQ(get(kChannelCurrent, &element, FG_PARAM_TYPE_STRUCT_FIELDPARAMDOUBLE), PGN_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(lastError(host), PGN_ERR_INVALID_ARGUMENT);
    element.index = 0xFFFFFFFFu;
    EXPECT_EQ(get(kChannelVoltage, &element, FG_PARAM_TYPE_STRUCT_FIELDPARAMDOUBLE), PGN_ERR_INVALID_ARGUMENT);
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

TEST_F(AppletReadout, NullValuePointerIsRefusedForEveryReadout) {
    for (int id : {200341, 200342, 200343, 200344, 200345, 200346, 200347, 200348, 200349, 200350, 200351, 24020,
                   24010, 24011, 24108, 24092, 601, 3050, 5210}) {
        EXPECT_EQ(get(id, nullptr, FG_PARAM_TYPE_DOUBLE), PGN_ERR_INVALID_ARGUMENT) << "id " << id;
        EXPECT_EQ(lastError(host), PGN_ERR_INVALID_ARGUMENT);
    }
}

TEST_F(AppletReadout, RegisterFailuresArePassedOn) {
    vboard::injectFault(host.board, std::string(kBoardStatus) + "FpgaTemperature", vboard::Access::Read, 1, -4242);
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

TEST_F(AppletReadout, RuntimeLevelValuesComeFromTheRuntime) {
    EXPECT_EQ(host.u32(3050), 1u);  // one DMA channel
    EXPECT_EQ(host.u32(3060), 1u);  // one camera
    EXPECT_EQ(host.u32(3070), 1u);  // one process
    EXPECT_EQ(host.u32(3080), 0u);
    EXPECT_EQ(host.u32(3090), 0u);
    EXPECT_EQ(host.u32(5210), 0u);  // nothing transferred without a camera

    // The stop time-out lives in the runtime: a change made there directly
    // is what the applet reports.
    const uint32_t timeout = 77;
    ASSERT_EQ(host.setU32(2000000 + 601, timeout), 0);
    EXPECT_EQ(host.u32(601), timeout);

    // The caller's type is handed over: a type the runtime does not accept
    // for its own values is refused by it.
    double asDouble = 0;
    EXPECT_EQ(get(3050, &asDouble, FG_PARAM_TYPE_DOUBLE), PGN_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(lastError(host), PGN_ERR_INVALID_ARGUMENT);
}

// Read only by nature, as the catalogue has them; the access published for
// the current modes (a rate that only one simulator mode takes, the LUT file
// while the processor computes the table) tells clients, it refuses nothing.
TEST_F(AppletReadout, EveryReadOnlyParameterRefusesWrites) {
    std::set<int> readOnly;
    auto add = [&](int id, int access) {
        if (access == REG_ACCESS_READ) readOnly.insert(id);
    };
#define PELAGON_PARAM_UINT(index, id, NAME, display, access, ...) add(id, access);
#define PELAGON_PARAM_UINT64(index, id, NAME, display, access, ...) add(id, access);
#define PELAGON_PARAM_DOUBLE(index, id, NAME, display, access, ...) add(id, access);
#define PELAGON_PARAM_ENUM(index, id, NAME, display, access, ...) add(id, access);
#define PELAGON_PARAM_STRING(index, id, NAME, display, access, ...) add(id, access);
#define PELAGON_PARAM_UINTFIELD(index, id, NAME, display, access, ...) add(id, access);
#define PELAGON_PARAM_DOUBLEFIELD(index, id, NAME, display, access, ...) add(id, access);
#include "applet/catalogue.def"
#include "applet/CatalogueUndef.h"
    EXPECT_EQ(readOnly.size(), 40u);
    for (int id : {2050, 24020, 200349, 300215}) EXPECT_TRUE(readOnly.count(id)) << "id " << id;
    for (int id : {601, 3050, 3060, 3070, 3080, 3090, 5210}) readOnly.insert(id);

    for (int id : readOnly) {
        alignas(8) char value[64] = {};
        for (FgParamTypes type : {FG_PARAM_TYPE_UINT32_T, FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS}) {
            // A failed call before shows that the -12 is recorded afresh.
            host.api.Fg_setParameterWithType(host.fg, 424242, value, 0, type);
            EXPECT_EQ(host.api.Fg_setParameterWithType(host.fg, id, value, 0, type), PGN_ERR_READ_ONLY)
                << "id " << id << " type " << type;
            EXPECT_EQ(lastError(host), PGN_ERR_READ_ONLY) << "id " << id;
        }
    }
}
