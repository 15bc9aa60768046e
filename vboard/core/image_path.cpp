#include "image_path.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <utility>

namespace vboard {

namespace {

constexpr uint32_t kMax12 = 4095;

// Mosaic colour codes: the Bayer phase of a sample, XORed with the parities
// of its column (bit 0) and line (bit 1) in the window.
enum : unsigned { kGreenOnBlueLine = 0, kBlue = 1, kRed = 2, kGreenOnRedLine = 3 };

unsigned gainIndex(unsigned colour) { return colour == kRed ? 0 : colour == kBlue ? 2 : 1; }

// Mirrors line or column j of a window of n into it: -1 reads 1, n reads n - 2.
uint32_t mirror(int64_t j, uint32_t n) {
    if (j < 0) j = -j;
    if (j >= static_cast<int64_t>(n)) j = 2 * static_cast<int64_t>(n) - 2 - j;
    return static_cast<uint32_t>(std::clamp<int64_t>(j, 0, static_cast<int64_t>(n) - 1));
}

struct Rgb {
    uint32_t r, g, b;
};

// One demosaiced pixel of colour Q; u, c, d point at its column in the lines
// above, at and below, which are padded by one mirrored sample each side.
template <unsigned Q>
inline Rgb pixel(const uint16_t* u, const uint16_t* c, const uint16_t* d) {
    const uint32_t own = c[0];
    if constexpr (Q == kRed || Q == kBlue) {
        const uint32_t cross = (c[-1] + c[1] + u[0] + d[0] + 2) >> 2;
        const uint32_t diagonal = (u[-1] + u[1] + d[-1] + d[1] + 2) >> 2;
        return Q == kRed ? Rgb{own, cross, diagonal} : Rgb{diagonal, cross, own};
    } else {
        const uint32_t across = (c[-1] + c[1] + 1) >> 1;
        const uint32_t vertical = (u[0] + d[0] + 1) >> 1;
        return Q == kGreenOnBlueLine ? Rgb{vertical, own, across} : Rgb{across, own, vertical};
    }
}

// Output writers: take the converted components (LUT and format applied).
struct Sink24 {
    uint8_t* p;
    void put(uint32_t r, uint32_t g, uint32_t b) {
        p[0] = static_cast<uint8_t>(r);
        p[1] = static_cast<uint8_t>(g);
        p[2] = static_cast<uint8_t>(b);
        p += 3;
    }
    void finish() {}
};

struct Sink48 {
    uint8_t* p;
    void put(uint32_t r, uint32_t g, uint32_t b) {
        const uint32_t v[3] = {r, g, b};
        for (uint32_t x : v) {
            p[0] = static_cast<uint8_t>(x);
            p[1] = static_cast<uint8_t>(x >> 8);
            p += 2;
        }
    }
    void finish() {}
};

struct Sink30 {
    uint8_t* p;
    uint64_t bits = 0;
    unsigned count = 0;  // bits held, always below 32 between pixels
    void put(uint32_t r, uint32_t g, uint32_t b) {
        bits |= static_cast<uint64_t>(r | (g << 10) | (b << 20)) << count;
        count += 30;
        if (count >= 32) {
            const auto word = static_cast<uint32_t>(bits);
            for (unsigned k = 0; k < 4; ++k) p[k] = static_cast<uint8_t>(word >> (8 * k));
            p += 4;
            bits >>= 32;
            count -= 32;
        }
    }
    void finish() {
        for (; count > 0; count = count > 8 ? count - 8 : 0) {
            *p++ = static_cast<uint8_t>(bits);
            bits >>= 8;
        }
    }
};

template <unsigned QE, typename Sink>
void demosaicLine(const uint16_t* u, const uint16_t* c, const uint16_t* d, uint32_t width,
                  const std::array<const uint16_t*, 3>& out, Sink& sink) {
    constexpr unsigned QO = QE ^ 1u;
    const uint16_t* tr = out[0];
    const uint16_t* tg = out[1];
    const uint16_t* tb = out[2];
    uint32_t i = 0;
    for (; i + 1 < width; i += 2) {
        const Rgb a = pixel<QE>(u + i, c + i, d + i);
        sink.put(tr[a.r], tg[a.g], tb[a.b]);
        const Rgb z = pixel<QO>(u + i + 1, c + i + 1, d + i + 1);
        sink.put(tr[z.r], tg[z.g], tb[z.b]);
    }
    if (i < width) {
        const Rgb a = pixel<QE>(u + i, c + i, d + i);
        sink.put(tr[a.r], tg[a.g], tb[a.b]);
    }
}

template <typename Sink>
void demosaicLine(unsigned qEven, const uint16_t* u, const uint16_t* c, const uint16_t* d, uint32_t width,
                  const std::array<const uint16_t*, 3>& out, Sink& sink) {
    switch (qEven & 3u) {
        case 0: demosaicLine<0>(u, c, d, width, out, sink); break;
        case 1: demosaicLine<1>(u, c, d, width, out, sink); break;
        case 2: demosaicLine<2>(u, c, d, width, out, sink); break;
        default: demosaicLine<3>(u, c, d, width, out, sink); break;
    }
}

}  // namespace

// Output lines already rendered with one pipeline's settings, by content.
struct ImagePipeline::LineCache {
    static constexpr std::size_t kBytes = 64u << 20;

