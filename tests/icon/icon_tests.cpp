// The icon is checked as a reader meets it: as bytes of a fixed size, as a
// chunk sequence, and as a picture that libpng decodes. The generator itself
// must reproduce the same bytes and fail loudly when it cannot write.

#include <gtest/gtest.h>

#include <png.h>
#include <zlib.h>

#include <sys/wait.h>
#include <unistd.h>

#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr std::size_t kIconSize = 3132;

std::vector<unsigned char> readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::vector<unsigned char> icon() { return readFile(PELAGON_ICON_PATH); }

struct Chunk {
    std::string type;
    std::size_t offset;
    std::uint32_t length;
    bool crcOk;
};

std::uint32_t be32(const unsigned char* p)
{
    return (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) | p[3];
}

// Splits a PNG into its chunks; fails the test if a length runs past the end.
std::vector<Chunk> chunks(const std::vector<unsigned char>& png)
{
    std::vector<Chunk> out;
    std::size_t pos = 8;
    while (pos < png.size()) {
        if (png.size() - pos < 12 || be32(&png[pos]) > png.size() - pos - 12) {
            ADD_FAILURE() << "chunk at offset " << pos << " runs past the end of the file";
            break;
        }
        const std::uint32_t length = be32(&png[pos]);
        const uLong crc = crc32(0L, &png[pos + 4], length + 4);
        out.push_back({std::string(&png[pos + 4], &png[pos + 8]), pos, length, crc == be32(&png[pos + 8 + length])});
        pos += 12 + length;
    }
    return out;
}

TEST(IconFile, HasTheSizeTheLibraryAnnounces)
{
    EXPECT_EQ(icon().size(), kIconSize);
}

