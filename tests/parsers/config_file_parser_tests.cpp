// The configuration file parser on real files: what it writes, how lookups
// find (or miss) keys, number conversion in any host locale, and files that
// are malformed, missing or not files at all.
#include "Fg_ConfigFileParser.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>

#include "support/Fg_Log.h"

namespace fs = std::filesystem;

namespace {

class ConfigFileParser : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/pelagon-config-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(dir, ignored);
    }

    std::string path(const std::string& name) const { return (dir / name).string(); }
    std::string write(const std::string& name, const std::string& contents) const {
        std::ofstream(path(name), std::ios::binary) << contents;
        return path(name);
    }
    static std::string read(const std::string& file) {
        std::ifstream in(file, std::ios::binary);
        std::ostringstream text;
        text << in.rdbuf();
        return text.str();
    }

    fs::path dir;
};

// A value buffer of exactly the documented size, with guard bytes behind it
// that must survive every read.
struct GuardedValue {
    static constexpr std::size_t kGuard = 64;
    char bytes[Fg_ConfigFileParser::kValueBufferSize + kGuard];
    GuardedValue() { std::memset(bytes, 0x5A, sizeof bytes); }
    char* value() { return bytes; }
    bool guardIntact() const {
        for (std::size_t i = Fg_ConfigFileParser::kValueBufferSize; i < sizeof bytes; ++i)
            if (bytes[i] != 0x5A) return false;
        return true;
    }
};

const std::string kHeader = "[Kamerasektion]\n\nConfigFileVersion=2.0;\n";

}  // namespace

TEST_F(ConfigFileParser, FileTypeIsACaseSensitiveSubstring) {
    Fg_ConfigFileParser parser(nullptr);
    const struct {
        const char* name;
        int expected;
    } rows[] = {{"settings.mcf", 1}, {"settings.mcf.bak", 1}, {"/x.mcfolder/y", 1}, {"settings.MCF", 0},
                {"settings.mc", 0},  {"", 0},                 {nullptr, 0}};
    for (const auto& row : rows)
        EXPECT_EQ(parser.checkFileType(row.name), row.expected) << (row.name ? row.name : "(null)");
}

TEST_F(ConfigFileParser, WritesHeaderSectionsAndBothLineForms) {
    const std::string file = path("written.mcf");
    {
        Fg_ConfigFileParser parser(nullptr);
        ASSERT_EQ(parser.setSaveFile(file.c_str()), 1);
        parser.writeConfigFileHeader();
        parser.writeConfigFileValue("Hersteller", "Quorvant");
        parser.writeConfigFile("Typ", "Pelagon");
        parser.writeConfigFilePortA();
        parser.writeConfigFileIntKey("FG_X", 5);
        parser.writeConfigFileIntKey("FG_NEG", -2);
        parser.writeConfigFileUInt64Key("FG_U64", std::numeric_limits<uint64_t>::max());
        parser.writeConfigFileDoubleKey("FG_D", 0.1);
        parser.writeConfigFile("FG_EMPTY", "");
        parser.writeConfigFile("FG_NULLVALUE", nullptr);
        parser.writeConfigFile(nullptr, "dropped");
        parser.writeConfigFilePortB();
        parser.writeConfigFileByPort(2);
        // Every write is flushed: the file is complete while the parser lives.
        EXPECT_EQ(read(file), kHeader +
                                  "Hersteller=Quorvant;\n"
                                  "Typ='Pelagon';\n"
                                  "\n[Port A]\n"
                                  "FG_X=5;\n"
                                  "FG_NEG=-2;\n"
                                  "FG_U64=18446744073709551615;\n"
                                  "FG_D=0.1;\n"
                                  "FG_EMPTY='';\n"
                                  "FG_NULLVALUE='';\n"
                                  "\n[Port B]\n"
                                  "\n[Port C]\n");
    }
}

