#include "emulation.h"

#include <algorithm>
#include <string_view>

#include "board_state.h"

namespace vboard {

namespace {

using namespace reg;

// Generator pulses handled one by one in a single step; more (a fast
// generator nobody looked at for a while) are counted in bulk.
constexpr uint64_t kBurst = 4096;
constexpr uint64_t kMinPeriodTicks = 10;

struct FormGenerator {
    Id downscale, selected, delay, width, clear;
};
#define PELAGON_FORM(g)                                                                     \
    {Process1_Trigger_TriggerCam0_PulseFormGenerators_PulseFormGenerator##g##_Downscale_Downscale,     \
     Process1_Trigger_TriggerCam0_PulseFormGenerators_PulseFormGenerator##g##_Downscale_SelectedPulse, \
     Process1_Trigger_TriggerCam0_PulseFormGenerators_PulseFormGenerator##g##_Delay_Delay,             \
     Process1_Trigger_TriggerCam0_PulseFormGenerators_PulseFormGenerator##g##_Width_Width,             \
     Process1_Trigger_TriggerCam0_PulseFormGenerators_PulseFormGenerator##g##_ClearDownscale_Mode}
constexpr std::array<FormGenerator, 4> kForms = {{PELAGON_FORM(0), PELAGON_FORM(1), PELAGON_FORM(2), PELAGON_FORM(3)}};
#undef PELAGON_FORM

constexpr unsigned kPeriodExceededBit = 0, kQueueFullBit = 1, kMissingFrameBit = 2;

// Pulses i in [0, n) with i mod d == phase.
uint64_t passing(uint64_t n, uint64_t d, uint64_t phase) { return n / d + (n % d > phase ? 1 : 0); }

// What a write to one of the camera simulator's registers does to the frame
// it is sending.
enum class SimulatorWrite { Content, Timing, Mode };

SimulatorWrite simulatorWrite(Id id) {
    switch (id) {
        case Process0_CameraSimulator_Enable_SelectSource:
        case Process0_CameraSimulator_TriggerValve_FreeRun_Select:
        case Process0_CameraSimulator_TriggerValve_TriggerValve_Mode: return SimulatorWrite::Mode;
        case Process0_CameraSimulator_Size_ImageWidth:
        case Process0_CameraSimulator_Size_ImageHeight:
        case Process0_CameraSimulator_PixelFrequency_ActivePixel_Number:
        case Process0_CameraSimulator_PixelFrequency_SequenceLength_ImageWidth:
        case Process0_CameraSimulator_ControlPixelClock_Mode: return SimulatorWrite::Timing;
        default: return SimulatorWrite::Content;  // the pattern: what frames show, not when they come
    }
}

bool isSimulatorRegister(Id id) {
    return std::string_view(kNames[id]).starts_with("Device1_Process0_CameraSimulator_");
}

}  // namespace

DesignEmulation::DesignEmulation(ZUdevice& board) : board_(board) {
    number_.fill(-1);
    const std::size_t registers = board.design ? board.design->registers.size() : 0;
    idOf_.assign(registers + 1, -1);
    for (std::size_t id = 0; id < kCount && board.design; ++id) {
        const int n = board.design->findRegister(kNames[id]);
        if (n > 0 && board.design->registers[static_cast<std::size_t>(n - 1)].kind != 'S') {
            number_[id] = n;
            idOf_[static_cast<std::size_t>(n)] = static_cast<int>(id);
        }
    }
    const Clock::time_point now = Clock::now();
    last_ = nextPulse_ = readyAt_ = nextFrame_ = busyUntil_ = now;
    released_ = u(Process1_Trigger_TriggerCam0_Generators_ClearQueuePulse_Mode) == 0;
    fromQueue_ = u(Process1_Trigger_TriggerCam0_Generators_EnableQueue_Select) == 1;
    restartSimulator(now);
}

uint64_t DesignEmulation::u(Id id, unsigned element) const {
    const int n = number_[id];
    if (n < 1) return 0;
    const std::vector<uint64_t>& raw = board_.cells[static_cast<std::size_t>(n - 1)].raw;
    return element < raw.size() ? raw[element] : 0;
}

void DesignEmulation::store(Id id, uint64_t value) {
    const int n = number_[id];
    if (n < 1) return;
    const RegisterModel& r = board_.design->registers[static_cast<std::size_t>(n - 1)];
    std::vector<uint64_t>& raw = board_.cells[static_cast<std::size_t>(n - 1)].raw;
    if (!raw.empty()) raw[0] = std::min(value, r.maxRaw());
}

void DesignEmulation::sync(Clock::time_point now) {
    advanceTrigger(now);
    advanceSimulator(now);
    if (statusDirty_) writeStatus(now);
    last_ = std::max(last_, now);
}

void DesignEmulation::written(int n, Clock::time_point now) {
    if (n < 1 || static_cast<std::size_t>(n) >= idOf_.size() || idOf_[static_cast<std::size_t>(n)] < 0) return;
    const auto id = static_cast<Id>(idOf_[static_cast<std::size_t>(n)]);
    ++generation_;
    const bool two = u(id) == 2;
    switch (id) {
        case Process1_Trigger_TriggerCam0_Generators_ClearQueuePulse_Mode:
        case Process1_Trigger_TriggerCam0_Generators_EnableQueue_Select:
        case Process1_Trigger_TriggerCam0_Generators_Generator_MinimumPeriod_Number:
            triggerSettingsChanged(now);
            return;
        case Process1_Trigger_TriggerCam0_TriggerMode_SoftwareTrigger_Mode:
            if (two) softwarePulse(now);
            return;
        case Process1_Trigger_TriggerCam0_OutputStatistics_ClearPulses_Mode:
            if (two) store(Process1_Trigger_TriggerCam0_OutputStatistics_ReadPulses_Status, 0);
            return;
        case Process1_Trigger_TriggerCam0_InputStatistics_ClearPulses_Mode:
            if (two) store(Process1_Trigger_TriggerCam0_InputStatistics_ReadPulses_Status, 0);
            return;
        case Process1_Trigger_Monitoring_ClearOverrideCam0_Mode:
            if (two) setQueueStatusBit(kPeriodExceededBit, false);
            return;
        case Process1_Trigger_Monitoring_ClearMissingFrame_Cam0_Mode:
        case Process1_Trigger_Monitoring_CheckForMissingFrame_Cam0_ResetMissing_Mode:
            if (two) setQueueStatusBit(kMissingFrameBit, false);
            return;
        default: break;
    }
    for (std::size_t g = 0; g < kForms.size(); ++g)
        if (id == kForms[g].clear && two) formCount_[g] = 0;
    if (!isSimulatorRegister(id)) return;
    switch (simulatorWrite(id)) {
        case SimulatorWrite::Mode: restartSimulator(now); break;
        case SimulatorWrite::Timing: retimeSimulator(now); break;
        case SimulatorWrite::Content: break;
    }
}

// --- Trigger block -----------------------------------------------------------

void DesignEmulation::triggerSettingsChanged(Clock::time_point now) {
    const bool released = u(Process1_Trigger_TriggerCam0_Generators_ClearQueuePulse_Mode) == 0;
    const bool fromQueue = u(Process1_Trigger_TriggerCam0_Generators_EnableQueue_Select) == 1;
    // The status registers change only when pulses are dropped here, so a
    // change of settings alone leaves them as they read.
    if (!released && queued_ > 0) {
        queued_ = 0;
        statusDirty_ = true;
    }
    if (released && (!released_ || fromQueue != fromQueue_)) nextPulse_ = readyAt_ = now;
    released_ = released;
    fromQueue_ = fromQueue;
}

void DesignEmulation::advanceTrigger(Clock::time_point now) {
    if (!released_) return;
    const uint64_t periodTicks =
        std::max(kMinPeriodTicks, u(Process1_Trigger_TriggerCam0_Generators_Generator_MinimumPeriod_Number) + 9);
    const Clock::duration period = ticks(periodTicks);
    if (!fromQueue_) {
        if (nextPulse_ > now) return;
        uint64_t due = static_cast<uint64_t>((now - nextPulse_) / period) + 1;
        if (u(Process1_Trigger_TriggerCam0_PulseFormGenerators_Enable_Select) != 1) {
            nextPulse_ += period * static_cast<int64_t>(due);  // nobody takes them
            return;
        }
        if (due > kBurst) {
            // Count the oldest ones without following each to the camera.
            const uint64_t skipped = due - kBurst;
            const uint64_t counted = u(Process1_Trigger_TriggerCam0_OutputStatistics_Select_Select);
            if (counted < kForms.size()) {
                const FormGenerator& f = kForms[counted];
                const uint64_t d = std::max<uint64_t>(u(f.downscale), 1);
                const uint64_t phase = (std::max<uint64_t>(u(f.selected), 1) - 1) % d;
                const uint64_t c = formCount_[counted];
                const uint64_t pulses = passing(c + skipped, d, phase) - passing(c, d, phase);
                const Id stat = Process1_Trigger_TriggerCam0_OutputStatistics_ReadPulses_Status;
                store(stat, (u(stat) + pulses) & 0xffff);
            }
            for (uint64_t& count : formCount_) count += skipped;
            nextPulse_ += period * static_cast<int64_t>(skipped);
            due = kBurst;
        }
        for (uint64_t i = 0; i < due; ++i) {
            emit(nextPulse_);
            nextPulse_ += period;
        }
        return;
    }
    const uint64_t copies = std::max<uint64_t>(u(Process1_Trigger_TriggerCam0_Generators_Sequence_Downscale), 1);
    while (queued_ > 0 && readyAt_ <= now) {
        const Clock::time_point t = readyAt_;
        for (uint64_t c = 0; c < copies; ++c) emit(t + period * static_cast<int64_t>(c));
        --queued_;
        readyAt_ = t + period * static_cast<int64_t>(copies);
        statusDirty_ = true;
    }
}

void DesignEmulation::softwarePulse(Clock::time_point now) {
    // Held cleared, or the frequency generator drives: the pulse goes nowhere.
    if (!released_ || !fromQueue_) return;
    const bool queueOn = u(Process1_Trigger_TriggerCam0_Generators_Queue_QueueEnabled_Select) == 1;
    const uint64_t capacity =
        queueOn ? std::max<uint64_t>(u(Process1_Trigger_TriggerCam0_Generators_Queue_QueueFullValue_Number), 1) : 1;
    if (!queueOn && (queued_ > 0 || readyAt_ > now)) {
        setQueueStatusBit(kPeriodExceededBit, true);
        return;
    }
    if (queued_ >= capacity) {
        setQueueStatusBit(kQueueFullBit, true);
        return;
    }
    if (queued_ == 0 && readyAt_ < now) readyAt_ = now;
    ++queued_;
    statusDirty_ = true;
    advanceTrigger(now);
    writeStatus(now);
}

void DesignEmulation::emit(Clock::time_point t) {
    if (u(Process1_Trigger_TriggerCam0_PulseFormGenerators_Enable_Select) != 1) return;
    const uint64_t counted = u(Process1_Trigger_TriggerCam0_OutputStatistics_Select_Select);
    const uint64_t camera = u(Process1_Trigger_TriggerCam0_CameraControl_SelectTrigger_Select_Select);
    const bool inverted = u(Process1_Trigger_TriggerCam0_CameraControl_SelectTrigger_Polarity_Invert) == 1;
    for (std::size_t g = 0; g < kForms.size(); ++g) {
        const FormGenerator& f = kForms[g];
        const uint64_t d = std::max<uint64_t>(u(f.downscale), 1);
        const uint64_t phase = (std::max<uint64_t>(u(f.selected), 1) - 1) % d;
        if (formCount_[g]++ % d != phase) continue;
        if (g == counted) {
            const Id stat = Process1_Trigger_TriggerCam0_OutputStatistics_ReadPulses_Status;
            store(stat, (u(stat) + 1) & 0xffff);
        }
        if (g == camera) cameraEdge(t + ticks(u(f.delay)) + (inverted ? ticks(u(f.width)) : Clock::duration{}));
    }
}

void DesignEmulation::writeStatus(Clock::time_point now) {
    const bool idle = queued_ == 0 && readyAt_ <= now;
    store(Process1_Trigger_TriggerCam0_Generators_QueueValue_Status, queued_);
    store(Process1_Trigger_TriggerCam0_Generators_Generator_MaximumReached_Status, idle || !fromQueue_ ? 1 : 0);
    const bool queueOn = u(Process1_Trigger_TriggerCam0_Generators_Queue_QueueEnabled_Select) == 1;
    const uint64_t capacity = std::max<uint64_t>(u(Process1_Trigger_TriggerCam0_Generators_Queue_QueueFullValue_Number), 1);
    setQueueStatusBit(kQueueFullBit, queueOn && queued_ >= capacity);
    statusDirty_ = !idle;
}

void DesignEmulation::setQueueStatusBit(unsigned bit, bool on) {
    const Id status = Process1_Trigger_Monitoring_ReadQueueStatus_Status;
    const uint64_t mask = uint64_t{1} << bit;
    store(status, on ? (u(status) | mask) : (u(status) & ~mask));
}

// --- Camera simulator --------------------------------------------------------

bool DesignEmulation::simulatorActive() const { return u(Process0_CameraSimulator_Enable_SelectSource) == 1; }

Clock::duration DesignEmulation::lineTime() const {
    const uint64_t words = u(Process0_CameraSimulator_Size_ImageWidth);
    const uint64_t sequence = u(Process0_CameraSimulator_PixelFrequency_SequenceLength_ImageWidth);
    if (words == 0) return {};
    double clocks = 0;
    if (u(Process0_CameraSimulator_ControlPixelClock_Mode) == 0) {
        // At most one word per clock, however many active clocks are asked for.
        const uint64_t active = std::min(u(Process0_CameraSimulator_PixelFrequency_ActivePixel_Number), sequence);
        if (active == 0) return {};
        clocks = static_cast<double>(words) * static_cast<double>(sequence) / static_cast<double>(active);
    } else {
        clocks = static_cast<double>(std::max(sequence, words));
    }
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double, std::nano>(clocks * 8.0));
}

void DesignEmulation::restartSimulator(Clock::time_point now) {
    const Clock::duration frame = lineTime() * static_cast<int64_t>(u(Process0_CameraSimulator_Size_ImageHeight));
    nextFrame_ = now + frame;
    busyUntil_ = now;
    lines_ = 0;
}

void DesignEmulation::retimeSimulator(Clock::time_point now) {
    const Clock::duration frame = lineTime() * static_cast<int64_t>(u(Process0_CameraSimulator_Size_ImageHeight));
    // The frame being sent ends no later than one frame of the new timing
    // from now, never later than it was due: a stream of changes (a slider
    // being dragged) cannot hold frames back.
    nextFrame_ = nextFrame_ > now ? std::min(nextFrame_, now + frame) : now + frame;
    busyUntil_ = now;
    lines_ = 0;
}

void DesignEmulation::cameraEdge(Clock::time_point t) {
    if (!simulatorActive() || u(Process0_CameraSimulator_TriggerValve_FreeRun_Select) == 1) return;
    const Clock::duration line = lineTime();
    const uint64_t lines = u(Process0_CameraSimulator_Size_ImageHeight);
    if (line == Clock::duration{} || lines == 0) return;
    switch (u(Process0_CameraSimulator_TriggerValve_TriggerValve_Mode)) {
        case 2:
            if (t < busyUntil_) {
                setQueueStatusBit(kMissingFrameBit, true);
                return;
            }
            busyUntil_ = t + line * static_cast<int64_t>(lines);
            sending_.emplace_back(busyUntil_, sequence_++);
            return;
        case 1:
            if (++lines_ >= lines) {
                lines_ = 0;
                sending_.emplace_back(t + line, sequence_++);
            }
            return;
        default: return;
    }
}

void DesignEmulation::advanceSimulator(Clock::time_point now) {
    while (!sending_.empty() && sending_.front().first <= now) {
        complete(sending_.front().second);
        sending_.pop_front();
    }
    if (!simulatorActive() || u(Process0_CameraSimulator_TriggerValve_FreeRun_Select) != 1) return;
    const Clock::duration frame = lineTime() * static_cast<int64_t>(u(Process0_CameraSimulator_Size_ImageHeight));
    if (frame <= Clock::duration{} || nextFrame_ > now) return;
    uint64_t due = static_cast<uint64_t>((now - nextFrame_) / frame) + 1;
    const uint64_t kept = collecting_ ? std::min<uint64_t>(due, kFrameMemory) : 0;
    const uint64_t skipped = due - kept;
    if (skipped > 0 && collecting_) {
        lost_ += skipped;
        store(Process0_Overflow_OverflowOccurred, 1);
    }
    sequence_ += skipped;
    for (uint64_t i = 0; i < kept; ++i) complete(sequence_++);
    nextFrame_ += frame * static_cast<int64_t>(due);
}

void DesignEmulation::complete(uint64_t sequence) {
    if (!collecting_) return;
    if (memory_.size() >= kFrameMemory) {
        ++lost_;
        store(Process0_Overflow_OverflowOccurred, 1);
        return;
    }
    memory_.push_back(sequence);
    writeFillLevel();
}

void DesignEmulation::writeFillLevel() {
    const uint64_t percent = memory_.size() * 100 / kFrameMemory;
    store(Process0_Buffer_0_DRAM_A_0_FillLevel, percent);
    store(Process0_Buffer_0_DRAM_A_1_FillLevel, percent);
}

void DesignEmulation::startCollecting(Clock::time_point now) {
    sync(now);
    collecting_ = true;
    memory_.clear();
    lost_ = 0;
    store(Process0_Overflow_OverflowOccurred, 0);
    writeFillLevel();
}

void DesignEmulation::stopCollecting() {
    collecting_ = false;
    memory_.clear();
    writeFillLevel();
}

std::vector<uint64_t> DesignEmulation::takeFrames() {
    std::vector<uint64_t> frames(memory_.begin(), memory_.end());
    memory_.clear();
    writeFillLevel();
    return frames;
}

Clock::time_point DesignEmulation::nextFrameDue() const {
    Clock::time_point next = Clock::time_point::max();
    if (!sending_.empty()) next = sending_.front().first;
    if (simulatorActive() && u(Process0_CameraSimulator_TriggerValve_FreeRun_Select) == 1 &&
        lineTime() > Clock::duration{})
        next = std::min(next, nextFrame_);
    return next;
}

}  // namespace vboard
