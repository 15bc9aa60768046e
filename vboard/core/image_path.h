// The design's image path, emulated: what the camera simulator generates and
// how the processing stages turn it into the bytes that DMA writes to host
// memory. Everything here is computed from register values (ImageSettings
// is a snapshot of them), never from what the applet believes it programmed.
//
// Stages, in the order the data passes them:
//  1. Camera simulator (Process0_CameraSimulator): an active image of
//     LineGap_Number words of 12 pixels by FrameGap_Number lines (the names
//     and contents of the size registers are crossed in the design). Each
//     pixel is a counter value of the camera's bit depth d (12BitSelector:
//     0 = 8, 1 = 10, 2 = 12 bits; 3 acts as 12):
//         p(x, y, k) = (e*x + (y mod Y) + o + (k mod F)) mod 2^d
//     with e = EnableX_Enable_Value, Y = Y_Divisor, o = Offset_Value,
//     F = Frame_Divisor (a divisor of 0 acts as 1) and k the frame's sequence
//     number since the simulator was set up. So the applet's patterns are:
//       horizontal (e 1, Y 1):   a ramp along each line, the same on all lines;
//       vertical   (e 0, Y 256): every line one value, rising line by line;
//       diagonal   (e 1, Y 256): both, stripes running diagonally;
//     and roll (F 256) adds the frame number, so the pattern moves by one
//     step per frame. The camera's value enters the 12-bit processing left
//     aligned (shifted up by 12 - d).
//  2. Region of interest (Process0_Buffer, the A_0 registers): a window of
//     XLength x YLength pixels at (XOffset, YOffset). Pixels of the window
//     outside the simulator's image are black.
//  3. White balance (Bayer_White_*): every mosaic sample is multiplied by the
//     gain of its colour (12-bit fixed point, 10 fractional bits, so 1024 is
//     a gain of 1), rounded and saturated at 4095. White_BayerInit gives the
//     colour of the window's first sample. Doing this on the samples before
//     interpolation gives the same image as scaling the interpolated
//     components, except that saturation happens per sample.
//  4. Demosaicing (Bayer_Bayer_BayerInit, the phase of the window's first
//     sample: 0 GB, 1 BG, 2 RG, 3 GR, naming the first two samples of the
//     first line): bilinear. A sample keeps its own colour; the missing
//     colours are the rounded mean of the nearest samples of that colour
//     (two neighbours across a green sample, four on the diagonals or the
//     cross for red and blue sites). At the window's edges the mosaic is
//     mirrored (column -1 reads column 1), which keeps the colour pattern.
//  5. Lookup tables (LookupTable_R/G/B_LUTcontent): 4096 entries of 12 bits
//     per component.
//  6. Output format (OutputFormat_FG_FORMAT_SelectSource) and bit alignment:
//       Color24 (1): 3 bytes per pixel R, G, B; the 8 upper bits of each
//                    component;
//       Color48 (0): 3 little-endian 16-bit words per pixel R, G, B; the
//                    12-bit value left aligned (value << 4) when
//                    FG_BITALIGNMENT_Value is 1, right aligned when it is 0;
//       Color30 (2): the 10 upper bits of each component, R, G, B, packed
//                    without gaps into one little-endian bit stream for the
//                    whole frame (pixel i occupies bits 30i .. 30i + 29, red
//                    in the lowest ten).
//     The design computes all three in parallel; a path whose VirtualTrash
//     enable is 1 is discarded, so selecting a discarded path (or the
//     undefined value 3) delivers nothing.
//  7. Image selector (ImageSelector): of every FG_IMG_SELECT_PERIOD_Divisor
//     frames the one at FG_IMG_SELECT_PHASE_Number passes (period 0 acts as
//     1); the others are dropped before DMA.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "vboard/vboard.h"

namespace vboard {

struct ImageSettings {
    // Simulator
    uint32_t simWidth = 0;   // pixels
    uint32_t simHeight = 0;  // lines
    bool xRamp = false;
    uint32_t yDivisor = 1;
    uint32_t offset = 0;
    uint32_t frameDivisor = 1;
    unsigned depth = 12;
    // Region of interest
    uint32_t roiX = 0, roiY = 0, roiWidth = 0, roiHeight = 0;
    // Colour
    unsigned whitePhase = 0, bayerPhase = 0;
    std::array<uint32_t, 3> gain{};  // R, G, B; 1024 = 1.0
    std::array<std::vector<uint16_t>, 3> lut;  // R, G, B; 4096 entries each
    // Output
    OutputFormat format = OutputFormat::Color48;
    bool leftAligned = false;
    bool discarded = true;
    uint32_t selectPeriod = 1, selectPhase = 0;

    // Bytes of one frame in host memory.
    std::size_t frameBytes() const;
    // Whether frame `k` of the simulator passes the image selector.
    bool selected(uint64_t k) const { return k % selectPeriod == selectPhase; }
};

// The settings as the registers of `board` are programmed now. Throws
// vboard::Error for an unknown board or one without a design.
VBOARD_API ImageSettings imageSettings(ZUdevice* board);

// The image path for one set of settings: builds its tables once and renders
// any number of frames with them. Rendering may be called from several
// threads; calls on one pipeline take turns.
class VBOARD_API ImagePipeline {
public:
    explicit ImagePipeline(ImageSettings settings);
    ~ImagePipeline();
    ImagePipeline(const ImagePipeline&) = delete;
    ImagePipeline& operator=(const ImagePipeline&) = delete;

    const ImageSettings& settings() const { return settings_; }
    std::size_t frameBytes() const { return bytes_; }
    // Renders frame `k` of the simulator into `out`; at most `capacity` bytes
    // are written (a frame larger than the buffer is cut off). Returns the
    // bytes written. Output lines are remembered by what they are made of, so
    // lines the pattern repeats (within the frame or from earlier frames) are
    // copied rather than computed again; so are most pixels of a line that is
    // an earlier one of the frame moved along the simulator's ramp.
    std::size_t render(uint64_t k, uint8_t* out, std::size_t capacity) const;

private:
    void renderFull(uint64_t k, uint8_t* out) const;

    ImageSettings settings_;
    std::size_t bytes_ = 0;
    // Per component R, G, B, one after the other: the LUT followed by the
    // output conversion, indexed by the 12-bit value after demosaicing.
    std::vector<uint16_t> out_;
    // With the simulator's ramp along the lines: the ramp's values (of the
    // camera's depth) white balanced, even values taken as colour q, odd ones
    // as colour q ^ 1, for each of the four colour codes q. A mosaic line is
    // a window of one of them.
    std::array<std::vector<uint16_t>, 4> ramp_;

public:
    struct LineCache;

private:
    std::unique_ptr<LineCache> cache_;  // null when lines do not start on a 32-bit word
};

}  // namespace vboard
