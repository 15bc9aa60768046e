// The lookup-table file parser on its own: exact bytes of every writer, the
// substring rules of the readers, and files that try to break them.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "Fg_LutFileParser.h"
#include "support/scratch_folder.h"

namespace {

class LutFiles : public ::testing::Test, protected ScratchFolder {
protected:
    Fg_LutFileParser parser;
};

LookupTable table(std::vector<uint32_t>& entries, uint32_t id) {
    return LookupTable{entries.data(), id, static_cast<uint32_t>(entries.size()), 0, 0};
}

std::vector<uint32_t> entriesOf(const LookupTable& t) { return {t.lut, t.lut + t.nrOfElements}; }

std::ptrdiff_t openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

}  // namespace

TEST_F(LutFiles, EveryWriterProducesItsExactBytesAndMatricesAreNeverRead) {
    std::vector<uint32_t> entries{0, 4095}, r{1}, g{2}, b{3};
    const LookupTable gray = table(entries, 0), red = table(r, 0), green = table(g, 1), blue = table(b, 2);
    ASSERT_EQ(parser.saveLutToFile(path("gray.lut").c_str(), &gray), 0);
    EXPECT_EQ(read("gray.lut"),
              "# Lut data file v1.1\n\n\n\n[gray]\n\nid=0;\nnrOfElements=2;\nformat=0;\nnumber=0;\n0,0;\n1,4095;\n");
    ASSERT_EQ(parser.saveLutToFile(path("rgb.lut").c_str(), &red, &green, &blue), 0);
    EXPECT_EQ(read("rgb.lut"),
              "# Lut data file v1.1\n\n[red]\n\nid=0;\nnrOfElements=1;\nformat=0;\nnumber=0;\n0,1;\n"
              "\n\n[green]\n\nid=1;\nnrOfElements=1;\nformat=0;\nnumber=0;\n0,2;\n"
              "\n\n[blue]\n\nid=2;\nnrOfElements=1;\nformat=0;\nnumber=0;\n0,3;\n");

    int matrix[] = {5, -6};
    ASSERT_EQ(parser.saveMatrixToFile(path("m.txt").c_str(), "# matrix\n", matrix, 2), 0);
    EXPECT_EQ(read("m.txt"), "# matrix\nnrOfElements=2;\n0,5;\n1,-6;\n");
    EXPECT_EQ(parser.getMatrixFromFile(path("m.txt").c_str(), matrix, 2), -1);
    EXPECT_EQ(parser.getMatrixFromFile(nullptr, nullptr, 0), -1);
}

TEST_F(LutFiles, WrittenTablesReadBackExactly) {
    std::vector<uint32_t> r(4096), g(4096), b(4096);
    for (uint32_t i = 0; i < 4096; ++i) {
        r[i] = i;
        g[i] = 4095 - i;
        b[i] = i * 2654435761u;  // all 32 bits, negative when printed as int
    }
    const LookupTable red = table(r, 0), green = table(g, 1), blue = table(b, 2);
    ASSERT_EQ(parser.saveLutToFile(path("rgb.lut").c_str(), &red, &green, &blue), 0);

    LookupTable in[3] = {};
    ASSERT_EQ(parser.getLutFromFile(path("rgb.lut").c_str(), &in[0], &in[1], &in[2]), 0);
    EXPECT_EQ(entriesOf(in[0]), r);
    EXPECT_EQ(entriesOf(in[1]), g);
    EXPECT_EQ(entriesOf(in[2]), b);
    for (LookupTable& t : in) Fg_LutFileParser::freeTable(&t);
}

TEST_F(LutFiles, KeysComeFromTheFirstLineThatHoldsThemWhateverTheSection) {
    const std::string file = write("keys.lut",
                                   "# Lut data file v1.1\n\n[red]\n\nid=7;\nnrOfElements=2;\nformat=3;\nnumber=4;\n"
                                   "0,10;\n1,11;\n\n\n[green]\n\nid=8;\nnrOfElements=5;\nformat=0;\nnumber=0;\n"
                                   "0,20;\n1,21;\n2,22;\n3,23;\n4,24;\n");
    LookupTable green{};
    ASSERT_EQ(parser.getLutFromFile(file.c_str(), &green, "[green]"), 0);
    EXPECT_EQ(green.id, 7u);
    EXPECT_EQ(green.format, 3u);
    EXPECT_EQ(green.number, 4u);
    EXPECT_EQ(entriesOf(green), (std::vector<uint32_t>{20, 21})) << "the size comes from the red section";
    Fg_LutFileParser::freeTable(&green);
}

