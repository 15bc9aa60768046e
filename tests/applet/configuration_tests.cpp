// Configuration files through the exported interface: a save in one process
// restored in another, the header and key checks, hostile files, and the
// defaults a new instance programs.
#include <sys/wait.h>
#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <variant>
#include <vector>

#include "AppletHost.h"
#include "BoundaryHelpers.h"
#include "LutHost.h"
#include "Catalogue.h"
#include "design_rows.h"
#include "pelagon_errors.h"

namespace {

using boundary::ScopedTempDir;
using Value = std::variant<uint32_t, double, const char*>;

struct Setting {
    const char* name;
    Value value;
};

int idOf(AppletHost& host, const char* name) { return host.api.Fg_getParameterIdByName(host.fg, name); }

int set(AppletHost& host, const Setting& s) {
    const int id = idOf(host, s.name);
    if (const auto* u = std::get_if<uint32_t>(&s.value)) return host.setU32(id, *u);
    if (const auto* d = std::get_if<double>(&s.value)) return host.setDouble(id, *d);
    return host.api.Fg_setParameterWithType(host.fg, id, std::get<const char*>(s.value), 0, FG_PARAM_TYPE_CHAR_PTR);
}

// Every register element of the board, one line each.
std::string registerDump(ZUdevice* board) {
    std::ostringstream out;
    out.precision(17);
    for (const DesignRegister& r : designRegisters()) {
        for (int i = 0; i < r.count; ++i) {
            out << r.name << '[' << i << "]=";
            if (r.kind == 'U') out << vboard::peek(board, r.name, static_cast<unsigned>(i));
            if (r.kind == 'D') out << vboard::peekDouble(board, r.name, static_cast<unsigned>(i));
            if (r.kind == 'S') out << vboard::peekString(board, r.name);
            out << '\n';
        }
    }
    return out.str();
}

// What a client reads from every scalar parameter of the catalogue.
std::string parameterDump(AppletHost& host) {
    std::ostringstream out;
    out.precision(17);
    auto line = [&](const char* name, const auto& value, int rc) { out << name << '=' << value << " (" << rc << ")\n"; };
    uint32_t u = 0;
    double d = 0;
    char text[4096] = {};
    for (const pelagon::Param* p : pelagon::kCatalogue) {
        switch (p->kind) {
            case pelagon::Kind::Uint:
            case pelagon::Kind::Enum: line(p->name, u, host.getU32(p->id, u)); break;
            case pelagon::Kind::Double: line(p->name, d, host.getDouble(p->id, d)); break;
            case pelagon::Kind::String:
                line(p->name, text, host.api.Fg_getParameterWithType(host.fg, p->id, text, 0, FG_PARAM_TYPE_CHAR_PTR));
                break;
            default: break;
        }
    }
    return out.str();
}

// Runs `body` in a child process and returns its exit status (0 = success);
// whatever the child prints to `output` comes back through a file.
int inChild(const std::string& output, const std::function<std::string()>& body) {
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        int status = 1;
        try {
            const std::string text = body();
            std::ofstream(output) << text;
            status = 0;
        } catch (...) {
        }
        _exit(status);
    }
    int status = -1;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// `text` with its first `from` replaced by `to`.
std::string edited(std::string text, const std::string& from, const std::string& to) {
    return text.replace(text.find(from), from.size(), to);
}

std::string slurp(const std::string& path) {
    std::ifstream in(path);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Settings away from the defaults in every subsystem that a file carries;
// the trigger mode first, as a load applies it: the queue is programmed only
// outside generator mode.
const std::vector<Setting> kSettings = {
    {"FG_PIXELFORMAT", 0x312u}, {"FG_WIDTH", 512u}, {"FG_HEIGHT", 300u}, {"FG_XOFFSET", 32u}, {"FG_YOFFSET", 7u},
    {"FG_FORMAT", 6u}, {"FG_BITALIGNMENT", 0u}, {"FG_TIMEOUT", 2000000000u}, {"FG_CAMERASIMULATOR_ENABLE", 1u},
    {"FG_CAMERASIMULATOR_PATTERN", 1u}, {"FG_CAMERASIMULATOR_ROLL", 0u}, {"FG_CAMERASIMULATOR_SELECT_MODE", 0u},
    {"FG_CAMERASIMULATOR_PIXEL_FREQUENCY", 750.0}, {"FG_CAMERASIMULATOR_WIDTH", 600u},
    {"FG_CAMERASIMULATOR_HEIGHT", 400u}, {"FG_IMG_SELECT_PERIOD", 3u}, {"FG_IMG_SELECT", 2u},
    {"FG_PROCESSING_GAIN", 1.5}, {"FG_PROCESSING_OFFSET", -0.125}, {"FG_PROCESSING_INVERT", 1u},
    {"FG_SCALINGFACTOR_RED", 1.5}, {"FG_SCALINGFACTOR_BLUE", 0.25}, {"FG_AREATRIGGERMODE", 4u},
    {"FG_TRIGGERSTATE", 0u}, {"FG_TRIGGER_FRAMESPERSECOND", 100.0}, {"FG_TRIGGERIN_DEBOUNCE", 0.048},
    {"FG_TRIGGERIN_POLARITY", 1u}, {"FG_TRIGGER_MULTIPLY_PULSES", 3u}, {"FG_TRIGGERQUEUE_MODE", 1u},
    {"FG_TRIGGER_PULSEFORMGEN0_WIDTH", 400.0}, {"FG_TRIGGER_PULSEFORMGEN1_DELAY", 0.064},
    {"FG_TRIGGERCAMERA_GPO3", 5u}, {"FG_TRIGGEROUT_SELECT2", 1u}, {"FG_TRIGGEROUT_STATS_SOURCE", 2u},
};

class AppletConfiguration : public ::testing::Test {
protected:
    // A file saved by a fresh instance with `settings` applied.
    std::string savedFile(const std::vector<Setting>& settings, const char* name = "saved.mcf") {
        AppletHost host;
        for (const Setting& s : settings) EXPECT_EQ(set(host, s), 0) << s.name;
        EXPECT_EQ(host.api.Fg_saveConfig(host.fg, name), 0);
        return slurp(name);
    }
    void write(const char* name, const std::string& text) { std::ofstream(name, std::ios::binary) << text; }
    ScopedTempDir dir;
};

}  // namespace

TEST_F(AppletConfiguration, SavedInOneProcessRestoresEveryValueAndRegisterInAnother) {
    const int saved = inChild("saved.txt", [] {
        AppletHost host;
        if (!host.ok()) throw 1;
        for (const Setting& s : kSettings)
            if (set(host, s) != 0) throw std::string(s.name);
        if (host.api.Fg_saveConfig(host.fg, "round.mcf") != 0) throw 2;
        return parameterDump(host) + registerDump(host.board);
    });
    ASSERT_EQ(saved, 0) << "the saving process failed";

    const int loaded = inChild("loaded.txt", [] {
        AppletHost host;
        if (!host.ok() || host.api.Fg_loadConfig(host.fg, "round.mcf") != 0) throw 1;
        return parameterDump(host) + registerDump(host.board);
    });
    ASSERT_EQ(loaded, 0) << "the loading process failed";

    const std::string dump = slurp("saved.txt");
    ASSERT_FALSE(dump.empty());
    EXPECT_EQ(dump, slurp("loaded.txt"));  // a failure shows the lines that differ
}

TEST_F(AppletConfiguration, FileHoldsTheHeaderAndEveryKeyInOrder) {
    const std::string text = savedFile({{"FG_TRIGGERIN_DEBOUNCE", 0.048}});
    const std::string header = "[Kamerasektion]\n\nConfigFileVersion=2.0;\nHersteller='Quorvant GmbH';\nTyp='Pelagon';\n"
                               "Version='2.3';\nLoadAppletId=0;\nAktivePort=0;\n\n[Port A]\nFG_PIXELFORMAT=785;\n";
    EXPECT_EQ(text.substr(0, header.size()), header);
    EXPECT_NE(text.find("\nFG_TRIGGERIN_DEBOUNCE=0.048;\n"), std::string::npos);
    EXPECT_NE(text.find("\nFG_LUT_CUSTOM_FILE='';\n"), std::string::npos);
    EXPECT_NE(text.find("\nFG_CAMERASIMULATOR_PASSIVE=1999;\n"), std::string::npos);  // frame-rate mode: active 1
    EXPECT_EQ(text.find("PULSECOUNT_CLEAR"), std::string::npos);
    EXPECT_EQ(text.substr(text.size() - 31), "\nFG_TRIGGEROUT_STATS_SOURCE=0;\n");
    size_t keys = 0;
    for (size_t at = text.find("\nFG_"); at != std::string::npos; at = text.find("\nFG_", at + 1)) ++keys;
    EXPECT_EQ(keys, 80u);
}

TEST_F(AppletConfiguration, NumbersUseADecimalPointUnderADecimalCommaLocale) {
    const char* previous = std::setlocale(LC_ALL, nullptr);
    const std::string restore = previous ? previous : "C";
    if (!std::setlocale(LC_ALL, "de_DE.UTF-8")) GTEST_SKIP() << "de_DE.UTF-8 is not installed";
    const std::string text = savedFile({{"FG_SCALINGFACTOR_RED", 1.5}});
    EXPECT_NE(text.find("\nFG_SCALINGFACTOR_RED=1.5;\n"), std::string::npos);
    {
        AppletHost host;
        EXPECT_EQ(host.api.Fg_loadConfig(host.fg, "saved.mcf"), 0);
        EXPECT_EQ(host.dbl(idOf(host, "FG_SCALINGFACTOR_RED")), 1.5);
    }
    std::setlocale(LC_ALL, restore.c_str());
}

TEST_F(AppletConfiguration, HeaderAndFileChecksRefuseWithTheirNumbers) {
    std::string text = savedFile({});
    AppletHost host;
    auto load = [&](const char* name) { return host.api.Fg_loadConfig(host.fg, name); };
    auto last = [&] { return host.api.Fg_getLastErrorNumber(host.fg); };

    EXPECT_EQ(load("missing.mcf"), PGN_ERR_FILE_MISSING);
    EXPECT_EQ(last(), PGN_ERR_BAD_CONFIG);
    write("saved.txt", text);
    EXPECT_EQ(load("saved.txt"), PGN_ERR_BAD_CONFIG);

    write("other.mcf", edited(text, "Typ='Pelagon'", "Typ='Pelagos'"));
    vboard::clearJournal(host.board);
    EXPECT_EQ(load("other.mcf"), PGN_ERR_BAD_CONFIG);
    EXPECT_TRUE(vboard::journal(host.board).empty());

    std::string crlf;
    for (char c : text) crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
    write("crlf.mcf", crlf);  // the header section line no longer matches
    EXPECT_EQ(load("crlf.mcf"), PGN_ERR_BAD_CONFIG);

    EXPECT_EQ(load("saved.mcf"), 0);
    EXPECT_EQ(last(), 0);
}

TEST_F(AppletConfiguration, MissingLastKeyFailsAfterTheFirstPassHasFilledTheCaches) {
    std::string text = savedFile({{"FG_SCALINGFACTOR_RED", 2.0}});
    text.erase(text.find("FG_TRIGGEROUT_STATS_SOURCE"));
    write("short.mcf", text);
    AppletHost host;
    vboard::clearJournal(host.board);
    EXPECT_EQ(host.api.Fg_loadConfig(host.fg, "short.mcf"), PGN_ERR_BAD_CONFIG);
    EXPECT_EQ(host.dbl(idOf(host, "FG_SCALINGFACTOR_RED")), 2.0);
    EXPECT_TRUE(vboard::journal(host.board).empty()) << "the second pass must not have run";
}

TEST_F(AppletConfiguration, InvalidValueIsCachedByTheFirstPassAndRefusedByTheSetter) {
    write("odd.mcf", edited(savedFile({}), "\nFG_WIDTH=1024;", "\nFG_WIDTH=1000;"));
    AppletHost host;
    ASSERT_EQ(host.setU32(100, 512), 0);
    EXPECT_EQ(host.api.Fg_loadConfig(host.fg, "odd.mcf"), 0);
    EXPECT_EQ(host.u32(100), 1000u);
    EXPECT_EQ(vboard::peek(host.board, "Device1_Process0_Buffer_0_DRAM_A_0_XLength"), 512u);
}

TEST_F(AppletConfiguration, HostileFilesFailCleanly) {
    const std::string good = savedFile({}), longLine(300, 'x');
    struct Case {
        const char* name;
        std::string text;
        int result;
    };
    const std::vector<Case> cases = {
        {"empty.mcf", "", PGN_ERR_BAD_CONFIG},
        {"noport.mcf", edited(good, "[Port A]", ""), PGN_ERR_BAD_CONFIG},
        {"long.mcf", longLine + "\n" + good + longLine + "\n", 0},
        {"longname.mcf", edited(good, "FG_LUT_CUSTOM_FILE=''", "FG_LUT_CUSTOM_FILE='" + std::string(1023, 'n') + "'"), 0},
        {"novalue.mcf", edited(good, "FG_TIMEOUT=1000000;", "FG_TIMEOUT=;"), 0},
        {"garbage.mcf", edited(good, "FG_PROCESSING_GAIN=1;", "FG_PROCESSING_GAIN=abc;"), 0},
        {"binary.mcf", std::string("\0\xff\x01[Port A]\n", 12), PGN_ERR_BAD_CONFIG},
    };
    for (const Case& c : cases) {
        write(c.name, c.text);
        AppletHost host;
        EXPECT_EQ(host.api.Fg_loadConfig(host.fg, c.name), c.result) << c.name;
    }

    std::filesystem::create_directory("folder.mcf");
    AppletHost host;
    EXPECT_EQ(host.api.Fg_loadConfig(host.fg, "folder.mcf"), PGN_ERR_FILE_MISSING) << "a folder is no file";
    EXPECT_EQ(host.api.Fg_saveConfig(host.fg, "folder.mcf"), PGN_ERR_FILE_IO);
    EXPECT_EQ(host.api.Fg_saveConfig(host.fg, "no/such/folder/x.mcf"), PGN_ERR_FILE_IO);
    EXPECT_EQ(host.api.Fg_getLastErrorNumber(host.fg), PGN_ERR_FILE_IO);
    EXPECT_EQ(host.api.Fg_saveConfig(host.fg, "settings.txt"), PGN_ERR_FILE_IO);
    EXPECT_FALSE(std::filesystem::exists("settings.txt"));
}

TEST(AppletDefaults, NewInstanceProgramsEveryDefault) {
    AppletHost host;
    ASSERT_TRUE(host.ok());
    const std::string p = "Device1_Process1_Trigger_TriggerCam0_";
    // The processor table with offset 0, gain 1, gamma 1: the identity, in
    // the registers and in the caches the table is read from.
    for (unsigned i : {0u, 1u, 2048u, 4095u}) {
        EXPECT_EQ(vboard::peek(host.board, "Device1_Process0_LookupTable_R_LUTcontent", i), i);
        EXPECT_EQ(vboard::peek(host.board, "Device1_Process0_LookupTable_B_LUTcontent", i), i);
    }
    for (int c = 0; c < 3; ++c) EXPECT_EQ(lut::cached(host, c), lut::registers(host, c)) << "channel " << c;
    EXPECT_EQ(vboard::peekDouble(host.board, "Device1_Process0_Bayer_White_GreenCoefficient"), 1.0);
    EXPECT_EQ(vboard::peek(host.board, "Device1_Process0_Buffer_0_DRAM_A_1_XLength"), 1024u);
    EXPECT_EQ(vboard::peek(host.board, p + "PulseFormGenerators_PulseFormGenerator0_Width_Width"), 500000u);
    EXPECT_EQ(vboard::peek(host.board, p + "PulseFormGenerators_PulseFormGenerator3_Width_Width"), 500u);
    EXPECT_EQ(vboard::peek(host.board, p + "TriggerOutput_Select0_Select_Select"), 0u);
    EXPECT_EQ(vboard::peek(host.board, p + "TriggerOutput_Select0_Polarity_Invert"), 1u);
    EXPECT_EQ(vboard::peek(host.board, p + "Generators_ClearQueuePulse_Mode"), 1u);  // stopped
    EXPECT_EQ(vboard::peek(host.board, p + "InputSelect_Polarity_Invert"), 0u);
    EXPECT_EQ(host.u32(idOf(host, "FG_TRIGGERSTATE")), 2u);
}
