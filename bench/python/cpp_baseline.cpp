// The C++ figures the Python benchmark compares itself with, measured the
// same way through the application-side API:
//   pelagon_cpp_baseline APPLET params ITERATIONS
//       nanoseconds per typed get and set of FG_TIMEOUT by id
//   pelagon_cpp_baseline APPLET frames COUNT BUFFERS [NAME=VALUE ...]
//       frames per second of a loop that waits for each frame and copies it
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "vboard/grabber.h"

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point t) { return std::chrono::duration<double>(Clock::now() - t).count(); }

void params(vboard::Grabber& g, long iterations) {
    const int id = g.id("FG_TIMEOUT");
    uint64_t sum = 0;
    Clock::time_point t = Clock::now();
    for (long i = 0; i < iterations; ++i) sum += g.get<uint32_t>(id);
    const double get = secondsSince(t);
    t = Clock::now();
    for (long i = 0; i < iterations; ++i) g.set<uint32_t>(id, 1000 + static_cast<uint32_t>(i & 1));
    const double set = secondsSince(t);
    std::printf("get_ns %.1f\nset_ns %.1f\nchecksum %llu\n", get * 1e9 / static_cast<double>(iterations),
                set * 1e9 / static_cast<double>(iterations), static_cast<unsigned long long>(sum));
}

// Frames in order; a frame whose buffer was refilled before the loop came
// to it is passed over, as the Python iterator does.
void frames(vboard::Grabber& g, long count, unsigned buffers) {
    g.allocateBuffers(buffers);
    const Clock::time_point t = Clock::now();
    g.start();
    long received = 0;
    int64_t n = 1;
    uint64_t sum = 0;
    while (received < count) {
        const int64_t newest = g.waitForFrame(n, std::chrono::seconds(5));
        if (newest - n >= buffers) n = newest - buffers + 1;
        try {
            const vboard::Frame f = g.frame(n);
            sum += f.bytes.empty() ? 0 : f.bytes[f.bytes.size() / 2];
            ++received;
            ++n;
        } catch (const vboard::Error&) {
            n = g.lastFrame() - buffers + 2;
        }
    }
    const double elapsed = secondsSince(t);
    g.stop();
    std::printf("fps %.2f\nchecksum %llu\n", static_cast<double>(count) / elapsed, static_cast<unsigned long long>(sum));
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 2 ? argv[2] : "";
    if (argc < 4 || (mode != "params" && mode != "frames") || (mode == "frames" && argc < 5)) {
        std::fprintf(stderr, "usage: %s APPLET params ITERATIONS | APPLET frames COUNT BUFFERS [NAME=VALUE ...]\n",
                     argv[0]);
        return 2;
    }
    try {
        vboard::Grabber g(argv[1]);
        if (mode == "params") {
            params(g, std::strtol(argv[3], nullptr, 10));
        } else {
            for (int i = 5; i < argc; ++i) {
                const std::string assignment = argv[i];
                const std::size_t eq = assignment.find('=');
                g.set(assignment.substr(0, eq), assignment.substr(eq + 1));
            }
            frames(g, std::strtol(argv[3], nullptr, 10), static_cast<unsigned>(std::strtoul(argv[4], nullptr, 10)));
        }
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 1;
    }
    return 0;
}
