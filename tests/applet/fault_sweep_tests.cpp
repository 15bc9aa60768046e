// Register faults at every write a setter makes. For each writable parameter
// a clean set to a valid new value is journalled by the virtual board; then,
// on a fresh instance each time, each of those register writes in turn is
// made to fail. The set must answer the injected number, record it as the
// last error, leave what the getter shows at its old value, and keep the
// lookup-table caches equal to what the registers hold. A configuration load
// with a fault in any of its writes ends as a load does: 0 or -5000.
#include <cstdio>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "BoundaryHelpers.h"
#include "CatalogueRows.h"
#include "LutHost.h"
#include "pelagon_errors.h"

using boundary::lastError;
using boundary::ScopedTempDir;

namespace {

constexpr int kFault = -4711;  // no number the applet or runtime uses itself
// Four entries of a table, written as one range.
struct LutRange {
    uint32_t index;
    uint32_t values[4];
};
// One entry, written as a single element.
struct LutElement {
    uint32_t index;
    uint32_t value;
};
using Value = std::variant<uint32_t, double, std::string, LutRange, LutElement>;

struct Setting {
    std::string name;
    Value value;
};

// What the getter shows after a failed set.
enum class Getter {
    Old,       // its old value: the getter reads the cache, which was restored
    Register,  // follows the design, which keeps the writes made before the fault:
               // the old or the new value
};

struct SweepCase {
    std::string name;
    Value value;
    std::vector<Setting> before = {};  // brings the instance to the case's starting point
    Getter getter = Getter::Old;
    const char* note = "";  // why the getter is not compared, or why nothing is written
};

constexpr uint32_t operator""_u(unsigned long long v) { return static_cast<uint32_t>(v); }

const std::map<std::string, CatalogueRow>& rowsByName() {
    static const std::map<std::string, CatalogueRow> rows = [] {
        std::map<std::string, CatalogueRow> m;
        for (const CatalogueRow& r : catalogueRows()) m.emplace(r.name, r);
        return m;
    }();
    return rows;
}

int idOf(const std::string& name) { return rowsByName().at(name).id; }

int write(AppletHost& host, const std::string& name, const Value& value) {
    const int id = idOf(name);
    if (const auto* u = std::get_if<uint32_t>(&value)) return host.setU32(id, *u);
    if (const auto* d = std::get_if<double>(&value)) return host.setDouble(id, *d);
    if (const auto* s = std::get_if<std::string>(&value)) return lut::setText(host, id, *s);
    if (const auto* r = std::get_if<LutRange>(&value)) {
        uint32_t values[4] = {r->values[0], r->values[1], r->values[2], r->values[3]};
        return lut::setRange(host, id, lut::range(values, r->index, 4));
    }
    FieldParameterInt_s element{std::get<LutElement>(value).value, std::get<LutElement>(value).index};
    return host.api.Fg_setParameterWithType(host.fg, id, &element, 0, FG_PARAM_TYPE_STRUCT_FIELDPARAMINT);
}

// What a client reads from the parameter, as text.
std::string read(AppletHost& host, const std::string& name) {
    const CatalogueRow& row = rowsByName().at(name);
    std::ostringstream out;
    out.precision(17);
    if (row.kind == ParameterKind::UInt) out << host.u32(row.id);
    if (row.kind == ParameterKind::Double) out << host.dbl(row.id);
    if (row.kind == ParameterKind::String) out << lut::text(host, row.id);
    if (row.kind == ParameterKind::UIntField)
        for (uint32_t v : lut::cached(host, row.id - lut::RED)) out << v << ',';
    return out.str();
}

// The register writes of a journal: consecutive elements of one register
// are one write (a range), anything else starts the next.
struct Write {
    std::string reg;
    unsigned nth;  // 1 = the first write of that register in the set
};

std::vector<Write> writesOf(const std::vector<vboard::JournalEntry>& journal) {
    std::vector<Write> writes;
    std::map<std::string, unsigned> counts;
    const vboard::JournalEntry* previous = nullptr;
    for (const vboard::JournalEntry& e : journal) {
        const bool continues = previous && previous->reg == e.reg && e.element == previous->element + 1;
        if (!continues) writes.push_back({e.name, ++counts[e.name]});
        previous = &e;
    }
    return writes;
}

// The lookup-table caches hold what the registers were last given.
void expectLutCachesMatchRegisters(AppletHost& host) {
    for (int c = 0; c < 3; ++c) EXPECT_TRUE(lut::cached(host, c) == lut::registers(host, c)) << lut::kRegisters[c];
}

// A fresh instance at the case's starting point.
void prepare(AppletHost& host, const SweepCase& c) {
    EXPECT_TRUE(host.ok());
    for (const Setting& s : c.before) EXPECT_EQ(write(host, s.name, s.value), 0) << "preparing " << s.name;
    vboard::clearJournal(host.board);
}

// The camera simulator's sizes and rates read back what the generator is
// programmed with (its used sizes and its rate registers); a failing setter
// restores only its cache, and the programmed values keep what was written
// before the fault.
constexpr const char* kStoppedMode = "a stopped trigger system only caches its new mode";
constexpr const char* kProgrammed = "the getter shows the programmed generator, not the cache";

std::vector<SweepCase> sweepCases() {
    const Setting pixelFrequencyMode{"FG_CAMERASIMULATOR_SELECT_MODE", 0_u}, active{"FG_TRIGGERSTATE", 0_u};
    const Setting external{"FG_AREATRIGGERMODE", 2_u}, software{"FG_AREATRIGGERMODE", 4_u};
    std::vector<SweepCase> cases = {
        {"FG_PIXELFORMAT", 801_u}, {"FG_CXP_TRIGGER_PACKET_MODE", 1_u}, {"FG_WIDTH", 512_u}, {"FG_HEIGHT", 300_u},
        {"FG_TIMEOUT", 5000_u, {}, Getter::Old, "the runtime's own time-out: no design register"},
        {"FG_XOFFSET", 32_u, {{"FG_WIDTH", 512_u}}}, {"FG_YOFFSET", 8_u, {{"FG_HEIGHT", 300_u}}},
        {"FG_FORMAT", 6_u}, {"FG_BITALIGNMENT", 0_u}, {"FG_CAMERASIMULATOR_ENABLE", 1_u},
        {"FG_CAMERASIMULATOR_WIDTH", 600_u, {}, Getter::Register, kProgrammed},
        {"FG_CAMERASIMULATOR_LINE_GAP", 48_u, {pixelFrequencyMode}, Getter::Register, kProgrammed},
        {"FG_CAMERASIMULATOR_HEIGHT", 400_u},
        {"FG_CAMERASIMULATOR_FRAME_GAP", 20_u, {pixelFrequencyMode}, Getter::Register, kProgrammed},
        {"FG_CAMERASIMULATOR_PATTERN", 1_u}, {"FG_CAMERASIMULATOR_PATTERN_OFFSET", 5_u},
        {"FG_CAMERASIMULATOR_ROLL", 0_u}, {"FG_CAMERASIMULATOR_SELECT_MODE", 0_u},
        {"FG_CAMERASIMULATOR_SELECT_MODE", 1_u},
        {"FG_CAMERASIMULATOR_PIXEL_FREQUENCY", 750.0, {pixelFrequencyMode}, Getter::Register, kProgrammed},
        {"FG_CAMERASIMULATOR_LINERATE", 5000.0, {{"FG_CAMERASIMULATOR_SELECT_MODE", 1_u}}, Getter::Register,
         kProgrammed},
        {"FG_CAMERASIMULATOR_FRAMERATE", 5.0, {}, Getter::Register, kProgrammed},
        {"FG_CAMERASIMULATOR_TRIGGER_MODE", 9_u}, {"FG_IMG_SELECT_PERIOD", 3_u},
        {"FG_IMG_SELECT", 2_u, {{"FG_IMG_SELECT_PERIOD", 3_u}}},
        // The lookup table: its type, the processing values, the three
        // channels as ranges and single entries, a file load.
        {"FG_LUT_TYPE", 3_u, {{"FG_LUT_TYPE", 0_u}}},
        {"FG_LUT_TYPE", 0_u, {{"FG_LUT_SAVE_FILE", std::string("sweep.lut")}, {"FG_PROCESSING_GAIN", 2.0},
                              {"FG_LUT_CUSTOM_FILE", std::string("sweep.lut")}}},
        {"FG_PROCESSING_OFFSET", 0.125}, {"FG_PROCESSING_GAIN", 1.5}, {"FG_PROCESSING_GAMMA", 2.0},
        {"FG_PROCESSING_INVERT", 1_u}, {"FG_LUT_VALUE_RED", LutRange{10, {1, 2, 3, 4}}},
        {"FG_LUT_VALUE_GREEN", LutRange{4092, {5, 6, 7, 8}}}, {"FG_LUT_VALUE_BLUE", LutRange{0, {4095, 0, 4095, 0}}},
        {"FG_LUT_VALUE_RED", LutElement{100, 7}}, {"FG_LUT_VALUE_BLUE", LutElement{4095, 1}},
        {"FG_LUT_CUSTOM_FILE", std::string("sweep.lut"),
         {{"FG_PROCESSING_GAIN", 2.0}, {"FG_LUT_SAVE_FILE", std::string("sweep.lut")}, {"FG_LUT_TYPE", 0_u}}},
        {"FG_LUT_SAVE_FILE", std::string("saved.lut"), {}, Getter::Old, "writes a file, no design register"},
        {"FG_SCALINGFACTOR_GREEN", 1.5}, {"FG_SCALINGFACTOR_RED", 0.5}, {"FG_SCALINGFACTOR_BLUE", 2.25},
        // Trigger mode and state: the transitions out of the start-up pair
        // (generator, sync stop) and out of an active generator.
        {"FG_AREATRIGGERMODE", 2_u, {}, Getter::Old, kStoppedMode},
        {"FG_AREATRIGGERMODE", 4_u, {}, Getter::Old, kStoppedMode},
        {"FG_AREATRIGGERMODE", 2_u, {active}}, {"FG_AREATRIGGERMODE", 4_u, {active}},
        {"FG_AREATRIGGERMODE", 1_u, {software, active}}, {"FG_TRIGGERSTATE", 0_u}, {"FG_TRIGGERSTATE", 1_u},
        {"FG_TRIGGERSTATE", 1_u, {active}}, {"FG_TRIGGERSTATE", 2_u, {active}},
        {"FG_TRIGGERSTATE", 0_u, {external}}, {"FG_TRIGGERSTATE", 0_u, {software}},
        {"FG_TRIGGER_FRAMESPERSECOND", 100.0}, {"FG_TRIGGER_EXCEEDED_PERIOD_LIMITS_CLEAR", 1_u},
        {"FG_TRIGGERIN_DEBOUNCE", 0.048, {}, Getter::Register, "the getter reads the debounce register"},
        {"FG_TRIGGERIN_SRC", 3_u}, {"FG_TRIGGERIN_POLARITY", 1_u}, {"FG_TRIGGERIN_DOWNSCALE", 4_u},
        {"FG_TRIGGERIN_DOWNSCALE_PHASE", 2_u, {{"FG_TRIGGERIN_DOWNSCALE", 4_u}}}, {"FG_TRIGGERIN_BYPASS_SRC", 2_u},
        {"FG_SENDSOFTWARETRIGGER", 1_u, {software, active}},
        {"FG_SENDSOFTWARETRIGGER", 3_u, {software, active, {"FG_TRIGGERQUEUE_MODE", 1_u}}},
        {"FG_TRIGGERIN_STATS_PULSECOUNT_CLEAR", 1_u}, {"FG_TRIGGERIN_STATS_MINMAXFREQUENCY_CLEAR", 1_u},
        {"FG_TRIGGER_MULTIPLY_PULSES", 3_u},
        {"FG_TRIGGERQUEUE_MODE", 1_u, {}, Getter::Old, "the generator mode only caches the queue mode"},
        {"FG_TRIGGERQUEUE_MODE", 1_u, {external}}, {"FG_TRIGGERCAMERA_OUT_SELECT", 1_u},
        {"FG_TRIGGEROUT_STATS_SOURCE", 2_u}, {"FG_TRIGGEROUT_STATS_PULSECOUNT_CLEAR", 1_u},
        {"FG_MISSING_CAMERA_FRAME_RESPONSE_CLEAR", 1_u},
    };
    for (int g = 0; g < 4; ++g) {
        const std::string gen = "FG_TRIGGER_PULSEFORMGEN" + std::to_string(g);
        cases.push_back({gen + "_DOWNSCALE", 2_u});
        cases.push_back({gen + "_DOWNSCALE_PHASE", 1_u, {{gen + "_DOWNSCALE", 2_u}}});
        cases.push_back({gen + "_DELAY", 1.0, {}, Getter::Register, "the getter reads the delay register"});
        cases.push_back({gen + "_WIDTH", 8.0, {}, Getter::Register, "the getter reads the width register"});
    }
    for (int i = 0; i < 8; ++i) {
        cases.push_back({"FG_TRIGGERCAMERA_GPO" + std::to_string(i), 5_u});
        cases.push_back({"FG_TRIGGEROUT_SELECT" + std::to_string(i), 1_u});
    }
    return cases;
}

}  // namespace

