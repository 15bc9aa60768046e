// Helpers for the trigger system tests: parameter ids, register names of the
// trigger block, the writes the board journalled, and a host fixture.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "AppletHost.h"
#include "pelagon_errors.h"

namespace trig {

enum Id : int {
    AREATRIGGERMODE = 300200, TRIGGERSTATE = 300201, FRAMESPERSECOND = 90, EXCEEDED_PERIOD_LIMITS = 300202,
    EXCEEDED_PERIOD_LIMITS_CLEAR = 300203, DEBOUNCE = 300204, IN_SRC = 8110, IN_POLARITY = 8116, IN_DOWNSCALE = 300205,
    IN_PHASE = 300206, IN_BYPASS_SRC = 300243, IN_PULSECOUNT = 300207, IN_PULSECOUNT_CLEAR = 300208,
    IN_FREQUENCY = 300209, IN_MINFREQUENCY = 300210, IN_MAXFREQUENCY = 300211, IN_MINMAX_CLEAR = 300212,
    SEND_SOFTWARE_TRIGGER = 8800, SOFTWARE_IS_BUSY = 110075, SOFTWARE_QUEUE_FILLLEVEL = 8802, MULTIPLY_PULSES = 300213,
    QUEUE_MODE = 300214, QUEUE_FILLLEVEL = 300215,
    PFG0_DOWNSCALE = 300216,  // generator g: + 4 g; then phase, delay, width
    CAMERA_OUT_SELECT = 200338, CAMERA_GPO0 = 200330, TRIGGEROUT_SELECT0 = 300232, TRIGGEROUT_SELECT4 = 300244,
    OUT_STATS_SOURCE = 300236, OUT_PULSECOUNT = 300237, OUT_PULSECOUNT_CLEAR = 300238, MISSING_FRAME = 300248,
    MISSING_FRAME_CLEAR = 300249,
};

inline int pfgDownscale(int g) { return PFG0_DOWNSCALE + 4 * g; }
inline int pfgPhase(int g) { return PFG0_DOWNSCALE + 4 * g + 1; }
inline int pfgDelay(int g) { return PFG0_DOWNSCALE + 4 * g + 2; }
inline int pfgWidth(int g) { return PFG0_DOWNSCALE + 4 * g + 3; }
inline int triggerOutSelect(int n) { return n < 4 ? TRIGGEROUT_SELECT0 + n : TRIGGEROUT_SELECT4 + n - 4; }

enum Mode : uint32_t { GENERATOR = 1, EXTERNAL = 2, SOFTWARE = 4 };
enum State : uint32_t { ACTIVE = 0, ASYNC_STOP = 1, SYNC_STOP = 2 };

inline const std::string kPrefix = "Device1_Process1_Trigger_";
inline std::string reg(const std::string& entry) { return kPrefix + entry; }
inline std::string pfgReg(int g, const std::string& what) {
    return reg("TriggerCam0_PulseFormGenerators_PulseFormGenerator" + std::to_string(g) + "_" + what);
}

inline Writes operator+(Writes a, const Writes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

class TriggerTest : public AppletTest {
protected:
    void SetUp() override {
        AppletTest::SetUp();
        // The defaults give the pulse forms milliseconds of width, which would
        // bound every rate; the tests start from forms of no length so that
        // each shows only the limits it sets up itself.
        for (int g = 0; g < 4; ++g)
            for (const char* what : {"Delay_Delay", "Width_Width"}) vboard::poke(host.board, pfgReg(g, what), 0);
        vboard::clearJournal(host.board);
    }
    Writes writes() { return takeWrites(host.board, kPrefix); }
    void poke(const std::string& entry, uint64_t value) { vboard::poke(host.board, reg(entry), value); }
    uint64_t peek(const std::string& entry) { return vboard::peek(host.board, reg(entry)); }
    void failWrite(const std::string& entry, unsigned nth, int code) {
        vboard::injectFault(host.board, reg(entry), vboard::Access::Write, nth, code);
    }
    int accessFlags(int id) {
        const RegisterInfo* r = host.record(id);
        return r ? r->accessFlags : -1;
    }
    // Puts the trigger into (mode, state) from wherever it is.
    void enter(uint32_t mode, uint32_t state) {
        ASSERT_EQ(host.setU32(TRIGGERSTATE, SYNC_STOP), 0);
        ASSERT_EQ(host.setU32(AREATRIGGERMODE, mode), 0);
        ASSERT_EQ(host.setU32(TRIGGERSTATE, state), 0);
        vboard::clearJournal(host.board);
    }
};

}  // namespace trig
