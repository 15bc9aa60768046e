// `pelagon serve`: a live viewer in the browser. An HTTP server that keeps
// the session's board and one acquisition, answers a JSON API under /api/,
// streams the newest frame to every viewer as MJPEG and every change as
// server-sent events, and serves the page built into the tool.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "session.h"

namespace pelagon_tool {

struct ServeOptions {
    std::string host = "127.0.0.1";
    int port = 8080;                     // 0: a free port, chosen by the system
    std::size_t maxBody = 4u << 20;      // larger request bodies are refused (413)
};

// True for the names and addresses that reach this machine only.
bool isLoopback(const std::string& host);

// What the stream has cost so far, for the benchmark.
struct StreamTiming {
    uint64_t frames = 0;        // frames sent to a viewer at least once
    double encodeSeconds = 0;   // JPEG encoding, summed over those frames
    double latencySeconds = 0;  // frame arrival to the first byte of it sent, summed
    double latencyMax = 0;
};

class Server {
public:
    // Binds the address and starts answering; throws std::runtime_error
    // naming the address when it cannot be had.
    Server(Session& session, const ServeOptions& options);
    // stop().
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    int port() const;
    // "http://HOST:PORT/"
    std::string url() const;
    // Ends every stream, stops answering and stops the acquisition; the
    // session's board stays.
    void stop();
    // False once the server stopped on its own (the listening socket failed).
    bool running() const;
    StreamTiming timing() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// Serves until SIGINT or SIGTERM (catchInterrupts()), then stops cleanly:
// 0, or 1 when the server ended on its own.
int serve(Session& session, const ServeOptions& options);

}  // namespace pelagon_tool