TEST(AppletFaultSweep, EveryWritableParameterHasACase) {
    std::set<std::string> covered;
    for (const SweepCase& c : sweepCases()) covered.insert(c.name);
    for (const CatalogueRow& r : catalogueRows())
        EXPECT_TRUE(!r.writable || covered.count(r.name)) << r.name << " has no case in the sweep";
}

TEST(AppletFaultSweep, AFaultAtEveryWriteOfEverySetter) {
    ScopedTempDir dir;  // the LUT files of the cases
    int faults = 0;
    for (const SweepCase& c : sweepCases()) {
        SCOPED_TRACE(c.name + " from its starting point, case value " + std::to_string(c.value.index()));
        std::vector<Write> writes;
        std::string before, after;
        {
            AppletHost clean;
            prepare(clean, c);
            before = read(clean, c.name);
            ASSERT_EQ(write(clean, c.name, c.value), 0) << "the clean set must succeed";
            writes = writesOf(vboard::journal(clean.board));
            after = read(clean, c.name);
        }
        if (*c.note && writes.empty()) continue;  // documented: no register to fail
        EXPECT_FALSE(writes.empty()) << "a set that writes nothing needs a note in the table";

        for (const Write& w : writes) {
            SCOPED_TRACE("fault at " + w.reg + " write #" + std::to_string(w.nth));
            AppletHost host;
            prepare(host, c);
            vboard::injectFault(host.board, w.reg, vboard::Access::Write, w.nth, kFault);
            EXPECT_EQ(write(host, c.name, c.value), kFault);
            EXPECT_EQ(lastError(host), kFault);
            vboard::clearFaults(host.board);
            const std::string shown = read(host, c.name);
            if (c.getter == Getter::Old) {
                EXPECT_EQ(shown, before);
            } else {
                // Derived from registers that hold either their old value or,
                // if written before the fault, their new one.
                EXPECT_TRUE(shown == before || shown == after) << shown << " is neither " << before << " nor " << after;
            }
            if (c.name.find("LUT") != std::string::npos || c.name.find("PROCESSING") != std::string::npos)
                expectLutCachesMatchRegisters(host);
            // The instance still takes the set once the fault is gone.
            EXPECT_EQ(write(host, c.name, c.value), 0);
            EXPECT_EQ(read(host, c.name), after);
            ++faults;
        }
    }
    std::printf("%d faults injected\n", faults);
}

