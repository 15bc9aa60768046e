#include "png_output.h"

#include <png.h>

#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "safe_file.h"

namespace pelagon_tool {

namespace {

void put16(uint8_t* out, uint32_t v) {
    out[0] = static_cast<uint8_t>(v >> 8);
    out[1] = static_cast<uint8_t>(v);
}

// libpng reports errors by calling this and expects it not to return; the
// message is kept for the exception thrown once control is back in C++.
struct WriteState {
    char message[256] = "";
    int error = 0;  // errno when libpng gave up, for a failed write
    jmp_buf jump;
};

void onPngError(png_structp png, png_const_charp message) {
    auto* state = static_cast<WriteState*>(png_get_error_ptr(png));
    state->error = errno;
    std::snprintf(state->message, sizeof state->message, "%s", message ? message : "libpng error");
    longjmp(state->jump, 1);
}

void onPngWarning(png_structp, png_const_charp) {}

// Everything that may longjmp happens in here, with no C++ object of its own
// whose destructor the jump could skip. Returns false with state.message set.
bool encode(std::FILE* file, const PngImage& image, const png_bytep* rows, WriteState& state) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &state, onPngError, onPngWarning);
    if (!png) {
        std::snprintf(state.message, sizeof state.message, "out of memory");
        return false;
    }
    png_infop info = png_create_info_struct(png);
    if (!info) {
        png_destroy_write_struct(&png, nullptr);
        std::snprintf(state.message, sizeof state.message, "out of memory");
        return false;
    }
    if (setjmp(state.jump)) {
        png_destroy_write_struct(&png, &info);
        return false;
    }
    png_init_io(png, file);
    // Frames are written while acquiring: fast compression keeps up better
    // than small files would pay off.
    png_set_compression_level(png, 3);
    png_set_IHDR(png, info, image.width, image.height, image.bitDepth, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (image.significantBits != image.bitDepth) {
        png_color_8 bits{};
        bits.red = bits.green = bits.blue = static_cast<png_byte>(image.significantBits);
        png_set_sBIT(png, info, &bits);
    }
    png_write_info(png, info);
    png_write_image(png, const_cast<png_bytepp>(rows));
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return true;
}

}  // namespace

PngImage toPng(const vboard::Frame& frame) {
    PngImage image;
    image.width = frame.info.width;
    image.height = frame.info.height;
    const std::size_t pixels = std::size_t{image.width} * image.height;
    const std::vector<uint8_t>& in = frame.bytes;
    auto byte = [&in](std::size_t i) -> uint32_t { return i < in.size() ? in[i] : 0; };

    switch (frame.info.format) {
        case vboard::OutputFormat::Color24:
            image.bitDepth = image.significantBits = 8;
            image.rgb.assign(pixels * 3, 0);
            std::memcpy(image.rgb.data(), in.data(), std::min(in.size(), image.rgb.size()));
            break;
        case vboard::OutputFormat::Color48: {
            // 12-bit components in little-endian words, right aligned unless
            // the board was told to align them left.
            image.bitDepth = 16;
            image.significantBits = 12;
            image.rgb.resize(pixels * 6);
            const unsigned shift = frame.info.leftAligned ? 0 : 4;
            for (std::size_t k = 0; k < pixels * 3; ++k)
                put16(&image.rgb[2 * k], ((byte(2 * k) | byte(2 * k + 1) << 8) << shift) & 0xFFFF);
            break;
        }
        case vboard::OutputFormat::Color30: {
            // One bit stream for the frame: component k at bits 10k .. 10k + 9.
            image.bitDepth = 16;
            image.significantBits = 10;
            image.rgb.resize(pixels * 6);
            for (std::size_t k = 0; k < pixels * 3; ++k) {
                const std::size_t bit = k * 10, first = bit / 8;
                const uint32_t bits = (byte(first) | byte(first + 1) << 8) >> (bit % 8);
                put16(&image.rgb[2 * k], (bits & 0x3FF) << 6);
            }
            break;
        }
    }
    return image;
}

void writePng(const std::string& path, const PngImage& image) {
    const std::size_t rowBytes = std::size_t{image.width} * 3 * (image.bitDepth / 8);
    if (image.width == 0 || image.height == 0 || image.rgb.size() < rowBytes * image.height)
        throw std::runtime_error("cannot write " + path + ": the frame is empty");
    std::vector<png_bytep> rows(image.height);
    for (uint32_t y = 0; y < image.height; ++y) rows[y] = const_cast<png_bytep>(image.rgb.data() + rowBytes * y);

    TempFile file(path);
    WriteState state;
    errno = 0;
    if (!encode(file.stream(), image, rows.data(), state)) {
        // A failed write names its cause ("no space left on device").
        if (state.error != 0) file.failErrno(state.error);
        file.fail(state.message);
    }
    file.commit();
}

}  // namespace pelagon_tool
