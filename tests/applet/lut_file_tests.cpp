// LUT files through the parameter interface: save and load, the custom file
// name and the type switch, and files that are not tables at all.
#include <filesystem>
#include <fstream>
#include <string>

#include "BoundaryHelpers.h"
#include "LutHost.h"

using namespace lut;

namespace {

class LutFilesOfTheApplet : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(host.ok());
        ASSERT_EQ(host.setU32(TYPE, kProcessor), 0);
    }
    std::string file(const std::string& name, const std::string& content) {
        const std::string path = (dir.path() / name).string();
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }
    std::string path(const std::string& name) const { return (dir.path() / name).string(); }

    boundary::ScopedTempDir dir;
    AppletHost host;
};

// The key lines and the first `entries` entry lines (entry i is 4095 - i).
std::string tableBody(uint32_t count, uint32_t entries) {
    std::string text = "id=0;\nnrOfElements=" + std::to_string(count) + ";\nformat=0;\nnumber=0;\n";
    for (uint32_t i = 0; i < entries; ++i) text += std::to_string(i) + "," + std::to_string(4095 - i) + ";\n";
    return text;
}

std::string grayFile(uint32_t count, uint32_t entries) {
    return "# Lut data file v1.1\n\n\n\n[gray]\n\n" + tableBody(count, entries);
}

}  // namespace

TEST_F(LutFilesOfTheApplet, ASavedTableLoadsBackIntoIdenticalRegisters) {
    ASSERT_EQ(host.setDouble(GAMMA, 2.2), 0);
    ASSERT_EQ(host.setDouble(OFFSET, 0.05), 0);
    std::vector<uint32_t> green(kSize);
    for (uint32_t i = 0; i < kSize; ++i) green[i] = (i * 7) % kSize;
    ASSERT_EQ(setRange(host, GREEN, range(green.data(), 0, kSize)), 0);
    const Snapshot saved = snapshot(host);

    const std::string name = path("tables.lut");
    ASSERT_EQ(setText(host, SAVE_FILE, name), 0);
    EXPECT_EQ(text(host, SAVE_FILE), name);
    ASSERT_TRUE(std::filesystem::exists(name));

    ASSERT_EQ(host.setDouble(GAMMA, 1.0), 0);  // other tables in between
    ASSERT_NE(snapshot(host), saved);
    vboard::clearJournal(host.board);
    ASSERT_EQ(setText(host, CUSTOM_FILE, name), 0);
    EXPECT_TRUE(vboard::journal(host.board).empty()) << "under \"Processor\" the name is only kept";
    ASSERT_EQ(host.setU32(TYPE, kUserFile), 0);
    EXPECT_EQ(snapshot(host), saved);
    EXPECT_EQ(text(host, CUSTOM_FILE), name);

    // With the type on "User file", naming the file loads it at once.
    writeDistinctTables(host);
    ASSERT_EQ(setText(host, CUSTOM_FILE, name), 0);
    EXPECT_EQ(snapshot(host), saved);
}

