#include "image_path.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <iterator>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <utility>

#include "board_state.h"
#include "emulation.h"

namespace vboard {

namespace {

constexpr uint32_t kMax12 = 4095;
constexpr uint32_t kTable = kMax12 + 1;  // entries of a table indexed by a 12-bit value

// Mosaic colour codes: the Bayer phase of a sample, XORed with the parities
// of its column (bit 0) and line (bit 1) in the window.
enum : unsigned { kGreenOnBlueLine = 0, kBlue = 1, kRed = 2, kGreenOnRedLine = 3 };

unsigned gainIndex(unsigned colour) { return colour == kRed ? 0 : colour == kBlue ? 2 : 1; }

// Bits per simulator pixel; the selector's undefined value acts as 12.
unsigned sampleBits(const ImageSettings& s) { return std::clamp(s.depth, 8u, 12u); }

// Mirrors line or column j of a window of n into it: -1 reads 1, n reads n - 2.
uint32_t mirror(int64_t j, uint32_t n) {
    if (j < 0) j = -j;
    if (j >= static_cast<int64_t>(n)) j = 2 * static_cast<int64_t>(n) - 2 - j;
    return static_cast<uint32_t>(std::clamp<int64_t>(j, 0, static_cast<int64_t>(n) - 1));
}

// White balance of one 12-bit sample: the gain has 10 fractional bits; the
// result is rounded and saturated.
uint16_t balance(uint32_t sample, uint32_t gain) {
    return static_cast<uint16_t>(std::min((sample * gain + 512) >> 10, kMax12));
}

// The lowest N bytes of v in little-endian order. Where the machine's order
// allows, in stores of whole words of 8, 4, 2 bytes (a copy of an odd size
// would go through memory and stall on reading it back).
template <unsigned N>
inline void storeLittle(uint8_t* p, uint64_t v) {
    static_assert(N <= 8);
    if constexpr (std::endian::native != std::endian::little) {
        for (unsigned k = 0; k < N; ++k) p[k] = static_cast<uint8_t>(v >> (8 * k));
    } else if constexpr (N == 8) {
        std::memcpy(p, &v, 8);
    } else if constexpr (N >= 4) {
        const auto word = static_cast<uint32_t>(v);
        std::memcpy(p, &word, 4);
        storeLittle<N - 4>(p + 4, v >> 32);
    } else if constexpr (N >= 2) {
        const auto half = static_cast<uint16_t>(v);
        std::memcpy(p, &half, 2);
        storeLittle<N - 2>(p + 2, v >> 16);
    } else if constexpr (N == 1) {
        *p = static_cast<uint8_t>(v);
    }
}

// Output writers, one per format: everything that differs between the
// formats is here. They take pixels packed as R | G << kShift | B << 2 kShift
// from the converted components; kBits is a pixel's size in the frame, and
// kLutShift brings the 12-bit LUT output down to the format's depth.
template <unsigned Bytes>  // Color24: 3 bytes of 8-bit components; Color48: 3 words
struct ByteSink {
    static constexpr unsigned kBits = Bytes * 8;
    static constexpr unsigned kShift = kBits / 3;
    static constexpr unsigned kLutShift = Bytes == 3 ? 4 : 0;
    uint8_t* p;
    void put(uint64_t x) {
        storeLittle<Bytes>(p, x);
        p += Bytes;
    }
    void put(uint64_t x, uint64_t y) {  // two pixels, in as few stores as fit
        if constexpr (2 * Bytes <= 8) {
            storeLittle<2 * Bytes>(p, x | y << (8 * Bytes));
        } else {
            storeLittle<8>(p, x | y << (8 * Bytes));
            storeLittle<2 * Bytes - 8>(p + 8, y >> (64 - 8 * Bytes));
        }
        p += 2 * Bytes;
    }
    void finish() {}
};

struct Sink30 {
    static constexpr unsigned kBits = 30;
    static constexpr unsigned kShift = 10;
    static constexpr unsigned kLutShift = 2;
    uint8_t* p;
    uint64_t bits = 0;
    unsigned count = 0;  // bits held, always below 32 between pixels
    void put(uint64_t x) {
        bits |= x << count;
        count += 30;
        if (count >= 32) {
            storeLittle<4>(p, bits);
            p += 4;
            bits >>= 32;
            count -= 32;
        }
    }
    void put(uint64_t x, uint64_t y) {
        put(x);
        put(y);
    }
    void finish() {
        for (; count > 0; count = count > 8 ? count - 8 : 0) {
            *p++ = static_cast<uint8_t>(bits);
            bits >>= 8;
        }
    }
};

// Three adjacent columns of the three lines around a sample: u above, c at,
// d below; [0] is the column to the left.
struct Neighbours {
    uint32_t u[3], c[3], d[3];
    // Moves one column right, reading the new right-hand column at i.
    void step(const uint16_t* up, const uint16_t* at, const uint16_t* down, uint32_t i) {
        u[0] = u[1], u[1] = u[2], u[2] = up[i];
        c[0] = c[1], c[1] = c[2], c[2] = at[i];
        d[0] = d[1], d[1] = d[2], d[2] = down[i];
    }
};

// The demosaiced pixel of colour Q, looked up in the output tables and
// packed for the sink.
template <unsigned Q, unsigned Shift>
inline uint64_t pixel(const Neighbours& n, const uint16_t* out) {
    const uint32_t own = n.c[1];
    uint32_t r, g, b;
    if constexpr (Q == kRed || Q == kBlue) {
        const uint32_t cross = (n.c[0] + n.c[2] + n.u[1] + n.d[1] + 2) >> 2;
        const uint32_t diagonal = (n.u[0] + n.u[2] + n.d[0] + n.d[2] + 2) >> 2;
        r = Q == kRed ? own : diagonal, g = cross, b = Q == kRed ? diagonal : own;
    } else {
        const uint32_t across = (n.c[0] + n.c[2] + 1) >> 1;
        const uint32_t vertical = (n.u[1] + n.d[1] + 1) >> 1;
        r = Q == kGreenOnBlueLine ? vertical : across, g = own, b = Q == kGreenOnBlueLine ? across : vertical;
    }
    return out[r] | uint64_t{out[kTable + g]} << Shift | uint64_t{out[2 * kTable + b]} << (2 * Shift);
}

// One output line from the mosaic lines u, c, d, which are padded by one
// mirrored sample each side. The sink works on a local copy: stores through
// its byte pointer could otherwise alias the pointer itself.
template <unsigned QE, typename Sink>
void demosaicLine(const uint16_t* u, const uint16_t* c, const uint16_t* d, uint32_t width,
                  const uint16_t* out, Sink& to) {
    constexpr unsigned QO = QE ^ 1u;
    Sink sink = to;
    Neighbours n{{0, u[-1], u[0]}, {0, c[-1], c[0]}, {0, d[-1], d[0]}};
    uint32_t i = 0;
    for (; i + 1 < width; i += 2) {
        n.step(u, c, d, i + 1);
        const uint64_t even = pixel<QE, Sink::kShift>(n, out);
        n.step(u, c, d, i + 2);
        sink.put(even, pixel<QO, Sink::kShift>(n, out));
    }
    if (i < width) {
        n.step(u, c, d, i + 1);
        sink.put(pixel<QE, Sink::kShift>(n, out));
    }
    to = sink;
}

template <typename Sink>
void demosaicLine(unsigned qEven, const uint16_t* u, const uint16_t* c, const uint16_t* d, uint32_t width,
                  const uint16_t* out, Sink& sink) {
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
        return it == slots.end() ? nullptr : lines[it->second].get();
    }
    void keep(uint64_t key, const uint8_t* line) {
        if (slots.size() >= capacity) slots.clear();  // start over rather than track ages
        const std::size_t slot = slots.size();
        if (slot == lines.size()) lines.push_back(std::make_unique_for_overwrite<uint8_t[]>(lineBytes));
        std::memcpy(lines[slot].get(), line, lineBytes);
        slots.emplace(key, slot);
    }

