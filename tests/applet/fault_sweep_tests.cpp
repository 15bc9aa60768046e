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
#include "pelagon_errors.h"

using boundary::lastError;
using boundary::ScopedTempDir;

namespace {

constexpr int kFault = -4711;  // no number the applet or runtime uses itself
constexpr int kLutSize = 4096;
constexpr const char* kLutRegisters[] = {"Device1_Process0_LookupTable_R_LUTcontent",
                                         "Device1_Process0_LookupTable_G_LUTcontent",
                                         "Device1_Process0_LookupTable_B_LUTcontent"};
constexpr int kLutIds[] = {300009, 300010, 300011};

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
    SweepCase(std::string n, Value v, std::vector<Setting> b = {}, Getter g = Getter::Old, const char* why = "")
        : name(std::move(n)), value(std::move(v)), before(std::move(b)), getter(g), note(why) {}
    std::string name;
    Value value;
    std::vector<Setting> before;  // brings the instance to the case's starting point
    Getter getter;
    const char* note;  // why the getter is not compared, or why nothing is written
};

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
    const AppletApi& a = host.api;
    if (const auto* u = std::get_if<uint32_t>(&value)) return host.setU32(id, *u);
    if (const auto* d = std::get_if<double>(&value)) return host.setDouble(id, *d);
    if (const auto* s = std::get_if<std::string>(&value))
        return a.Fg_setParameterWithType(host.fg, id, s->c_str(), 0, FG_PARAM_TYPE_CHAR_PTR);
    if (const auto* r = std::get_if<LutRange>(&value)) {
        uint32_t values[4] = {r->values[0], r->values[1], r->values[2], r->values[3]};
        FieldParameterAccess access{};
        access.vtype = FG_PARAM_TYPE_UINT32_T;
        access.index = r->index;
        access.count = 4;
        access.p.p_uint32_t = values;
        return a.Fg_setParameterWithType(host.fg, id, &access, 0, FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS);
    }
    const auto& e = std::get<LutElement>(value);
    FieldParameterInt_s element{e.value, e.index};
    return a.Fg_setParameterWithType(host.fg, id, &element, 0, FG_PARAM_TYPE_STRUCT_FIELDPARAMINT);
}

std::vector<uint32_t> lutTable(AppletHost& host, int id) {
    std::vector<uint32_t> table(kLutSize);
    FieldParameterAccess access{};
    access.vtype = FG_PARAM_TYPE_UINT32_T;
    access.count = kLutSize;
    access.p.p_uint32_t = table.data();
    EXPECT_EQ(host.api.Fg_getParameterWithType(host.fg, id, &access, 0, FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS), 0);
    return table;
}

