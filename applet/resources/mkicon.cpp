// pelagon-mkicon: draws the applet's 32x32 icon and writes it as a PNG file
// of a fixed size, so that the size the library reports never depends on how
// well the compressor did on a given day.
//
// The picture is a camera lens in a rounded tile whose glass shows the 2x2
// colour filter cell of a Bayer sensor. Everything is drawn with integer
// arithmetic on a sub-pixel grid, so the pixels are the same on every machine.
// The PNG is then padded up to the fixed size with one private ancillary
// chunk placed just before IEND; readers that do not know the chunk skip it.

#include <png.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr int kSize = 32;                  // icon width and height in pixels
constexpr std::size_t kFileSize = 3132;    // the size the library announces
constexpr std::size_t kChunkOverhead = 12; // length, type and CRC fields

// Lower-case first letter: ancillary. Lower-case second: private. Upper-case
// third: the reserved bit stays clear. Lower-case fourth: safe to copy, since
// the chunk carries only filler that does not depend on the image.
constexpr std::array<unsigned char, 4> kPadType{'p', 'e', 'L', 'a'};

constexpr std::array<unsigned char, 8> kSignature{0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};

// Sub-pixel grid: kSub x kSub samples per pixel. Coordinates are in units of
// 1/(2*kSub) pixel so that sample centres fall on odd integers.
constexpr int kSub = 8;
constexpr int kUnit = 2 * kSub; // units per pixel
constexpr int kCentre = kSize * kUnit / 2;

struct Rgba {
    int r, g, b, a;
};

constexpr int px(int pixels) { return pixels * kUnit; }

bool inCircle(int x, int y, int cx, int cy, int radius)
{
    const long dx = x - cx;
    const long dy = y - cy;
    return dx * dx + dy * dy <= static_cast<long>(radius) * radius;
}

// Rounded rectangle [lo, hi] on both axes with corner radius `radius`.
bool inRoundedSquare(int x, int y, int lo, int hi, int radius)
{
    const int dx = std::max({lo + radius - x, x - (hi - radius), 0});
    const int dy = std::max({lo + radius - y, y - (hi - radius), 0});
    if (x < lo || x > hi || y < lo || y > hi) {
        return false;
    }
    return static_cast<long>(dx) * dx + static_cast<long>(dy) * dy <= static_cast<long>(radius) * radius;
}

// Linear blend of two colours, t in [0, den].
Rgba mix(Rgba from, Rgba to, int t, int den)
{
    t = std::clamp(t, 0, den);
    auto ch = [&](int a, int b) { return (a * (den - t) + b * t + den / 2) / den; };
    return {ch(from.r, to.r), ch(from.g, to.g), ch(from.b, to.b), ch(from.a, to.a)};
}

// Straight-alpha "over" of a translucent colour onto an opaque one.
Rgba over(Rgba top, Rgba below)
{
    Rgba out = mix(below, top, top.a, 255);
    out.a = below.a;
    return out;
}

// The colour of the scene at one sample point.
Rgba sample(int x, int y)
{
    const Rgba transparent{0, 0, 0, 0};

    // Tile: rounded square with a one-pixel margin, a soft vertical gradient
    // and a lighter rim so it stands out on dark and light backgrounds alike.
    const int tileLo = px(1);
    const int tileHi = px(31);
    if (!inRoundedSquare(x, y, tileLo, tileHi, px(7))) {
        return transparent;
    }
    Rgba colour;
    if (!inRoundedSquare(x, y, tileLo + px(1), tileHi - px(1), px(6))) {
        colour = mix({122, 136, 154, 255}, {64, 74, 88, 255}, y - tileLo, tileHi - tileLo);
    } else {
        colour = mix({54, 64, 78, 255}, {28, 33, 41, 255}, y - tileLo, tileHi - tileLo);
    }

    // Lens barrel: a metal ring lit from the upper left around a black mount.
    if (!inCircle(x, y, kCentre, kCentre, px(12) + kUnit / 2)) {
        return colour;
    }
    if (!inCircle(x, y, kCentre, kCentre, px(10) + kUnit / 2)) {
        return mix({196, 204, 214, 255}, {78, 86, 98, 255}, (x - kCentre) + (y - kCentre) + px(12), px(24));
    }
    const int glassRadius = px(8) + kUnit / 2;
    if (!inCircle(x, y, kCentre, kCentre, glassRadius)) {
        return {14, 16, 20, 255};
    }

    // Glass: one filter cell of the sensor, red and green over green and blue,
    // with a dark seam between the four filters.
    const int seam = kUnit / 2;
    if (std::abs(x - kCentre) < seam || std::abs(y - kCentre) < seam) {
        colour = {14, 16, 20, 255};
    } else if (y < kCentre) {
        colour = x < kCentre ? Rgba{222, 62, 54, 255} : Rgba{70, 178, 84, 255};
    } else {
        colour = x < kCentre ? Rgba{70, 178, 84, 255} : Rgba{52, 112, 222, 255};
    }

    // A crescent reflection along the upper-left edge of the glass.
    const int inner = glassRadius - px(1);
    const int shift = px(1) + kUnit / 4;
    if (x < kCentre && y < kCentre && inCircle(x, y, kCentre, kCentre, inner) &&
        !inCircle(x, y, kCentre + shift, kCentre + shift, inner)) {
        colour = over({255, 255, 255, 150}, colour);
    }
    return colour;
}

