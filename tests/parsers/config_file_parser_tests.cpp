// The configuration file parser on real files: what it writes, how lookups
// find (or miss) keys, numbers in any host locale, and bad or missing files.
#include "Fg_ConfigFileParser.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstring>
#include <limits>
#include <string>

#include "Fg_Log.h"
#include "support/scratch_folder.h"

namespace fs = std::filesystem;

namespace {

const std::string kHeader = "[Kamerasektion]\n\nConfigFileVersion=2.0;\n";

class ConfigFileParser : public ::testing::Test, protected ScratchFolder {};

// A value buffer of exactly the documented size with guard bytes behind it.
struct GuardedValue {
    char bytes[Fg_ConfigFileParser::kValueBufferSize + 64];
    GuardedValue() { std::memset(bytes, 'Z', sizeof bytes); }
    bool guardIntact() const { return std::string(bytes + sizeof bytes - 64, 64) == std::string(64, 'Z'); }
};

}  // namespace

TEST_F(ConfigFileParser, WritesHeaderSectionsBothLineFormsAndTwelveDigitDoubles) {
    const std::string file = path("written.mcf");
    Fg_ConfigFileParser parser(nullptr);
    ASSERT_EQ(parser.setSaveFile(file.c_str()), 1);
    parser.writeConfigFileHeader();
    parser.writeConfigFile("Typ", "Pelagon");
    parser.writeConfigFilePortA();
    parser.writeConfigFileIntKey("FG_X", 5);
    parser.writeConfigFileIntKey("FG_NEG", -2);
    parser.writeConfigFileUInt64Key("FG_U64", std::numeric_limits<uint64_t>::max());
    for (const double d : {0.1, 1.0 / 3.0, 34000000.0, 1e20, -2.5e-7}) parser.writeConfigFileDoubleKey("FG_D", d);
    parser.writeConfigFileValue("FG_EMPTY", nullptr);
    parser.writeConfigFile(nullptr, "a line without key is not written");
    parser.writeConfigFilePortB();
    // Every line is flushed as it is written.
    EXPECT_EQ(read(file), kHeader + "Typ='Pelagon';\n\n[Port A]\nFG_X=5;\nFG_NEG=-2;\nFG_U64=18446744073709551615;\n"
                                    "FG_D=0.1;\nFG_D=0.333333333333;\nFG_D=34000000;\nFG_D=1e+20;\nFG_D=-2.5e-07;\n"
                                    "FG_EMPTY=;\n\n[Port B]\n");
}

// One file, many lookups: how a key is recognised and where its value ends.
TEST_F(ConfigFileParser, LookupRules) {
    const std::string file = write("lookup.mcf", kHeader + "AktivePort=0;\nHersteller='Quorvant';\n\n[Port A]\n"
                                                           "FG_WIDTH_MAX=99;\nFG_WIDTH=1024;\nFG_QUOTED='abc';\n"
                                                           "FG_PLAIN=abc;\nfg_lower=7;\n FG_INDENTED=8;\nFG_EMPTY=;\n"
                                                           "FG_NOEQUALS\nFG_NOSEMICOLON=xyz\nFG_TWOEQUALS==5=6;\n"
                                                           "\n[Port B]\nFG_HEIGHT=768;\nFG_WIDTH=2048;\n");
    Fg_ConfigFileParser parser(nullptr, file.c_str(), true);
    ASSERT_NE(parser.getFile(), nullptr);
    const struct {
        int port;  // -1: line lookup without section
        const char* key;
        int result;
        const char* value;
    } rows[] = {
        {0, "FG_WIDTH", 0, "1024"},  // not FG_WIDTH_MAX
        {0, "FG_QUOTED", 0, "abc"},  {0, "FG_PLAIN", 0, "abc"},
        {0, "FG_LOWER", -8000, "Error"},     // case-sensitive
        {0, "FG_INDENTED", -8000, "Error"},  // must start the line
        {0, "FG_EMPTY", 0, ""},      {0, "FG_NOEQUALS", -8000, "Error"},
        {0, "FG_NOSEMICOLON", 0, "xyz\n"},  // the line feed belongs to the value
        {0, "FG_TWOEQUALS", 0, "5"},
        {0, "FG_HEIGHT", 0, "768"},  // missing under A: taken from B
        {1, "FG_WIDTH", 0, "2048"},  {1, "FG_QUOTED", -8000, "Error"}, {2, "FG_WIDTH", -8000, "Error"},
        {-1, "Hersteller", 0, "Quorvant"},
        {-1, "AktivePort", 0, "0;\n"},  // plain: the rest of the line
        {-1, "Version", 0, "2.0;\n"},   // anywhere in a line: ConfigFileVersion
        {-1, "FG_NOEQUALS", 0, ""},     {-1, "Typ", -8000, "Error"},
    };
    for (const auto& row : rows) {
        GuardedValue v;
        const int result = row.port < 0 ? parser.parseKeyFromLine(row.key, v.bytes)
                                         : parser.parseKeySection(row.port, row.key, v.bytes);
        EXPECT_EQ(result, row.result) << row.key << " port " << row.port;
        EXPECT_STREQ(v.bytes, row.value) << row.key << " port " << row.port;
    }
    int number = 55;
    EXPECT_EQ(parser.parseIntKeySection(1, "FG_QUOTED", &number), -1);
    EXPECT_EQ(parser.parseIntKeySection(0, nullptr, &number), -1);
    EXPECT_EQ(parser.parseKeySection(0, nullptr, nullptr), -1);
    EXPECT_EQ(parser.parseKey("[Port A]", "FG_WIDTH", nullptr), -8000);
    EXPECT_EQ(number, 55) << "a failed read leaves the output alone";
    EXPECT_EQ(parser.parseIntKeyFromHeader("AktivePort", &number), 0);
    EXPECT_EQ(number, 0);
}

