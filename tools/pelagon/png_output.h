// Frames as PNG files: 24-bit output as 8-bit RGB, 30- and 48-bit output as
// 16-bit RGB with the samples moved to the top of the 16 bits and an sBIT
// chunk naming their real depth (10 or 12), so viewers show the full range and
// readers that honour sBIT get the original values back by shifting.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vboard/grabber.h"

namespace pelagon_tool {

struct PngImage {
    uint32_t width = 0, height = 0;
    int bitDepth = 8;          // 8 or 16
    int significantBits = 8;   // what the sBIT chunk says per component
    std::vector<uint8_t> rgb;  // rows top to bottom, R G B, 16-bit samples big-endian
};

// Unpacks a frame as the board delivered it. Bytes missing at the end of a
// cut-off frame read as black.
PngImage toPng(const vboard::Frame& frame);

// Writes the image; throws std::runtime_error naming the file on failure.
void writePng(const std::string& path, const PngImage& image);

}  // namespace pelagon_tool
