#include "frame_output.h"

#include <png.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "safe_file.h"

namespace pelagon_tool {

namespace {

// What libpng is handed: rows top to bottom, R G B, 16-bit samples big-endian.
struct PngImage {
    uint32_t width = 0, height = 0;
    int bitDepth = 8;          // 8 or 16
    int significantBits = 8;   // what the sBIT chunk says per component
    std::vector<uint8_t> rgb;
};

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
bool encode(std::FILE* file, const PngImage& image, const png_bytep* rows, std::vector<png_text>& text,
            WriteState& state) {
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
    if (!text.empty()) png_set_text(png, info, text.data(), static_cast<int>(text.size()));
    png_write_info(png, info);
    png_write_image(png, const_cast<png_bytepp>(rows));
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return true;
}

}  // namespace

Samples unpack(const vboard::Frame& frame) {
    Samples out;
    out.width = frame.info.width;
    out.height = frame.info.height;
    const std::size_t components = std::size_t{out.width} * out.height * 3;
    const std::vector<uint8_t>& in = frame.bytes;
    auto byte = [&in](std::size_t i) -> uint32_t { return i < in.size() ? in[i] : 0; };
    out.rgb.resize(components);
    switch (frame.info.format) {
        case vboard::OutputFormat::Color24:
            out.bits = out.significant = 8;
            for (std::size_t k = 0; k < components; ++k) out.rgb[k] = static_cast<uint16_t>(byte(k));
            break;
        case vboard::OutputFormat::Color48:
            // 12-bit components in little-endian words, right aligned unless
            // the board was told to align them left.
            out.significant = 12;
            out.bits = frame.info.leftAligned ? 16 : 12;
            for (std::size_t k = 0; k < components; ++k)
                out.rgb[k] = static_cast<uint16_t>(byte(2 * k) | byte(2 * k + 1) << 8);
            break;
        case vboard::OutputFormat::Color30:
            // One bit stream for the frame: component k at bits 10k .. 10k + 9.
            out.bits = out.significant = 10;
            for (std::size_t k = 0; k < components; ++k) {
                const std::size_t bit = k * 10, first = bit / 8;
                out.rgb[k] = static_cast<uint16_t>(((byte(first) | byte(first + 1) << 8) >> (bit % 8)) & 0x3FF);
            }
            break;
    }
    return out;
}

std::array<ChannelStats, 3> channelStats(const Samples& samples) {
    std::array<ChannelStats, 3> stats;
    std::array<uint64_t, 3> sums{};
    for (ChannelStats& c : stats) c.minimum = UINT32_MAX;
    for (std::size_t k = 0; k < samples.rgb.size(); ++k) {
        ChannelStats& c = stats[k % 3];
        const uint32_t v = samples.rgb[k];
        c.minimum = std::min(c.minimum, v);
        c.maximum = std::max(c.maximum, v);
        sums[k % 3] += v;
    }
    const std::size_t pixels = samples.rgb.size() / 3;
    for (std::size_t c = 0; c < 3; ++c) {
        if (pixels == 0) stats[c].minimum = 0;
        stats[c].mean = pixels ? static_cast<double>(sums[c]) / static_cast<double>(pixels) : 0;
    }
    return stats;
}

namespace {

bool isEmpty(const Samples& samples) {
    return samples.width == 0 || samples.height == 0 || samples.rgb.size() < std::size_t{samples.width} * samples.height * 3;
}

// The samples as a PNG into `file`: false with state.message set on failure.
bool encodeSamples(std::FILE* file, const Samples& samples, const PngText& text, WriteState& state) {
    PngImage image;
    image.width = samples.width;
    image.height = samples.height;
    image.bitDepth = samples.bits == 8 ? 8 : 16;
    image.significantBits = samples.significant;
    if (image.bitDepth == 8) {
        image.rgb.assign(samples.rgb.begin(), samples.rgb.end());
    } else {
        image.rgb.resize(samples.rgb.size() * 2);
        const int shift = 16 - samples.bits;
        for (std::size_t k = 0; k < samples.rgb.size(); ++k)
            put16(&image.rgb[2 * k], static_cast<uint32_t>(samples.rgb[k]) << shift);
    }
    const std::size_t rowBytes = std::size_t{image.width} * 3 * (image.bitDepth / 8);
    std::vector<png_bytep> rows(image.height);
    for (uint32_t y = 0; y < image.height; ++y) rows[y] = image.rgb.data() + rowBytes * y;
    // libpng wants writable strings; these outlive the encoding.
    std::vector<std::string> strings;
    for (const auto& [key, value] : text) strings.insert(strings.end(), {key, value});
    std::vector<png_text> chunks(text.size());
    for (std::size_t i = 0; i < chunks.size(); ++i) {
        chunks[i].compression = PNG_TEXT_COMPRESSION_NONE;
        chunks[i].key = strings[2 * i].data();
        chunks[i].text = strings[2 * i + 1].data();
        chunks[i].text_length = strings[2 * i + 1].size();
    }
    errno = 0;
    return encode(file, image, rows.data(), chunks, state);
}

}  // namespace

void writePng(const std::string& path, const Samples& samples, const PngText& text) {
    if (isEmpty(samples)) throw std::runtime_error("cannot write " + path + ": the frame is empty");
    TempFile file(path);
    WriteState state;
    if (!encodeSamples(file.stream(), samples, text, state)) {
        // A failed write names its cause ("no space left on device").
        if (state.error != 0) file.failErrno(state.error);
        file.fail(state.message);
    }
    file.commit();
}

std::string pngBytes(const Samples& samples, const PngText& text) {
    if (isEmpty(samples)) throw std::runtime_error("cannot encode a PNG: the frame is empty");
    char* buffer = nullptr;
    std::size_t size = 0;
    std::FILE* memory = open_memstream(&buffer, &size);
    if (!memory) throw std::runtime_error("cannot encode a PNG: out of memory");
    WriteState state;
    const bool done = encodeSamples(memory, samples, text, state);
    const bool closed = std::fclose(memory) == 0;
    std::string out = done && closed ? std::string(buffer, size) : std::string();
    std::free(buffer);
    if (!done) throw std::runtime_error(std::string("cannot encode a PNG: ") + state.message);
    if (!closed) throw std::runtime_error("cannot encode a PNG: out of memory");
    return out;
}

std::string ppm(const Samples& samples) {
    const uint32_t maximum = (1u << samples.bits) - 1;
    std::string out = "P6\n";
    out += std::to_string(samples.width);
    out += ' ';
    out += std::to_string(samples.height);
    out += '\n';
    out += std::to_string(maximum);
    out += '\n';
    const std::size_t header = out.size();
    if (samples.bits == 8) {
        out.append(samples.rgb.begin(), samples.rgb.end());
        return out;
    }
    out.resize(header + samples.rgb.size() * 2);
    for (std::size_t k = 0; k < samples.rgb.size(); ++k)
        put16(reinterpret_cast<uint8_t*>(&out[header + 2 * k]), samples.rgb[k]);
    return out;
}

std::string raw(const Samples& samples) {
    if (samples.bits == 8) return std::string(samples.rgb.begin(), samples.rgb.end());
    std::string out(samples.rgb.size() * 2, '\0');
    for (std::size_t k = 0; k < samples.rgb.size(); ++k) {
        out[2 * k] = static_cast<char>(samples.rgb[k] & 0xFF);
        out[2 * k + 1] = static_cast<char>(samples.rgb[k] >> 8);
    }
    return out;
}

const char* rawPixelFormat(const Samples& samples) {
    return samples.bits == 8 ? "rgb24" : "rgb48le";
}

}  // namespace pelagon_tool