TEST_F(ConfigFileParser, DoublesUseTwelveSignificantDigitsAndReadBack) {
    const struct {
        double value;
        const char* text;
    } rows[] = {{0.1, "0.1"},         {1.0 / 3.0, "0.333333333333"}, {0.048, "0.048"}, {1500.0, "1500"},
                {34000000.0, "34000000"}, {1e20, "1e+20"},            {-2.5e-7, "-2.5e-07"},
                {123456789012345.0, "1.23456789012e+14"}};
    const std::string file = path("doubles.mcf");
    {
        Fg_ConfigFileParser parser(nullptr);
        ASSERT_EQ(parser.setSaveFile(file.c_str()), 1);
        parser.writeConfigFilePortA();
        for (std::size_t i = 0; i < std::size(rows); ++i)
            parser.writeConfigFileDoubleKey(("FG_D" + std::to_string(i)).c_str(), rows[i].value);
    }
    Fg_ConfigFileParser parser(nullptr, file.c_str(), true);
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const std::string key = "FG_D" + std::to_string(i);
        char text[Fg_ConfigFileParser::kValueBufferSize];
        ASSERT_EQ(parser.parseKeySection(0, key.c_str(), text), 0) << key;
        EXPECT_STREQ(text, rows[i].text);
        double back = 0;
        ASSERT_EQ(parser.parseDoubleKeySection(0, key.c_str(), &back), 0);
        EXPECT_DOUBLE_EQ(back, std::strtod(rows[i].text, nullptr)) << rows[i].text;
    }
}

// One file, many lookups: how a key is recognised and where its value ends.
TEST_F(ConfigFileParser, LookupRulesForKeysAndValues) {
    const std::string file = write("lookup.mcf", kHeader +
                                                     "\n[Port A]\n"
                                                     "FG_WIDTH_MAX=99;\n"
                                                     "FG_WIDTH=1024;\n"
                                                     "FG_QUOTED='abc';\n"
                                                     "FG_PLAIN=abc;\n"
                                                     "fg_lower=7;\n"
                                                     " FG_INDENTED=8;\n"
                                                     "FG_EMPTY=;\n"
                                                     "FG_NOEQUALS\n"
                                                     "FG_NOSEMICOLON=xyz\n"
                                                     "FG_TWOEQUALS==5=6;\n"
                                                     "FG_TWICE=first;\n"
                                                     "FG_TWICE=second;\n"
                                                     "\n[Port B]\n"
                                                     "FG_HEIGHT=768;\n"
                                                     "FG_WIDTH=2048;\n");
    Fg_ConfigFileParser parser(nullptr, file.c_str(), true);
    ASSERT_NE(parser.getFile(), nullptr);
    const struct {
        int port;
        const char* key;
        int result;
        const char* value;
    } rows[] = {
        {0, "FG_WIDTH", 0, "1024"},          // not confused with FG_WIDTH_MAX
        {0, "FG_QUOTED", 0, "abc"},          // quoted and plain read the same
        {0, "FG_PLAIN", 0, "abc"},
        {0, "FG_LOWER", -8000, "Error"},     // case-sensitive
        {0, "FG_INDENTED", -8000, "Error"},  // must start the line
        {0, "FG_EMPTY", 0, ""},
        {0, "FG_NOEQUALS", -8000, "Error"},
        {0, "FG_NOSEMICOLON", 0, "xyz\n"},   // the line feed belongs to the value
        {0, "FG_TWOEQUALS", 0, "5"},
        {0, "FG_TWICE", 0, "first"},
        {0, "FG_HEIGHT", 0, "768"},          // missing under A, taken from B
        {1, "FG_WIDTH", 0, "2048"},
        {1, "FG_QUOTED", -8000, "Error"},    // nothing looks back before the section
        {2, "FG_WIDTH", -8000, "Error"},     // no [Port C]
    };
    for (const auto& row : rows) {
        GuardedValue value;
        EXPECT_EQ(parser.parseKeySection(row.port, row.key, value.value()), row.result) << row.key;
        EXPECT_STREQ(value.value(), row.value) << row.key << " on port " << row.port;
        EXPECT_TRUE(value.guardIntact());
    }
    GuardedValue value;
    EXPECT_EQ(parser.parseKeySection(0, nullptr, value.value()), -1);
    EXPECT_EQ(parser.parseKey("[Port A]", nullptr, value.value()), -8000);
    EXPECT_EQ(parser.parseKey(nullptr, "FG_WIDTH", value.value()), -8000);
    EXPECT_EQ(parser.parseKey("[Port A]", "FG_WIDTH", nullptr), -8000);

    int number = 0;
    EXPECT_EQ(parser.parseIntKeySection(0, "FG_WIDTH", &number), 0);
    EXPECT_EQ(number, 1024);
    number = 55;
    EXPECT_EQ(parser.parseIntKeySection(1, "FG_QUOTED", &number), -1);
    EXPECT_EQ(parser.parseIntKeySection(0, nullptr, &number), -1);
    EXPECT_EQ(parser.parseIntKeySection(0, "FG_WIDTH", nullptr), -1);
    EXPECT_EQ(number, 55) << "a failed read leaves the output alone";
}