// Files are read leniently: keys that are missing read as 0, entries that are
// missing stay 0, and entries past the file's count keep their values.
TEST_F(LutFilesOfTheApplet, IncompleteFilesLoadWithTheirMissingPartsAsZero) {
    auto threeTables = [](const std::string& body) {
        std::string text = "# Lut data file v1.1";
        for (const char* section : {"[red]", "[green]", "[blue]"})
            text += std::string("\n\n") + section + "\n\n" + body;
        return text;
    };
    std::string noCount = tableBody(10, 10);
    noCount.erase(noCount.find("nrOfElements=10;\n"), 17);
    const struct {
        const char* what;
        std::string content;
        uint32_t count;  // entries the file's count covers
        uint32_t given;  // of which the file gives the first ones (4095 - i)
    } cases[] = {
        {"ten entries", threeTables(tableBody(10, 10)), 10, 10},
        {"ten announced, six given", threeTables(tableBody(10, 6)), 10, 6},
        {"no nrOfElements key", threeTables(noCount), 0, 0},
        {"no colour sections", grayFile(10, 10), 10, 0},
        {"cut off before the tables", grayFile(4096, 4096).substr(0, 2000), 4096, 0},
        {"no keys at all", "nrOfElements=lots;\n[red]\nzero,one;\n", 0, 0},
        {"empty", "", 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ASSERT_EQ(setText(host, CUSTOM_FILE, ""), 0);
        ASSERT_EQ(host.setU32(TYPE, kUserFile), 0);
        writeDistinctTables(host);
        const Snapshot old = snapshot(host);
        vboard::clearJournal(host.board);
        ASSERT_EQ(setText(host, CUSTOM_FILE, file("table.lut", c.content)), 0);
        EXPECT_EQ(boundary::lastError(host), 0);
        EXPECT_FALSE(vboard::journal(host.board).empty()) << "the tables are written even when unchanged";
        for (int ch = 0; ch < 3; ++ch) {
            Table expected = old.hardware[ch];
            for (uint32_t i = 0; i < c.count; ++i) expected[i] = i < c.given ? 4095 - i : 0;
            EXPECT_EQ(registers(host, ch), expected) << ch;
            EXPECT_EQ(cached(host, ch), expected) << ch;
        }
    }
}

// Files that cannot be read are refused with a clean error and change neither
// the tables nor the registers; the previous file name is kept.
TEST_F(LutFilesOfTheApplet, UnreadableFilesAreRefusedAndChangeNothing) {
    std::string binary(5000, '\0');
    for (size_t i = 0; i < binary.size(); ++i) binary[i] = static_cast<char>((i * 151 + 3) % 256);
    const std::string head = "# Lut data file v1.1\n\n[red]\n\nid=0;\nnrOfElements=";
    std::filesystem::create_directory(path("folder.lut"));
    const struct {
        const char* what;
        std::string name;
        int result;
    } cases[] = {
        {"count -1", file("neg.lut", head + "-1;\n0,1;\n"), PGN_ERR_FILE_IO},
        {"count 2^31", file("big.lut", head + "2147483648;\n0,1;\n"), PGN_ERR_FILE_IO},
        {"count 10^12", file("huge.lut", head + "1000000000000;\n0,1;\n"), PGN_ERR_FILE_IO},
        {"300-digit count", file("digits.lut", head + std::string(300, '7') + ";\n"), PGN_ERR_FILE_IO},
        {"directory", path("folder.lut"), PGN_ERR_FILE_IO},
        {"/dev/zero", "/dev/zero", PGN_ERR_FILE_IO},
        {"missing file", path("none.lut"), PGN_ERR_FILE_MISSING},
    };
    writeDistinctTables(host);
    ASSERT_EQ(host.setU32(TYPE, kUserFile), 0);
    const Snapshot old = snapshot(host);
    for (const auto& c : cases) {
        vboard::clearJournal(host.board);
        EXPECT_EQ(setText(host, CUSTOM_FILE, c.name), c.result) << c.what;
        EXPECT_EQ(boundary::lastError(host), c.result) << c.what;
        EXPECT_TRUE(vboard::journal(host.board).empty()) << c.what;
        EXPECT_EQ(text(host, CUSTOM_FILE), "") << c.what;
    }
    EXPECT_EQ(snapshot(host), old);
    // Text that is no table at all reads as a table of no entries.
    EXPECT_EQ(setText(host, CUSTOM_FILE, file("binary.lut", binary)), 0);
    EXPECT_EQ(snapshot(host), old);

    // Named while "Processor", the same file fails when the type switches,
    // and the type stays.
    ASSERT_EQ(host.setU32(TYPE, kProcessor), 0);
    ASSERT_EQ(setText(host, CUSTOM_FILE, path("folder.lut")), 0);
    const Snapshot processed = snapshot(host);
    EXPECT_EQ(host.setU32(TYPE, kUserFile), PGN_ERR_FILE_IO);
    EXPECT_EQ(host.u32(TYPE), kProcessor);
    EXPECT_EQ(snapshot(host), processed);
}

TEST_F(LutFilesOfTheApplet, SavingNeedsAWritableFileAndKeepsThePreviousName) {
    EXPECT_EQ(setText(host, SAVE_FILE, ""), 0) << "an empty name saves nothing";
    const std::string good = path("good.lut");
    ASSERT_EQ(setText(host, SAVE_FILE, good), 0);
    for (const std::string& bad : {dir.path().string(), path("no/such/folder.lut")}) {
        EXPECT_EQ(setText(host, SAVE_FILE, bad), PGN_ERR_FILE_IO) << bad;
        EXPECT_EQ(text(host, SAVE_FILE), good);
    }
}