    std::mutex mutex;
    const std::size_t lineBytes;
    const std::size_t capacity;
    std::unordered_map<uint64_t, std::size_t> slots;
    std::vector<std::unique_ptr<uint8_t[]>> lines;  // by slot; kept when starting over
};

namespace {

using LineCache = ImagePipeline::LineCache;

// Lines of the white-balanced mosaic, generated once each and kept while the
// demosaicing needs them (three at a time).
class MosaicLines {
public:
    MosaicLines(const ImageSettings& s, const std::array<const uint16_t*, 4>& ramps, uint64_t k)
        : s_(s), ramps_(ramps), width_(s.roiWidth), mask_((1u << sampleBits(s)) - 1) {
        const uint32_t divisor = std::max<uint32_t>(s.frameDivisor, 1);
        frameTerm_ = static_cast<uint32_t>(k % divisor);
        for (auto& line : lines_) line.assign(width_ + 2, 0);
    }

    // What line j holds, as a number: equal numbers, equal lines (all the
    // other inputs are the same for every line of a frame).
    uint32_t key(uint32_t j) const {
        const uint64_t y = uint64_t{s_.roiY} + j;
        if (y >= s_.simHeight || s_.roiX >= s_.simWidth) return kBlackLine;
        return base(y) & mask_;
    }
    static constexpr uint32_t kBlackLine = 1u << 16;  // beyond any masked value
    // The values wrap at this mask, the camera's largest value.
    uint32_t mask() const { return mask_; }

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
        const unsigned qEven = (s_.whitePhase ^ ((j & 1u) << 1)) & 3u;  // the colour of sample 0
        if (s_.xRamp) {
            // Sample i holds the ramp's value start + i: a window of the
            // balanced ramp whose even values have sample 0's colour, taken
            // in pieces where the values wrap at the depth.
            const uint32_t start = s_.roiX + base(y);
            const uint16_t* ramp = ramps_[qEven ^ (start & 1u)];
            for (uint32_t i = 0, v = start & mask_; i < valid; v = 0) {
                const uint32_t n = std::min(valid - i, mask_ + 1 - v);
                std::copy_n(ramp + v, n, r + i);
                i += n;
            }
        } else {
            const uint32_t value = (base(y) & mask_) << (12 - sampleBits(s_));
            const uint16_t balanced[2] = {balance(value, s_.gain[gainIndex(qEven)]),
                                          balance(value, s_.gain[gainIndex(qEven ^ 1u)])};
            for (uint32_t i = 0; i < valid; ++i) r[i] = balanced[i & 1u];
        }
        std::fill(r + valid, r + width_, uint16_t{0});  // black stays black whatever the gain
        r[-1] = r[width_ > 1 ? 1 : 0];
        r[width_] = r[width_ > 1 ? width_ - 2 : 0];
    }