TEST(IconChunks, AreWellFormedWithCorrectCrcsAndNoTimestamp)
{
    const auto png = icon();
    ASSERT_GE(png.size(), 8u);
    const unsigned char signature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    ASSERT_EQ(std::memcmp(png.data(), signature, 8), 0);

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

TEST(IconChunks, PaddingChunkIsPrivateAncillarySafeToCopyAndPrecedesIend)
{
    const auto list = chunks(icon());
    ASSERT_GE(list.size(), 2u);
    const std::string pad = list[list.size() - 2].type;
    ASSERT_EQ(pad.size(), 4u);
    for (char ch : pad) {
        EXPECT_TRUE((ch >= 'a' && ch <= 'z') || (ch >= 'A' && ch <= 'Z')) << pad;
    }
    EXPECT_TRUE(pad[0] & 0x20) << pad << " must be ancillary, or readers reject the file";
    EXPECT_TRUE(pad[1] & 0x20) << pad << " must be private";
    EXPECT_FALSE(pad[2] & 0x20) << pad << " has the reserved bit set";
    EXPECT_TRUE(pad[3] & 0x20) << pad << " must be safe to copy";
    int count = 0;
    for (const auto& c : list) {
        count += c.type == pad;
    }
    EXPECT_EQ(count, 1);
}

struct Decoded {
    std::string error;
    std::vector<std::string> warnings;
    png_uint_32 width = 0, height = 0;
    int bitDepth = 0, colourType = 0;
    std::vector<std::uint32_t> pixels; // RGBA, one word each
};

struct Reader {
    const std::vector<unsigned char>* png;
    std::size_t pos;
    Decoded* out;
};

void onError(png_structp ptr, png_const_charp message)
{
    static_cast<Reader*>(png_get_error_ptr(ptr))->out->error = message;
    png_longjmp(ptr, 1);
}

void onWarning(png_structp ptr, png_const_charp message)
{
    static_cast<Reader*>(png_get_error_ptr(ptr))->out->warnings.emplace_back(message);
}

void onRead(png_structp ptr, png_bytep data, png_size_t length)
{
    auto* reader = static_cast<Reader*>(png_get_io_ptr(ptr));
    if (length > reader->png->size() - reader->pos) {
        png_error(ptr, "read past the end of the file");
    }
    std::memcpy(data, reader->png->data() + reader->pos, length);
    reader->pos += length;
}

// Reads the whole file through IEND with libpng, the way a strict reader
// would. Kept free of C++ objects of its own so that libpng's longjmp on an
// error skips no destructors.
bool decode(const std::vector<unsigned char>& png, Decoded* out)
{
    Reader reader{&png, 0, out};
    png_structp ptr = png_create_read_struct(PNG_LIBPNG_VER_STRING, &reader, onError, onWarning);
    png_infop info = ptr ? png_create_info_struct(ptr) : nullptr;
    if (!info) {
        png_destroy_read_struct(&ptr, nullptr, nullptr);
        return false;
    }
    if (setjmp(png_jmpbuf(ptr))) {
        png_destroy_read_struct(&ptr, &info, nullptr);
        return false;
    }
    png_set_read_fn(ptr, &reader, onRead);
    png_read_png(ptr, info, PNG_TRANSFORM_IDENTITY, nullptr);
    out->width = png_get_image_width(ptr, info);
    out->height = png_get_image_height(ptr, info);
    out->bitDepth = png_get_bit_depth(ptr, info);
    out->colourType = png_get_color_type(ptr, info);
    if (out->bitDepth == 8 && out->colourType == PNG_COLOR_TYPE_RGBA) {
        png_bytepp rows = png_get_rows(ptr, info);
        for (png_uint_32 y = 0; y < out->height; ++y) {
            for (png_uint_32 x = 0; x < out->width; ++x) {
                out->pixels.push_back(be32(rows[y] + 4 * x));
            }
        }
    }
    png_destroy_read_struct(&ptr, &info, nullptr);
    return reader.pos == png.size();
}

TEST(IconImage, DecodesWithoutWarningAs32x32RgbaThatIsNotFlat)
{
    Decoded image;
    ASSERT_TRUE(decode(icon(), &image)) << image.error;
    EXPECT_TRUE(image.warnings.empty()) << image.warnings.front();
    EXPECT_EQ(image.width, 32u);
    EXPECT_EQ(image.height, 32u);
    EXPECT_EQ(image.bitDepth, 8);
    EXPECT_EQ(image.colourType, PNG_COLOR_TYPE_RGBA);

    const std::set<std::uint32_t> colours(image.pixels.begin(), image.pixels.end());
    EXPECT_GT(colours.size(), 8u) << "the icon is (nearly) a flat colour";
}

// Runs the generator through the shell; returns its exit status (or -1 if it
// did not exit normally) and what it wrote to standard error.
std::pair<int, std::string> runGenerator(const std::string& dir, const std::string& args)
{
    const std::string errFile = dir + "/stderr.txt";
    const int status = std::system(("'" PELAGON_MKICON_PATH "' " + args + " 2>'" + errFile + "'").c_str());
    const auto err = readFile(errFile);
    std::remove(errFile.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, std::string(err.begin(), err.end())};
}

class IconGenerator : public ::testing::Test {
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/pelagon-icon-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
    }
    void TearDown() override
    {
        std::remove((dir_ + "/icon.png").c_str());
        rmdir(dir_.c_str());
    }
    std::string dir_;
};

TEST_F(IconGenerator, ReproducesTheBuiltIconByteForByte)
{
    const std::string out = dir_ + "/icon.png";
    const auto [status, err] = runGenerator(dir_, "'" + out + "'");
    ASSERT_EQ(status, 0) << err;
    EXPECT_EQ(readFile(out), icon());
}

TEST_F(IconGenerator, FailsWithAMessageWhenItCannotWriteOrIsMisused)
{
    const std::string missingDir = dir_ + "/no-such-dir/icon.png";
    for (const std::string& args : {"'" + missingDir + "'", std::string(), std::string("''"), std::string("a.png b.png")}) {
        const auto [status, err] = runGenerator(dir_, args);
        EXPECT_GT(status, 0) << "arguments: " << args;
        EXPECT_FALSE(err.empty());
    }
    EXPECT_NE(access(missingDir.c_str(), F_OK), 0);
}

} // namespace
