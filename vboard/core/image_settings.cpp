// The image settings decoded from the registers of the design, for the image
// path (image_path.cpp) that renders frames with them.
#include <algorithm>
#include <array>
#include <cmath>
#include <mutex>

#include "board_state.h"
#include "emulation.h"
#include "image_path.h"

namespace vboard {

using detail::State;
using detail::state;

namespace {

using namespace reg;

// The outputs by the value of the format selector, each with the register
// that discards its frames.
struct Output {
    OutputFormat format;
    Id trash;
};
constexpr std::array<Output, 3> kOutputs = {{
    {OutputFormat::Color48, Process0_OutputFormat_VirtualTrash16Bit_EnableTrash_Value},
    {OutputFormat::Color24, Process0_OutputFormat_VirtualTrash8Bit_EnableTrash_Value},
    {OutputFormat::Color30, Process0_OutputFormat_VirtualTrash10Bit_EnableTrash_Value},
}};

DesignEmulation& emulationOf(State& s, ZUdevice* board) {
    if (!s.board(board)) throw Error("vboard: unknown board");
    if (!board->emulation) throw Error("vboard: no design is bound to the board");
    return *board->emulation;
}

}  // namespace

ImageSettings DesignEmulation::imageSettings() const {
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

    // A selector value without an output of its own discards the frames.
    const uint64_t select = u(Process0_OutputFormat_FG_FORMAT_SelectSource);
    const bool listed = select < kOutputs.size();
    s.format = listed ? kOutputs[select].format : OutputFormat::Color48;
    s.discarded = !listed || u(kOutputs[select].trash) == 1;
    s.leftAligned = u(Process0_OutputFormat_FG_BITALIGNMENT_Value) == 1;
    s.selectPeriod = std::max<uint32_t>(static_cast<uint32_t>(u(Process0_ImageSelector_FG_IMG_SELECT_PERIOD_Divisor)), 1);
    s.selectPhase = static_cast<uint32_t>(u(Process0_ImageSelector_FG_IMG_SELECT_PHASE_Number));
    return s;
}

ImageSettings imageSettings(ZUdevice* board) {
    State& s = state();
    std::lock_guard lock(s.mutex);
    DesignEmulation& design = emulationOf(s, board);
    design.sync(Clock::now());
    return design.imageSettings();
}

std::size_t frameBytes(ZUdevice* board) { return imageSettings(board).frameBytes(); }

}  // namespace vboard