// What a client reads from the parameter, as text.
std::string read(AppletHost& host, const std::string& name) {
    const CatalogueRow& row = rowsByName().at(name);
    std::ostringstream out;
    out.precision(17);
    switch (row.kind) {
    case ParameterKind::UInt:
        out << host.u32(row.id);
        break;
    case ParameterKind::Double:
        out << host.dbl(row.id);
        break;
    case ParameterKind::String: {
        char text[4096] = {};
        EXPECT_EQ(host.api.Fg_getParameterWithType(host.fg, row.id, text, 0, FG_PARAM_TYPE_CHAR_PTR), 0);
        out << text;
        break;
    }
    case ParameterKind::UIntField:
        for (uint32_t v : lutTable(host, row.id)) out << v << ',';
        break;
    default:
        ADD_FAILURE() << name << " is not a writable kind";
    }
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

std::string describe(const std::vector<Write>& writes) {
    std::string text;
    for (const Write& w : writes) text += "  " + w.reg + " #" + std::to_string(w.nth) + "\n";
    return text;
}

// The lookup-table caches hold what the registers were last given.
void expectLutCachesMatchRegisters(AppletHost& host) {
    for (int c = 0; c < 3; ++c) {
        const std::vector<uint32_t> cache = lutTable(host, kLutIds[c]);
        int mismatches = 0;
        for (int i = 0; i < kLutSize; ++i)
            if (cache[static_cast<size_t>(i)] != vboard::peek(host.board, kLutRegisters[c], static_cast<unsigned>(i)))
                ++mismatches;
        EXPECT_EQ(mismatches, 0) << "entries of " << kLutRegisters[c] << " that differ from the cache";
    }
}

class Instance {
public:
    explicit Instance(const SweepCase& c) {
        EXPECT_TRUE(host.ok());
        for (const Setting& s : c.before) EXPECT_EQ(write(host, s.name, s.value), 0) << "preparing " << s.name;
        vboard::clearJournal(host.board);
    }
    AppletHost host;
};

// The camera simulator's sizes and rates read back what the generator is
// programmed with (its used sizes and its rate registers); a failing setter
// restores only its cache, and the programmed values keep what was written
// before the fault.
constexpr const char* kStoppedMode = "a stopped trigger system only caches its new mode";
constexpr const char* kProgrammed = "the getter shows the programmed generator, not the cache";

std::vector<SweepCase> sweepCases() {
    std::vector<SweepCase> cases = {
        {"FG_PIXELFORMAT", uint32_t{801}},
        {"FG_CXP_TRIGGER_PACKET_MODE", uint32_t{1}},
        {"FG_TIMEOUT", uint32_t{5000}, {}, Getter::Old, "the runtime's own time-out: no design register"},
        {"FG_WIDTH", uint32_t{512}},
        {"FG_HEIGHT", uint32_t{300}},
        {"FG_XOFFSET", uint32_t{32}, {{"FG_WIDTH", uint32_t{512}}}},
        {"FG_YOFFSET", uint32_t{8}, {{"FG_HEIGHT", uint32_t{300}}}},
        {"FG_FORMAT", uint32_t{6}},
        {"FG_BITALIGNMENT", uint32_t{0}},
        {"FG_CAMERASIMULATOR_ENABLE", uint32_t{1}},
        {"FG_CAMERASIMULATOR_WIDTH", uint32_t{600}, {}, Getter::Register, kProgrammed},
        {"FG_CAMERASIMULATOR_LINE_GAP", uint32_t{48}, {{"FG_CAMERASIMULATOR_SELECT_MODE", uint32_t{0}}}, Getter::Register,
         kProgrammed},
        {"FG_CAMERASIMULATOR_HEIGHT", uint32_t{400}},
        {"FG_CAMERASIMULATOR_FRAME_GAP", uint32_t{20}, {{"FG_CAMERASIMULATOR_SELECT_MODE", uint32_t{0}}}, Getter::Register,
         kProgrammed},
        {"FG_CAMERASIMULATOR_PATTERN", uint32_t{1}},
        {"FG_CAMERASIMULATOR_PATTERN_OFFSET", uint32_t{5}},
        {"FG_CAMERASIMULATOR_ROLL", uint32_t{0}},
        {"FG_CAMERASIMULATOR_SELECT_MODE", uint32_t{0}},
        {"FG_CAMERASIMULATOR_SELECT_MODE", uint32_t{1}},
        {"FG_CAMERASIMULATOR_PIXEL_FREQUENCY", 750.0, {{"FG_CAMERASIMULATOR_SELECT_MODE", uint32_t{0}}}, Getter::Register,
         kProgrammed},
        {"FG_CAMERASIMULATOR_LINERATE", 5000.0, {{"FG_CAMERASIMULATOR_SELECT_MODE", uint32_t{1}}}, Getter::Register,
         kProgrammed},
        {"FG_CAMERASIMULATOR_FRAMERATE", 5.0, {}, Getter::Register, kProgrammed},
        {"FG_CAMERASIMULATOR_TRIGGER_MODE", uint32_t{9}},
        {"FG_IMG_SELECT_PERIOD", uint32_t{3}},
        {"FG_IMG_SELECT", uint32_t{2}, {{"FG_IMG_SELECT_PERIOD", uint32_t{3}}}},
        // The lookup table: its type, the processing values, the three
        // channels as ranges and single entries, a file load.
        {"FG_LUT_TYPE", uint32_t{3}, {{"FG_LUT_TYPE", uint32_t{0}}}},
        {"FG_LUT_TYPE", uint32_t{0}, {{"FG_LUT_SAVE_FILE", std::string("sweep.lut")},
                                      {"FG_PROCESSING_GAIN", 2.0},
                                      {"FG_LUT_CUSTOM_FILE", std::string("sweep.lut")}}},
        {"FG_PROCESSING_OFFSET", 0.125},
        {"FG_PROCESSING_GAIN", 1.5},
        {"FG_PROCESSING_GAMMA", 2.0},
        {"FG_PROCESSING_INVERT", uint32_t{1}},
        {"FG_LUT_VALUE_RED", LutRange{10, {1, 2, 3, 4}}},
        {"FG_LUT_VALUE_GREEN", LutRange{4092, {5, 6, 7, 8}}},
        {"FG_LUT_VALUE_BLUE", LutRange{0, {4095, 0, 4095, 0}}},
        {"FG_LUT_VALUE_RED", LutElement{100, 7}},
        {"FG_LUT_VALUE_BLUE", LutElement{4095, 1}},
        {"FG_LUT_CUSTOM_FILE", std::string("sweep.lut"),
         {{"FG_PROCESSING_GAIN", 2.0}, {"FG_LUT_SAVE_FILE", std::string("sweep.lut")}, {"FG_LUT_TYPE", uint32_t{0}}}},
        {"FG_LUT_SAVE_FILE", std::string("saved.lut"), {}, Getter::Old, "writes a file, no design register"},
        {"FG_SCALINGFACTOR_GREEN", 1.5},
        {"FG_SCALINGFACTOR_RED", 0.5},
        {"FG_SCALINGFACTOR_BLUE", 2.25},
        // Trigger mode and state: the transitions out of the start-up pair
        // (generator, sync stop) and out of an active generator.
        {"FG_AREATRIGGERMODE", uint32_t{2}, {}, Getter::Old, kStoppedMode},
        {"FG_AREATRIGGERMODE", uint32_t{4}, {}, Getter::Old, kStoppedMode},
        {"FG_AREATRIGGERMODE", uint32_t{2}, {{"FG_TRIGGERSTATE", uint32_t{0}}}},
        {"FG_AREATRIGGERMODE", uint32_t{4}, {{"FG_TRIGGERSTATE", uint32_t{0}}}},
        {"FG_AREATRIGGERMODE", uint32_t{1}, {{"FG_AREATRIGGERMODE", uint32_t{4}}, {"FG_TRIGGERSTATE", uint32_t{0}}}},
        {"FG_TRIGGERSTATE", uint32_t{0}},
        {"FG_TRIGGERSTATE", uint32_t{1}},
        {"FG_TRIGGERSTATE", uint32_t{1}, {{"FG_TRIGGERSTATE", uint32_t{0}}}},
        {"FG_TRIGGERSTATE", uint32_t{2}, {{"FG_TRIGGERSTATE", uint32_t{0}}}},
        {"FG_TRIGGERSTATE", uint32_t{0}, {{"FG_AREATRIGGERMODE", uint32_t{2}}}},
        {"FG_TRIGGERSTATE", uint32_t{0}, {{"FG_AREATRIGGERMODE", uint32_t{4}}}},
        {"FG_TRIGGER_FRAMESPERSECOND", 100.0},
        {"FG_TRIGGER_EXCEEDED_PERIOD_LIMITS_CLEAR", uint32_t{1}},
        {"FG_TRIGGERIN_DEBOUNCE", 0.048, {}, Getter::Register, "the getter reads the debounce register"},
        {"FG_TRIGGERIN_SRC", uint32_t{3}},
        {"FG_TRIGGERIN_POLARITY", uint32_t{1}},
        {"FG_TRIGGERIN_DOWNSCALE", uint32_t{4}},
        {"FG_TRIGGERIN_DOWNSCALE_PHASE", uint32_t{2}, {{"FG_TRIGGERIN_DOWNSCALE", uint32_t{4}}}},
        {"FG_TRIGGERIN_BYPASS_SRC", uint32_t{2}},
        {"FG_SENDSOFTWARETRIGGER", uint32_t{1}, {{"FG_AREATRIGGERMODE", uint32_t{4}}, {"FG_TRIGGERSTATE", uint32_t{0}}}},
        {"FG_SENDSOFTWARETRIGGER", uint32_t{3},
         {{"FG_AREATRIGGERMODE", uint32_t{4}}, {"FG_TRIGGERSTATE", uint32_t{0}}, {"FG_TRIGGERQUEUE_MODE", uint32_t{1}}}},
        {"FG_TRIGGERIN_STATS_PULSECOUNT_CLEAR", uint32_t{1}},
        {"FG_TRIGGERIN_STATS_MINMAXFREQUENCY_CLEAR", uint32_t{1}},
        {"FG_TRIGGER_MULTIPLY_PULSES", uint32_t{3}},
        {"FG_TRIGGERQUEUE_MODE", uint32_t{1}, {}, Getter::Old, "the generator mode only caches the queue mode"},
        {"FG_TRIGGERQUEUE_MODE", uint32_t{1}, {{"FG_AREATRIGGERMODE", uint32_t{2}}}},
        {"FG_TRIGGERCAMERA_OUT_SELECT", uint32_t{1}},
        {"FG_TRIGGEROUT_STATS_SOURCE", uint32_t{2}},
        {"FG_TRIGGEROUT_STATS_PULSECOUNT_CLEAR", uint32_t{1}},
        {"FG_MISSING_CAMERA_FRAME_RESPONSE_CLEAR", uint32_t{1}},
    };
    for (int g = 0; g < 4; ++g) {
        const std::string gen = "FG_TRIGGER_PULSEFORMGEN" + std::to_string(g);
        cases.push_back({gen + "_DOWNSCALE", uint32_t{2}});
        cases.push_back({gen + "_DOWNSCALE_PHASE", uint32_t{1}, {{gen + "_DOWNSCALE", uint32_t{2}}}});
        cases.push_back({gen + "_DELAY", 1.0, {}, Getter::Register, "the getter reads the delay register"});
        cases.push_back({gen + "_WIDTH", 8.0, {}, Getter::Register, "the getter reads the width register"});
    }
    for (int i = 0; i < 8; ++i) {
        cases.push_back({"FG_TRIGGERCAMERA_GPO" + std::to_string(i), uint32_t{5}});
        cases.push_back({"FG_TRIGGEROUT_SELECT" + std::to_string(i), uint32_t{1}});
    }
    return cases;
}

}  // namespace

