// The published parameter tree, the name/index/id lookups and the events, as
// the runtime sees them through the exports.
#include <set>
#include <string>

#include "BoundaryHelpers.h"
#include "pelagon_errors.h"

using boundary::lastError;

namespace {

constexpr double kEpsilon = 2.220446049250313e-16;

class AppletRegistry : public AppletTest {
protected:

    const RegisterInfo* head() { return host.api.Fg_getParameterInfo(host.fg, 0); }
    const RegisterInfo* record(int id) {
        const RegisterInfo* r = host.record(id);
        EXPECT_NE(r, nullptr) << "no record for id " << id;
        return r;
    }
};

}  // namespace

TEST_F(AppletRegistry, TopLevelGroupsRunFromMiscellaneousToCoaXPress) {
    const std::vector<std::string> expected = {"Miscellaneous", "Camera Simulator", "Output Format", "Processing",
                                               "Lookup Table",  "White Balance",    "Image Selector", "Overflow",
                                               "Trigger",       "ROI",              "CoaXPress"};
    EXPECT_EQ(boundary::topLevelNames(head()), expected);
}

TEST_F(AppletRegistry, PublishesEveryCatalogueParameterOnceOnPortZero) {
    const std::vector<const RegisterInfo*> published = leaves(head());
    EXPECT_EQ(published.size(), 128u);
    std::set<int> ids;
    for (const RegisterInfo* r : published) {
        ASSERT_NE(r->parameterName, nullptr);
        EXPECT_TRUE(ids.insert(r->id).second) << "id " << r->id << " twice";
        EXPECT_EQ(r->port, 0) << r->parameterName;
        EXPECT_EQ(r->visibilityFlags, 1) << r->parameterName;
        EXPECT_TRUE(r->accessFlags == 1 || r->accessFlags == 3 || r->accessFlags == 7) << r->parameterName;
        // The published name leads back to the published id.
        EXPECT_EQ(host.api.Fg_getParameterIdByName(host.fg, r->parameterName), r->id) << r->parameterName;
    }
}

