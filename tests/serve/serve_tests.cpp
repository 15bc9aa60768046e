// The JSON API of `pelagon serve`, with the server in this process on a free
// port: every route, the applet's refusals, the requests it turns away, two
// viewers seeing each other's changes, and a stalled viewer that must not
// slow another.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <netinet/in.h>
#include <nlohmann/json.hpp>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <fstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "serve.h"
#include "session.h"

namespace {

using namespace std::chrono_literals;
using Json = nlohmann::json;
using pelagon_tool::GlobalOptions;
using pelagon_tool::Server;
using pelagon_tool::ServeOptions;
using pelagon_tool::Session;

GlobalOptions simulator() {
    GlobalOptions o;
    o.applet = PELAGON_APPLET_PATH;
    o.sets = {"FG_CAMERASIMULATOR_ENABLE=FG_CAMERASIMULATOR", "FG_CAMERASIMULATOR_FRAMERATE=50"};
    return o;
}

class ServeTest : public ::testing::Test {
protected:
    ServeTest() : session(simulator()) {
        session.applyGlobalOptions();
        ServeOptions o;
        o.port = 0;
        o.maxBody = 64 * 1024;
        server = std::make_unique<Server>(session, o);
    }

    httplib::Client client() const {
        httplib::Client c("127.0.0.1", server->port());
        c.set_read_timeout(5, 0);
        return c;
    }
    httplib::Result send(const std::string& method, const std::string& path, const std::string& body = "",
                         const httplib::Headers& headers = {}) const {
        httplib::Client c = client();
        if (method == "GET") return c.Get(path, headers);
        if (method == "PUT") return c.Put(path, headers, body, "application/json");
        if (method == "POST") return c.Post(path, headers, body, "application/json");
        return c.Delete(path, headers);
    }
    static Json json(const httplib::Result& r) {
        EXPECT_TRUE(r) << "no answer";
        return r ? Json::parse(r->body, nullptr, false) : Json();
    }
    void start() {
        ASSERT_EQ(send("POST", "/api/acquisition", R"({"running":true})")->status, 200);
        for (int i = 0; i < 200 && send("GET", "/api/histogram")->status != 200; ++i) std::this_thread::sleep_for(10ms);
    }

