// The acquisition engine and the emulated design behind the runtime's
// acquisition calls, programmed register by register: frame memory, frame
// counts, the image selector and discarded paths, overflow, the trigger
// block's counters and queue, and the engine's lifetime against the handle
// and the board.
#include <chrono>
#include <future>
#include <thread>

#include "vboard_fixture.h"

using namespace vboard_test;
using namespace std::chrono_literals;

namespace {

std::string sim(const char* entry) { return std::string("Device1_Process0_CameraSimulator_") + entry; }
std::string trig(const char* entry) { return std::string("Device1_Process1_Trigger_TriggerCam0_") + entry; }
const char* const kQueueStatus = "Device1_Process1_Trigger_Monitoring_ReadQueueStatus_Status";

class VBoardAcquisition : public BoardTest {
protected:
    void SetUp() override {
        BoardTest::SetUp();
        if (HasFatalFailure()) return;
        // A free-running simulator of 48 x 8 pixels, a line of 4 words in
        // `clocks` clocks; the whole image as the window, 48-bit output,
        // identity tables and gains of 1.
        simulator(4, 8, 1250);  // 10 µs a line, 80 µs a frame
        for (const auto& [name, value] : {std::pair{"Buffer_0_DRAM_A_0_XLength", 48}, {"Buffer_0_DRAM_A_0_YLength", 8},
                                          {"12BitSelector_PixelFormat_SelectSource", 2},
                                          {"OutputFormat_FG_FORMAT_SelectSource", 0}})
            poke(std::string("Device1_Process0_") + name, static_cast<uint64_t>(value));
        for (const char* c : {"R", "G", "B"})
            for (unsigned i = 0; i < 4096; ++i)
                vboard::poke(board, std::string("Device1_Process0_LookupTable_") + c + "_LUTcontent", i, i);
        for (const char* c : {"Red", "Green", "Blue"})
            vboard::pokeDouble(board, std::string("Device1_Process0_Bayer_White_") + c + "Coefficient", 1.0);
        mem = vboard::allocateMemory(4, vboard::frameBytes(board));
    }
    void TearDown() override {
        vboard::freeMemory(mem);
        BoardTest::TearDown();
    }

    void poke(const std::string& name, uint64_t value) { vboard::poke(board, name, value); }
    uint64_t peek(const std::string& name) { return vboard::peek(board, name); }

    void simulator(uint64_t words, uint64_t lines, uint64_t clocksPerLine) {
        const std::pair<const char*, uint64_t> settings[] = {
            {"Enable_SelectSource", 1}, {"Size_ImageWidth", words}, {"LineGap_Number", words},
            {"Size_ImageHeight", lines}, {"FrameGap_Number", lines}, {"ControlPixelClock_Mode", 1},
            {"PixelFrequency_SequenceLength_ImageWidth", clocksPerLine}, {"PixelFrequency_ActivePixel_Number", 1},
            {"EnableX_Enable_Value", 1}, {"Y_Divisor", 1}, {"TriggerValve_FreeRun_Select", 1}};
        for (const auto& [entry, value] : settings) poke(sim(entry), value);
    }

    int64_t wait(int64_t n, int ms) { return Fg_getLastPicNumberBlockingEx(fg, n, 0, ms, mem); }