TEST_F(ConfigFileParser, NumberConversionNeverFails) {
    const std::string file = write("numbers.mcf",
                                   "\n[Port A]\n"
                                   "FG_HEX=0x10;\n"
                                   "FG_LEADING=12abc;\n"
                                   "FG_TEXT=abc;\n"
                                   "FG_BLANKS=   42;\n"
                                   "FG_NEGATIVE=-2;\n"
                                   "FG_BIG=4294967294;\n"
                                   "FG_U64MAX=18446744073709551615;\n"
                                   "FG_U64OVER=99999999999999999999999;\n"
                                   "FG_DOUBLE=1.5e3;\n"
                                   "FG_COMMA=1,5;\n");
    Fg_ConfigFileParser parser(nullptr, file.c_str(), true);
    const struct {
        const char* key;
        int asInt;
        uint64_t asU64;
        double asDouble;
    } rows[] = {
        {"FG_HEX", 0, 0, 16.0},  // integers are decimal only: "0x10" stops after the 0
        {"FG_LEADING", 12, 12, 12.0},
        {"FG_TEXT", 0, 0, 0.0},
        {"FG_BLANKS", 42, 42, 42.0},
        {"FG_NEGATIVE", -2, std::numeric_limits<uint64_t>::max() - 1, -2.0},
        // Wraps like the C conversion, so an unsigned cache gets 4294967294 back.
        {"FG_BIG", -2, 4294967294u, 4294967294.0},
        {"FG_U64MAX", -1, std::numeric_limits<uint64_t>::max(), 18446744073709551615.0},
        {"FG_U64OVER", -1, std::numeric_limits<uint64_t>::max(), 99999999999999999999999.0},
        {"FG_DOUBLE", 1, 1, 1500.0},
        {"FG_COMMA", 1, 1, 1.0},
    };
    for (const auto& row : rows) {
        int i = 99;
        uint64_t u = 99;
        double d = 99;
        EXPECT_EQ(parser.parseIntKeySection(0, row.key, &i), 0) << row.key;
        EXPECT_EQ(parser.parseUInt64KeySection(0, row.key, &u), 0) << row.key;
        EXPECT_EQ(parser.parseDoubleKeySection(0, row.key, &d), 0) << row.key;
        EXPECT_EQ(i, row.asInt) << row.key;
        EXPECT_EQ(u, row.asU64) << row.key;
        EXPECT_DOUBLE_EQ(d, row.asDouble) << row.key;
    }
}