    // The simulator's value at the start of line y but for the ramp, unmasked.
    uint32_t base(uint64_t y) const {
        return static_cast<uint32_t>(y % std::max<uint32_t>(s_.yDivisor, 1)) + s_.offset + frameTerm_;
    }

    const ImageSettings& s_;
    const std::array<const uint16_t*, 4>& ramps_;
    uint32_t width_;
    uint32_t mask_;
    uint32_t frameTerm_ = 0;
    std::array<std::vector<uint16_t>, 3> lines_;
    std::array<uint32_t, 3> ids_{UINT32_MAX, UINT32_MAX, UINT32_MAX};
};

template <typename Sink>
void renderWith(const ImageSettings& s, uint64_t k, const uint16_t* out, const std::array<const uint16_t*, 4>& ramps,
                uint8_t* to, LineCache* cache) {
    MosaicLines mosaic(s, ramps, k);
    const uint32_t h = s.roiHeight, w = s.roiWidth;
    // The mosaic lines above, at and below line j.
    auto around = [h](uint32_t j) {
        return std::array<uint32_t, 3>{mirror(int64_t{j} - 1, h), j, mirror(int64_t{j} + 1, h)};
    };
    // Pixels [from, until) of line j; `from` is even, so the colours keep their order.
    auto line = [&](uint32_t j, Sink& sink, uint32_t from, uint32_t until) {
        const auto [up, at, down] = around(j);
        const uint16_t* u = mosaic.line(up) + from;
        const uint16_t* d = mosaic.line(down) + from;
        const uint16_t* c = mosaic.line(at) + from;
        const unsigned qEven = (s.bayerPhase ^ ((j & 1u) << 1)) & 3u;
        demosaicLine(qEven, u, c, d, until - from, out, sink);
    };
    if (!cache) {
        Sink sink{to};
        for (uint32_t j = 0; j < h; ++j) line(j, sink, 0, w);
        sink.finish();
        return;
    }
    // An output line follows from the three mosaic lines it is made of and
    // the parity of its position; the simulator's patterns repeat lines
    // within a frame and from frame to frame, so most are copies.
    //
    // With the ramp along the lines and the window inside the image, a line
    // whose three mosaic lines hold the values of those kMoved lines up plus
    // kMoved is that line moved left by kMoved pixels, but for the pixels
    // next to its ends (which see mirrored columns): the first frame of the
    // diagonal pattern is mostly made of such lines. They are copied as well,
    // in groups of pixels that fill whole bytes and keep the colours' order.
    constexpr uint32_t kMoved = 4;
    constexpr uint32_t kGroup = Sink::kBits % 8 == 0 ? 2 : 4;  // kMoved is a multiple
    const uint32_t movedEnd = w > kMoved ? (w - 1 - kMoved) / kGroup * kGroup : 0;  // of the moved pixels
    const bool movable = s.xRamp && s.roiX < s.simWidth && s.simWidth - s.roiX >= w && movedEnd > kGroup;
    auto keys = [&](uint32_t j) {
        const auto lines = around(j);
        return std::array<uint32_t, 3>{mosaic.key(lines[0]), mosaic.key(lines[1]), mosaic.key(lines[2])};
    };
    auto moved = [&](const std::array<uint32_t, 3>& now, const std::array<uint32_t, 3>& before) {
        for (std::size_t n = 0; n < 3; ++n)
            if (before[n] == MosaicLines::kBlackLine || now[n] != ((before[n] + kMoved) & mosaic.mask())) return false;
        return true;
    };
    auto byteOf = [](uint32_t pixel) { return std::size_t{pixel} * Sink::kBits / 8; };
    std::lock_guard lock(cache->mutex);
    for (uint32_t j = 0; j < h; ++j) {
        const std::array<uint32_t, 3> key3 = keys(j);
        const uint64_t key = uint64_t{key3[0]} | uint64_t{key3[1]} << 17 | uint64_t{key3[2]} << 34 | uint64_t{j & 1u} << 51;
        uint8_t* target = to + std::size_t{j} * cache->lineBytes;
        if (const uint8_t* kept = cache->find(key)) {
            std::memcpy(target, kept, cache->lineBytes);
            continue;
        }
        Sink sink{target};
        if (movable && j >= kMoved && moved(key3, keys(j - kMoved))) {
            const uint8_t* source = target - kMoved * cache->lineBytes + byteOf(kMoved);
            std::memcpy(target + byteOf(kGroup), source + byteOf(kGroup), byteOf(movedEnd) - byteOf(kGroup));
            line(j, sink, 0, kGroup);
            Sink tail{target + byteOf(movedEnd)};
            line(j, tail, movedEnd, w);
            tail.finish();
        } else {
            line(j, sink, 0, w);
        }
        sink.finish();
        cache->keep(key, target);
    }
}

// Calls visit.operator()<Sink>() with the writer of format `f`.
template <typename Visitor>
auto withSink(OutputFormat f, Visitor&& visit) {
    switch (f) {
        case OutputFormat::Color24: return visit.template operator()<ByteSink<3>>();
        case OutputFormat::Color30: return visit.template operator()<Sink30>();
        default: return visit.template operator()<ByteSink<6>>();
    }
}

}  // namespace