// Limits that depend on other settings as a new instance publishes them:
// the y offset beside the default height of 1024, the phase below the
// downscale of 1. Unsigned limits are exact as doubles.
TEST_F(AppletRegistry, LimitsAndUnits) {
    const struct {
        int id;
        const char* name;
        int format, access;  // access 0: not checked
        double from, to, step;
        const char* unit;
    } rows[] = {
        {100, "FG_WIDTH", REG_FORMAT_UINT, 3, 32, 16384, 16, "pixel"},
        {400, "FG_YOFFSET", REG_FORMAT_UINT, 3, 0, 65535 - 1024, 1, "pixel"},
        {300206, "FG_TRIGGERIN_DOWNSCALE_PHASE", REG_FORMAT_UINT, 7, 0, 0, 1, ""},
        {300205, "FG_TRIGGERIN_DOWNSCALE", REG_FORMAT_UINT, 7, 1, 2147483647, 1, ""},
        {8802, "FG_SOFTWARETRIGGER_QUEUE_FILLLEVEL", REG_FORMAT_UINT, 1, 0, 2040, 1, "pulses"},
        {110086, "FG_FILLLEVEL", REG_FORMAT_UINT, 1, 0, 100, 1, "%"},
        {24020, "FG_APPLET_VERSION", REG_FORMAT_UINT, 1, 0, 0, 0, ""},
        {600, "FG_TIMEOUT", REG_FORMAT_UINT, 7, 2, 2147483646, 1, "seconds"},
        {90, "FG_TRIGGER_FRAMESPERSECOND", REG_FORMAT_DOUBLE, 0, 0.0291038304567337, 12500000, kEpsilon, "Hz"},
        {300204, "FG_TRIGGERIN_DEBOUNCE", REG_FORMAT_DOUBLE, 0, 0.048, 1.512, 0.024, "\xB5\x73"},  // microseconds in Latin-1
        {300219, "FG_TRIGGER_PULSEFORMGEN0_WIDTH", REG_FORMAT_DOUBLE, 0, 1, 68000000, 0.016, "\xB5\x73"},
        {13000, "FG_SCALINGFACTOR_RED", REG_FORMAT_DOUBLE, 0, 0, 3.9990234375, 0.0009765625, ""},
        {30106, "FG_CAMERASIMULATOR_PIXEL_FREQUENCY", REG_FORMAT_DOUBLE, 0, 0, 1500.0, kEpsilon, "MHz"},
        {200342, "FG_SYSTEMMONITOR_FPGA_VCC_INT", REG_FORMAT_DOUBLE, 0, -1000, 1000, 0, "V"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const RegisterInfo* r = record(row.id);
        if (!r) continue;
        EXPECT_EQ(r->format, row.format);
        EXPECT_STREQ(r->parameterName, row.name);
        EXPECT_EQ(row.access ? r->accessFlags : 0, row.access);
        const bool isDouble = row.format == REG_FORMAT_DOUBLE;
        EXPECT_DOUBLE_EQ(isDouble ? r->u.dReg.from : r->u.uiReg.from, row.from);
        EXPECT_DOUBLE_EQ(isDouble ? r->u.dReg.to : r->u.uiReg.to, row.to);
        EXPECT_DOUBLE_EQ(isDouble ? r->u.dReg.steps : r->u.uiReg.steps, row.step);
        EXPECT_STREQ(r->unit ? r->unit : "", row.unit);
    }
}

TEST_F(AppletRegistry, OtherRecordKinds) {
    const RegisterInfo* dna = record(200349);
    ASSERT_NE(dna, nullptr);
    EXPECT_EQ(dna->format, REG_FORMAT_UINT64);
    EXPECT_EQ(dna->accessFlags, 1);
    EXPECT_EQ(dna->u.iReg64.from, 0);
    EXPECT_EQ(dna->u.iReg64.to, 144115188075855871LL);
    EXPECT_EQ(dna->u.iReg64.steps, 0);

    const RegisterInfo* current = record(200350);
    ASSERT_NE(current, nullptr);
    EXPECT_EQ(current->format, REG_FORMAT_DOUBLEFIELD);
    EXPECT_EQ(current->u.dfReg.nrOfElements, 4);
    EXPECT_DOUBLE_EQ(current->u.dfReg.from, -100000);
    EXPECT_DOUBLE_EQ(current->u.dfReg.to, 100000);
    EXPECT_STREQ(current->unit, "A");

    const RegisterInfo* lutRed = record(300009);
    ASSERT_NE(lutRed, nullptr);
    EXPECT_EQ(lutRed->format, REG_FORMAT_UINTFIELD);
    EXPECT_EQ(lutRed->u.uifReg.nrOfElements, 4096);
    EXPECT_EQ(lutRed->u.uifReg.to, 4095u);

    const RegisterInfo* hapFile = record(24108);
    ASSERT_NE(hapFile, nullptr);
    EXPECT_EQ(hapFile->format, REG_FORMAT_STRING);
    EXPECT_STREQ(hapFile->u.sReg.FileExtension, "*.hap");
    const RegisterInfo* lutFile = record(300000);
    ASSERT_NE(lutFile, nullptr);
    EXPECT_STREQ(lutFile->u.sReg.FileExtension, "*.lut");

    const RegisterInfo* temperature = record(200341);
    ASSERT_NE(temperature, nullptr);
    EXPECT_STREQ(temperature->name, "FGPA Temperature");
    EXPECT_STREQ(temperature->unit, "Celsius");
}

TEST_F(AppletRegistry, EnumerationRowsKeepTheirOrder) {
    const struct {
        int id;
        int entries;
        int entry;
        const char* display;
        int value;
        const char* symbol;
    } rows[] = {
        {8116, 2, 0, "Low Active", 1, "LOW_ACTIVE"},
        {8116, 2, 1, "High Active", 0, "HIGH_ACTIVE"},
        {110017, 2, 0, "Processor", 3, "LUT_TYPE_PROCESSING"},
        {110017, 2, 1, "User file", 0, "LUT_TYPE_CUSTOM"},
        {700, 3, 1, "Color 30bit", 5, "FG_COL30"},
        {200368, 12, 11, "BayerBG12", 835, "BayerBG12"},
        {300232, 12, 10, "Input Bypass", 10, "INPUT_BYPASS"},
        {300200, 3, 2, "Software", 4, "ATM_SOFTWARE"},
        {300208, 1, 0, "Apply", 1, "FG_APPLY"},
        {200355, 3, 1, "Rising Edge Triggers Line", 8, "RISING_EDGE_TRIGGERS_LINE"},
    };
    for (const auto& row : rows) {
        const RegisterInfo* r = record(row.id);
        if (!r) continue;
        ASSERT_EQ(r->format, REG_FORMAT_ENUM) << "id " << row.id;
        ASSERT_EQ(r->u.eReg.nrOfElements, row.entries) << "id " << row.id;
        EXPECT_STREQ(r->u.eReg.enumNames[row.entry], row.display) << "id " << row.id;
        EXPECT_EQ(r->u.eReg.enumValues[row.entry], row.value) << "id " << row.id;
        EXPECT_STREQ(r->u.eReg.enumDefName[row.entry], row.symbol) << "id " << row.id;
    }
}

// Index, name and id lookups agree; the refusals of hostile lookups are in
// hostile_calls_tests.cpp.
TEST_F(AppletRegistry, NameMapNumbersAllHundredThirtyFiveNames) {
    const int count = host.api.Fg_getNrOfParameter(host.fg);
    ASSERT_EQ(count, boundary::kNamedParameters);
    const struct {
        int index;
        const char* name;
        int id;
    } rows[] = {{0, "FG_PIXELFORMAT", 200368},
                {22, "FG_TRANSFER_LEN", 5210},
                {29, "FG_WIDTH", 100},
                {134, "FG_MISSING_CAMERA_FRAME_RESPONSE_CLEAR", 300249},
                {-1, "FG_APC_STOP_TIMEOUT", 601},
                {-1, "FG_TRIGGER_FRAMESPERSECOND", 90}};
    for (const auto& row : rows) {
        if (row.index >= 0) {
            EXPECT_STREQ(host.api.Fg_getParameterName(host.fg, row.index), row.name);
            EXPECT_EQ(host.api.Fg_getParameterId(host.fg, row.index), row.id) << row.name;
        }
        EXPECT_EQ(host.api.Fg_getParameterIdByName(host.fg, row.name), row.id) << row.name;
        EXPECT_EQ(lastError(host), 0);
    }
    for (int outside : {boundary::kNamedParameters, -1, 1 << 30}) {
        EXPECT_EQ(host.api.Fg_getParameterName(host.fg, outside), nullptr) << outside;
        EXPECT_EQ(lastError(host), PGN_ERR_INVALID_ARGUMENT);
        host.api.Fg_getParameterName(host.fg, 0);
        EXPECT_EQ(host.api.Fg_getParameterId(host.fg, outside), PGN_ERR_INVALID_ARGUMENT) << outside;
        EXPECT_EQ(lastError(host), PGN_ERR_INVALID_ARGUMENT);
    }
    // Every index names a distinct parameter whose id the name lookup agrees on.
    std::set<std::string> names;
    for (int i = 0; i < count; ++i) {
        const char* name = host.api.Fg_getParameterName(host.fg, i);
        ASSERT_NE(name, nullptr) << "index " << i;
        EXPECT_TRUE(names.insert(name).second) << name << " twice";
        EXPECT_EQ(host.api.Fg_getParameterIdByName(host.fg, name), host.api.Fg_getParameterId(host.fg, i)) << name;
    }
}

TEST_F(AppletRegistry, OverflowEventSharesTheDesignEventsMask) {
    const uint64_t overflow = host.api.Fg_getEventMask(host.fg, "FG_OVERFLOW_CAM0");
    EXPECT_EQ(lastError(host), 0);
    EXPECT_EQ(overflow, 32u);  // the design's overflow event has index 5
    EXPECT_EQ(host.api.Fg_getEventMask(host.fg, "Device1_Process0_Overflow_Overflow"), overflow);
    EXPECT_STREQ(host.api.Fg_getEventName(host.fg, overflow), "Device1_Process0_Overflow_Overflow");

    // Firmware events keep the mask of their index; others are not offered.
    EXPECT_EQ(host.api.Fg_getEventMask(host.fg, "Device1_Process1_Trigger_Monitoring_MissingFrame_Cam0"), 4u);
    EXPECT_EQ(host.api.Fg_getEventMask(host.fg, "Device1_Process0_Camera_LinkUp"), 0u);
    EXPECT_EQ(lastError(host), PGN_ERR_INVALID_ARGUMENT);
}
