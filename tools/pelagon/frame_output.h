// Frames as the tool hands them on: PNG files, a PPM or raw stream, and
// per-channel statistics. PNGs of 30- and 48-bit output are 16-bit RGB with
// the samples moved to the top of the 16 bits and an sBIT chunk naming their
// real depth (10 or 12), so viewers show the full range and readers that
// honour sBIT get the original values back by shifting. Streams carry the
// samples as the board delivered them.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "vboard/grabber.h"

namespace pelagon_tool {

// A frame's components as the board delivered them, one value each, rows top
// to bottom, R G B.
struct Samples {
    uint32_t width = 0, height = 0;
    int bits = 8;         // the range of the values: 8, 10, 12, or 16 for left-aligned 12-bit output
    int significant = 8;  // the depth the sensor path gave them: 8, 10 or 12
    std::vector<uint16_t> rgb;
};

// Unpacks a frame. Bytes missing at the end of a cut-off frame read as black.
Samples unpack(const vboard::Frame& frame);

struct ChannelStats {
    uint32_t minimum = 0, maximum = 0;
    double mean = 0;
};
std::array<ChannelStats, 3> channelStats(const Samples& samples);  // R, G, B

// PNG text chunks: keyword, text.
using PngText = std::vector<std::pair<std::string, std::string>>;

// Writes the frame as a PNG whole or not at all; throws std::runtime_error
// naming the file on failure.
void writePng(const std::string& path, const Samples& samples, const PngText& text = {});
// The same PNG in memory; throws std::runtime_error on failure.
std::string pngBytes(const Samples& samples, const PngText& text = {});

// One image of a PPM stream (P6): 8-bit samples, or 16-bit big-endian ones
// with the largest value the depth allows as the maximum.
std::string ppm(const Samples& samples);
// The samples alone: 8-bit, or 16-bit little-endian.
std::string raw(const Samples& samples);
// The pixel format of raw(), as ffmpeg names it.
const char* rawPixelFormat(const Samples& samples);

}  // namespace pelagon_tool
