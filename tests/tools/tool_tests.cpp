// The command-line tool driven as a process: exit statuses, what it prints
// on standard output and standard error, and the files it writes (PNG frames
// decoded with libpng, configuration round trips, the XML checked by xmllint).
#include <fcntl.h>
#include <png.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "vboard/grabber.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;

struct Outcome {
    int status = -1;  // exit status; -1 when the process did not exit normally
    int signal = 0;   // the signal that ended it, if one did
    std::string out, err;
};

std::string slurp(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

// A folder of its own for each test, removed afterwards.
class ToolTest : public ::testing::Test {
protected:
    void SetUp() override {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        dir_ = fs::temp_directory_path() / ("pelagon-tool-" + std::to_string(getpid()) + "-" + info->name());
        fs::remove_all(dir_);
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    std::string path(const std::string& name) const { return (dir_ / name).string(); }

    // Runs the tool with these arguments, standard output and error into files.
    Outcome run(const std::vector<std::string>& args) const {
        std::vector<std::string> all{PELAGON_TOOL_PATH};
        all.insert(all.end(), args.begin(), args.end());
        std::vector<char*> argv;
        for (std::string& a : all) argv.push_back(a.data());
        argv.push_back(nullptr);
        const std::string out = path("stdout.txt"), err = path("stderr.txt");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        pid_t pid = 0;
        Outcome r;
        const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        if (spawned != 0) {
            ADD_FAILURE() << "cannot start " << argv[0];
            return r;
        }
        int status = 0;
        waitpid(pid, &status, 0);
        if (WIFEXITED(status)) r.status = WEXITSTATUS(status);
        if (WIFSIGNALED(status)) r.signal = WTERMSIG(status);
        r.out = slurp(out);
        r.err = slurp(err);
        return r;
    }

    fs::path dir_;
};

// A failure as the user must see it: an ordinary non-zero exit and a message
// on standard error, never a crash, an uncaught exception or a sanitizer report.
void expectCleanFailure(const Outcome& r, const std::string& context) {
    EXPECT_EQ(r.signal, 0) << context << r.err;
    EXPECT_GT(r.status, 0) << context << r.err;
    EXPECT_NE(r.err.find("pelagon: "), std::string::npos) << context << r.err;
    for (const char* bad : {"terminate called", "Sanitizer", "Aborted", "what():"})
        EXPECT_EQ(r.err.find(bad), std::string::npos) << context << r.err;
}

// --- Failures ----------------------------------------------------------------------

struct Refusal {
    std::vector<std::string> args;
    int code;             // the applet's error number, 0 for the tool's own usage errors
    std::string message;  // also expected on standard error
};

TEST_F(ToolTest, FailuresNameTheErrorNumberAndItsMeaning) {
    const std::string missing = path("missing.mcf");
    const std::vector<Refusal> refusals = {
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
    for (const Refusal& refusal : refusals) {
        std::string context;
        for (const std::string& a : refusal.args) context += a + " ";
        const Outcome r = run(refusal.args);
        expectCleanFailure(r, context);
        EXPECT_NE(r.err.find(refusal.message), std::string::npos) << context << r.err;
        if (refusal.code != 0) {
            EXPECT_NE(r.err.find("error " + std::to_string(refusal.code)), std::string::npos) << context << r.err;
            EXPECT_NE(r.err.find(vboard::errorText(refusal.code)), std::string::npos) << context << r.err;
        }
    }
}

// --- Parameters ----------------------------------------------------------------------

TEST_F(ToolTest, SetAcceptsSymbolsAndGetReadsByNameAndId) {
    Outcome r = run({"set", "FG_FORMAT=FG_COL48", "700=FG_COL30", "FG_WIDTH=640"});
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
    const Outcome r = run({"--set", "FG_FORMAT=FG_COL48", "params"});
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

// --- Files -------------------------------------------------------------------------------

TEST_F(ToolTest, ConfigurationSavedAndLoadedAgainRoundTrips) {
    const std::string first = path("first.mcf"), second = path("second.mcf");
    Outcome r = run({"--set", "FG_WIDTH=640", "--set", "FG_FORMAT=FG_COL48", "config", "save", first});
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
    Outcome r = run({"--set", "FG_PROCESSING_INVERT=FG_ON", "lut", "save", lut});
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
    const Outcome r = run({"xml", "-o", xml});
    ASSERT_EQ(r.status, 0) << r.err;
    ASSERT_GT(fs::file_size(xml), 1000u);
    EXPECT_NE(slurp(xml).find("FG_WIDTH"), std::string::npos);
    if (std::system("command -v xmllint >/dev/null 2>&1") != 0) GTEST_SKIP() << "xmllint not installed";
    EXPECT_EQ(std::system(("xmllint --noout '" + xml + "'").c_str()), 0);
}

// --- Frames -------------------------------------------------------------------------------

// A PNG file read back with libpng.
struct Png {
    uint32_t width = 0, height = 0;
    int depth = 0, colourType = -1, significant = 0;
    std::vector<std::vector<uint8_t>> rows;

    uint32_t sample(uint32_t x, uint32_t y, int component) const {
        const uint8_t* p = rows[y].data();
        const std::size_t k = std::size_t{x} * 3 + static_cast<std::size_t>(component);
        return depth == 8 ? p[k] : (uint32_t{p[2 * k]} << 8 | p[2 * k + 1]);
    }
};

Png readPng(const std::string& path) {
    Png png;
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) {
        ADD_FAILURE() << "cannot open " << path;
        return png;
    }
    png_byte signature[8] = {};
    const bool isPng = std::fread(signature, 1, 8, f) == 8 && png_sig_cmp(signature, 0, 8) == 0;
    EXPECT_TRUE(isPng) << path << " lacks the PNG signature";
    png_structp read = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(read);
    if (!isPng || setjmp(png_jmpbuf(read))) {
        ADD_FAILURE() << path << " does not decode";
        png_destroy_read_struct(&read, &info, nullptr);
        std::fclose(f);
        return png;
    }
    png_init_io(read, f);
    png_set_sig_bytes(read, 8);
    png_read_info(read, info);
    png.width = png_get_image_width(read, info);
    png.height = png_get_image_height(read, info);
    png.depth = png_get_bit_depth(read, info);
    png.colourType = png_get_color_type(read, info);
    png_color_8p bits = nullptr;
    png.significant = png_get_sBIT(read, info, &bits) != 0 && bits ? bits->red : png.depth;
    png.rows.assign(png.height, std::vector<uint8_t>(png_get_rowbytes(read, info)));
    for (auto& row : png.rows) png_read_row(read, row.data(), nullptr);
    png_read_end(read, nullptr);
    png_destroy_read_struct(&read, &info, nullptr);
    std::fclose(f);
    return png;
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
    const Outcome r = run({"--set",   "FG_CAMERASIMULATOR_ENABLE=FG_CAMERASIMULATOR",
                           "--set",   "FG_PIXELFORMAT=BayerRG8",
                           "--set",   "FG_CAMERASIMULATOR_WIDTH=64",
                           "--set",   "FG_CAMERASIMULATOR_HEIGHT=40",
                           "--set",   "FG_CAMERASIMULATOR_FRAMERATE=200",
                           "--set",   "FG_CAMERASIMULATOR_PATTERN=FG_HORIZONTAL",
                           "--set",   "FG_CAMERASIMULATOR_PATTERN_OFFSET=100",
                           "--set",   "FG_CAMERASIMULATOR_ROLL=FG_OFF",
                           "--set",   "FG_WIDTH=48",
                           "--set",   "FG_HEIGHT=40",
                           "--set",   std::string("FG_FORMAT=") + o.format,
                           "--set",   std::string("FG_BITALIGNMENT=") + o.alignment,
                           "acquire", "-n",
                           "3",       "-o",
                           folder});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("3 frames saved"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find('\r'), std::string::npos) << "a progress bar, though standard output is a file";
    int files = 0;
    for (const auto& entry : fs::directory_iterator(folder)) {
        (void)entry;
        ++files;
    }
    EXPECT_EQ(files, 3);
    for (const char* name : {"frame-0001.png", "frame-0002.png", "frame-0003.png"}) {
        const Png png = readPng((fs::path(folder) / name).string());
        EXPECT_EQ(png.width, 48u) << name;
        EXPECT_EQ(png.height, 40u) << name;
        EXPECT_EQ(png.depth, o.depth) << name;
        EXPECT_EQ(png.colourType, PNG_COLOR_TYPE_RGB) << name;
        EXPECT_EQ(png.significant, o.significant) << name;
        if (png.rows.size() != 40) continue;
        for (int c = 0; c < 3; ++c) {
            EXPECT_EQ(png.sample(20, 7, c), o.expected) << name << " component " << c;
            EXPECT_EQ(png.sample(21, 30, c), o.expected + (o.depth == 8 ? 1 : 256)) << name << " component " << c;
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
    const std::vector<std::string> triggered = {"--set", "FG_CAMERASIMULATOR_ENABLE=FG_CAMERASIMULATOR",
                                                "--set", "FG_CAMERASIMULATOR_WIDTH=64",
                                                "--set", "FG_CAMERASIMULATOR_HEIGHT=32",
                                                "--set", "FG_WIDTH=64",
                                                "--set", "FG_HEIGHT=32",
                                                "--set", "FG_CAMERASIMULATOR_FRAMERATE=1000",
                                                "--set", "FG_CAMERASIMULATOR_TRIGGER_MODE=RISING_EDGE_TRIGGERS_FRAME",
                                                "--set", "FG_AREATRIGGERMODE=ATM_SOFTWARE",
                                                "--set", "FG_TRIGGER_FRAMESPERSECOND=100",
                                                "--set", "FG_TRIGGERSTATE=TS_ACTIVE"};
    auto with = [&](std::vector<std::string> tail) {
        std::vector<std::string> args = triggered;
        args.insert(args.end(), tail.begin(), tail.end());
        return args;
    };
    Outcome r = run(with({"trigger", "-n", "4"}));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("4 software pulses sent"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("pulses counted at PULSEGEN0: 4"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("frames from the simulator: 4"), std::string::npos) << r.out;

    // Without the queue each pulse must wait for the last; acquire sends one per frame.
    r = run(with({"--set", "FG_TRIGGERQUEUE_MODE=FG_OFF", "acquire", "-n", "2", "-o", path("pulsed")}));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(fs::exists(path("pulsed/frame-0002.png")));
}

TEST_F(ToolTest, DemoCompletesAndSaysWhereItsFilesWent) {
    const std::string folder = path("demo");
    const Outcome r = run({"demo", "-o", folder, "-n", "2"});
    ASSERT_EQ(r.status, 0) << r.err << r.out;
    EXPECT_NE(r.out.find("files in " + fs::absolute(folder).lexically_normal().string()), std::string::npos) << r.out;
    for (const char* name :
         {"frame-0001.png", "frame-0002.png", "pelagon-demo.mcf", "pelagon.xml", "pelagon-demo.lut"}) {
        EXPECT_TRUE(fs::exists(fs::path(folder) / name)) << name;
        EXPECT_NE(r.out.find(name), std::string::npos) << name;
    }
    EXPECT_FALSE(fs::exists(path("frame-0003.png")));
    const Png png = readPng((fs::path(folder) / "frame-0001.png").string());
    EXPECT_EQ(png.depth, 8);
    EXPECT_GT(png.width, 0u);
    // Its configuration brings the same session back.
    const Outcome again =
        run({"--config", (fs::path(folder) / "pelagon-demo.mcf").string(), "get", "FG_CAMERASIMULATOR_ENABLE"});
    EXPECT_EQ(again.out, "FG_CAMERASIMULATOR_ENABLE = FG_CAMERASIMULATOR\n") << again.err;
}

}  // namespace