std::size_t ImageSettings::frameBytes() const {
    const uint64_t pixels = uint64_t{roiWidth} * roiHeight;
    return withSink(format, [&]<typename Sink>() -> std::size_t { return (pixels * Sink::kBits + 7) / 8; });
}

ImagePipeline::ImagePipeline(ImageSettings settings) : settings_(std::move(settings)) {
    bytes_ = settings_.frameBytes();
    // Lines can be kept apart when each starts on a 32-bit word: at 24 bit
    // when the width is a multiple of 4, at 48 bit of 2, at 30 bit of 16.
    const uint64_t lineBits = uint64_t{settings_.roiWidth} * withSink(settings_.format, []<typename Sink>() {
                                  return Sink::kBits;
                              });
    if (lineBits > 0 && lineBits % 32 == 0) cache_ = std::make_unique<LineCache>(lineBits / 8);
    const unsigned down = withSink(settings_.format, []<typename Sink>() { return Sink::kLutShift; });
    const unsigned up = down == 0 && settings_.leftAligned ? 4 : 0;
    out_.resize(3 * kTable);  // entries missing from a LUT read as 0
    for (std::size_t c = 0; c < 3; ++c) {
        const std::vector<uint16_t>& lut = settings_.lut[c];
        uint16_t* table = out_.data() + c * kTable;
        for (std::size_t v = 0; v < std::min<std::size_t>(lut.size(), kTable); ++v)
            table[v] = static_cast<uint16_t>((lut[v] & kMax12) >> down << up);
    }
    if (settings_.xRamp) {
        const unsigned depth = sampleBits(settings_), shift = 12 - depth;
        for (unsigned q = 0; q < 4; ++q) {
            const uint32_t even = settings_.gain[gainIndex(q)], odd = settings_.gain[gainIndex(q ^ 1u)];
            ramp_[q].resize(std::size_t{1} << depth);
            for (uint32_t v = 0; v < ramp_[q].size(); v += 2) {
                ramp_[q][v] = balance(v << shift, even);
                ramp_[q][v + 1] = balance((v + 1) << shift, odd);
            }
        }
    }
}