    explicit LineCache(std::size_t bytes) : lineBytes(bytes), capacity(std::max<std::size_t>(kBytes / bytes, 1)) {}

    const uint8_t* find(uint64_t key) const {
        auto it = slots.find(key);
        return it == slots.end() ? nullptr : arena.data() + it->second * lineBytes;
    }
    void keep(uint64_t key, const uint8_t* line) {
        if (slots.size() >= capacity) slots.clear();  // start over rather than track ages
        const std::size_t slot = slots.size();
        if (arena.size() < (slot + 1) * lineBytes) arena.resize((slot + 1) * lineBytes);
        std::memcpy(arena.data() + slot * lineBytes, line, lineBytes);
        slots.emplace(key, slot);
    }

    std::mutex mutex;
    const std::size_t lineBytes;
    const std::size_t capacity;
    std::unordered_map<uint64_t, std::size_t> slots;
    std::vector<uint8_t> arena;
};

namespace {

using LineCache = ImagePipeline::LineCache;

// Lines of the white-balanced mosaic, generated once each and kept while the
// demosaicing needs them (three at a time).
class MosaicLines {
public:
    MosaicLines(const ImageSettings& s, uint64_t k) : s_(s), width_(s.roiWidth) {
        const uint32_t divisor = std::max<uint32_t>(s.frameDivisor, 1);
        frameTerm_ = static_cast<uint32_t>(k % divisor);
        for (auto& line : lines_) line.assign(width_ + 2, 0);
    }

    // What line j holds, as a number: equal numbers, equal lines (all the
    // other inputs are the same for every line of a frame).
    uint32_t key(uint32_t j) const {
        const uint64_t y = uint64_t{s_.roiY} + j;
        if (y >= s_.simHeight || s_.roiX >= s_.simWidth) return kBlackLine;
        const unsigned depth = std::clamp(s_.depth, 8u, 12u);
        return (static_cast<uint32_t>(y % std::max<uint32_t>(s_.yDivisor, 1)) + s_.offset + frameTerm_) &
               ((1u << depth) - 1);
    }
    static constexpr uint32_t kBlackLine = 1u << 16;

    // Line j of the window, padded: element -1 and `width` are mirrored.
    const uint16_t* line(uint32_t j) {
        const unsigned slot = j % 3;
        if (ids_[slot] != j) {
            generate(j, lines_[slot].data() + 1);
            ids_[slot] = j;
        }
        return lines_[slot].data() + 1;
    }

private:
    void generate(uint32_t j, uint16_t* r) {
        const uint64_t y = uint64_t{s_.roiY} + j;
        uint32_t valid = 0;
        if (y < s_.simHeight && s_.roiX < s_.simWidth) valid = std::min(width_, s_.simWidth - s_.roiX);
        const unsigned depth = std::clamp(s_.depth, 8u, 12u);
        const uint32_t mask = (1u << depth) - 1;
        const unsigned shift = 12 - depth;
        const uint32_t base =
            static_cast<uint32_t>(y % std::max<uint32_t>(s_.yDivisor, 1)) + s_.offset + frameTerm_;
        if (s_.xRamp) {
            const uint32_t start = s_.roiX + base;
            for (uint32_t i = 0; i < valid; ++i) r[i] = static_cast<uint16_t>(((start + i) & mask) << shift);
        } else {
            std::fill_n(r, valid, static_cast<uint16_t>((base & mask) << shift));
        }
        std::fill(r + valid, r + width_, uint16_t{0});

        // White balance: the colours of this line's even and odd samples.
        const unsigned qEven = (s_.whitePhase ^ ((j & 1u) << 1)) & 3u;
        const uint32_t gains[2] = {s_.gain[gainIndex(qEven)], s_.gain[gainIndex(qEven ^ 1u)]};
        for (uint32_t i = 0; i < width_; ++i) {
            const uint32_t v = (r[i] * gains[i & 1] + 512) >> 10;
            r[i] = static_cast<uint16_t>(std::min(v, kMax12));
        }
        r[-1] = r[width_ > 1 ? 1 : 0];
        r[width_] = r[width_ > 1 ? width_ - 2 : 0];
    }

