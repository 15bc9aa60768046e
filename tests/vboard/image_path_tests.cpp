// The emulated image path, pinned byte for byte: a varied set of settings
// rendered through ImagePipeline, each compared with a hash of the bytes the
// path produced when the table was recorded. The frames' meaning is checked
// against an independent model in tests/applet/image_path_tests.cpp; this
// table catches any change of an output byte when the path is reworked.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "image_path.h"

namespace {

using vboard::ImagePipeline;
using vboard::ImageSettings;
using vboard::OutputFormat;

// FNV-1a, 64 bit.
uint64_t hashBytes(uint64_t h, const uint8_t* p, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) h = (h ^ p[i]) * 0x100000001b3u;
    return h;
}

// Case n of the table. Each setting cycles with its own period, so that the
// periods being coprime where it matters (formats 3, Bayer phases 4, patterns
// 4 with the frame divisor) every format meets every phase and pattern.
ImageSettings caseSettings(uint32_t n) {
    uint32_t state = 0x9e3779b9u * (n + 1);
    auto random = [&state](uint32_t bound) {
        state = state * 1664525u + 1013904223u;
        return (state >> 8) % bound;
    };
    ImageSettings s;
    s.format = static_cast<OutputFormat>(n % 3);
    s.leftAligned = (n / 3) % 2 == 1;
    s.bayerPhase = n % 4;
    s.whitePhase = (n % 4) ^ ((n / 4) % 2);  // mostly equal to the Bayer phase, sometimes one column off
    switch ((n / 5) % 4) {  // horizontal, vertical, diagonal, and a short custom period
        case 0: s.xRamp = true, s.yDivisor = 1; break;
        case 1: s.xRamp = false, s.yDivisor = 256; break;
        case 2: s.xRamp = true, s.yDivisor = 256; break;
        default: s.xRamp = true, s.yDivisor = n % 2 ? 0 : 7; break;
    }
    s.frameDivisor = n % 7 == 0 ? 0 : (n % 2 ? 256 : 1);  // roll on and off
    s.offset = random(5000);
    s.depth = 8 + 2 * (n % 3) + (n % 11 == 0);  // 8, 10, 12 and the odd values between
    s.simWidth = 12 * (1 + random(40));
    s.simHeight = 1 + random(300);
    s.roiX = n % 9 == 0 ? s.simWidth - 5 : random(32);  // odd and even offsets, and windows reaching past the image
    s.roiY = n % 10 == 0 ? s.simHeight + 2 : random(33);
    s.roiWidth = n % 13 == 0 ? 1 + n % 3 : 1 + random(600);
    s.roiHeight = n % 17 == 0 ? 1 + n % 2 : 1 + random(400);
    for (uint32_t& g : s.gain) g = random(4096);
    for (auto& lut : s.lut) {
        if (n % 19 == 5) continue;  // no table: every entry reads as 0
        lut.resize(4096);
        for (uint16_t& e : lut) e = static_cast<uint16_t>(random(1u << 16));  // bits above 12 are ignored
    }
    s.selectPeriod = 1 + n % 4;
    s.selectPhase = n % 3;
    s.discarded = false;
    if (n % 23 == 22) {  // the full size frame of the benchmark: lines repeat within the frame
        s.simWidth = s.roiWidth = s.simHeight = s.roiHeight = 1024;
        s.roiX = s.roiY = 0;
        s.xRamp = true, s.yDivisor = 256;
    }
    if (n % 24 == 23) {  // 30 bit, a window well inside a larger image, lines of whole bytes
        s.simWidth = 1020, s.simHeight = 310;
        s.roiX = 5, s.roiY = 3, s.roiWidth = 1008, s.roiHeight = 300;
        s.xRamp = true, s.yDivisor = n == 23 ? 256 : 100;
        s.depth = n == 23 ? 12 : 8;
    }
    return s;
}

// Everything a pipeline shows of one case: frames in the order the board
// renders them (repeats and rolls come from the pipeline's memory of earlier
// lines), a frame cut off by a short buffer, and the image selector.
uint64_t caseHash(const ImageSettings& s) {
    uint64_t h = 0xcbf29ce484222325u;
    ImagePipeline pipeline(s);
    std::vector<uint8_t> frame(pipeline.frameBytes() + 1, 0xa5);
    for (uint64_t k : {0, 1, 0, 300, 1}) {
        EXPECT_EQ(pipeline.render(k, frame.data(), frame.size()), pipeline.frameBytes());
        EXPECT_EQ(frame.back(), 0xa5) << "written past the frame";
        h = hashBytes(h, frame.data(), pipeline.frameBytes());
    }
    const std::size_t cut = pipeline.frameBytes() / 2 + 1;
    std::fill(frame.begin(), frame.end(), uint8_t{0xa5});
    EXPECT_EQ(ImagePipeline(s).render(7, frame.data(), cut), cut);
    EXPECT_EQ(frame[cut], 0xa5) << "written past the buffer";
    h = hashBytes(h, frame.data(), cut);
    for (uint64_t k = 0; k < 8; ++k) h = hashBytes(h, reinterpret_cast<const uint8_t*>("-+") + s.selected(k), 1);
    return h;
}

// Recorded from the path as it was before it was reworked for speed.
constexpr uint64_t kRecorded[] = {
    0xac8ba0a8eff1df15u, 0xdbf1da7eddf5c5ccu, 0xf520bab538d1c133u, 0x9ed5e68a4c19b5d8u,
    0xe67eb59ec9c20af5u, 0xb53d9b0fc6b4965du, 0x8fc40d7b7d71976eu, 0x4a8c862b6cdd93f1u,
    0x1aa7c112876a9c89u, 0x2e0f0c38ed7a2d6du, 0xec89d23ddd53c1d8u, 0x9b766d21b178517fu,
    0xaef5b7bf973f8c0eu, 0x1f63c949e16c0b00u, 0x0263d163db5dfd0au, 0xbf5c63ed66b86804u,
    0x48b1947f62338ffcu, 0xd5925e9e8ed323f2u, 0xa49c5f6d78d070e3u, 0x7767ee254fd84336u,
    0xbe5c035da278b2f9u, 0x9f063c853de3f3c9u, 0x2aa2589d6bf5dc1au, 0xc0ada4f1f639a9a8u,
    0x46e78aae3c373637u, 0xa39018cfa5662fd3u, 0x8f89b1e76b9bb7d7u, 0x2857094aa333c311u,
    0xae7a530c9e56bcf9u, 0x9eb9d8f43af58669u, 0x78944721fffdc15cu, 0xb811de13ea1f954au,
    0x94afb7f65d6793bcu, 0x92db17cd2698db81u, 0x366674367da7b81eu, 0x509d04ccc4147fc0u,
    0x5447e0e2abe1055eu, 0x8d90bb7b1e0688f0u, 0x6c7c7740228c824bu, 0xc63094fa512d56b2u,
    0x67f1cba7493087f2u, 0xf95276a4b813bf9fu, 0x82f0e075f4372284u, 0x64d8353a1b9e05afu,
    0x744b45fcec225461u, 0x891a5d9b4c1c330bu, 0x139c610675f9a0c2u, 0x1d56c9fdc0e826d2u,
};

TEST(VBoardImagePath, OutputBytesStayAsRecorded) {
    constexpr uint32_t kCases = sizeof kRecorded / sizeof kRecorded[0];
    for (uint32_t n = 0; n < kCases; ++n) EXPECT_EQ(caseHash(caseSettings(n)), kRecorded[n]) << "case " << n;
}

}  // namespace