TEST_F(ConfigFileParser, NumberConversionNeverFails) {
    const std::string file = write("numbers.mcf", "\n[Port A]\nFG_HEX=0x10;\nFG_LEADING=12abc;\nFG_TEXT=abc;\n"
                                                  "FG_NEG=-2;\nFG_BIG=4294967294;\nFG_U64OVER=99999999999999999999;\n"
                                                  "FG_COMMA=1,5;\n");
    Fg_ConfigFileParser parser(nullptr, file.c_str(), true);
    const struct {
        const char* key;
        int asInt;
        uint64_t asU64;
        double asDouble;
    } rows[] = {
        {"FG_HEX", 0, 0, 16.0},  // integers are decimal only
        {"FG_LEADING", 12, 12, 12.0},
        {"FG_TEXT", 0, 0, 0.0},
        {"FG_NEG", -2, std::numeric_limits<uint64_t>::max() - 1, -2.0},
        {"FG_BIG", -2, 4294967294u, 4294967294.0},  // wraps back to the unsigned value
        {"FG_U64OVER", -1, std::numeric_limits<uint64_t>::max(), 1e20},
        {"FG_COMMA", 1, 1, 1.0},
    };
    for (const auto& row : rows) {
        int i = 99;
        uint64_t u = 99;
        double d = 99;
        EXPECT_EQ(parser.parseIntKeySection(0, row.key, &i) + parser.parseUInt64KeySection(0, row.key, &u) +
                      parser.parseDoubleKeySection(0, row.key, &d),
                  0)
            << row.key;
        EXPECT_EQ(i, row.asInt) << row.key;
        EXPECT_EQ(u, row.asU64) << row.key;
        EXPECT_DOUBLE_EQ(d, row.asDouble) << row.key;
    }
}

// Lines longer than a read piece count as several lines; a CR-LF header does
// not match its section; no read writes past a buffer of the documented size.
TEST_F(ConfigFileParser, LongLinesAndCrLfFiles) {
    const std::string longName(1023, 'n'), longKey(300, 'k');
    const std::string file = write("long.mcf", "[Kamerasektion]\r\nAktivePort=0;\r\n\r\n[Port A]\r\n"
                                               "FG_LUT_CUSTOM_FILE='" + longName + "';\r\n" + longKey +
                                                   "=1;\r\nFG_WIDTH=1024;\r\nFG_PLAIN=abc\r\nFG_EMPTY=\r\n");
    Fg_ConfigFileParser parser(nullptr, file.c_str(), true);
    int number = 7;
    EXPECT_EQ(parser.parseIntKeyFromHeader("AktivePort", &number), -1);
    EXPECT_EQ(parser.parseIntKeySection(0, "FG_WIDTH", &number), 0);
    EXPECT_EQ(number, 1024);
    const struct {
        const char* key;
        int result;
        std::string value;
    } rows[] = {{"FG_LUT_CUSTOM_FILE", 0, std::string(255 - 20, 'n')}, {"FG_PLAIN", 0, "abc\r\n"},
                {"FG_EMPTY", 0, ""}, {longKey.c_str(), -8000, "Error"}};
    for (const auto& row : rows) {
        GuardedValue v;
        EXPECT_EQ(parser.parseKeySection(0, row.key, v.bytes), row.result);
        EXPECT_EQ(v.bytes, row.value);
        EXPECT_TRUE(v.guardIntact());
    }
    GuardedValue v;
    EXPECT_EQ(parser.parseKeyFromLine("nnnn", v.bytes), 0);
    EXPECT_EQ(std::strlen(v.bytes), 255u - 20u);
    EXPECT_TRUE(v.guardIntact());
}