TEST_F(ConfigFileParser, HeaderNeedsItsLineFeedSoCrLfFilesMissIt) {
    const std::string lf = write("lf.mcf", kHeader + "AktivePort=0;\n\n[Port A]\nFG_WIDTH=1024;\n");
    const std::string crlf =
        write("crlf.mcf", "[Kamerasektion]\r\n\r\nConfigFileVersion=2.0;\r\nAktivePort=0;\r\n\r\n[Port A]\r\n"
                          "FG_WIDTH=1024;\r\nFG_PLAIN=abc\r\nFG_EMPTY=\r\n");
    int port = 7;
    Fg_ConfigFileParser lfParser(nullptr, lf.c_str(), true);
    EXPECT_EQ(lfParser.parseIntKeyFromHeader("AktivePort", &port), 0);
    EXPECT_EQ(port, 0);

    Fg_ConfigFileParser crlfParser(nullptr, crlf.c_str(), true);
    port = 7;
    EXPECT_EQ(crlfParser.parseIntKeyFromHeader("AktivePort", &port), -1);
    EXPECT_EQ(port, 7);
    int width = 0;
    EXPECT_EQ(crlfParser.parseIntKeySection(0, "FG_WIDTH", &width), 0);
    EXPECT_EQ(width, 1024);
    char value[Fg_ConfigFileParser::kValueBufferSize];
    EXPECT_EQ(crlfParser.parseKeySection(0, "FG_PLAIN", value), 0);
    EXPECT_STREQ(value, "abc\r\n");
    EXPECT_EQ(crlfParser.parseKeySection(0, "FG_EMPTY", value), 0);
    EXPECT_STREQ(value, "") << "a value that begins with the line end is empty";
}

TEST_F(ConfigFileParser, LineLookupTakesTheSecondPiece) {
    const std::string file = write("line.mcf", kHeader +
                                                   "Hersteller='Quorvant';\n"
                                                   "AktivePort=0;\n"
                                                   "Lonely\n"
                                                   "\n[Port A]\n");
    Fg_ConfigFileParser parser(nullptr, file.c_str(), true);
    const struct {
        const char* key;
        int result;
        const char* value;
    } rows[] = {
        {"Hersteller", 0, "Quorvant"},
        {"AktivePort", 0, "0;\n"},      // plain: the rest of the line
        {"steller", 0, "Quorvant"},     // anywhere in the line
        {"Version", 0, "2.0;\n"},       // the first line holding it: ConfigFileVersion
        {"Lonely", 0, ""},             // nothing after the key
        {"Typ", -8000, "Error"},
    };
    for (const auto& row : rows) {
        GuardedValue value;
        EXPECT_EQ(parser.parseKeyFromLine(row.key, value.value()), row.result) << row.key;
        EXPECT_STREQ(value.value(), row.value) << row.key;
    }
}

// Lines longer than a read piece: each piece counts as a line, values are
// cut at the piece, and no read writes past a buffer of the documented size.
TEST_F(ConfigFileParser, LongLinesAreReadInPiecesWithinTheBuffer) {
    const std::string longName(1023, 'n');
    const std::string file = path("long.mcf");
    {
        Fg_ConfigFileParser parser(nullptr);
        ASSERT_EQ(parser.setSaveFile(file.c_str()), 1);
        parser.writeConfigFilePortA();
        parser.writeConfigFile("FG_LUT_CUSTOM_FILE", longName.c_str());
        parser.writeConfigFileValue(std::string(300, 'k').c_str(), "1");
        parser.writeConfigFileValue("FG_AFTER", "after");
    }
    ASSERT_NE(read(file).find(longName), std::string::npos) << "the writer is not limited";

    Fg_ConfigFileParser parser(nullptr, file.c_str(), true);
    GuardedValue value;
    ASSERT_EQ(parser.parseKeySection(0, "FG_LUT_CUSTOM_FILE", value.value()), 0);
    EXPECT_EQ(std::string(value.value()), std::string(255 - std::strlen("FG_LUT_CUSTOM_FILE='"), 'n'));
    EXPECT_TRUE(value.guardIntact());
    EXPECT_EQ(parser.parseKeySection(0, "FG_AFTER", value.value()), 0);
    EXPECT_STREQ(value.value(), "after");
    EXPECT_EQ(parser.parseKeySection(0, std::string(300, 'k').c_str(), value.value()), -8000);
    EXPECT_EQ(parser.parseKeyFromLine("nnnn", value.value()), 0);
    EXPECT_EQ(std::strlen(value.value()), 255 - std::strlen("FG_LUT_CUSTOM_FILE='"));
    EXPECT_TRUE(value.guardIntact());
}

