// The icon is checked as a reader meets it: as bytes of a fixed size, as a
// chunk sequence, and as a picture that libpng decodes. The generator itself
// must reproduce the same bytes and fail loudly when it cannot write.
#include <gtest/gtest.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "icon/png_decode.h"
#include "support/scratch_folder.h"

namespace {

std::vector<unsigned char> icon() {
    const std::string bytes = fileContents(PELAGON_ICON_PATH);
    return {bytes.begin(), bytes.end()};
}

std::uint32_t be32(const unsigned char* p) {
    return (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) | p[3];
}

struct Chunk {
    std::string type;
    std::size_t offset;
    bool crcOk;
};

// Splits a PNG into its chunks; fails the test if a length runs past the end.
std::vector<Chunk> chunks(const std::vector<unsigned char>& png) {
    std::vector<Chunk> out;
    for (std::size_t pos = 8; pos < png.size();) {
        if (png.size() - pos < 12 || be32(&png[pos]) > png.size() - pos - 12) {
            ADD_FAILURE() << "chunk at offset " << pos << " runs past the end of the file";
            break;
        }
        const std::uint32_t length = be32(&png[pos]);
        const uLong crc = crc32(0L, &png[pos + 4], length + 4);
        out.push_back({std::string(&png[pos + 4], &png[pos + 8]), pos, crc == be32(&png[pos + 8 + length])});
        pos += 12 + length;
    }
    return out;
}

TEST(IconChunks, AreWellFormedOfTheAnnouncedSizeWithCorrectCrcsAndNoTimestamp) {
    const auto png = icon();
    ASSERT_EQ(png.size(), 3132u) << "the size the library announces";
    const unsigned char signature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    ASSERT_TRUE(std::equal(signature, signature + 8, png.begin()));

    const auto list = chunks(png);
    ASSERT_GE(list.size(), 4u);
    EXPECT_EQ(list.front().type, "IHDR");
    EXPECT_EQ(list.back().type, "IEND");
    EXPECT_EQ(list.back().offset + 12, png.size()) << "bytes after IEND";
    for (const auto& c : list) {
        EXPECT_TRUE(c.crcOk) << c.type << " at offset " << c.offset;
        EXPECT_NE(c.type, "tIME") << "a timestamp makes the build unreproducible";
    }
}

TEST(IconChunks, PaddingChunkIsPrivateAncillarySafeToCopyAndPrecedesIend) {
    const auto list = chunks(icon());
    ASSERT_GE(list.size(), 2u);
    const std::string pad = list[list.size() - 2].type;
    ASSERT_EQ(pad.size(), 4u);
    for (char ch : pad) EXPECT_TRUE((ch >= 'a' && ch <= 'z') || (ch >= 'A' && ch <= 'Z')) << pad;
    EXPECT_TRUE(pad[0] & 0x20) << pad << " must be ancillary, or readers reject the file";
    EXPECT_TRUE(pad[1] & 0x20) << pad << " must be private";
    EXPECT_FALSE(pad[2] & 0x20) << pad << " has the reserved bit set";
    EXPECT_TRUE(pad[3] & 0x20) << pad << " must be safe to copy";
    EXPECT_EQ(std::count_if(list.begin(), list.end(), [&](const Chunk& c) { return c.type == pad; }), 1);
}

TEST(IconImage, DecodesWithoutWarningAs32x32RgbaThatIsNotFlat) {
    DecodedPng image;
    ASSERT_TRUE(decodePng(icon(), &image)) << image.error;
    EXPECT_TRUE(image.wholeFileRead);
    EXPECT_TRUE(image.warnings.empty()) << image.warnings.front();
    EXPECT_EQ(image.width, 32u);
    EXPECT_EQ(image.height, 32u);
    EXPECT_EQ(image.depth, 8);
    ASSERT_EQ(image.colourType, PNG_COLOR_TYPE_RGBA);
    std::set<std::uint32_t> colours;
    for (const auto& row : image.rows)
        for (std::size_t x = 0; x + 4 <= row.size(); x += 4) colours.insert(be32(&row[x]));
    EXPECT_GT(colours.size(), 8u) << "the icon is (nearly) a flat colour";
}

TEST(IconGenerator, ReproducesTheBuiltIconByteForByte) {
    ScratchFolder folder;
    const ProcessOutcome r = folder.run(PELAGON_MKICON_PATH, {folder.path("icon.png")});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(folder.read("icon.png"), fileContents(PELAGON_ICON_PATH));
}

TEST(IconGenerator, FailsWithAMessageWhenItCannotWriteOrIsMisused) {
    ScratchFolder folder;
    const std::string missingDir = folder.path("no-such-dir/icon.png");
    for (const std::vector<std::string>& args : {std::vector<std::string>{missingDir}, {}, {""}, {"a.png", "b.png"}}) {
        const ProcessOutcome r = folder.run(PELAGON_MKICON_PATH, args);
        EXPECT_GT(r.status, 0) << args.size() << " arguments";
        EXPECT_FALSE(r.err.empty());
    }
    EXPECT_NE(access(missingDir.c_str(), F_OK), 0);
}

}  // namespace
