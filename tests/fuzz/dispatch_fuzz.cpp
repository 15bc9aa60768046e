// Sequences of typed sets and gets through the exported interface (the
// decoding and the buffers are described in FuzzCalls.h) on one long-lived
// instance, with direct register access enabled.
#include "FuzzCalls.h"

namespace {

constexpr int kCallsPerInput = 16;

FuzzApplet& applet() {
    // Direct register access is offered only when the environment asks for
    // it at creation; the fuzzer wants that route too.
    static FuzzApplet& a = [&]() -> FuzzApplet& {
        setenv("QUOR_ENABLE_DRA", "1", 1);
        return FuzzApplet::get();
    }();
    return a;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzApplet& a = applet();
    FuzzedDataProvider in(data, size);
    for (int i = 0; i < kCallsPerInput && in.remaining_bytes() > 0; ++i) fuzzCall(a, in, false);
    a.forgetWrites();
    return 0;
}