TEST_F(ConfigFileParser, FilesThatCannotBeReadGiveNoStreamAndMissingKeys) {
    fs::create_directory(dir / "folder.mcf");
    const std::string empty = write("empty.mcf", "");
    const std::string noPort = write("noport.mcf", kHeader + "FG_WIDTH=1024;\n");
    const std::string wrongType = write("settings.txt", "\n[Port A]\nFG_WIDTH=1024;\n");
    const struct {
        std::string name;
        bool opens;
    } rows[] = {{path("missing.mcf"), false},     {path("nofolder/x.mcf"), false}, {path("folder.mcf"), false},
                {wrongType, false},               {empty, true},                   {noPort, true}};
    for (const auto& row : rows) {
        for (const bool readOnly : {true, false}) {
            Fg_ConfigFileParser parser(nullptr, row.name.c_str(), readOnly);
            EXPECT_EQ(parser.getFile() != nullptr, row.opens) << row.name;
            GuardedValue value;
            int width = 5;
            EXPECT_EQ(parser.parseKeySection(0, "FG_WIDTH", value.value()), -8000) << row.name;
            EXPECT_STREQ(value.value(), "Error");
            EXPECT_EQ(parser.parseIntKeySection(0, "FG_WIDTH", &width), -1) << row.name;
            EXPECT_EQ(parser.parseIntKeyFromHeader("FG_WIDTH", &width), row.name == noPort ? 0 : -1) << row.name;
            EXPECT_EQ(parser.parseKeyFromLine("Typ", value.value()), -8000) << row.name;
            if (!row.opens) parser.writeConfigFileIntKey("FG_NEVER", 1);  // harmless without a stream
        }
    }
    Fg_ConfigFileParser probe(nullptr);
    EXPECT_EQ(probe.checkFileExist(path("folder.mcf").c_str()), 0);
    EXPECT_EQ(probe.checkFileExist(path("missing.mcf").c_str()), 0);
    EXPECT_EQ(probe.checkFileExist(nullptr), 0);
    EXPECT_EQ(probe.checkFileExist(empty.c_str()), 1);
    EXPECT_EQ(read(noPort), kHeader + "FG_WIDTH=1024;\n") << "opening for update changes nothing";
}

TEST_F(ConfigFileParser, FailedSaveFileLeavesFilesAloneAndLogs) {
    fs::create_directory(dir / "folder.mcf");
    const std::string keep = write("keep.txt", "precious\n");
    char* logText = nullptr;
    size_t logLength = 0;
    Fg_Log log(nullptr);
    log.attachStream(open_memstream(&logText, &logLength));
    {
        Fg_ConfigFileParser parser(&log);
        EXPECT_EQ(parser.setSaveFile(keep.c_str()), 0);
        EXPECT_EQ(parser.setSaveFile(path("folder.mcf").c_str()), 0);
        EXPECT_EQ(parser.setSaveFile(path("nofolder/x.mcf").c_str()), 0);
        EXPECT_EQ(parser.setSaveFile(nullptr), 0);
        EXPECT_EQ(parser.getFile(), nullptr);
    }
    log.CloseLogFile();
    EXPECT_EQ(std::string(logText, logLength),
              "varionixIV::Error >> Config File is Invalid;\n"
              "varionixIV::Error >> Config File: fopen failed;\n"
              "varionixIV::Error >> Config File: fopen failed;\n"
              "varionixIV::Error >> Config File is Invalid;\n");
    std::free(logText);
    EXPECT_EQ(read(keep), "precious\n");
    EXPECT_TRUE(fs::is_directory(dir / "folder.mcf"));
    EXPECT_FALSE(fs::exists(dir / "nofolder"));
}