    dma_mem* mem = nullptr;
};

TEST_F(VBoardAcquisition, CountedAcquisitionFillsTheRingAndEnds) {
    ASSERT_EQ(Fg_AcquireEx(fg, 0, 6, 0, mem), 0);
    EXPECT_EQ(wait(6, 5000), 6);
    EXPECT_EQ(wait(7, 5000), vboard::kErrTimeout);  // ended: at once
    EXPECT_EQ(Fg_getLastPicNumberEx(fg, 0, mem), 6);
    EXPECT_EQ(Fg_getStatusEx(fg, vboard::kStatusAcquiring, 0, 0, mem), 1);

    std::vector<uint8_t> bytes;
    const vboard::FrameInfo f = vboard::copyFrame(mem, 6, bytes);
    EXPECT_EQ(std::tie(f.number, f.width, f.height), std::tuple(6, 48u, 8u));
    EXPECT_EQ(f.format, vboard::OutputFormat::Color48);
    EXPECT_EQ(bytes.size(), 48u * 8 * 6);
    EXPECT_NO_THROW(vboard::copyFrame(mem, 3, bytes));
    EXPECT_THROW(vboard::copyFrame(mem, 2, bytes), vboard::Error);  // its buffer now holds frame 6
    EXPECT_THROW(vboard::copyFrame(mem, 0, bytes), vboard::Error);

    EXPECT_EQ(Fg_stopAcquireEx(fg, 0, mem, 0), 0);
    EXPECT_EQ(Fg_getStatusEx(fg, vboard::kStatusAcquiring, 0, 0, mem), 0);
    EXPECT_EQ(Fg_getLastPicNumberEx(fg, 0, mem), 6);  // the count of the last acquisition stays
}

TEST_F(VBoardAcquisition, SmallBuffersReceiveTheBeginningOfTheFrameAndOnlyKnownMemoryIsUsed) {
    dma_mem* small = vboard::allocateMemory(1, 100);
    ASSERT_EQ(Fg_AcquireEx(fg, 0, 1, 0, small), 0);
    EXPECT_EQ(Fg_getLastPicNumberBlockingEx(fg, 1, 0, 5000, small), 1);
    std::vector<uint8_t> bytes;
    EXPECT_EQ(vboard::copyFrame(small, 1, bytes).bytes, 100u);
    EXPECT_EQ(Fg_stopAcquireEx(fg, 0, small, 0), 0);
    vboard::freeMemory(small);

    // Unknown memory is refused, and freed memory stays safe.
    int notMemory = 0;
    EXPECT_EQ(Fg_AcquireEx(fg, 0, 0, 0, reinterpret_cast<dma_mem*>(&notMemory)), PGN_ERR_INVALID_ARGUMENT);
    EXPECT_THROW(vboard::allocateMemory(0, 10), vboard::Error);
    ASSERT_EQ(Fg_AcquireEx(fg, 0, 0, 0, mem), 0);
    EXPECT_GE(wait(1, 5000), 1);
    vboard::freeMemory(mem);  // the engine keeps writing into it until stopped
    mem = nullptr;
    std::this_thread::sleep_for(10ms);
    EXPECT_EQ(Fg_stopAcquireEx(fg, 0, nullptr, 0), 0);
}

TEST_F(VBoardAcquisition, TheImageSelectorPassesOneFrameInNAndADiscardedPathNone) {
    poke(sim("Frame_Divisor"), 256);  // roll: each frame one step brighter
    poke("Device1_Process0_ImageSelector_FG_IMG_SELECT_PERIOD_Divisor", 3);
    poke("Device1_Process0_ImageSelector_FG_IMG_SELECT_PHASE_Number", 1);
    ASSERT_EQ(Fg_AcquireEx(fg, 0, 2, 0, mem), 0);
    ASSERT_EQ(wait(2, 5000), 2);
    std::vector<uint8_t> first, second;
    vboard::copyFrame(mem, 1, first);
    vboard::copyFrame(mem, 2, second);
    const unsigned a = first[0] | first[1] << 8, b = second[0] | second[1] << 8;  // red of pixel 0
    // Frames the engine could not take in time (a loaded machine) are lost
    // whole, so the step between delivered frames is a multiple of three.
    EXPECT_GT(b, a);
    EXPECT_EQ((b - a) % 3, 0u) << a << " then " << b;
    Fg_stopAcquireEx(fg, 0, mem, 0);

    // A discarded output path delivers nothing.
    poke("Device1_Process0_OutputFormat_VirtualTrash16Bit_EnableTrash_Value", 1);
    ASSERT_EQ(Fg_AcquireEx(fg, 0, 0, 0, mem), 0);
    EXPECT_EQ(wait(1, 100), vboard::kErrTimeout);
    EXPECT_EQ(Fg_getLastErrorNumber(fg), vboard::kErrTimeout);
    EXPECT_EQ(Fg_getStatusEx(fg, vboard::kStatusFramesDelivered, 0, 0, mem), 0);
    Fg_stopAcquireEx(fg, 0, mem, 0);
}

TEST_F(VBoardAcquisition, FramesFasterThanTheEngineOverflowTheFrameMemory) {
    simulator(1, 2, 1);  // a frame every 16 ns
    ASSERT_EQ(Fg_AcquireEx(fg, 0, 0, 0, mem), 0);
    EXPECT_GE(wait(1, 5000), 1);
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(peek("Device1_Process0_Overflow_OverflowOccurred"), 1u);
    EXPECT_GT(Fg_getStatusEx(fg, vboard::kStatusFramesLost, 0, 0, mem), 0);
    Fg_stopAcquireEx(fg, 0, mem, 0);
    EXPECT_EQ(peek(kFillLevel), 0u);
}

// The trigger block by its registers: software pulses through the queue,
// the period limit without it, a pulse form generator's downscale, the
// output counter and its clear.
TEST_F(VBoardAcquisition, TriggerPulsesAreQueuedDownscaledAndCounted) {
    const std::pair<const char*, uint64_t> setup[] = {
        {"Generators_ClearQueuePulse_Mode", 1}, {"Generators_EnableQueue_Select", 1},
        {"Generators_Generator_MinimumPeriod_Number", 125000 - 9},  // 1 ms
        {"Generators_Queue_QueueFullValue_Number", 4}, {"Generators_Queue_QueueEnabled_Select", 1},
        {"PulseFormGenerators_Enable_Select", 1}, {"PulseFormGenerators_PulseFormGenerator1_Downscale_Downscale", 2},
        {"PulseFormGenerators_PulseFormGenerator1_Downscale_SelectedPulse", 2}, {"OutputStatistics_Select_Select", 1},
        {"Generators_ClearQueuePulse_Mode", 0}};
    for (const auto& [entry, value] : setup) poke(trig(entry), value);

    for (int i = 0; i < 6; ++i) poke(trig("TriggerMode_SoftwareTrigger_Mode"), 2);
    // One passed at once, four wait, one found the queue full.
    EXPECT_EQ(peek(trig("Generators_QueueValue_Status")), 4u);
    EXPECT_EQ(peek(trig("Generators_Generator_MaximumReached_Status")), 0u);
    EXPECT_EQ(peek(kQueueStatus) & 2, 2u);
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(peek(trig("Generators_QueueValue_Status")), 0u);
    EXPECT_EQ(peek(trig("Generators_Generator_MaximumReached_Status")), 1u);
    EXPECT_EQ(peek(trig("OutputStatistics_ReadPulses_Status")), 2u);  // pulses 1 and 3 of 0..4

    poke(trig("OutputStatistics_ClearPulses_Mode"), 2);
    EXPECT_EQ(peek(trig("OutputStatistics_ReadPulses_Status")), 0u);

    // Without the queue a pulse during the period is lost and flagged.
    poke(trig("Generators_Queue_QueueEnabled_Select"), 0);
    for (int i = 0; i < 2; ++i) poke(trig("TriggerMode_SoftwareTrigger_Mode"), 2);
    EXPECT_EQ(peek(kQueueStatus) & 1, 1u);
    poke("Device1_Process1_Trigger_Monitoring_ClearOverrideCam0_Mode", 2);
    EXPECT_EQ(peek(kQueueStatus) & 1, 0u);

    // The first of the two passed: pulse 5, which generator 1 passes.
    EXPECT_EQ(peek(trig("OutputStatistics_ReadPulses_Status")), 1u);

    // Held cleared, nothing passes.
    poke(trig("Generators_ClearQueuePulse_Mode"), 1);
    poke(trig("PulseFormGenerators_PulseFormGenerator1_ClearDownscale_Mode"), 2);
    for (int i = 0; i < 4; ++i) poke(trig("TriggerMode_SoftwareTrigger_Mode"), 2);
    std::this_thread::sleep_for(10ms);
    EXPECT_EQ(peek(trig("OutputStatistics_ReadPulses_Status")), 1u);
}

TEST_F(VBoardAcquisition, FreeingTheHandleStopsTheEngineAndWakesWaiters) {
    poke(sim("Enable_SelectSource"), 0);  // the camera: nothing arrives
    ASSERT_EQ(Fg_AcquireEx(fg, 0, 0, 0, mem), 0);
    auto waiter = std::async(std::launch::async, [this] { return wait(1, 20000); });
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(Fg_FreeGrabber(fg), 0);
    const int64_t result = waiter.get();
    EXPECT_TRUE(result == vboard::kErrTimeout || result == PGN_ERR_NO_INSTANCE) << result;
}

TEST_F(VBoardAcquisition, DestroyingTheBoardUnderARunningAcquisitionIsSafe) {
    ASSERT_EQ(Fg_AcquireEx(fg, 0, 0, 0, mem), 0);
    EXPECT_GE(wait(1, 5000), 1);
    vboard::destroyBoard(board);
    std::this_thread::sleep_for(10ms);
    EXPECT_EQ(Fg_stopAcquireEx(fg, 0, mem, 0), PGN_ERR_NO_INSTANCE);
    EXPECT_EQ(Fg_FreeGrabber(fg), 0);  // stops the engine
}

}  // namespace