TEST_F(ConfigFileParser, BadFilesGiveNoStreamAndSaveFailuresTouchNothing) {
    fs::create_directory(dir / "folder.mcf");
    const std::string empty = write("empty.mcf", ""), keep = write("keep.txt", "precious\n");
    const std::string noPort = write("noport.mcf", kHeader + "FG_WIDTH=1024;\n");
    const struct {
        std::string name;
        bool opens;
    } rows[] = {{path("missing.mcf"), false}, {path("nofolder/x.mcf"), false}, {path("folder.mcf"), false},
                {keep, false},  {write("settings.MCF", "\n[Port A]\nFG_WIDTH=1;\n"), false},
                {empty, true},  {noPort, true}};
    for (const auto& row : rows) {
        for (const bool readOnly : {true, false}) {
            Fg_ConfigFileParser parser(nullptr, row.name.c_str(), readOnly);
            EXPECT_EQ(parser.getFile() != nullptr, row.opens) << row.name;
            GuardedValue v;
            EXPECT_EQ(parser.parseKeySection(0, "FG_WIDTH", v.bytes), -8000) << row.name;
            EXPECT_STREQ(v.bytes, "Error");
            if (!row.opens) parser.writeConfigFileIntKey("FG_NEVER", 1);  // harmless without a stream
        }
    }
    EXPECT_EQ(read(noPort), kHeader + "FG_WIDTH=1024;\n") << "opening for update changes nothing";

    char* logText = nullptr;
    size_t logLength = 0;
    Fg_Log log(nullptr);
    log.attachStream(open_memstream(&logText, &logLength));
    Fg_ConfigFileParser parser(&log, noPort.c_str(), false);
    EXPECT_EQ(parser.checkFileType("settings.mcf.bak"), 1);
    for (const std::string& name : {keep, path("folder.mcf"), path("nofolder/x.mcf")})
        EXPECT_EQ(parser.setSaveFile(name.c_str()), 0) << name;
    int width = 0;
    EXPECT_EQ(parser.parseIntKeyFromHeader("FG_WIDTH", &width), 0) << "the opened file stays in use";
    EXPECT_EQ(width, 1024);
    log.CloseLogFile();
    EXPECT_EQ(std::string(logText, logLength), "varionixIV::Error >> Config File is Invalid;\n"
                                               "varionixIV::Error >> Config File: fopen failed;\n"
                                               "varionixIV::Error >> Config File: fopen failed;\n");
    std::free(logText);
    EXPECT_EQ(read(keep), "precious\n");
    EXPECT_TRUE(fs::is_directory(dir / "folder.mcf"));
    EXPECT_FALSE(fs::exists(dir / "nofolder"));
}

// A host running with a decimal comma still gets decimal points, and its
// locale is the same afterwards.
TEST_F(ConfigFileParser, DecimalPointUnderADecimalCommaLocale) {
    const std::string before = std::setlocale(LC_ALL, nullptr);
    if (!std::setlocale(LC_ALL, "de_DE.UTF-8")) GTEST_SKIP() << "locale de_DE.UTF-8 is not installed";
    const std::string german = std::setlocale(LC_ALL, nullptr);
    EXPECT_EQ(std::to_string(0.5), "0,500000") << "the host locale is not in effect";
    const std::string file = path("german.mcf");
    {
        Fg_ConfigFileParser parser(nullptr);
        ASSERT_EQ(parser.setSaveFile(file.c_str()), 1);
        parser.writeConfigFilePortA();
        parser.writeConfigFileDoubleKey("FG_TRIGGERIN_DEBOUNCE", 0.048);
        parser.writeConfigFileValue("FG_HANDWRITTEN", "2.75");
    }
    EXPECT_EQ(read(file), "\n[Port A]\nFG_TRIGGERIN_DEBOUNCE=0.048;\nFG_HANDWRITTEN=2.75;\n");
    Fg_ConfigFileParser parser(nullptr, file.c_str(), true);
    double debounce = 0, handwritten = 0;
    EXPECT_EQ(parser.parseDoubleKeySection(0, "FG_TRIGGERIN_DEBOUNCE", &debounce), 0);
    EXPECT_EQ(parser.parseDoubleKeySection(0, "FG_HANDWRITTEN", &handwritten), 0);
    EXPECT_DOUBLE_EQ(debounce, 0.048);
    EXPECT_DOUBLE_EQ(handwritten, 2.75);
    EXPECT_EQ(std::setlocale(LC_ALL, nullptr), german) << "the host's locale is left as it was";
    EXPECT_EQ(std::to_string(0.5), "0,500000");
    std::setlocale(LC_ALL, before.c_str());
}