TEST_F(ConfigFileParser, SaveFileTakesOverFromAnOpenedFile) {
    const std::string original = write("original.mcf", "\n[Port A]\nFG_WIDTH=1024;\n");
    const std::string target = path("target.mcf");
    {
        Fg_ConfigFileParser parser(nullptr, original.c_str(), false);
        ASSERT_NE(parser.getFile(), nullptr);
        // A failing save keeps the opened file for reading.
        EXPECT_EQ(parser.setSaveFile(path("nofolder/x.mcf").c_str()), 0);
        int width = 0;
        EXPECT_EQ(parser.parseIntKeySection(0, "FG_WIDTH", &width), 0);
        EXPECT_EQ(width, 1024);
        ASSERT_EQ(parser.setSaveFile(target.c_str()), 1);
        parser.writeConfigFileIntKey("FG_WIDTH", 64);
    }
    EXPECT_EQ(read(original), "\n[Port A]\nFG_WIDTH=1024;\n");
    EXPECT_EQ(read(target), "FG_WIDTH=64;\n");
}

TEST_F(ConfigFileParser, WritesOnAnUpdatableFileGoToItsEnd) {
    const std::string file = write("update.mcf", "\n[Port A]\nFG_WIDTH=1024;\nFG_HEIGHT=768;\n");
    {
        Fg_ConfigFileParser parser(nullptr, file.c_str(), false);
        int width = 0;
        ASSERT_EQ(parser.parseIntKeySection(0, "FG_WIDTH", &width), 0);
        parser.writeConfigFileIntKey("FG_XOFFSET", 16);
        int offset = 0;
        EXPECT_EQ(parser.parseIntKeySection(0, "FG_XOFFSET", &offset), 0);
        EXPECT_EQ(offset, 16);
    }
    EXPECT_EQ(read(file), "\n[Port A]\nFG_WIDTH=1024;\nFG_HEIGHT=768;\nFG_XOFFSET=16;\n");
}

// A host running with a decimal comma still gets decimal points, and its
// locale is the same afterwards.
TEST_F(ConfigFileParser, DecimalPointUnderADecimalCommaLocale) {
    const std::string before = std::setlocale(LC_ALL, nullptr);
    if (std::setlocale(LC_ALL, "de_DE.UTF-8") == nullptr) GTEST_SKIP() << "locale de_DE.UTF-8 is not installed";
    const std::string german = std::setlocale(LC_ALL, nullptr);
    char probe[16];
    std::snprintf(probe, sizeof probe, "%.1f", 0.5);
    EXPECT_STREQ(probe, "0,5") << "the host locale is not in effect";

    const std::string file = path("german.mcf");
    {
        Fg_ConfigFileParser parser(nullptr);
        ASSERT_EQ(parser.setSaveFile(file.c_str()), 1);
        parser.writeConfigFilePortA();
        parser.writeConfigFileDoubleKey("FG_TRIGGERIN_DEBOUNCE", 0.048);
        parser.writeConfigFileDoubleKey("FG_PROCESSING_GAMMA", 1.0 / 3.0);
        parser.writeConfigFileValue("FG_HANDWRITTEN", "2.75");
    }
    EXPECT_EQ(read(file),
              "\n[Port A]\nFG_TRIGGERIN_DEBOUNCE=0.048;\nFG_PROCESSING_GAMMA=0.333333333333;\nFG_HANDWRITTEN=2.75;\n");
    Fg_ConfigFileParser parser(nullptr, file.c_str(), true);
    double debounce = 0, gamma = 0, handwritten = 0;
    EXPECT_EQ(parser.parseDoubleKeySection(0, "FG_TRIGGERIN_DEBOUNCE", &debounce), 0);
    EXPECT_EQ(parser.parseDoubleKeySection(0, "FG_PROCESSING_GAMMA", &gamma), 0);
    EXPECT_EQ(parser.parseDoubleKeySection(0, "FG_HANDWRITTEN", &handwritten), 0);
    EXPECT_DOUBLE_EQ(debounce, 0.048);
    EXPECT_DOUBLE_EQ(gamma, 0.333333333333);
    EXPECT_DOUBLE_EQ(handwritten, 2.75);

    EXPECT_EQ(std::setlocale(LC_ALL, nullptr), german) << "the host's locale is left as it was";
    std::snprintf(probe, sizeof probe, "%.1f", 0.5);
    EXPECT_STREQ(probe, "0,5");
    std::setlocale(LC_ALL, before.c_str());
}