    Session session;
    std::unique_ptr<Server> server;
};

TEST_F(ServeTest, ReadRoutesDescribeTheApplet) {
    EXPECT_EQ(json(send("GET", "/api/info"))["applet"], "Pelagon");
    const Json tree = json(send("GET", "/api/params"));
    std::size_t listed = 0;
    for (const Json& c : tree["categories"]) listed += c["parameters"].size();
    EXPECT_EQ(listed, session.grabber().parameters().size());
    const Json width = json(send("GET", "/api/params/FG_WIDTH"));
    EXPECT_EQ(width["value"], 1024);
    EXPECT_EQ(width["step"], 16);
    EXPECT_EQ(width["category"], "ROI");
    EXPECT_EQ(json(send("GET", "/api/params/700"))["entries"].size(), 3u);  // by id: FG_FORMAT
    EXPECT_EQ(send("GET", "/api/xml")->body.rfind("<?xml", 0), 0u);
    const Json lut = json(send("GET", "/api/lut"));
    EXPECT_EQ(lut["red"].size(), 4096u);
    EXPECT_EQ(lut["blue"][4095], 4095);
    const auto config = send("GET", "/api/config");
    EXPECT_NE(config->body.find("FG_WIDTH=1024;"), std::string::npos);
    EXPECT_NE(config->get_header_value("Content-Disposition").find("attachment"), std::string::npos);
    const auto page = send("GET", "/");
    EXPECT_EQ(page->status, 200);
    EXPECT_NE(page->get_header_value("Content-Type").find("text/html"), std::string::npos);
}

TEST_F(ServeTest, WritesReachTheAppletAndRefusalsKeepTheOldValue) {
    const auto ok = send("PUT", "/api/params/FG_WIDTH", R"({"value":512})");
    EXPECT_EQ(ok->status, 200);
    EXPECT_EQ(json(ok)["value"], 512);
    EXPECT_EQ(session.value("FG_WIDTH"), "512");
    EXPECT_EQ(send("PUT", "/api/params/FG_FORMAT", R"({"value":"FG_COL48"})")->status, 200);
    EXPECT_EQ(session.value("FG_FORMAT"), "FG_COL48");

    const auto refused = send("PUT", "/api/params/FG_WIDTH", R"({"value":1000})");
    EXPECT_EQ(refused->status, 422);
    const Json r = json(refused);
    EXPECT_EQ(r["code"], -7080);
    EXPECT_FALSE(r["meaning"].get<std::string>().empty());
    EXPECT_NE(r["error"].get<std::string>().find("steps of 16"), std::string::npos);
    EXPECT_EQ(r["parameter"]["value"], 512);
    EXPECT_EQ(session.value("FG_WIDTH"), "512");
}

TEST_F(ServeTest, BadRequestsGetClearRefusals) {
    struct Case {
        const char* method;
        const char* path;
        const char* body;
        httplib::Headers headers;
        int status;
    };
    const std::string big(100 * 1024, ' ');
    const Case cases[] = {
        {"DELETE", "/api/params/FG_WIDTH", "", {}, 405},
        {"POST", "/api/info", "{}", {}, 405},
        {"GET", "/api/nothing", "", {}, 404},
        {"GET", "/nothing.html", "", {}, 404},
        {"GET", "/api/params/FG_NOTHING", "", {}, 404},
        {"PUT", "/api/params/FG_NOTHING", R"({"value":1})", {}, 404},
        {"PUT", "/api/params/FG_WIDTH", "{\"value\":", {}, 400},
        {"PUT", "/api/params/FG_WIDTH", "[1]", {}, 400},
        {"PUT", "/api/params/FG_WIDTH", R"({"value":true})", {}, 400},
        {"PUT", "/api/params/FG_APPLET_ID", R"({"value":"x"})", {}, 403},          // read-only
        {"PUT", "/api/params/FG_LUT_SAVE_FILE", R"({"value":"/tmp/x"})", {}, 403},  // names a file
        {"PUT", "/api/params/FG_LUT_VALUE_RED", R"({"value":1})", {}, 400},
        {"POST", "/api/acquisition", R"({"running":"yes"})", {}, 400},
        {"POST", "/api/trigger", R"({"pulses":0})", {}, 400},
        {"PUT", "/api/config", R"({"text":"hello"})", {}, 400},
        {"GET", "/api/frame.png", "", {}, 404},  // nothing acquired yet
        {"GET", "/api/pixel?x=1", "", {}, 400},
        {"GET", "/api/info", "", {{"Host", "attacker.example:80"}}, 403},
        {"PUT", "/api/params/FG_WIDTH", R"({"value":512})", {{"Origin", "http://attacker.example"}}, 403},
        {"PUT", "/api/params/FG_WIDTH", R"({"value":512})", {{"Sec-Fetch-Site", "cross-site"}}, 403},
    };
    for (const Case& c : cases) {
        const auto r = send(c.method, c.path, c.body, c.headers);
        ASSERT_TRUE(r) << c.method << " " << c.path;
        EXPECT_EQ(r->status, c.status) << c.method << " " << c.path << ": " << r->body;
        EXPECT_TRUE(json(r).contains("error")) << c.method << " " << c.path << ": " << r->body;
    }
    httplib::Client c = client();
    EXPECT_EQ(c.Put("/api/params/FG_WIDTH", R"({"value":512})", "text/plain")->status, 415);
    EXPECT_EQ(c.Put("/api/config", big, "application/json")->status, 413);
    EXPECT_EQ(session.value("FG_WIDTH"), "1024");
    // The applet's own refusal of a pulse outside software trigger mode.
    const auto pulse = send("POST", "/api/trigger", R"({"pulses":1})");
    EXPECT_EQ(pulse->status, 422);
    EXPECT_EQ(json(pulse)["code"], -2140);
}

TEST_F(ServeTest, LiveFramesKeepTheirDepthAcrossFormatChanges) {
    start();
    const Json h = json(send("GET", "/api/histogram"));
    uint64_t pixels = 0;
    for (const Json& n : h["green"]) pixels += n.get<uint64_t>();
    EXPECT_EQ(pixels, 1024u * 1024u);
    EXPECT_EQ(send("GET", "/api/frame.png")->body.substr(1, 3), "PNG");
    const Json stats = json(send("GET", "/api/acquisition"));
    EXPECT_TRUE(stats["acquiring"]);

    // Not changeable while acquiring: the server stops, sets and starts again,
    // with buffers of the new size.
    ASSERT_EQ(send("PUT", "/api/params/FG_FORMAT", R"({"value":"FG_COL48"})")->status, 200);
    Json pixel;
    for (int i = 0; i < 200; ++i) {
        pixel = json(send("GET", "/api/pixel?x=100&y=7"));
        if (pixel.value("significant", 0) == 12) break;
        std::this_thread::sleep_for(10ms);
    }
    EXPECT_EQ(pixel["significant"], 12);
    EXPECT_EQ(pixel["rgb"].size(), 3u);
    EXPECT_EQ(send("GET", "/api/pixel?x=1024&y=0")->status, 400);
    const std::string png = send("GET", "/api/frame.png")->body;
    ASSERT_GT(png.size(), 33u);
    EXPECT_EQ(static_cast<int>(png[24]), 16);  // IHDR bit depth
    EXPECT_TRUE(json(send("GET", "/api/acquisition"))["acquiring"]);

    EXPECT_EQ(send("POST", "/api/acquisition", R"({"running":false})")->status, 200);
    EXPECT_FALSE(session.grabber().acquiring());
}

TEST_F(ServeTest, ConfigurationRoundTripLeavesFileNamesAlone) {
    const std::string saved = send("GET", "/api/config")->body;
    ASSERT_EQ(send("PUT", "/api/params/FG_WIDTH", R"({"value":256})")->status, 200);
    const std::string withFile = saved + "FG_LUT_SAVE_FILE='/tmp/pelagon-serve-must-not-exist.lut';\n";
    const auto loaded = send("PUT", "/api/config", Json({{"text", withFile}}).dump());
    ASSERT_EQ(loaded->status, 200) << loaded->body;
    EXPECT_EQ(json(loaded)["ignored"], Json::array({"FG_LUT_SAVE_FILE"}));
    EXPECT_EQ(session.value("FG_WIDTH"), "1024");
    EXPECT_FALSE(std::filesystem::exists("/tmp/pelagon-serve-must-not-exist.lut"));
}

// Reads the event stream in the background until `want` shows up.
struct EventReader {
    EventReader(int port, std::string want) : thread([this, port, want] {
        httplib::Client c("127.0.0.1", port);
        c.Get("/api/events", [&](const char* data, size_t size) {
            text.append(data, size);
            if (text.find(want) != std::string::npos) seen = true;
            return !seen && !quit;
        });
    }) {}
    ~EventReader() {
        quit = true;
        thread.join();
    }
    std::string text;
    std::atomic<bool> seen{false}, quit{false};
    std::thread thread;
};

TEST_F(ServeTest, AChangeFromOneViewerReachesTheOthers) {
    EventReader other(server->port(), "\"name\":\"FG_HEIGHT\"");
    std::this_thread::sleep_for(100ms);
    const auto began = std::chrono::steady_clock::now();
    ASSERT_EQ(send("PUT", "/api/params/FG_HEIGHT", R"({"value":480})")->status, 200);
    while (!other.seen && std::chrono::steady_clock::now() - began < 2s) std::this_thread::sleep_for(5ms);
    EXPECT_TRUE(other.seen);
    EXPECT_LT(std::chrono::steady_clock::now() - began, 1s);
}

TEST_F(ServeTest, AStalledViewerDoesNotSlowAnother) {
    start();
    // A viewer that asks for the stream and never reads it.
    const int stalled = ::socket(AF_INET, SOCK_STREAM, 0);
    int small = 4096;
    ::setsockopt(stalled, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(server->port()));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::connect(stalled, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    const std::string request = "GET /api/stream.mjpg HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server->port()) + "\r\n\r\n";
    ASSERT_EQ(::send(stalled, request.data(), request.size(), 0), static_cast<ssize_t>(request.size()));
    std::this_thread::sleep_for(500ms);  // long enough to fill its buffers

    int frames = 0;
    const auto began = std::chrono::steady_clock::now();
    httplib::Client c = client();
    c.Get("/api/stream.mjpg", [&](const char* data, size_t size) {
        for (std::string_view s(data, size); s.find("Content-Type: image/jpeg") != std::string_view::npos;
             s.remove_prefix(s.find("Content-Type: image/jpeg") + 10))
            ++frames;
        return std::chrono::steady_clock::now() - began < 2s;
    });
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
    ::close(stalled);
    // 50 frames/s from the simulator; a machine under load may drop some.
    EXPECT_GT(frames / seconds, 25.0) << frames << " frames in " << seconds << " s";
}

long residentKb() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
    return 0;
}

TEST_F(ServeTest, TenViewersGetFramesWithinBoundedMemory) {
    start();
    const long before = residentKb();
    std::array<std::atomic<int>, 10> frames{};
    std::vector<std::thread> viewers;
    std::vector<std::unique_ptr<EventReader>> events;
    for (std::atomic<int>& count : frames) {
        events.push_back(std::make_unique<EventReader>(server->port(), "never sent"));
        viewers.emplace_back([&count, port = server->port()] {
            httplib::Client c("127.0.0.1", port);
            const auto began = std::chrono::steady_clock::now();
            c.Get("/api/stream.mjpg", [&](const char* data, size_t size) {
                if (std::string_view(data, size).find("image/jpeg") != std::string_view::npos) ++count;
                return std::chrono::steady_clock::now() - began < 2s;
            });
        });
    }
    for (std::thread& t : viewers) t.join();
    const long grown = residentKb() - before;
    for (const std::atomic<int>& count : frames) EXPECT_GE(count.load(), 10);
#ifdef __SANITIZE_ADDRESS__
    (void)grown;  // its quarantine keeps freed frames on purpose
#else
    // Each viewer holds at most the frame it sends; the board's 3 MB frames
    // come and go.
    EXPECT_LT(grown, 64 * 1024) << grown << " kB more";
#endif
}

TEST_F(ServeTest, StopEndsOpenStreamsPromptly) {
    start();
    EventReader events(server->port(), "never sent");
    std::thread viewer([port = server->port()] {
        httplib::Client c("127.0.0.1", port);
        c.Get("/api/stream.mjpg", [](const char*, size_t) { return true; });
    });
    std::this_thread::sleep_for(300ms);
    const auto began = std::chrono::steady_clock::now();
    server->stop();
    EXPECT_LT(std::chrono::steady_clock::now() - began, 2s);
    EXPECT_FALSE(session.grabber().acquiring());
    viewer.join();
}

}  // namespace