TEST(AppletFaultSweep, EveryWritableParameterHasACase) {
    std::set<std::string> covered;
    for (const SweepCase& c : sweepCases()) covered.insert(c.name);
    for (const CatalogueRow& r : catalogueRows())
        if (r.writable) {
            EXPECT_TRUE(covered.count(r.name)) << r.name << " has no case in the sweep";
        }
}

TEST(AppletFaultSweep, AFaultAtEveryWriteOfEverySetter) {
    ScopedTempDir dir;  // the LUT files of the cases
    int faults = 0;
    for (const SweepCase& c : sweepCases()) {
        SCOPED_TRACE(c.name + " from its starting point, case value " + std::to_string(c.value.index()));
        std::vector<Write> writes;
        std::string before, after;
        {
            Instance clean(c);
            before = read(clean.host, c.name);
            ASSERT_EQ(write(clean.host, c.name, c.value), 0) << "the clean set must succeed";
            writes = writesOf(vboard::journal(clean.host.board));
            after = read(clean.host, c.name);
        }
        if (*c.note && writes.empty()) continue;  // documented: no register to fail
        EXPECT_FALSE(writes.empty()) << "a set that writes nothing needs a note in the table";

        for (const Write& w : writes) {
            SCOPED_TRACE("fault at " + w.reg + " write #" + std::to_string(w.nth) + " of\n" + describe(writes));
            Instance faulty(c);
            AppletHost& host = faulty.host;
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
        {"FG_WIDTH", uint32_t{512}},           {"FG_XOFFSET", uint32_t{32}},
        {"FG_CAMERASIMULATOR_ENABLE", uint32_t{1}}, {"FG_PROCESSING_GAIN", 1.5},
        {"FG_AREATRIGGERMODE", uint32_t{4}},   {"FG_TRIGGERSTATE", uint32_t{0}},
        {"FG_TRIGGEROUT_SELECT2", uint32_t{1}}, {"FG_TRIGGER_PULSEFORMGEN0_WIDTH", 400.0},
    };
    {
        AppletHost saver;
        ASSERT_TRUE(saver.ok());
        for (const Setting& s : settings) ASSERT_EQ(write(saver, s.name, s.value), 0) << s.name;
        ASSERT_EQ(saver.api.Fg_saveConfig(saver.fg, "sweep.mcf"), 0);
    }
    std::vector<Write> writes;
    int cleanResult = 0;
    {
        AppletHost clean;
        vboard::clearJournal(clean.board);
        cleanResult = clean.api.Fg_loadConfig(clean.fg, "sweep.mcf");
        ASSERT_EQ(cleanResult, 0);
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