    const ImageSettings& s_;
    uint32_t width_;
    uint32_t frameTerm_ = 0;
    std::array<std::vector<uint16_t>, 3> lines_;
    std::array<uint32_t, 3> ids_{UINT32_MAX, UINT32_MAX, UINT32_MAX};
};

template <typename Sink>
void renderWith(const ImageSettings& s, uint64_t k, const std::array<const uint16_t*, 3>& out, uint8_t* to,
                LineCache* cache) {
    MosaicLines mosaic(s, k);
    const uint32_t h = s.roiHeight;
    auto line = [&](uint32_t j, Sink& sink) {
        const uint16_t* up = mosaic.line(mirror(int64_t{j} - 1, h));
        const uint16_t* down = mosaic.line(mirror(int64_t{j} + 1, h));
        const uint16_t* at = mosaic.line(j);
        const unsigned qEven = (s.bayerPhase ^ ((j & 1u) << 1)) & 3u;
        demosaicLine(qEven, up, at, down, s.roiWidth, out, sink);
    };
    if (!cache) {
        Sink sink{to};
        for (uint32_t j = 0; j < h; ++j) line(j, sink);
        sink.finish();
        return;
    }
    // An output line follows from the three mosaic lines it is made of and
    // the parity of its position; the simulator's patterns repeat lines
    // within a frame and from frame to frame, so most are copies.
    std::lock_guard lock(cache->mutex);
    for (uint32_t j = 0; j < h; ++j) {
        const uint64_t key = uint64_t{mosaic.key(mirror(int64_t{j} - 1, h))} |
                             uint64_t{mosaic.key(j)} << 17 | uint64_t{mosaic.key(mirror(int64_t{j} + 1, h))} << 34 |
                             uint64_t{j & 1u} << 51;
        uint8_t* target = to + std::size_t{j} * cache->lineBytes;
        if (const uint8_t* kept = cache->find(key)) {
            std::memcpy(target, kept, cache->lineBytes);
            continue;
        }
        Sink sink{target};
        line(j, sink);
        sink.finish();
        cache->keep(key, target);
    }
}

}  // namespace

std::size_t ImageSettings::frameBytes() const {
    const uint64_t pixels = uint64_t{roiWidth} * roiHeight;
    switch (format) {
        case OutputFormat::Color24: return pixels * 3;
        case OutputFormat::Color30: return (pixels * 30 + 7) / 8;
        default: return pixels * 6;
    }
}

ImagePipeline::ImagePipeline(ImageSettings settings) : settings_(std::move(settings)) {
    bytes_ = settings_.frameBytes();
    // Lines can be kept apart when each starts on a byte: always but for the
    // 30-bit stream, whose lines do when the width is a multiple of 4.
    const uint64_t lineBits = uint64_t{settings_.roiWidth} *
                              (settings_.format == OutputFormat::Color24   ? 24
                               : settings_.format == OutputFormat::Color30 ? 30
                                                                           : 48);
    if (lineBits > 0 && lineBits % 32 == 0) cache_ = std::make_unique<LineCache>(lineBits / 8);
    for (std::size_t c = 0; c < 3; ++c) {
        const std::vector<uint16_t>& lut = settings_.lut[c];
        out_[c].resize(kMax12 + 1);
        for (uint32_t v = 0; v <= kMax12; ++v) {
            const uint32_t entry = v < lut.size() ? (lut[v] & kMax12) : 0;
            uint32_t converted = entry;
            switch (settings_.format) {
                case OutputFormat::Color24: converted = entry >> 4; break;
                case OutputFormat::Color30: converted = entry >> 2; break;
                default: converted = settings_.leftAligned ? entry << 4 : entry; break;
            }
            out_[c][v] = static_cast<uint16_t>(converted);
        }
    }
}

ImagePipeline::~ImagePipeline() = default;

void ImagePipeline::renderFull(uint64_t k, uint8_t* out) const {
    const std::array<const uint16_t*, 3> tables = {out_[0].data(), out_[1].data(), out_[2].data()};
    switch (settings_.format) {
        case OutputFormat::Color24: renderWith<Sink24>(settings_, k, tables, out, cache_.get()); break;
        case OutputFormat::Color30: renderWith<Sink30>(settings_, k, tables, out, cache_.get()); break;
        default: renderWith<Sink48>(settings_, k, tables, out, cache_.get()); break;
    }
}

std::size_t ImagePipeline::render(uint64_t k, uint8_t* out, std::size_t capacity) const {
    if (bytes_ == 0 || capacity == 0 || !out) return 0;
    if (capacity >= bytes_) {
        renderFull(k, out);
        return bytes_;
    }
    std::vector<uint8_t> whole(bytes_);
    renderFull(k, whole.data());
    std::memcpy(out, whole.data(), capacity);
    return capacity;
}

}  // namespace vboard
