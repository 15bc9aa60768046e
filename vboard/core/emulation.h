// The parts of the design that act on their own rather than just store
// values: the trigger block (frequency generator, queue, software pulses,
// pulse multiplier, pulse form generators, output statistics, monitoring)
// and the camera simulator's timing. The model runs in virtual real time and
// is brought up to date lazily, whenever a register of the board is read or
// written or the acquisition engine asks for frames, so no thread is needed
// for it. Every call is made with the board state lock held.
//
// How registers act (names after Device1_Process1_Trigger_):
//  - TriggerCam0_Generators_ClearQueuePulse_Mode 1 holds generator and
//    queue cleared; 0 releases them.
//  - TriggerCam0_Generators_EnableQueue_Select 0: the frequency generator
//    emits a pulse every (Generator_MinimumPeriod_Number + 9) ticks of 8 ns,
//    the first when it is released. 1: pulses come from the queue instead
//    (software pulses here; the board has no external trigger signal), and
//    the generator stage passes at most one per period.
//  - TriggerCam0_TriggerMode_SoftwareTrigger_Mode: each write of 2 is one
//    software pulse. With Queue_QueueEnabled_Select 1 it waits in a queue of
//    Queue_QueueFullValue_Number places; without, it passes only when the
//    generator stage is idle. A pulse that finds no room is lost and sets
//    bit 1 (queue full) or bit 0 (period exceeded) of
//    Monitoring_ReadQueueStatus_Status. Generators_QueueValue_Status counts
//    the waiting pulses and Generator_MaximumReached_Status is 1 while the
//    stage could take the next one. These status registers are written when
//    pulses come, pass or are dropped, and stay as they are in between.
//  - TriggerCam0_Generators_Sequence_Downscale n: each pulse taken from the
//    queue becomes n pulses, one period apart.
//  - TriggerCam0_PulseFormGenerators_Enable_Select 1 feeds the pulses to the
//    four pulse form generators; generator g passes pulse i (counted from 0
//    since its ClearDownscale_Mode was last written 2) when
//    i mod Downscale == SelectedPulse - 1, delays it by Delay_Delay ticks and
//    makes it Width_Width ticks long.
//  - TriggerCam0_OutputStatistics_Select_Select picks the generator whose
//    pulses ReadPulses_Status counts (16 bits, wrapping); ClearPulses_Mode 2
//    clears it. Monitoring_ClearOverrideCam0_Mode 2 clears bit 0 of the
//    queue status, ClearMissingFrame_Cam0_Mode or
//    CheckForMissingFrame_Cam0_ResetMissing_Mode 2 clears bit 2.
//  - TriggerCam0_CameraControl_SelectTrigger_Select_Select 0..3 sends that
//    pulse form generator to the camera port, where the simulator takes it:
//    the rising edge, that is the pulse's start, or its end when
//    SelectTrigger_Polarity_Invert is 1. 4 (the unfiltered input) and 5 (a
//    constant level) send no edges.
// The camera simulator (Process0_CameraSimulator_):
//  - Enable_SelectSource 1 makes it the image source; 0 is the camera, which
//    is not attached, so nothing arrives.
//  - A line is Size_ImageWidth words, a frame Size_ImageHeight lines. With
//    ControlPixelClock_Mode 0 the generator emits
//    PixelFrequency_ActivePixel_Number words in every
//    PixelFrequency_SequenceLength_ImageWidth clocks of 8 ns; with 1 a line
//    takes SequenceLength clocks (at least one per word).
//  - TriggerValve_FreeRun_Select 1: frames follow each other at that rate.
//    0 with TriggerValve_TriggerValve_Mode 2: each camera trigger edge starts
//    one frame; an edge while a frame is still being sent is not answered
//    and sets bit 2 (missing frame) of the queue status. Mode 1: each edge
//    sends one line, and the frame is complete after Size_ImageHeight lines.
//  - A write to Enable_SelectSource or the TriggerValve registers restarts
//    the simulator's timing. A write to its size or pixel frequency
//    registers ends the frame being sent no later than one frame of the new
//    timing from then (never later than it was due), so frames keep coming
//    while such settings change. The pattern registers change what the
//    frames show, not when they come.
// Completed frames wait in the board's frame memory (64 frames) until the
// acquisition engine collects them; Buffer_0_DRAM_A_0/1_FillLevel show how
// full it is in percent and Overflow_OverflowOccurred is set when a frame
// finds it full and is lost.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <vector>

#include "design_registers.h"
#include "image_path.h"

struct ZUdevice;

namespace vboard {

using Clock = std::chrono::steady_clock;

class DesignEmulation {
public:
    static constexpr std::size_t kFrameMemory = 64;

    // Resolves the registers against the board's bound design and sets the
    // status registers to what an idle board reads.
    explicit DesignEmulation(ZUdevice& board);

    // Brings the model up to `now` and the status registers with it.
    void sync(Clock::time_point now);
    // Acts on a write of register n (1-based) that has just been stored.
    void written(int n, Clock::time_point now);

    // Counts writes to the image path's registers: settings read at one count
    // stay valid while it does not change.
    uint64_t generation() const { return generation_; }
    ImageSettings imageSettings() const;

    // The acquisition engine's side: collecting keeps completed frames in the
    // frame memory, taking empties it (sequence numbers, oldest first).
    void startCollecting(Clock::time_point now);
    void stopCollecting();
    std::vector<uint64_t> takeFrames();
    uint64_t lostFrames() const { return lost_; }
    // When the next frame completes, as far as known now (max() for never).
    Clock::time_point nextFrameDue() const;

private:
    uint64_t u(reg::Id id, unsigned element = 0) const;
    void store(reg::Id id, uint64_t value);
    Clock::duration ticks(uint64_t n) const { return std::chrono::nanoseconds(n * 8); }

    // Trigger block
    void advanceTrigger(Clock::time_point now);
    void triggerSettingsChanged(Clock::time_point now);
    void softwarePulse(Clock::time_point now);
    void emit(Clock::time_point t);
    void writeStatus(Clock::time_point now);
    void setQueueStatusBit(unsigned bit, bool on);

    // Camera simulator
    bool simulatorActive() const;
    Clock::duration lineTime() const;  // zero when the generator does not run
    void restartSimulator(Clock::time_point now);
    void retimeSimulator(Clock::time_point now);
    void cameraEdge(Clock::time_point t);
    void advanceSimulator(Clock::time_point now);
    void complete(uint64_t sequence);
    void writeFillLevel();

    ZUdevice& board_;
    std::array<int, reg::kCount> number_{};  // register numbers, -1 when the design lacks one
    std::vector<int> idOf_;                  // register number -> reg::Id, -1 for others
    uint64_t generation_ = 1;

    // Trigger block
    Clock::time_point last_;
    bool released_ = false;
    bool fromQueue_ = false;
    Clock::time_point nextPulse_;  // generator mode
    Clock::time_point readyAt_;    // when the generator stage takes the next pulse
    uint64_t queued_ = 0;
    std::array<uint64_t, 4> formCount_{};
    bool statusDirty_ = true;

    // Camera simulator
    uint64_t sequence_ = 0;          // frames the simulator has sent
    Clock::time_point nextFrame_;    // free run: when the next frame completes
    Clock::time_point busyUntil_;    // triggered: end of the frame being sent
    uint64_t lines_ = 0;             // line-triggered: lines sent of this frame
    std::deque<std::pair<Clock::time_point, uint64_t>> sending_;  // triggered frames in flight
    bool collecting_ = false;
    std::deque<uint64_t> memory_;    // completed frames waiting for DMA
    uint64_t lost_ = 0;
};

}  // namespace vboard