TEST_F(LutFiles, EntriesAreMatchedBySubstringInFileOrderAndLongLinesReadInPieces) {
    // "10,7;" holds "0," and so is entry 0; "1," is then found in "21,5;".
    // Entries never found stay 0, and the scan runs on past later sections.
    LookupTable gray{};
    const std::string order = write("order.lut", "nrOfElements=4;\n[gray]\n10,7;\n21,5;\n[other]\n2,9;\n");
    ASSERT_EQ(parser.getLutFromFile(order.c_str(), &gray, "[gray]"), 0);
    EXPECT_EQ(entriesOf(gray), (std::vector<uint32_t>{7, 5, 9, 0}));
    Fg_LutFileParser::freeTable(&gray);

    // The key sits beyond the first 255 characters: the second piece of the
    // line holds it and counts as a line of its own.
    const std::string file = write("long.lut", std::string(300, ' ') + "nrOfElements=2;\n[gray]\n" +
                                                   std::string(280, 'x') + "0,5;\n1,6;\n");
    ASSERT_EQ(parser.getLutFromFile(file.c_str(), &gray, "[gray]"), 0);
    EXPECT_EQ(entriesOf(gray), (std::vector<uint32_t>{5, 6}));
    Fg_LutFileParser::freeTable(&gray);
}

TEST_F(LutFiles, KneeTablesUseTwelveDecimalsAndClearWhatTheFileLacks) {
    std::vector<double> values{0.5, -0.25, 1.0};
    const KneeLookupTable knee{values.data(), nullptr, 0, 3, 0, 0};
    ASSERT_EQ(parser.saveLutToFile(path("knee.lut").c_str(), &knee, "[knee]"), 0);
    EXPECT_EQ(read("knee.lut"),
              "# KneeLut data file v1.0\n\n[knee]\n\n0,0.500000000000;\n1,-0.250000000000;\n2,1.000000000000;\n");

    KneeLookupTable in{};
    in.nrOfElements = 5;  // the count is the caller's
    ASSERT_EQ(parser.getLutFromFile(path("knee.lut").c_str(), &in, "[knee]"), 0);
    EXPECT_EQ(std::vector<double>(in.value, in.value + 5), (std::vector<double>{0.5, -0.25, 1.0, 0.0, 0.0}));
    Fg_LutFileParser::freeTable(&in);

    const KneeLookupTable r{values.data(), nullptr, 0, 1, 0, 0}, g{values.data() + 1, nullptr, 1, 1, 0, 0},
        b{values.data() + 2, nullptr, 2, 1, 0, 0};
    ASSERT_EQ(parser.saveLutToFile(path("knee3.lut").c_str(), &r, &g, &b), 0);
    EXPECT_EQ(read("knee3.lut"),
              "# KneeLut data file v1.1\n\n[red]\n\n0,0.500000000000;\n\n\n[green]\n\n0,-0.250000000000;\n"
              "\n\n[blue]\n\n0,1.000000000000;\n");
    KneeLookupTable back[3] = {};
    for (KneeLookupTable& t : back) t.nrOfElements = 1;
    ASSERT_EQ(parser.getLutFromFile(path("knee3.lut").c_str(), &back[0], &back[1], &back[2]), 0);
    EXPECT_EQ(back[1].value[0], -0.25);
    for (KneeLookupTable& t : back) Fg_LutFileParser::freeTable(&t);
}

