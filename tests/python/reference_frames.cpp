// The C++ side of the Python frame comparison: applies NAME=VALUE settings
// through the application-side API, acquires frames 1..n and writes the
// bytes of each, as the board delivered them, to <prefix>-<n>.raw.
//   pelagon_reference_frames <applet> <prefix> <n> [NAME=VALUE ...]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "vboard/grabber.h"

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fprintf(stderr, "usage: %s APPLET PREFIX FRAMES [NAME=VALUE ...]\n", argv[0]);
        return 2;
    }
    try {
        vboard::Grabber g(argv[1]);
        for (int i = 4; i < argc; ++i) {
            const std::string assignment = argv[i];
            const std::size_t eq = assignment.find('=');
            g.set(assignment.substr(0, eq), assignment.substr(eq + 1));
        }
        const long frames = std::strtol(argv[3], nullptr, 10);
        // One buffer per frame, and the acquisition ends with the last: a
        // running one would overwrite frame 1 before it is read.
        g.allocateBuffers(static_cast<unsigned>(frames));
        g.start(frames);
        g.waitForFrame(frames, std::chrono::seconds(10));
        for (long n = 1; n <= frames; ++n) {
            const vboard::Frame f = g.frame(n);
            std::string path = argv[2];
            path += '-';
            path += std::to_string(n);
            path += ".raw";
            std::FILE* out = std::fopen(path.c_str(), "wb");
            if (!out || std::fwrite(f.bytes.data(), 1, f.bytes.size(), out) != f.bytes.size() || std::fclose(out) != 0) {
                std::fprintf(stderr, "cannot write %s\n", path.c_str());
                return 1;
            }
        }
        g.stop();
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 1;
    }
    return 0;
}
