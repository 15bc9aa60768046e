// A PNG read back through IEND with libpng, the way a strict reader reads it.
#pragma once

#include <png.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

struct DecodedPng {
    std::string error;
    std::vector<std::string> warnings;
    png_uint_32 width = 0, height = 0;
    int depth = 0, colourType = -1, significant = 0;  // significant bits of red (sBIT), else the depth
    std::vector<std::vector<std::uint8_t>> rows;
    bool wholeFileRead = false;

    // Component c of pixel (x, y) of an RGB or RGBA image.
    std::uint32_t sample(std::uint32_t x, std::uint32_t y, int c) const {
        const std::size_t channels = colourType == PNG_COLOR_TYPE_RGBA ? 4 : 3;
        const std::size_t k = x * channels + static_cast<std::size_t>(c);
        const std::uint8_t* p = rows[y].data();
        return depth == 8 ? p[k] : (std::uint32_t{p[2 * k]} << 8 | p[2 * k + 1]);
    }
};

namespace png_decode_detail {

struct Reader {
    const std::vector<unsigned char>* bytes;
    std::size_t pos;
    DecodedPng* out;
};

inline void onError(png_structp ptr, png_const_charp message) {
    static_cast<Reader*>(png_get_error_ptr(ptr))->out->error = message;
    png_longjmp(ptr, 1);
}
inline void onWarning(png_structp ptr, png_const_charp message) {
    static_cast<Reader*>(png_get_error_ptr(ptr))->out->warnings.emplace_back(message);
}
inline void onRead(png_structp ptr, png_bytep data, png_size_t length) {
    auto* reader = static_cast<Reader*>(png_get_io_ptr(ptr));
    if (length > reader->bytes->size() - reader->pos) png_error(ptr, "read past the end of the file");
    std::memcpy(data, reader->bytes->data() + reader->pos, length);
    reader->pos += length;
}

}  // namespace png_decode_detail

// False, with the reason in out->error, when libpng refuses the bytes. Free
// of C++ objects of its own between setjmp and libpng's longjmp, so that an
// error skips no destructors.
inline bool decodePng(const std::vector<unsigned char>& bytes, DecodedPng* out) {
    using namespace png_decode_detail;
    Reader reader{&bytes, 0, out};
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
    out->depth = png_get_bit_depth(ptr, info);
    out->colourType = png_get_color_type(ptr, info);
    png_color_8p bits = nullptr;
    out->significant = png_get_sBIT(ptr, info, &bits) != 0 && bits ? bits->red : out->depth;
    const png_bytepp rows = png_get_rows(ptr, info);
    const std::size_t rowBytes = png_get_rowbytes(ptr, info);
    for (png_uint_32 y = 0; y < out->height; ++y) out->rows.emplace_back(rows[y], rows[y] + rowBytes);
    png_destroy_read_struct(&ptr, &info, nullptr);
    out->wholeFileRead = reader.pos == bytes.size();
    return true;
}