// Renders the icon as straight-alpha RGBA rows, each pixel the average of its
// sub-pixel samples (averaged with premultiplied alpha so that edges against
// transparency do not darken).
std::vector<png_byte> render()
{
    std::vector<png_byte> pixels(static_cast<std::size_t>(kSize) * kSize * 4);
    for (int py = 0; py < kSize; ++py) {
        for (int pxl = 0; pxl < kSize; ++pxl) {
            long sumR = 0, sumG = 0, sumB = 0, sumA = 0;
            for (int sy = 0; sy < kSub; ++sy) {
                for (int sx = 0; sx < kSub; ++sx) {
                    const Rgba c = sample(px(pxl) + 2 * sx + 1, px(py) + 2 * sy + 1);
                    sumR += c.r * c.a;
                    sumG += c.g * c.a;
                    sumB += c.b * c.a;
                    sumA += c.a;
                }
            }
            png_byte* out = &pixels[(static_cast<std::size_t>(py) * kSize + pxl) * 4];
            constexpr long samples = kSub * kSub;
            out[3] = static_cast<png_byte>((sumA + samples / 2) / samples);
            if (sumA > 0) {
                out[0] = static_cast<png_byte>((sumR + sumA / 2) / sumA);
                out[1] = static_cast<png_byte>((sumG + sumA / 2) / sumA);
                out[2] = static_cast<png_byte>((sumB + sumA / 2) / sumA);
            }
        }
    }
    return pixels;
}

std::vector<unsigned char> encode(const std::vector<png_byte>& pixels)
{
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    image.width = kSize;
    image.height = kSize;
    image.format = PNG_FORMAT_RGBA;

    png_alloc_size_t size = 0;
    if (!png_image_write_to_memory(&image, nullptr, &size, 0, pixels.data(), 0, nullptr)) {
        throw std::runtime_error(std::string("cannot encode the icon: ") + image.message);
    }
    std::vector<unsigned char> png(size);
    if (!png_image_write_to_memory(&image, png.data(), &size, 0, pixels.data(), 0, nullptr)) {
        throw std::runtime_error(std::string("cannot encode the icon: ") + image.message);
    }
    png.resize(size);
    return png;
}

std::uint32_t readBe32(const unsigned char* p)
{
    return (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) | p[3];
}

void appendBe32(std::vector<unsigned char>& out, std::uint32_t value)
{
    for (int shift = 24; shift >= 0; shift -= 8) {
        out.push_back(static_cast<unsigned char>(value >> shift));
    }
}

// Offset of the IEND chunk, after checking that the encoder's output is a
// well-formed chunk sequence that ends with it.
std::size_t findIend(const std::vector<unsigned char>& png)
{
    if (png.size() < kSignature.size() || !std::equal(kSignature.begin(), kSignature.end(), png.begin())) {
        throw std::runtime_error("the encoder produced no PNG signature");
    }
    std::size_t pos = kSignature.size();
    while (png.size() - pos >= kChunkOverhead) {
        const std::uint32_t length = readBe32(&png[pos]);
        if (length > png.size() - pos - kChunkOverhead) {
            break;
        }
        if (std::memcmp(&png[pos + 4], "IEND", 4) == 0) {
            if (pos + kChunkOverhead + length != png.size()) {
                throw std::runtime_error("the encoder wrote data after IEND");
            }
            return pos;
        }
        pos += kChunkOverhead + length;
    }
    throw std::runtime_error("the encoder's output has a malformed chunk sequence or no IEND");
}

// Inserts the padding chunk before IEND so that the file is exactly kFileSize.
std::vector<unsigned char> padToSize(const std::vector<unsigned char>& png)
{
    if (png.size() + kChunkOverhead > kFileSize) {
        throw std::runtime_error("the encoded icon takes " + std::to_string(png.size()) +
                                 " bytes, more than the " + std::to_string(kFileSize - kChunkOverhead) +
                                 " that leave room for the padding chunk");
    }
    const std::size_t iend = findIend(png);
    const std::size_t dataLength = kFileSize - png.size() - kChunkOverhead;

    std::vector<unsigned char> out(png.begin(), png.begin() + static_cast<std::ptrdiff_t>(iend));
    out.reserve(kFileSize);
    appendBe32(out, static_cast<std::uint32_t>(dataLength));
    const std::size_t typeAt = out.size();
    out.insert(out.end(), kPadType.begin(), kPadType.end());
    out.insert(out.end(), dataLength, 0); // filler only: zero bytes
    const uLong crc = crc32(0L, &out[typeAt], static_cast<uInt>(out.size() - typeAt));
    appendBe32(out, static_cast<std::uint32_t>(crc));
    out.insert(out.end(), png.begin() + static_cast<std::ptrdiff_t>(iend), png.end());

    if (out.size() != kFileSize) {
        throw std::logic_error("padded icon has " + std::to_string(out.size()) + " bytes");
    }
    return out;
}

void writeFile(const std::string& path, const std::vector<unsigned char>& bytes)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file) {
        throw std::runtime_error("cannot open " + path + " for writing: " + std::strerror(errno));
    }
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) {
        // Leave no truncated icon behind for the build to pick up, but never
        // remove what is not a plain file (a device, say).
        std::error_code ec;
        if (std::filesystem::is_regular_file(std::filesystem::symlink_status(path, ec))) {
            std::filesystem::remove(path, ec);
        }
        throw std::runtime_error("cannot write " + path);
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2 || argv[1][0] == '\0') {
        std::fprintf(stderr, "usage: pelagon-mkicon <output.png>\n");
        return 2;
    }
    try {
        const std::vector<unsigned char> png = encode(render());
        writeFile(argv[1], padToSize(png));
        return 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "pelagon-mkicon: %s\n", e.what());
        return 1;
    }
}
