// The icon is checked as a reader meets it: as bytes of a fixed size, as a
// chunk sequence, and as a picture that libpng decodes. The generator itself
// must reproduce the same bytes and fail loudly when it cannot write.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
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

// The chunk types in file order; fails the test if a length runs past the end.
// (Signature, CRCs, IHDR first and nothing after IEND are libpng's to check.)
std::vector<std::string> chunkTypes(const std::vector<unsigned char>& png) {
    std::vector<std::string> out;
    for (std::size_t pos = 8; pos < png.size(); pos += 12 + be32(&png[pos])) {
        if (png.size() - pos < 12 || be32(&png[pos]) > png.size() - pos - 12) {
            ADD_FAILURE() << "chunk at offset " << pos << " runs past the end of the file";
            break;
        }
        out.emplace_back(&png[pos + 4], &png[pos + 8]);
    }
    return out;
}

TEST(IconImage, DecodesWithoutWarningAs32x32RgbaThatIsNotFlat) {
    DecodedPng image;
    ASSERT_EQ(icon().size(), 3132u) << "the size the library announces";
    ASSERT_TRUE(decodePng(icon(), &image)) << image.error;
    EXPECT_TRUE(image.wholeFileRead) << "bytes after IEND";
    EXPECT_TRUE(image.warnings.empty()) << image.warnings.front();
    EXPECT_EQ(std::tie(image.width, image.height, image.depth), std::tuple(32u, 32u, 8));
    ASSERT_EQ(image.colourType, PNG_COLOR_TYPE_RGBA);
    std::set<std::uint32_t> colours;
    for (const auto& row : image.rows)
        for (std::size_t x = 0; x + 4 <= row.size(); x += 4) colours.insert(be32(&row[x]));
    EXPECT_GT(colours.size(), 8u) << "the icon is (nearly) a flat colour";
}

// The padding that brings the icon to its size is one private ancillary chunk,
// safe to copy, just before IEND; no timestamp makes the build unreproducible.
TEST(IconChunks, PaddingIsOnePrivateAncillaryChunkBeforeIendAndThereIsNoTimestamp) {
    const auto types = chunkTypes(icon());
    ASSERT_GE(types.size(), 4u);
    EXPECT_EQ(std::count(types.begin(), types.end(), "tIME"), 0);
    const std::string pad = types[types.size() - 2];
    ASSERT_EQ(pad.size(), 4u);
    for (char ch : pad) EXPECT_TRUE(std::isalpha(static_cast<unsigned char>(ch))) << pad;
    EXPECT_TRUE(pad[0] & 0x20) << pad << " must be ancillary, or readers reject the file";
    EXPECT_TRUE(pad[1] & 0x20) << pad << " must be private";
    EXPECT_FALSE(pad[2] & 0x20) << pad << " has the reserved bit set";
    EXPECT_TRUE(pad[3] & 0x20) << pad << " must be safe to copy";
    EXPECT_EQ(std::count(types.begin(), types.end(), pad), 1);
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
