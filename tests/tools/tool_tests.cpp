// The command-line tool driven as a process: exit statuses, what it prints
// on standard output and standard error, and the files it writes (PNG frames
// decoded with libpng, configuration round trips, the XML checked by xmllint).
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "icon/png_decode.h"
#include "support/scratch_folder.h"
#include "vboard/grabber.h"

namespace {

namespace fs = std::filesystem;

class ToolTest : public ::testing::Test, protected ScratchFolder {
protected:
    ProcessOutcome run(const std::vector<std::string>& args) const {
        return ScratchFolder::run(PELAGON_TOOL_PATH, args);
    }
};

// "--set" before each of the settings, then the command.
std::vector<std::string> withSettings(const std::vector<std::string>& settings,
                                      const std::vector<std::string>& command) {
    std::vector<std::string> args;
    for (const std::string& s : settings) args.insert(args.end(), {"--set", s});
    args.insert(args.end(), command.begin(), command.end());
    return args;
}

DecodedPng readPng(const std::string& path) {
    const std::string bytes = fileContents(path);
    DecodedPng png;
    EXPECT_TRUE(decodePng({bytes.begin(), bytes.end()}, &png)) << path << ": " << png.error;
    return png;
}

TEST_F(ToolTest, FailuresNameTheErrorNumberAndItsMeaning) {
    const std::string missing = path("missing.mcf");
    const struct {
        std::vector<std::string> args;
        int code;             // the applet's error number, 0 for the tool's own usage errors
        std::string message;  // also expected on standard error
    } refusals[] = {
        {{"set", "FG_WIDTH=40"}, -7080, "FG_WIDTH to 40"},
        {{"set", "FG_WIDTH=640", "FG_HEIGHT=0"}, -6000, "FG_HEIGHT"},
        {{"--config", missing, "info"}, -2076, missing},
        {{"--set", "FG_WIDTH=abc", "info"}, -2070, "\"abc\""},
        {{"--set", "FG_FORMAT=NOPE", "info"}, -2070, "FG_COL48"},  // lists the symbols it takes
        {{"--set", "FG_NO_SUCH_THING=1", "info"}, -2070, "FG_NO_SUCH_THING"},
        {{"get", "999999"}, -2070, "999999"},
        {{"lut", "load", path("missing.lut")}, -2076, "missing.lut"},
        {{"trigger"}, -2140, "FG_AREATRIGGERMODE=ATM_SOFTWARE"},
        // The camera port has no camera: the wait times out, and the hint says why.
        {{"acquire", "-o", path("none")}, -2120, "FG_CAMERASIMULATOR_ENABLE=FG_CAMERASIMULATOR"},
        {{"--set", "FG_WIDTH", "info"}, 0, "NAME=VALUE"},
        {{"--applet", path("libNothing.so"), "info"}, 0, "libNothing.so"},
        {{"frobnicate"}, 0, ""},
    };
    // As the user must see it: an ordinary non-zero exit and a message on
    // standard error, never a crash, an uncaught exception or a sanitizer report.
    for (const auto& refusal : refusals) {
        const ProcessOutcome r = run(refusal.args);
        SCOPED_TRACE(::testing::PrintToString(refusal.args) + "\n" + r.err);
        EXPECT_EQ(r.signal, 0);
        EXPECT_GT(r.status, 0);
        for (const char* bad : {"terminate called", "Sanitizer", "Aborted", "what():"})
            EXPECT_EQ(r.err.find(bad), std::string::npos);
        EXPECT_NE(r.err.find("pelagon: "), std::string::npos);
        EXPECT_NE(r.err.find(refusal.message), std::string::npos);
        if (refusal.code == 0) continue;
        EXPECT_NE(r.err.find("error " + std::to_string(refusal.code)), std::string::npos);
        EXPECT_NE(r.err.find(vboard::errorText(refusal.code)), std::string::npos);
    }
}

TEST_F(ToolTest, RefusalsSayWhatIsAllowedAndWhatStandsInTheWay) {
    const std::string text = write("text.lut", "just some words\n");
    const struct {
        std::vector<std::string> args;
        std::vector<std::string> said;
    } refusals[] = {
        {{"set", "FG_SCALINGFACTOR_RED=5"}, {"allowed: 0 .. 3.99"}},
        {{"set", "FG_WIDTH=40"}, {"-7080", "allowed: 32 .. 16384 in steps of 16"}},
        {{"set", "FG_FORMAT=77"}, {"one of FG_COL24=2, FG_COL30=5, FG_COL48=6"}},
        // Inside the power-on limits, but the other parameter's value narrows them.
        {{"set", "FG_WIDTH=16384", "FG_XOFFSET=16"},
         {"allowed: 0 .. 0", "FG_WIDTH (now 16384)", "FG_XOFFSET plus FG_WIDTH must fit within 16384"}},
        {{"set", "FG_XOFFSET=16", "FG_WIDTH=16384"}, {"allowed: 32 .. 16368", "FG_XOFFSET (now 16)"}},
        {{"lut", "load", text}, {"not a lookup-table file"}},
        {{"lut", "load", dir.string()}, {"cannot be read: it is a folder"}},
    };
    for (const auto& refusal : refusals) {
        const ProcessOutcome r = run(refusal.args);
        SCOPED_TRACE(::testing::PrintToString(refusal.args) + "\n" + r.err);
        EXPECT_EQ(r.status, 1);
        for (const std::string& part : refusal.said) EXPECT_NE(r.err.find(part), std::string::npos) << part;
        EXPECT_EQ(r.err.find("read or written"), std::string::npos);
    }
}

// A saved configuration with one line replaced (or removed, for an empty
// replacement).
std::string edited(const std::string& saved, const std::string& line, const std::string& replacement) {
    std::string text = saved;
    const std::size_t at = text.find(line + "\n");
    if (at != std::string::npos) text.replace(at, line.size() + 1, replacement.empty() ? "" : replacement + "\n");
    return text;
}

TEST_F(ToolTest, ConfigCheckNamesLineKeyAndErrorOfEachBadValue) {
    ASSERT_EQ(run({"config", "save", path("good.mcf")}).status, 0);
    const std::string saved = read("good.mcf");
    const struct {
        std::string name, line, replacement;
        std::vector<std::string> said;
    } files[] = {
        {"step.mcf", "FG_WIDTH=1024;", "FG_WIDTH=641;", {":14: FG_WIDTH=641: refused: -7080", "in steps of 16"}},
        {"text.mcf", "FG_WIDTH=1024;", "FG_WIDTH=abc;", {":14: FG_WIDTH=abc: malformed: -2070", "uint32"}},
        {"huge.mcf", "FG_WIDTH=1024;", "FG_WIDTH=99999999999;", {":14: FG_WIDTH=99999999999: malformed"}},
        {"enum.mcf", "FG_FORMAT=2;", "FG_FORMAT=77;", {":18: FG_FORMAT=77: refused: -6000", "FG_COL48=6"}},
        {"gone.mcf", "FG_HEIGHT=1024;", "", {"FG_HEIGHT: missing"}},
        {"cut.mcf", "", "", {":31: FG_CAMERASIMULATOR_FRAMERATE=10.00: malformed", "56 more keys missing"}},
    };
    for (const auto& f : files) {
        write(f.name, f.line.empty() ? saved.substr(0, 700) : edited(saved, f.line, f.replacement));
        const ProcessOutcome r = run({"config", "check", path(f.name)});
        SCOPED_TRACE(f.name + "\n" + r.err);
        EXPECT_EQ(r.status, 1);
        EXPECT_NE(r.out.find(" warning"), std::string::npos);
        for (const std::string& part : f.said) EXPECT_NE(r.err.find(part), std::string::npos) << part;
    }
    EXPECT_EQ(run({"config", "check", path("good.mcf")}).status, 0);

    // Loading warns the same way, then says what the board took; --strict refuses.
    ProcessOutcome r = run({"--config", path("step.mcf"), "get", "FG_HEIGHT"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("step.mcf:14: FG_WIDTH=641: refused"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("after the load FG_WIDTH = 641"), std::string::npos) << r.err;
    r = run({"--strict", "config", "load", path("step.mcf")});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("--strict"), std::string::npos) << r.err;

    // CRLF line ends: read as text, the user's file untouched.
    std::string crlf;
    for (const char c : edited(saved, "FG_WIDTH=1024;", "FG_WIDTH=640;"))
        crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
    write("crlf.mcf", crlf);
    r = run({"--config", path("crlf.mcf"), "get", "FG_WIDTH"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "FG_WIDTH = 640\n");
    EXPECT_NE(r.err.find("CRLF line ends"), std::string::npos);
    EXPECT_EQ(read("crlf.mcf"), crlf);

    r = run({"config", "load", dir.string()});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("is a folder"), std::string::npos) << r.err;
}

TEST_F(ToolTest, JsonOutputParsesAndHoldsTheValues) {
    ASSERT_EQ(run({"--set", "FG_WIDTH=640", "config", "save", path("w.mcf")}).status, 0);
    const std::string bad = write("bad.mcf", edited(read("w.mcf"), "FG_WIDTH=640;", "FG_WIDTH=641;"));
    const struct {
        std::vector<std::string> args;
        int status;
        std::string pointer, expected;  // a JSON pointer into the output and its value, dumped
    } cases[] = {
        {{"info", "--json"}, 0, "/applet", "\"Pelagon\""},
        {{"--json", "params", "FG_WIDTH"}, 0, "/0/step", "16.0"},
        {{"--json", "params", "700"}, 0, "/0/entries/2/symbol", "\"FG_COL48\""},
        {{"--json", "get", "FG_WIDTH", "FG_FORMAT", "FG_SYSTEMMONITOR_CHANNEL_CURRENT"}, 0, "/FG_FORMAT", "\"FG_COL24\""},
        {{"--json", "get", "FG_SYSTEMMONITOR_CHANNEL_CURRENT"}, 0, "/FG_SYSTEMMONITOR_CHANNEL_CURRENT", "[0,0,0,0]"},
        {{"--json", "set", "FG_WIDTH=640", "FG_SCALINGFACTOR_RED=1.5"}, 0, "/FG_SCALINGFACTOR_RED", "1.5"},
        {{"--json", "config", "check", bad}, 1, "/warnings/0/code", "-7080"},
        {{"--json", "config", "check", bad}, 1, "/warnings/0/line", "14"},
    };
    for (const auto& c : cases) {
        const ProcessOutcome r = run(c.args);
        SCOPED_TRACE(::testing::PrintToString(c.args) + "\n" + r.err);
        EXPECT_EQ(r.status, c.status);
        const nlohmann::json j = nlohmann::json::parse(r.out, nullptr, false);
        ASSERT_FALSE(j.is_discarded()) << r.out;
        const nlohmann::json::json_pointer at(c.pointer);
        EXPECT_EQ(j.contains(at) ? j.at(at).dump() : "(missing)", c.expected);
    }
}

TEST_F(ToolTest, ScriptsGetExitStatusesVersionHelpAndSuggestions) {
    const struct {
        std::vector<std::string> args;
        int status;
        std::string out, err;  // expected inside standard output and standard error
    } cases[] = {
        {{"--version"}, 0, "pelagon 3.", ""},
        {{"help"}, 0, "describe", ""},
        {{"--help"}, 0, "config", ""},
        {{}, 2, "", "Subcommands:"},
        {{"confg", "check"}, 2, "", "did you mean \"config\"?"},
        {{"get", "FG_WIDHT"}, 1, "", "did you mean FG_WIDTH?"},
        {{"get", "--value", "FG_WIDTH", "700"}, 0, "1024\nFG_COL24\n", ""},
        {{"params", "700"}, 0, " FG_FORMAT ", ""},
        {{"params", "nomatch"}, 1, "", "no parameter matches \"nomatch\""},
        {{"describe", "FG_WIDTH"}, 0, "step          16\n", ""},
        {{"describe", "FG_FORMAT"}, 0, "FG_COL48", ""},
        {{"--json", "xml"}, 2, "", "--json goes with"},
        {{"acquire", "--timeout", "nan"}, 2, "", "\"nan\" is not a positive number of seconds"},
        {{"trigger", "--timeout", "-1"}, 2, "", "\"-1\" is not a positive number of seconds"},
        {{"acquire", "-n", "abc"}, 2, "", "\"abc\" is not a number"},
        {{"acquire", "-o", ""}, 2, "", "must not be empty"},
        {{"xml", "--port", "1"}, 2, "", "the applet has 1 port (0)"},
        {{"trigger", "-n", "65536"}, 2, "", "outside 1 .. 65535"},
        // Narrow pulse forms let the trigger run at 5 kHz: a thousand pulses in a fifth of a second.
        {{"--set", "FG_TRIGGER_PULSEFORMGEN0_WIDTH=100", "--set", "FG_TRIGGER_PULSEFORMGEN1_WIDTH=100", "--set",
          "FG_TRIGGER_PULSEFORMGEN2_WIDTH=100", "--set", "FG_TRIGGER_PULSEFORMGEN3_WIDTH=100", "--set",
          "FG_TRIGGER_FRAMESPERSECOND=5000", "--set", "FG_AREATRIGGERMODE=ATM_SOFTWARE", "--set",
          "FG_TRIGGERSTATE=TS_ACTIVE", "trigger", "-n", "1000"},
         0,
         "500 of 1000 pulses sent\n",
         ""},
    };
    for (const auto& c : cases) {
        const ProcessOutcome r = run(c.args);
        SCOPED_TRACE(::testing::PrintToString(c.args) + "\n" + r.out + r.err);
        EXPECT_EQ(r.status, c.status);
        EXPECT_NE(r.out.find(c.out), std::string::npos);
        EXPECT_NE(r.err.find(c.err), std::string::npos);
    }
}

TEST_F(ToolTest, SetAcceptsSymbolsAndGetReadsByNameAndId) {
    ProcessOutcome r = run({"set", "FG_FORMAT=FG_COL48", "700=FG_COL30", "FG_WIDTH=640"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "FG_FORMAT = FG_COL48\nFG_FORMAT = FG_COL30\nFG_WIDTH = 640\n");

    // --set goes first, in order; get reads by name and by id.
    r = run({"--set", "FG_FORMAT=FG_COL48", "--set", "FG_HEIGHT=100", "--set", "200=120", "get", "FG_FORMAT", "200",
             "FG_SCALINGFACTOR_RED"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "FG_FORMAT = FG_COL48\nFG_HEIGHT = 120\nFG_SCALINGFACTOR_RED = 1\n");

    // Fields as their elements.
    r = run({"get", "FG_LUT_VALUE_RED", "FG_SYSTEMMONITOR_CHANNEL_CURRENT"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out.rfind("FG_LUT_VALUE_RED = 0 1 2 3 ", 0), 0u) << r.out.substr(0, 80);
    EXPECT_NE(r.out.find(" 4094 4095\nFG_SYSTEMMONITOR_CHANNEL_CURRENT = 0 0 0 0\n"), std::string::npos);
}

TEST_F(ToolTest, ParamsListsEveryParameterUnderItsGroup) {
    const ProcessOutcome r = run({"--set", "FG_FORMAT=FG_COL48", "params"});
    ASSERT_EQ(r.status, 0) << r.err;
    vboard::Grabber g(PELAGON_APPLET_PATH);
    for (const vboard::ParameterInfo& p : g.parameters())
        EXPECT_NE(r.out.find(" " + p.name + " "), std::string::npos) << p.name;
    // A row: id, name, type, access, limits, unit, value.
    EXPECT_NE(r.out.find("\nROI\n"), std::string::npos);
    const std::size_t width = r.out.find(" FG_WIDTH ");
    ASSERT_NE(width, std::string::npos);
    const std::string row =
        r.out.substr(r.out.rfind('\n', width) + 1, r.out.find('\n', width) - r.out.rfind('\n', width) - 1);
    for (const char* part : {"100 ", "uint32", "rw", "32 .. 16384 step 16", "pixel", "1024"})
        EXPECT_NE(row.find(part), std::string::npos) << part << " in " << row;
    EXPECT_NE(r.out.find("FG_COL24=2, FG_COL30=5, FG_COL48=6"), std::string::npos);
}

TEST_F(ToolTest, ConfigurationSavedAndLoadedAgainRoundTrips) {
    const std::string first = path("first.mcf"), second = path("second.mcf");
    ProcessOutcome r = run({"--set", "FG_WIDTH=640", "--set", "FG_FORMAT=FG_COL48", "config", "save", first});
    ASSERT_EQ(r.status, 0) << r.err;
    ASSERT_TRUE(fs::exists(first));
    // --config first, then --set, then the command; --save-config at the end.
    r = run({"--config", first, "--set", "FG_HEIGHT=200", "--save-config", second, "config", "load", first});
    ASSERT_EQ(r.status, 0) << r.err;
    r = run({"--config", second, "get", "FG_WIDTH", "FG_FORMAT", "FG_HEIGHT"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "FG_WIDTH = 640\nFG_FORMAT = FG_COL48\nFG_HEIGHT = 1024\n")
        << "config load replaces what --set did before it";
}

TEST_F(ToolTest, LookupTablesSavedAndLoaded) {
    const std::string lut = path("inverted.lut");
    ProcessOutcome r = run({"--set", "FG_PROCESSING_INVERT=FG_ON", "lut", "save", lut});
    ASSERT_EQ(r.status, 0) << r.err;
    r = run(
        {"--set", "FG_LUT_TYPE=LUT_TYPE_CUSTOM", "--set", "FG_LUT_CUSTOM_FILE=" + lut, "get", "FG_LUT_VALUE_GREEN"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out.rfind("FG_LUT_VALUE_GREEN = 4095 4094 4093 ", 0), 0u) << r.out.substr(0, 80);
    r = run({"lut", "load", lut});
    EXPECT_EQ(r.status, 0) << r.err;
}

TEST_F(ToolTest, XmlGoesToAFileThatXmllintAccepts) {
    const std::string xml = path("pelagon.xml");
    const ProcessOutcome r = run({"xml", "-o", xml});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(read(xml).find("FG_WIDTH"), std::string::npos);
    if (std::system("command -v xmllint >/dev/null 2>&1") != 0) GTEST_SKIP() << "xmllint not installed";
    EXPECT_EQ(std::system(("xmllint --noout '" + xml + "'").c_str()), 0);
}

struct Output {
    const char* format;
    const char* alignment;
    int depth, significant;
    uint32_t expected;  // every component of an inner pixel at x = 20
};

void PrintTo(const Output& o, std::ostream* os) { *os << o.format << " " << o.alignment; }

class AcquiredPng : public ToolTest, public ::testing::WithParamInterface<Output> {};

// A horizontal ramp of 8-bit counters with offset 100: inside the image every
// component of pixel x is (x + 100) mod 256, as 12-bit value << 4, whatever the
// Bayer colour of the site (the neighbours' mean on a straight ramp is the
// centre). 16-bit files carry it at the top of the 16 bits.
TEST_P(AcquiredPng, ThreeFramesOfTheProgrammedSizeDepthAndPattern) {
    const Output& o = GetParam();
    const std::string folder = path("frames");
    const ProcessOutcome r = run(withSettings(
        {"FG_CAMERASIMULATOR_ENABLE=FG_CAMERASIMULATOR", "FG_PIXELFORMAT=BayerRG8", "FG_CAMERASIMULATOR_WIDTH=64",
         "FG_CAMERASIMULATOR_HEIGHT=40", "FG_CAMERASIMULATOR_FRAMERATE=200", "FG_CAMERASIMULATOR_PATTERN=FG_HORIZONTAL",
         "FG_CAMERASIMULATOR_PATTERN_OFFSET=100", "FG_CAMERASIMULATOR_ROLL=FG_OFF", "FG_WIDTH=48", "FG_HEIGHT=40",
         std::string("FG_FORMAT=") + o.format, std::string("FG_BITALIGNMENT=") + o.alignment},
        {"acquire", "-n", "3", "-o", folder}));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("3 frames saved"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find('\r'), std::string::npos) << "a progress bar, though standard output is a file";
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 3);
    for (const char* name : {"frame-0001.png", "frame-0002.png", "frame-0003.png"}) {
        SCOPED_TRACE(name);
        const DecodedPng png = readPng(folder + "/" + name);
        EXPECT_EQ(png.width, 48u);
        EXPECT_EQ(png.height, 40u);
        EXPECT_EQ(png.depth, o.depth);
        EXPECT_EQ(png.colourType, PNG_COLOR_TYPE_RGB);
        EXPECT_EQ(png.significant, o.significant);
        if (png.rows.size() != 40) continue;
        for (int c = 0; c < 3; ++c) {
            EXPECT_EQ(png.sample(20, 7, c), o.expected) << "component " << c;
            EXPECT_EQ(png.sample(21, 30, c), o.expected + (o.depth == 8 ? 1 : 256)) << "component " << c;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, AcquiredPng,
                         ::testing::Values(Output{"FG_COL24", "FG_RIGHT_ALIGNED", 8, 8, 120},
                                           Output{"FG_COL48", "FG_RIGHT_ALIGNED", 16, 12, 120u << 8},
                                           Output{"FG_COL48", "FG_LEFT_ALIGNED", 16, 12, 120u << 8},
                                           Output{"FG_COL30", "FG_RIGHT_ALIGNED", 16, 10, 120u << 8}),
                         [](const ::testing::TestParamInfo<Output>& param) {
                             return std::string(param.param.format + 3) +
                                    (param.param.alignment[3] == 'L' ? "Left" : "Right");
                         });

TEST_F(ToolTest, SoftwarePulsesBecomeFramesOfATriggeredSimulator) {
    const std::vector<std::string> triggered = {
        "FG_CAMERASIMULATOR_ENABLE=FG_CAMERASIMULATOR", "FG_CAMERASIMULATOR_WIDTH=64", "FG_CAMERASIMULATOR_HEIGHT=32",
        "FG_WIDTH=64", "FG_HEIGHT=32", "FG_CAMERASIMULATOR_FRAMERATE=1000",
        "FG_CAMERASIMULATOR_TRIGGER_MODE=RISING_EDGE_TRIGGERS_FRAME", "FG_AREATRIGGERMODE=ATM_SOFTWARE",
        "FG_TRIGGER_FRAMESPERSECOND=100", "FG_TRIGGERSTATE=TS_ACTIVE"};
    ProcessOutcome r = run(withSettings(triggered, {"trigger", "-n", "4"}));
    ASSERT_EQ(r.status, 0) << r.err;
    for (const char* line :
         {"4 software pulses sent", "pulses counted at PULSEGEN0: 4", "frames from the simulator: 4"})
        EXPECT_NE(r.out.find(line), std::string::npos) << r.out;

    // Without the queue each pulse must wait for the last; acquire sends one per frame.
    r = run(withSettings(triggered, {"--set", "FG_TRIGGERQUEUE_MODE=FG_OFF", "acquire", "-n", "2", "-o",
                                     path("pulsed")}));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(fs::exists(path("pulsed/frame-0002.png")));
}

TEST_F(ToolTest, DemoCompletesAndSaysWhereItsFilesWent) {
    const std::string folder = path("demo");
    const ProcessOutcome r = run({"--set", "FG_WIDTH=320", "demo", "-o", folder, "-n", "2"});
    ASSERT_EQ(r.status, 0) << r.err << r.out;
    EXPECT_NE(r.out.find("FG_WIDTH                                 320\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("files in " + fs::absolute(folder).lexically_normal().string()), std::string::npos) << r.out;
    for (const char* name :
         {"frame-0001.png", "frame-0002.png", "pelagon-demo.mcf", "pelagon.xml", "pelagon-demo.lut"}) {
        EXPECT_TRUE(fs::exists(folder + "/" + name)) << name;
        EXPECT_NE(r.out.find(name), std::string::npos) << name;
    }
    EXPECT_FALSE(fs::exists(folder + "/frame-0003.png"));
    const DecodedPng png = readPng(folder + "/frame-0001.png");
    EXPECT_EQ(png.depth, 8);
    EXPECT_GT(png.width, 0u);
    // Its configuration brings the same session back.
    const ProcessOutcome again = run({"--config", folder + "/pelagon-demo.mcf", "get", "FG_CAMERASIMULATOR_ENABLE"});
    EXPECT_EQ(again.out, "FG_CAMERASIMULATOR_ENABLE = FG_CAMERASIMULATOR\n") << again.err;
}

}  // namespace

// Runs the tool from a bash script ($0 the tool, "$@" its arguments) that
// sets a file size limit, changes the folder or sends a signal. The script is
// passed in single quotes: it must hold none.
class ToolInShellTest : public ToolTest {
protected:
    ProcessOutcome shell(const std::string& script, const std::vector<std::string>& args) const {
        std::vector<std::string> all = {"-c", script, PELAGON_TOOL_PATH};
        all.insert(all.end(), args.begin(), args.end());
        return ScratchFolder::run("/bin/bash", all);
    }
    std::vector<std::string> leftovers() const {  // temporary files, anywhere below the folder
        std::vector<std::string> found;
        for (const auto& e : fs::recursive_directory_iterator(dir))
            if (e.path().filename().string().rfind(".", 0) == 0 && e.path().filename() != ".stdout" &&
                e.path().filename() != ".stderr")
                found.push_back(e.path().string());
        return found;
    }
};

const std::vector<std::string> kSmallFastSimulator = {
    "FG_CAMERASIMULATOR_ENABLE=FG_CAMERASIMULATOR", "FG_CAMERASIMULATOR_WIDTH=64", "FG_CAMERASIMULATOR_HEIGHT=32",
    "FG_WIDTH=64", "FG_HEIGHT=32", "FG_CAMERASIMULATOR_FRAMERATE=1000"};

// A write that fails half way (a file size limit, SIGXFSZ ignored so that
// writes fail with EFBIG) or cannot start (a folder that is a regular file):
// exit 1 naming the cause, the old file as it was, no temporary file left.
TEST_F(ToolInShellTest, FailedWritesLeaveTheOldFileAndNameTheCause) {
    write("plain", "a regular file");
    const struct {
        int limitKiB;  // 0: no limit
        std::string target;
        std::vector<std::string> args;  // the target is appended
        std::string cause;
    } cases[] = {
        {1, "c.mcf", {"config", "save"}, "file too large"},
        {1, "c.mcf", {"info", "--save-config"}, "file too large"},
        {8, "x.xml", {"xml", "-o"}, "file too large"},
        {40, "t.lut", {"--set", "FG_PROCESSING_INVERT=FG_ON", "lut", "save"}, "file too large"},
        {40, "t.lut", {"--set", "FG_LUT_SAVE_FILE"}, "file too large"},  // "=target info" follows
        {8, "f/frame-0001.png", {"--set", "FG_CAMERASIMULATOR_ENABLE=FG_CAMERASIMULATOR", "acquire", "-o"},
         "file too large"},
        {0, "plain/c.mcf", {"config", "save"}, "not a directory"},
        {0, "plain/t.lut", {"lut", "save"}, "not a directory"},
        {0, "plain/x.xml", {"xml", "-o"}, "not a directory"},
    };
    fs::create_directory(path("f"));
    for (const auto& c : cases) {
        const bool existing = c.target.rfind("plain/", 0) != 0;
        if (existing) write(c.target, "old");
        std::vector<std::string> args = c.args;
        if (args.back() == "FG_LUT_SAVE_FILE") {
            args.back() += "=" + path(c.target);
            args.push_back("info");
        } else {
            args.push_back(c.target.rfind("f/", 0) == 0 ? path("f") : path(c.target));
        }
        const std::string limit = c.limitKiB ? "ulimit -f " + std::to_string(c.limitKiB) + "; " : "";
        const ProcessOutcome r = shell("trap \"\" XFSZ; " + limit + "exec \"$0\" \"$@\"", args);
        SCOPED_TRACE(::testing::PrintToString(args) + "\n" + r.err);
        EXPECT_EQ(r.status, 1);
        EXPECT_NE(r.err.find(c.cause), std::string::npos);
        if (existing) {
            EXPECT_EQ(read(c.target), "old");
        }
        EXPECT_EQ(leftovers(), std::vector<std::string>{});
    }
    // A failed acquisition takes back the folders it made.
    EXPECT_EQ(run({"acquire", "-o", path("new/deeper")}).status, 1);
    EXPECT_FALSE(fs::exists(path("new")));
}

TEST_F(ToolInShellTest, FailedStandardOutputIsAFailure) {
    const std::string config = path("c.mcf");
    ASSERT_EQ(run({"config", "save", config}).status, 0);
    for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
             {"info"}, {"params"}, {"xml"}, {"get", "FG_WIDTH"}, {"set", "FG_WIDTH=640"}, {"config", "load", config}}) {
        const ProcessOutcome r = shell("exec \"$0\" \"$@\" >/dev/full", args);
        EXPECT_EQ(r.status, 1) << args[0];
        EXPECT_NE(r.err.find("no space left on device"), std::string::npos) << args[0] << ": " << r.err;
    }
}

// Signals at a few moments after the first frame of a long acquisition: the
// exit status tells which, and every file there is a whole PNG.
TEST_F(ToolInShellTest, SignalsEndAnAcquisitionWithWholeFiles) {
    const std::string folder = path("frames");
    for (const char* signal : {"INT", "TERM"}) {
        for (const char* delay : {"0", "0.05", "0.3"}) {
            SCOPED_TRACE(std::string(signal) + " after " + delay + " s");
            fs::remove_all(folder);
            const std::string script = std::string("\"$0\" \"$@\" & for i in $(seq 500); do [ -e \"") + folder +
                                       "/frame-0001.png\" ] && break; sleep 0.01; done; sleep " + delay + "; kill -" +
                                       signal + " $!; wait $!";
            const ProcessOutcome r = shell(script, withSettings(kSmallFastSimulator, {"acquire", "-n", "1000", "-o", folder}));
            EXPECT_EQ(r.status, std::string(signal) == "INT" ? 130 : 143) << r.err;
            EXPECT_NE(r.err.find("interrupted after "), std::string::npos) << r.err;
            EXPECT_EQ(leftovers(), std::vector<std::string>{});
            std::size_t files = 0;
            for (const auto& e : fs::directory_iterator(folder)) {
                ++files;
                EXPECT_EQ(readPng(e.path().string()).rows.size(), 32u) << e.path();
            }
            EXPECT_GT(files, 0u);
            EXPECT_LT(files, 1000u);
            EXPECT_NE(r.err.find("interrupted after " + std::to_string(files) + " frame"), std::string::npos);
        }
    }
}

// Names given relative to one folder still find the tables from another.
TEST_F(ToolInShellTest, LookupTableNamesSurviveAConfigurationLoadedElsewhere) {
    fs::create_directories(path("a"));
    fs::create_directories(path("b"));
    const std::string inA = "cd \"" + path("a") + "\" && exec \"$0\" \"$@\"";
    ASSERT_EQ(shell(inA, {"--set", "FG_PROCESSING_INVERT=FG_ON", "lut", "save", "inv.lut"}).status, 0);
    ASSERT_EQ(shell(inA, {"--save-config", "c.mcf", "lut", "load", "inv.lut"}).status, 0);
    const ProcessOutcome r =
        shell("cd \"" + path("b") + "\" && exec \"$0\" \"$@\"", {"--config", "../a/c.mcf", "get", "FG_LUT_VALUE_GREEN"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out.rfind("FG_LUT_VALUE_GREEN = 4095 4094 4093 ", 0), 0u) << r.out.substr(0, 80);
}

// Settings of a 48 x 40 horizontal ramp (see AcquiredPng) in FORMAT.
std::vector<std::string> ramp(const std::string& format) {
    return {"FG_CAMERASIMULATOR_ENABLE=FG_CAMERASIMULATOR", "FG_PIXELFORMAT=BayerRG8", "FG_CAMERASIMULATOR_WIDTH=64",
            "FG_CAMERASIMULATOR_HEIGHT=40", "FG_CAMERASIMULATOR_FRAMERATE=500", "FG_CAMERASIMULATOR_PATTERN=FG_HORIZONTAL",
            "FG_CAMERASIMULATOR_PATTERN_OFFSET=100", "FG_CAMERASIMULATOR_ROLL=FG_OFF", "FG_WIDTH=48", "FG_HEIGHT=40",
            "FG_FORMAT=" + format};
}

// The frames ffmpeg finds in a stream, by the lines of its frame checksums.
int ffmpegFrames(const ProcessOutcome& r) {
    int frames = 0;
    for (std::size_t at = 0; (at = r.out.find("\n0,", at)) != std::string::npos; ++at) ++frames;
    return frames;
}

TEST_F(ToolInShellTest, FramesStreamToFfmpegWithTheDeliveredSamples) {
    if (std::system("command -v ffmpeg >/dev/null 2>&1") != 0) GTEST_SKIP() << "ffmpeg not installed";
    const std::string toFfmpeg = "\"$0\" \"$@\" | ffmpeg -v error -f image2pipe -c:v ppm -i - -f framecrc - 2>&1";
    for (const char* format : {"FG_COL24", "FG_COL48"}) {
        const ProcessOutcome r = shell(toFfmpeg, withSettings(ramp(format), {"acquire", "-n", "5", "-o", "-"}));
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(ffmpegFrames(r), 5) << format << "\n" << r.out;
    }
    // A PPM of 12-bit samples says so in its maximum; x = 20 holds 120 << 4.
    ProcessOutcome r = shell("exec \"$0\" \"$@\" >\"" + path("stream.ppm") + "\"",
                             withSettings(ramp("FG_COL48"), {"--set", "FG_BITALIGNMENT=FG_RIGHT_ALIGNED", "acquire",
                                                             "-n", "2", "-o", "-"}));
    const std::string ppm = read("stream.ppm");
    const std::string header = "P6\n48 40\n4095\n";
    ASSERT_EQ(ppm.size(), 2 * (header.size() + 48 * 40 * 6)) << r.err;
    EXPECT_EQ(ppm.substr(0, header.size()), header);
    const std::size_t red20 = header.size() + 20 * 6;
    EXPECT_EQ(static_cast<uint8_t>(ppm[red20]) << 8 | static_cast<uint8_t>(ppm[red20 + 1]), 120 << 4);

    // Raw samples: the tool names the size and pixel format ffmpeg needs.
    r = shell("exec \"$0\" \"$@\" >\"" + path("stream.raw") + "\"",
              withSettings(ramp("FG_COL30"), {"acquire", "-n", "3", "-o", "-", "--stream", "raw"}));
    ASSERT_EQ(r.status, 0) << r.err;
    const std::size_t from = r.err.find("ffmpeg ");
    ASSERT_NE(from, std::string::npos) << r.err;
    const std::string arguments = r.err.substr(from + 7, r.err.find(')', from) - from - 7);
    EXPECT_EQ(arguments, "-f rawvideo -pixel_format rgb48le -video_size 48x40 -i -");
    EXPECT_EQ(read("stream.raw").size(), 3u * 48 * 40 * 6);
    r = shell("ffmpeg -v error " + arguments.substr(0, arguments.size() - 1) + "\"" + path("stream.raw") +
                  "\" -f framecrc - 2>&1",
              {});
    EXPECT_EQ(ffmpegFrames(r), 3) << r.out;
    // Standard output is for frames then: not with --json, never a terminal's.
    EXPECT_EQ(run({"--json", "acquire", "-o", "-"}).status, 2);
}

TEST_F(ToolInShellTest, DroppedFramesFailOnlyWhenAskedAndAreCounted) {
    // Two buffers and a reader that stalls for a second: the acquisition
    // overtakes the frames it cannot hand on.
    const std::vector<std::string> args =
        withSettings(kSmallFastSimulator, {"acquire", "-n", "40", "--buffers", "2", "-o", "-"});
    const std::string stalled = "\"$0\" \"$@\" | (sleep 1; cat >/dev/null); exit ${PIPESTATUS[0]}";
    ProcessOutcome r = shell(stalled, args);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("overwritten before they could be saved"), std::string::npos) << r.err;
    std::vector<std::string> failing = args;
    failing.push_back("--fail-on-drop");
    r = shell(stalled, failing);
    EXPECT_EQ(r.status, 3) << r.err;
    EXPECT_NE(r.err.find("lost or overwritten (--fail-on-drop)"), std::string::npos) << r.err;
    EXPECT_EQ(run(withSettings(kSmallFastSimulator, {"acquire", "-n", "3", "--fail-on-drop", "-o", path("f")})).status, 0);
}

TEST_F(ToolTest, FileNamesFollowTheTemplateCarryTextAndNeverClobber) {
    const std::vector<std::string> settings = ramp("FG_COL24");
    ProcessOutcome r = run(withSettings(settings, {"acquire", "-n", "2", "-o", path("shots/img-%03d.png")}));
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string second = read("shots/img-002.png");
    for (const std::string& chunk : {std::string("tEXtFrame\0" "2", 11), std::string("tEXtFormat\0FG_COL24", 19),
                                    std::string("tEXtCreation Time\0", 18), std::string("tEXtSoftware\0pelagon ", 21)})
        EXPECT_NE(second.find(chunk), std::string::npos) << chunk;
    EXPECT_EQ(readPng(path("shots/img-001.png")).width, 48u);

    // --no-clobber keeps what is there and says so, for frames and other files alike.
    r = run(withSettings(settings, {"--no-clobber", "acquire", "-n", "2", "-o", path("shots/img-%03d.png")}));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("img-001.png: it exists, and --no-clobber keeps it"), std::string::npos) << r.err;
    EXPECT_EQ(read("shots/img-002.png"), second);
    write("kept.mcf", "mine");
    EXPECT_EQ(run({"--no-clobber", "config", "save", path("kept.mcf")}).status, 1);
    EXPECT_EQ(read("kept.mcf"), "mine");

    // One frame may go to one named file; more need a number in the name.
    EXPECT_EQ(run(withSettings(settings, {"acquire", "-o", path("one.png")})).status, 0);
    EXPECT_EQ(readPng(path("one.png")).height, 40u);
    for (const std::vector<std::string>& bad : std::vector<std::vector<std::string>>{
             {"acquire", "-n", "2", "-o", path("one.png")}, {"acquire", "-o", path("x-%s.png")},
             {"acquire", "-o", path("x-%d-%d.png")}}) {
        r = run(bad);
        EXPECT_EQ(r.status, 2) << bad.back();
        EXPECT_NE(r.err.find("%05d"), std::string::npos) << r.err;
    }
}

TEST_F(ToolTest, AcquireJsonHasAnObjectPerFrameWithItsStatistics) {
    const ProcessOutcome r =
        run(withSettings(ramp("FG_COL24"), {"--json", "acquire", "-n", "3", "--stats", "-o", path("j")}));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("3 frames saved in"), std::string::npos) << "the summary goes to standard error";
    std::size_t start = 0;
    for (int64_t n = 1; n <= 3; ++n) {
        const std::size_t end = r.out.find('\n', start);
        ASSERT_NE(end, std::string::npos) << r.out;
        const auto j = nlohmann::json::parse(r.out.substr(start, end - start));
        start = end + 1;
        EXPECT_EQ(j["frame"], n);
        EXPECT_EQ(j["file"], path("j/frame-000" + std::to_string(n) + ".png"));
        EXPECT_EQ(j["format"], "FG_COL24");
        EXPECT_EQ(j["lost"], 0);
        // The ramp runs x + 100 for x = 0 .. 47 in every channel; the border
        // pixels of the Bayer interpolation differ, hence the wide mean.
        for (const char* channel : {"red", "green", "blue"}) {
            EXPECT_GE(j["stats"][channel]["min"], 99);
            EXPECT_LE(j["stats"][channel]["max"], 148);
            EXPECT_NEAR(j["stats"][channel]["mean"].get<double>(), 123.5, 1.5);
        }
    }
    EXPECT_EQ(start, r.out.size());
}

// One board for a script's lines: settings persist, the first failure ends
// it and names its line; at a terminal the names complete.
TEST_F(ToolInShellTest, ShellKeepsOneBoardForAScript) {
    const std::string script = write("session.pgn",
                                     "set FG_WIDTH=640 FG_FORMAT=FG_COL48   # two at once\n"
                                     "\n"
                                     "get --value FG_WIDTH 'FG_FORMAT'\n"
                                     "set FG_WIDTH=40\n"
                                     "get FG_HEIGHT\n");
    ProcessOutcome r = run({"--save-config", path("after.mcf"), "shell", script});
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("640\nFG_COL48\n"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find("FG_HEIGHT"), std::string::npos) << "ran on past the failure";
    EXPECT_NE(r.err.find("session.pgn:4: setting FG_WIDTH to 40"), std::string::npos) << r.err;

    r = shell("printf \"set FG_HEIGHT=480\\nquit\\nset FG_HEIGHT=8\\n\" | exec \"$0\" \"$@\"",
              {"--save-config", path("after.mcf"), "shell"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(read("after.mcf").find("FG_HEIGHT=480;"), std::string::npos);

    if (std::system("command -v script >/dev/null 2>&1") != 0) GTEST_SKIP() << "script (util-linux) not installed";
    r = shell("printf \"set FG_FORM\\tFG_COL4\\t\\nget FG_FORMAT\\nquit\\n\" | HOME=\"" + dir.string() +
                  "\" script -qec \"$0 shell\" /dev/null",
              {});
    EXPECT_NE(r.out.find("FG_FORMAT = FG_COL48"), std::string::npos) << r.out << r.err;
    EXPECT_NE(read(".pelagon_history").find("get\\040FG_FORMAT"), std::string::npos);
}

// A small file system that is full, then read-only (a tmpfs in a mount
// namespace of its own): every write fails with its cause, the old files
// stay, and nothing is left behind.
TEST_F(ToolInShellTest, FullAndReadOnlyFileSystemsKeepTheOldFiles) {
    const std::string inner = write("inner.sh",
                                    "T=\"$1\"; D=\"$(dirname \"$0\")\"; M=\"$D/mnt\"; mkdir -p \"$M\"\n"
                                    "mount -t tmpfs -o size=200k tmpfs \"$M\" || exit 77\n"
                                    "echo old > \"$M/c.mcf\"; echo old > \"$M/x.xml\"\n"
                                    "head -c 1000000 /dev/zero > \"$M/filler\" 2>/dev/null\n"
                                    "\"$T\" config save \"$M/c.mcf\" 2>>\"$D/err\"; echo \"save $?\"\n"
                                    "\"$T\" xml -o \"$M/x.xml\" 2>>\"$D/err\"; echo \"xml $?\"\n"
                                    "\"$T\" --set FG_CAMERASIMULATOR_ENABLE=FG_CAMERASIMULATOR acquire -n 2 -o \"$M/f\" "
                                    "2>>\"$D/err\"; echo \"acquire $?\"\n"
                                    "echo \"kept $(cat \"$M/c.mcf\") $(cat \"$M/x.xml\")\"\n"
                                    "echo \"files $(ls -A \"$M\" | tr \"\\n\" \" \")\"\n"
                                    "rm \"$M/filler\"; mount -o remount,ro \"$M\"\n"
                                    "\"$T\" config save \"$M/c.mcf\" 2>>\"$D/err\"; echo \"read-only save $?\"\n"
                                    "\"$T\" --set FG_CAMERASIMULATOR_ENABLE=FG_CAMERASIMULATOR acquire -o \"$M/g\" "
                                    "2>>\"$D/err\"; echo \"read-only acquire $?\"\n"
                                    "echo \"kept $(cat \"$M/c.mcf\")\"\n");
    const ProcessOutcome r = shell("unshare -m bash \"" + inner + "\" \"$0\"", {});
    if (r.status == 77 || r.err.find("unshare") != std::string::npos)
        GTEST_SKIP() << "no mount namespace here: " << r.err;
    EXPECT_EQ(r.out,
              "save 1\nxml 1\nacquire 1\nkept old old\nfiles c.mcf filler x.xml \n"
              "read-only save 1\nread-only acquire 1\nkept old\n");
    const std::string err = read("err");
    EXPECT_NE(err.find("c.mcf: no space left on device"), std::string::npos) << err;
    EXPECT_NE(err.find("x.xml: no space left on device"), std::string::npos) << err;
    EXPECT_NE(err.find("read-only file system"), std::string::npos) << err;
}