ImagePipeline::~ImagePipeline() = default;

void ImagePipeline::renderFull(uint64_t k, uint8_t* out) const {
    const std::array<const uint16_t*, 4> ramps = {ramp_[0].data(), ramp_[1].data(), ramp_[2].data(), ramp_[3].data()};
    withSink(settings_.format, [&]<typename Sink>() {
        renderWith<Sink>(settings_, k, out_.data(), ramps, out, cache_.get());
    });
}

std::size_t ImagePipeline::render(uint64_t k, uint8_t* out, std::size_t capacity) const {
    if (bytes_ == 0 || capacity == 0 || !out) return 0;
    if (capacity >= bytes_) {
        renderFull(k, out);
        return bytes_;
    }
    const auto whole = std::make_unique_for_overwrite<uint8_t[]>(bytes_);
    renderFull(k, whole.get());
    std::memcpy(out, whole.get(), capacity);
    return capacity;
}

// --- The settings, decoded from the design's registers -------------------------

ImageSettings DesignEmulation::imageSettings() const {
    using namespace reg;
    ImageSettings s;
    s.simWidth = static_cast<uint32_t>(u(Process0_CameraSimulator_LineGap_Number) * 12);
    s.simHeight = static_cast<uint32_t>(u(Process0_CameraSimulator_FrameGap_Number));
    s.xRamp = u(Process0_CameraSimulator_EnableX_Enable_Value) != 0;
    s.yDivisor = std::max<uint32_t>(static_cast<uint32_t>(u(Process0_CameraSimulator_Y_Divisor)), 1);
    s.offset = static_cast<uint32_t>(u(Process0_CameraSimulator_Offset_Value));
    s.frameDivisor = std::max<uint32_t>(static_cast<uint32_t>(u(Process0_CameraSimulator_Frame_Divisor)), 1);
    const uint64_t depth = u(Process0_12BitSelector_PixelFormat_SelectSource);
    s.depth = depth == 0 ? 8 : depth == 1 ? 10 : 12;
    s.roiX = static_cast<uint32_t>(u(Process0_Buffer_0_DRAM_A_0_XOffset));
    s.roiY = static_cast<uint32_t>(u(Process0_Buffer_0_DRAM_A_0_YOffset));
    s.roiWidth = static_cast<uint32_t>(u(Process0_Buffer_0_DRAM_A_0_XLength));
    s.roiHeight = static_cast<uint32_t>(u(Process0_Buffer_0_DRAM_A_0_YLength));
    s.whitePhase = static_cast<unsigned>(u(Process0_Bayer_White_BayerInit) & 3);
    s.bayerPhase = static_cast<unsigned>(u(Process0_Bayer_Bayer_BayerInit) & 3);

    const std::array<Id, 3> coefficients = {Process0_Bayer_White_RedCoefficient, Process0_Bayer_White_GreenCoefficient,
                                            Process0_Bayer_White_BlueCoefficient};
    const std::array<Id, 3> luts = {Process0_LookupTable_R_LUTcontent, Process0_LookupTable_G_LUTcontent,
                                    Process0_LookupTable_B_LUTcontent};
    for (std::size_t c = 0; c < 3; ++c) {
        const int n = number_[coefficients[c]];
        if (n > 0) {
            const RegisterModel& r = board_.design->registers[static_cast<std::size_t>(n - 1)];
            const double gain = r.kind == 'D' ? r.decodeDouble(u(coefficients[c])) : static_cast<double>(u(coefficients[c]));
            s.gain[c] = static_cast<uint32_t>(std::lround(std::clamp(gain, 0.0, 64.0) * 1024.0));
        }
        const int l = number_[luts[c]];
        if (l > 0) {
            const std::vector<uint64_t>& raw = board_.cells[static_cast<std::size_t>(l - 1)].raw;
            s.lut[c].resize(raw.size());
            std::transform(raw.begin(), raw.end(), s.lut[c].begin(),
                           [](uint64_t v) { return static_cast<uint16_t>(v & 0xfff); });
        }
    }

    // The outputs by the value of the format selector, each with the register
    // that discards its frames; a value without an output discards them all.
    struct Output {
        OutputFormat format;
        Id trash;
    };
    static constexpr Output kOutputs[] = {
        {OutputFormat::Color48, Process0_OutputFormat_VirtualTrash16Bit_EnableTrash_Value},
        {OutputFormat::Color24, Process0_OutputFormat_VirtualTrash8Bit_EnableTrash_Value},
        {OutputFormat::Color30, Process0_OutputFormat_VirtualTrash10Bit_EnableTrash_Value}};
    const uint64_t select = u(Process0_OutputFormat_FG_FORMAT_SelectSource);
    const bool listed = select < std::size(kOutputs);
    s.format = listed ? kOutputs[select].format : OutputFormat::Color48;
    s.discarded = !listed || u(kOutputs[select].trash) == 1;
    s.leftAligned = u(Process0_OutputFormat_FG_BITALIGNMENT_Value) == 1;
    s.selectPeriod = std::max<uint32_t>(static_cast<uint32_t>(u(Process0_ImageSelector_FG_IMG_SELECT_PERIOD_Divisor)), 1);
    s.selectPhase = static_cast<uint32_t>(u(Process0_ImageSelector_FG_IMG_SELECT_PHASE_Number));
    return s;
}

ImageSettings imageSettings(ZUdevice* board) {
    detail::State& s = detail::state();
    std::lock_guard lock(s.mutex);
    if (!s.board(board)) throw Error("vboard: unknown board");
    if (!board->emulation) throw Error("vboard: no design is bound to the board");
    board->emulation->sync(Clock::now());
    return board->emulation->imageSettings();
}

std::size_t frameBytes(ZUdevice* board) { return imageSettings(board).frameBytes(); }

}  // namespace vboard