// Files that announce absurd sizes or are not tables at all: a clean -1 (or
// the empty table the rules give), no crash, nothing large allocated, and
// the record never left pointing at freed entries.
TEST_F(LutFiles, HostileOrVanishingFilesAreRefusedOrReadAsEmpty) {
    const std::string head = "# Lut data file v1.1\n\n[red]\n\nid=0;\n";
    std::string binary(4096, '\0');
    for (size_t i = 0; i < binary.size(); ++i) binary[i] = static_cast<char>((i * 131 + 7) % 256);
    std::filesystem::create_directory(path("folder.lut"));
    const struct {
        const char* name;
        std::string file;
        int result;
    } cases[] = {
        {"count -1", write("neg.lut", head + "nrOfElements=-1;\n0,1;\n"), -1},
        {"count 2^31", write("big.lut", head + "nrOfElements=2147483648;\n"), -1},
        {"count 10^12", write("huge.lut", head + "nrOfElements=1000000000000;\n"), -1},
        {"count one above the bound", write("bound.lut", head + "nrOfElements=1048577;\n"), -1},
        {"300-digit count", write("digits.lut", head + "nrOfElements=" + std::string(300, '9') + ";\n"), -1},
        {"empty file", write("empty.lut", ""), 0},
        {"binary bytes", write("binary.lut", binary), 0},
        {"garbled", write("garbled.lut", "nrOfElements=abc;\n[red]\n0,x;\n"), 0},
        {"directory", path("folder.lut"), -1},
        {"/dev/zero", "/dev/zero", -1},
        {"missing", path("none.lut"), -1},
    };
    for (const auto& c : cases) {
        LookupTable t{};
        EXPECT_EQ(parser.getLutFromFile(c.file.c_str(), &t, "[red]"), c.result) << c.name;
        EXPECT_EQ(t.nrOfElements, 0u) << c.name;
        Fg_LutFileParser::freeTable(&t);
    }
    EXPECT_EQ(parser.getLutFromFile(nullptr, static_cast<LookupTable*>(nullptr), nullptr), -1);

    // A file that vanishes between the check and the read.
    const std::string gone = write("gone.lut", "nrOfElements=1;\n[gray]\n0,1;\n");
    ASSERT_EQ(parser.checkFileExist(gone.c_str()), 1);
    std::filesystem::remove(gone);
    LookupTable t{};
    EXPECT_EQ(parser.getLutFromFile(gone.c_str(), &t, "[gray]"), -1);
    EXPECT_EQ(t.lut, nullptr);
}

TEST_F(LutFiles, WritersRefuseWhatCouldNotBeReadBack) {
    std::vector<uint32_t> one{1};
    LookupTable tooLong = table(one, 0);
    tooLong.nrOfElements = Fg_LutFileParser::kMaxLutElements + 1;
    LookupTable noEntries{nullptr, 0, 3, 0, 0};
    std::vector<double> huge{1e300};
    const KneeLookupTable longLine{huge.data(), nullptr, 0, 1, 0, 0};
    EXPECT_EQ(parser.saveLutToFile(path("a.lut").c_str(), &tooLong), -1);
    EXPECT_EQ(parser.saveLutToFile(path("b.lut").c_str(), &noEntries), -1);
    EXPECT_EQ(parser.saveLutToFile(path("c.lut").c_str(), &longLine, "[k]"), -1);
    EXPECT_FALSE(std::filesystem::exists(path("a.lut")));
    const LookupTable ok = table(one, 0);
    EXPECT_EQ(parser.saveLutToFile(dir.c_str(), &ok), -1) << "a directory cannot be written";
    EXPECT_EQ(parser.saveLutToFile(path("no/such/dir.lut").c_str(), &ok), -1);
}

TEST_F(LutFiles, EveryOpenClosesThePreviousStream) {
    const std::string file = write("t.lut", "nrOfElements=1;\n[gray]\n0,1;\n");
    LookupTable t{};
    ASSERT_EQ(parser.getLutFromFile(file.c_str(), &t, "[gray]"), 0);
    const std::ptrdiff_t before = openDescriptors();
    for (int i = 0; i < 50; ++i) {
        ASSERT_EQ(parser.getLutFromFile(file.c_str(), &t, "[gray]"), 0);
        ASSERT_TRUE(parser.setOpenFile(file.c_str(), false));
    }
    EXPECT_EQ(openDescriptors(), before);
    Fg_LutFileParser::freeTable(&t);
}
