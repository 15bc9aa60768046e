// The live view of `pelagon serve` under load, in one run: 1024 x 1024
// frames of 24 bits from the simulator at up to 60 frames/s, one viewer
// reading the MJPEG stream. Each figure comes with the baseline it is held
// against, measured in the same run:
//   - frames/s the viewer received, against frames/s the board delivered
//     (target: all of them);
//   - JPEG encoding per frame, against the image path's own time to render
//     the same frame;
//   - the server's latency from a frame's arrival to the first byte of it
//     sent, against the frame period (target: under one period).
// Run: build/<preset>/bin/bench_serve [seconds]
#include <httplib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "serve.h"
#include "session.h"
#include "image_path.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr double kRate = 60;

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[v.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
    // Seconds to count; anything else on the command line (bench.sh passes
    // Google Benchmark flags to every program) leaves the default.
    const double given = argc > 1 ? std::atof(argv[1]) : 0;
    const double seconds = given >= 1 ? given : 5.0;
    pelagon_tool::GlobalOptions options;
    options.applet = PELAGON_APPLET_PATH;
    options.sets = {"FG_CAMERASIMULATOR_ENABLE=FG_CAMERASIMULATOR",
                    "FG_CAMERASIMULATOR_WIDTH=1024",
                    "FG_CAMERASIMULATOR_HEIGHT=1024",
                    "FG_WIDTH=1024",
                    "FG_HEIGHT=1024",
                    "FG_FORMAT=FG_COL24",
                    "FG_CAMERASIMULATOR_PATTERN=FG_DIAGONAL",
                    "FG_CAMERASIMULATOR_ROLL=FG_ON",
                    "FG_CAMERASIMULATOR_FRAMERATE=" + std::to_string(kRate)};
    try {
        pelagon_tool::Session session(options);
        session.applyGlobalOptions();

        // The image path alone, frame after frame of the rolling pattern.
        // Steady: lines the pattern repeats are remembered from frame to
        // frame. Fresh: a new pipeline for each frame, every line computed.
        std::vector<double> renders, freshRenders;
        {
            const vboard::ImageSettings settings = vboard::imageSettings(session.grabber().board());
            vboard::ImagePipeline pipeline(settings);
            std::vector<uint8_t> frame(pipeline.frameBytes());
            for (uint64_t k = 0; k < 40; ++k) {
                const auto begin = Clock::now();
                pipeline.render(k, frame.data(), frame.size());
                renders.push_back(std::chrono::duration<double>(Clock::now() - begin).count());
            }
            for (uint64_t k = 0; k < 10; ++k) {
                const auto begin = Clock::now();
                vboard::ImagePipeline fresh(settings);
                fresh.render(k, frame.data(), frame.size());
                freshRenders.push_back(std::chrono::duration<double>(Clock::now() - begin).count());
            }
        }

        pelagon_tool::ServeOptions serveOptions;
        serveOptions.port = 0;
        pelagon_tool::Server server(session, serveOptions);
        httplib::Client client("127.0.0.1", server.port());
        if (auto r = client.Post("/api/acquisition", R"({"running":true})", "application/json"); !r || r->status != 200)
            throw std::runtime_error("the acquisition did not start");

        // One viewer: counts the frames of the stream after a second to settle.
        int frames = 0;
        const Clock::time_point began = Clock::now();
        Clock::time_point countFrom{};
        int64_t boardFrom = 0;
        pelagon_tool::StreamTiming settled{};
        client.set_read_timeout(5, 0);
        client.Get("/api/stream.mjpg", [&](const char* data, size_t size) {
            const Clock::time_point now = Clock::now();
            if (countFrom == Clock::time_point{} && now - began > std::chrono::seconds(1)) {
                countFrom = now;
                boardFrom = session.grabber().lastFrame();
                settled = server.timing();
            }
            if (countFrom != Clock::time_point{})
                for (std::string_view s(data, size); s.find("Content-Type: image/jpeg") != std::string_view::npos;
                     s.remove_prefix(s.find("Content-Type: image/jpeg") + 10))
                    ++frames;
            return now - began < std::chrono::duration<double>(seconds + 1);
        });
        const double span = std::chrono::duration<double>(Clock::now() - countFrom).count();
        const int64_t boardFrames = session.grabber().lastFrame() - boardFrom;
        const pelagon_tool::StreamTiming t = server.timing();
        server.stop();

        const double boardRate = static_cast<double>(boardFrames) / span;
        const double viewerRate = frames / span;
        const uint64_t timed = t.frames - settled.frames;
        const double encode = timed ? (t.encodeSeconds - settled.encodeSeconds) / static_cast<double>(timed) : 0;
        const double latency = timed ? (t.latencySeconds - settled.latencySeconds) / static_cast<double>(timed) : 0;
        const double render = median(renders), freshRender = median(freshRenders);
        const double period = boardRate > 0 ? 1 / boardRate : 0;

        std::printf("pelagon serve, 1024 x 1024 24-bit frames, simulator set to %.0f frames/s, %.1f s counted\n", kRate,
                    span);
        std::printf("  board delivered   %7.2f frames/s                     (baseline)\n", boardRate);
        std::printf("  viewer received   %7.2f frames/s  = %.3f x the board  (target 1.0)\n", viewerRate,
                    boardRate > 0 ? viewerRate / boardRate : 0);
        std::printf("  image path        %7.2f ms/frame steady, %.2f ms fresh (medians)  (baselines)\n", render * 1e3,
                    freshRender * 1e3);
        std::printf("  JPEG encoding     %7.2f ms/frame  = %.3f x the steady image path, %.3f x the fresh one\n",
                    encode * 1e3, render > 0 ? encode / render : 0, freshRender > 0 ? encode / freshRender : 0);
        std::printf("  added latency     %7.2f ms mean, %.2f ms max  = %.3f x the frame period of %.2f ms (target < 1)\n",
                    latency * 1e3, t.latencyMax * 1e3, period > 0 ? latency / period : 0, period * 1e3);
        return 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench_serve: %s\n", e.what());
        return 1;
    }
}