// A configuration load applies every key with errors ignored: a fault in any
// of its register writes must neither crash it nor change its answer.
TEST(AppletFaultSweep, AFaultAtEveryWriteOfAConfigurationLoad) {
    ScopedTempDir dir;
    const std::vector<Setting> settings = {
        {"FG_WIDTH", 512_u}, {"FG_XOFFSET", 32_u}, {"FG_CAMERASIMULATOR_ENABLE", 1_u}, {"FG_PROCESSING_GAIN", 1.5},
        {"FG_AREATRIGGERMODE", 4_u}, {"FG_TRIGGERSTATE", 0_u}, {"FG_TRIGGEROUT_SELECT2", 1_u},
        {"FG_TRIGGER_PULSEFORMGEN0_WIDTH", 400.0}};
    {
        AppletHost saver;
        ASSERT_TRUE(saver.ok());
        for (const Setting& s : settings) ASSERT_EQ(write(saver, s.name, s.value), 0) << s.name;
        ASSERT_EQ(saver.api.Fg_saveConfig(saver.fg, "sweep.mcf"), 0);
    }
    std::vector<Write> writes;
    {
        AppletHost clean;
        vboard::clearJournal(clean.board);
        ASSERT_EQ(clean.api.Fg_loadConfig(clean.fg, "sweep.mcf"), 0);
        writes = writesOf(vboard::journal(clean.board));
    }
    ASSERT_FALSE(writes.empty());
    for (const Write& w : writes) {
        SCOPED_TRACE("fault at " + w.reg + " write #" + std::to_string(w.nth));
        AppletHost host;
        vboard::injectFault(host.board, w.reg, vboard::Access::Write, w.nth, kFault);
        const int result = host.api.Fg_loadConfig(host.fg, "sweep.mcf");
        EXPECT_TRUE(result == 0 || result == PGN_ERR_BAD_CONFIG) << result;
        EXPECT_EQ(lastError(host), result);
        vboard::clearFaults(host.board);
        // Still a working instance: the same file loads cleanly now.
        EXPECT_EQ(host.api.Fg_loadConfig(host.fg, "sweep.mcf"), 0);
        expectLutCachesMatchRegisters(host);
    }
    std::printf("%zu writes of a load faulted\n", writes.size());
}
