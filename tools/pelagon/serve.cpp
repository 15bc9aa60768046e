#include "serve.h"

#include <httplib.h>
#include <nlohmann/json.hpp>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <sstream>
#include <thread>

#include "acquisition.h"
#include "config_check.h"
#include "safe_file.h"
#include "serve_assets.h"
#include "serve_live.h"

namespace pelagon_tool {

namespace {

using namespace std::chrono_literals;
using Json = nlohmann::ordered_json;

// Threads answering requests: every open stream (a live image, the events)
// holds one, ten viewers hold two each, and the rest take requests.
constexpr std::size_t kThreads = 64;
constexpr auto kEventPoll = 500ms;          // statistics go out this often
constexpr auto kStreamIdle = 2s;            // a stream with no news repeats its frame this often
constexpr std::size_t kEventHistory = 64;   // changes a viewer may fall behind before it reloads all
constexpr int kMaxPulses = 1000;

// A failure with the HTTP status it answers with.
struct HttpError : std::runtime_error {
    HttpError(int s, const std::string& message) : std::runtime_error(message), status(s) {}
    int status;
};

void sendJson(httplib::Response& res, const Json& j, int status = 200) {
    res.status = status;
    res.set_header("Cache-Control", "no-store");
    res.set_content(j.dump(-1, ' ', false, Json::error_handler_t::replace), "application/json");
}

void sendError(httplib::Response& res, int status, const std::string& message) {
    sendJson(res, {{"error", message}}, status);
}

std::string lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

bool isField(REG_FORMAT f) {
    return f == REG_FORMAT_UINTFIELD || f == REG_FORMAT_DOUBLEFIELD || f == REG_FORMAT_UINTFIELD64 ||
           f == REG_FORMAT_INTFIELD || f == REG_FORMAT_INTFIELD64 || f == REG_FORMAT_STRINGFIELD ||
           f == REG_FORMAT_ENUMFIELD || f == REG_FORMAT_LUT;
}

// Fields longer than this (the lookup tables) leave the tree: /api/lut has them.
constexpr unsigned kInlineElements = 16;

Json typedValue(const std::string& text, REG_FORMAT format) {
    if (format == REG_FORMAT_ENUM || format == REG_FORMAT_STRING || format == REG_FORMAT_STRINGFIELD) return text;
    const Json n = Json::parse(text, nullptr, false);
    return n.is_number() ? n : Json(text);
}

Json parameterJson(const Session& s, const vboard::ParameterInfo& p) {
    Json j = {{"name", p.name},
              {"id", p.id},
              {"display_name", utf8(p.displayName)},
              {"category", utf8(p.group)},
              {"type", typeName(p)},
              {"writable", p.writable()},
              {"changeable", (p.access & REG_ACCESS_CHANGE) != 0},
              {"unit", utf8(p.unit)}};
    const bool numeric = p.format != REG_FORMAT_ENUM && p.format != REG_FORMAT_STRING && p.format != REG_FORMAT_GROUP;
    if (numeric && !(p.minimum == 0 && p.maximum == 0)) {
        j["minimum"] = p.minimum;
        j["maximum"] = p.maximum;
        j["step"] = p.step;
    }
    if (!p.entries.empty()) {
        Json entries = Json::array();
        for (const vboard::ParameterInfo::Entry& e : p.entries)
            entries.push_back({{"symbol", e.symbol}, {"display_name", utf8(e.displayName)}, {"value", e.value}});
        j["entries"] = entries;
    }
    if (isField(p.format)) {
        j["elements"] = p.elements;
        if (p.elements > kInlineElements) return j;
    }
    try {
        const std::string text = s.value(p, true);
        if (!isField(p.format)) {
            j["value"] = typedValue(text, p.format);
        } else {
            Json values = Json::array();
            std::istringstream words(text);
            for (std::string w; words >> w;) values.push_back(typedValue(w, p.format));
            j["value"] = values;
        }
    } catch (const vboard::Error& e) {
        j["value"] = nullptr;
        j["read_error"] = e.code();
    }
    return j;
}

// The tree in the order the applet made its categories (it publishes the
// newest top-level category first), each category's parameters as published.
Json parameterTree(const Session& s) {
    std::vector<std::string> order;
    std::map<std::string, Json> categories;
    std::vector<std::string> tops;
    for (const vboard::ParameterInfo& p : s.grabber().parameters()) {
        const std::string name = utf8(p.group);
        const std::string top = name.substr(0, name.find(" / "));
        if (std::find(tops.begin(), tops.end(), top) == tops.end()) tops.push_back(top);
        if (!categories.count(name)) {
            order.push_back(name);
            categories[name] = Json::array();
        }
        categories[name].push_back(parameterJson(s, p));
    }
    Json tree = Json::array();
    for (auto top = tops.rbegin(); top != tops.rend(); ++top)
        for (const std::string& name : order)
            if (name.substr(0, name.find(" / ")) == *top)
                tree.push_back({{"name", name.empty() ? "(no category)" : name}, {"parameters", categories[name]}});
    return tree;
}

Json statsJson(const LiveStats& s) {
    return {{"acquiring", s.acquiring}, {"delivered", s.delivered}, {"lost", s.lost},
            {"fps", std::round(s.fps * 100) / 100}, {"fill_level", s.fillLevel}, {"overflow", s.overflow},
            {"problem", s.problem}};
}

std::string infoText(const vboard::Grabber& g, int code) {
    uint64_t address = 0;
    g.info(code, nullptr, &address);
    const char* text = reinterpret_cast<const char*>(static_cast<uintptr_t>(address));
    return text ? text : "";
}

// A folder of its own under the system's temporary folder, removed with
// everything in it when done: configuration files pass through it.
class ScratchFolder {
public:
    ScratchFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "pelagon-serve-XXXXXX").string();
        if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make a temporary folder: " + errnoText(errno));
        path_ = pattern;
    }
    ~ScratchFolder() {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    std::string file(const std::string& name) const { return (path_ / name).string(); }

private:
    std::filesystem::path path_;
};

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// Keys whose values name files on this machine: an uploaded configuration
// does not get to choose them.
bool namesFile(const std::string& key) {
    return key.size() > 5 && key.compare(key.size() - 5, 5, "_FILE") == 0;
}

}  // namespace

bool isLoopback(const std::string& host) {
    return host == "127.0.0.1" || host == "localhost" || host == "::1" || host.rfind("127.", 0) == 0;
}

struct Server::Impl {
    using Handler = std::function<void(const httplib::Request&, httplib::Response&, const std::smatch&)>;
    struct Route {
        std::string method;
        std::regex pattern;
        Handler handler;
    };

    Session& session;
    ServeOptions options;
    Live live;
    httplib::Server http;
    std::thread listener;
    int port = 0;
    std::atomic<bool> closing{false};
    std::vector<Route> routes;

    // Changes, for the event streams: (number, JSON), the newest last.
    mutable std::mutex eventMutex;
    std::condition_variable eventPosted;
    uint64_t eventNumber = 0;
    std::deque<std::pair<uint64_t, std::string>> events;

    mutable std::mutex timingMutex;
    StreamTiming timing;
    uint64_t timedSequence = 0;

    Impl(Session& s, const ServeOptions& o) : session(s), options(o), live(s) {}

    void post(const std::string& type, Json data) {
        {
            std::lock_guard<std::mutex> lock(eventMutex);
            data["event"] = ++eventNumber;
            data["type"] = type;
            events.emplace_back(eventNumber, data.dump(-1, ' ', false, Json::error_handler_t::replace));
            while (events.size() > kEventHistory) events.pop_front();
        }
        eventPosted.notify_all();
    }

    // --- Safety ----------------------------------------------------------
    // Host names a page may use to reach this server: a page of another site
    // that had its own name resolve to 127.0.0.1 still sends its own name.
    bool hostAllowed(const std::string& hostHeader) const {
        if (!isLoopback(options.host)) return true;
        const std::string suffix = ":" + std::to_string(port);
        for (const char* name : {"127.0.0.1", "localhost", "[::1]"})
            if (hostHeader == std::string(name) + suffix || (port == 80 && hostHeader == name)) return true;
        return false;
    }

    // Refuses what a page of another site could make a browser send.
    httplib::Server::HandlerResponse guard(const httplib::Request& req, httplib::Response& res) {
        const std::string host = req.get_header_value("Host");
        if (!hostAllowed(host)) {
            sendError(res, 403, "the Host header \"" + host + "\" does not name this server");
            return httplib::Server::HandlerResponse::Handled;
        }
        // Only these carry bodies here; the others fall through to a 404 or 405.
        if (req.method != "POST" && req.method != "PUT" && req.method != "PATCH")
            return httplib::Server::HandlerResponse::Unhandled;
        const std::string origin = req.get_header_value("Origin");
        if (!origin.empty() && origin != "http://" + host) {
            sendError(res, 403, "requests from " + origin + " may not change anything here");
            return httplib::Server::HandlerResponse::Handled;
        }
        if (req.get_header_value("Sec-Fetch-Site") == "cross-site") {
            sendError(res, 403, "requests from another site may not change anything here");
            return httplib::Server::HandlerResponse::Handled;
        }
        const std::string type = lower(req.get_header_value("Content-Type"));
        if (type.rfind("application/json", 0) != 0) {
            sendError(res, 415, "send the body as JSON (Content-Type: application/json)");
            return httplib::Server::HandlerResponse::Handled;
        }
        return httplib::Server::HandlerResponse::Unhandled;
    }

    static Json body(const httplib::Request& req) {
        Json j = Json::parse(req.body, nullptr, false);
        if (j.is_discarded()) throw HttpError(400, "the body is not well-formed JSON");
        if (!j.is_object()) throw HttpError(400, "the body must be a JSON object");
        return j;
    }

    // --- Routing ----------------------------------------------------------
    void route(const std::string& method, const std::string& pattern, Handler handler) {
        routes.push_back({method, std::regex(pattern), std::move(handler)});
    }

    void dispatch(const httplib::Request& req, httplib::Response& res) {
        std::string allowed;
        for (const Route& r : routes) {
            std::smatch match;
            if (!std::regex_match(req.path, match, r.pattern)) continue;
            if (r.method == req.method || (req.method == "HEAD" && r.method == "GET")) {
                try {
                    r.handler(req, res, match);
                } catch (const HttpError& e) {
                    sendError(res, e.status, e.what());
                } catch (const vboard::Error& e) {
                    sendJson(res,
                             {{"error", e.what()}, {"code", e.code()}, {"meaning", vboard::errorText(e.code())}},
                             e.code() != 0 ? 422 : 500);
                } catch (const std::exception& e) {
                    sendError(res, 500, e.what());
                }
                return;
            }
            allowed += (allowed.empty() ? "" : ", ") + r.method;
        }
        if (allowed.empty()) return sendError(res, 404, "no such route: " + req.path);
        res.set_header("Allow", allowed);
        sendError(res, 405, req.method + " is not allowed on " + req.path + " (allowed: " + allowed + ")");
    }

    vboard::ParameterInfo parameter(const std::string& name) {
        for (const vboard::ParameterInfo& p : session.grabber().parameters())
            if (p.name == name || std::to_string(p.id) == name) return p;
        throw HttpError(404, "no parameter " + name);
    }

    std::shared_ptr<const LiveFrame> latestFrame() {
        std::shared_ptr<const LiveFrame> f = live.latest();
        if (!f) throw HttpError(404, "no frame yet: start the acquisition");
        return f;
    }

    // --- Handlers ---------------------------------------------------------
    void setParameter(const httplib::Request& req, httplib::Response& res, const std::string& name) {
        const Json j = body(req);
        if (!j.contains("value")) throw HttpError(400, "the body needs a \"value\"");
        const Json& v = j["value"];
        std::string text;
        if (v.is_string())
            text = v.get<std::string>();
        else if (v.is_number())
            text = v.dump();
        else
            throw HttpError(400, "the value must be a number or a string");
        std::unique_lock<std::mutex> lock = live.board();
        const vboard::ParameterInfo p = parameter(name);
        if (!p.writable()) throw HttpError(403, p.name + " is read-only");
        if (p.format == REG_FORMAT_STRING) throw HttpError(403, p.name + " names a file on the server: not offered here");
        if (isField(p.format)) throw HttpError(400, p.name + " is a field: not written through this route");
        // What cannot change while acquiring changes between a stop and a start.
        const bool pause = live.acquiring() && (p.access & REG_ACCESS_CHANGE) == 0;
        if (pause) live.stop();
        int code = 0;
        std::string message;
        try {
            session.set(p.name, text);
        } catch (const vboard::Error& e) {
            code = e.code();
            message = e.what();
        }
        if (pause)
            live.start();
        else
            live.refit();
        const Json now = parameterJson(session, parameter(p.name));
        if (code != 0 || !message.empty()) {
            lock.unlock();
            return sendJson(res,
                            {{"error", message}, {"code", code}, {"meaning", vboard::errorText(code)}, {"parameter", now}},
                            422);
        }
        lock.unlock();
        post("params", {{"name", p.name}});
        sendJson(res, now);
    }

    void acquisition(const httplib::Request& req, httplib::Response& res) {
        const Json j = body(req);
        if (!j.contains("running") || !j["running"].is_boolean())
            throw HttpError(400, "the body needs \"running\": true or false");
        {
            std::unique_lock<std::mutex> lock = live.board();
            if (j["running"].get<bool>())
                live.start();
            else
                live.stop();
        }
        post("acquisition", {{"running", j["running"]}});
        sendJson(res, statsJson(live.stats()));
    }

    void trigger(const httplib::Request& req, httplib::Response& res) {
        const Json j = body(req);
        const Json pulses = j.value("pulses", Json(1));
        if (!pulses.is_number_integer() || pulses.get<int64_t>() < 1 || pulses.get<int64_t>() > kMaxPulses)
            throw HttpError(400, "\"pulses\" must be a whole number 1 .. " + std::to_string(kMaxPulses));
        std::unique_lock<std::mutex> lock = live.board();
        vboard::Grabber& g = session.grabber();
        const int id = g.id("FG_SENDSOFTWARETRIGGER");
        int64_t sent = 0;
        for (; sent < pulses.get<int64_t>(); ++sent) g.set<uint32_t>(id, 1);
        sendJson(res, {{"sent", sent}, {"counted", session.value("FG_TRIGGEROUT_STATS_PULSECOUNT")}});
    }

    void downloadConfig(httplib::Response& res) {
        ScratchFolder scratch;
        const std::string path = scratch.file("pelagon.mcf");
        {
            std::unique_lock<std::mutex> lock = live.board();
            session.saveConfig(path);
        }
        res.set_header("Content-Disposition", "attachment; filename=\"pelagon.mcf\"");
        res.set_header("Cache-Control", "no-store");
        res.set_content(readFile(path), "text/plain; charset=utf-8");
    }

    void uploadConfig(const httplib::Request& req, httplib::Response& res) {
        const Json j = body(req);
        if (!j.contains("text") || !j["text"].is_string()) throw HttpError(400, "the body needs the file as \"text\"");
        std::string text;
        Json ignored = Json::array();
        std::istringstream lines(j["text"].get<std::string>());
        for (std::string line; std::getline(lines, line);) {
            if (!line.empty() && line.back() == '\r') line.pop_back();
            const std::size_t eq = line.find('=');
            const std::string key = line.substr(0, eq);
            if (eq != std::string::npos && namesFile(key)) {
                // The key stays (the applet wants every key), without its file.
                const std::string value = line.substr(eq + 1);
                if (value != "'';" && value != "''" && value != ";") ignored.push_back(key);
                line = key + "='';";
            }
            text += line;
            text += '\n';
        }
        ScratchFolder scratch;
        const std::string path = scratch.file("upload.mcf");
        writeWholeFile(path, text);
        const ConfigCheck check = checkConfig(session.appletPath(), path);
        Json warnings = Json::array();
        for (const ConfigIssue& i : check.issues) warnings.push_back({{"line", i.line}, {"key", i.key}, {"message", i.message}});
        if (text.find("[Port A]") == std::string::npos && text.find("[Kamerasektion]") == std::string::npos)
            throw HttpError(400, "this is not a configuration file of the applet");
        {
            std::unique_lock<std::mutex> lock = live.board();
            const bool was = live.acquiring();
            live.stop();
            int code = 0;
            std::string message;
            try {
                session.grabber().loadConfig(path);
            } catch (const vboard::Error& e) {
                code = e.code();
                message = e.what();
            }
            if (was) live.start();
            if (!message.empty()) {
                lock.unlock();
                post("params", {{"name", ""}});
                return sendJson(res, {{"error", message}, {"code", code}, {"meaning", vboard::errorText(code)},
                                      {"warnings", warnings}}, 422);
            }
        }
        post("params", {{"name", ""}});
        sendJson(res, {{"loaded", true}, {"warnings", warnings}, {"ignored", ignored}});
    }

    void lut(httplib::Response& res) {
        std::unique_lock<std::mutex> lock = live.board();
        vboard::Grabber& g = session.grabber();
        Json j = Json::object();
        const std::pair<const char*, const char*> tables[] = {
            {"red", "FG_LUT_VALUE_RED"}, {"green", "FG_LUT_VALUE_GREEN"}, {"blue", "FG_LUT_VALUE_BLUE"}};
        for (const auto& [channel, name] : tables) {
            const vboard::ParameterInfo p = parameter(name);
            j["maximum"] = p.maximum;
            j[channel] = g.getField(p.id, 0, p.elements);
        }
        lock.unlock();
        sendJson(res, j);
    }

    void pixel(const httplib::Request& req, httplib::Response& res) {
        const auto number = [&](const char* key) {
            const std::string text = req.get_param_value(key);
            char* end = nullptr;
            const long v = std::strtol(text.c_str(), &end, 10);
            if (text.empty() || *end != '\0' || v < 0 || v > 1000000)
                throw HttpError(400, std::string("\"") + key + "\" must be a pixel position, 0 or more");
            return static_cast<uint32_t>(v);
        };
        const uint32_t x = number("x"), y = number("y");
        const std::shared_ptr<const LiveFrame> f = latestFrame();
        const Samples& s = f->samples();
        if (x >= s.width || y >= s.height)
            throw HttpError(400, "(" + std::to_string(x) + ", " + std::to_string(y) + ") is outside the frame of " +
                                     std::to_string(s.width) + " x " + std::to_string(s.height));
        const std::size_t at = (std::size_t{y} * s.width + x) * 3;
        sendJson(res, {{"x", x}, {"y", y}, {"rgb", {s.rgb[at], s.rgb[at + 1], s.rgb[at + 2]}}, {"bits", s.bits},
                       {"significant", s.significant},
                       {"frame", f->number()}});
    }

    void histogram(httplib::Response& res) {
        const std::shared_ptr<const LiveFrame> f = latestFrame();
        const auto& h = f->histogram();
        const Samples& s = f->samples();
        sendJson(res, {{"frame", f->number()}, {"width", s.width}, {"height", s.height}, {"bits", s.bits},
                       {"significant", s.significant}, {"red", h[0]}, {"green", h[1]}, {"blue", h[2]}});
    }

    void snapshot(httplib::Response& res) {
        const std::shared_ptr<const LiveFrame> f = latestFrame();
        const PngText text = {{"Software", std::string("pelagon ") + PELAGON_TOOL_VERSION},
                              {"Frame", std::to_string(f->number())}};
        res.set_header("Content-Disposition",
                       "attachment; filename=\"frame-" + std::to_string(f->number()) + ".png\"");
        res.set_header("Cache-Control", "no-store");
        res.set_content(pngBytes(f->samples(), text), "image/png");
    }

    // multipart/x-mixed-replace: each part one JPEG, the newest frame each
    // time; a viewer that reads slowly skips the frames it had no time for.
    void stream(httplib::Response& res) {
        res.set_header("Cache-Control", "no-store");
        auto after = std::make_shared<uint64_t>(0);
        auto shown = std::make_shared<std::shared_ptr<const LiveFrame>>();
        res.set_chunked_content_provider(
            "multipart/x-mixed-replace; boundary=frame", [this, after, shown](size_t, httplib::DataSink& sink) {
                std::shared_ptr<const LiveFrame> f = live.next(*after, kStreamIdle);
                if (closing) return false;
                if (!f) f = *shown;  // nothing new: the same again, which finds a viewer that left
                if (!f) return sink.is_writable();
                *after = f->sequence();
                *shown = f;
                const std::string& jpeg = f->jpeg();
                std::string head = "--frame\r\nContent-Type: image/jpeg\r\nContent-Length: ";
                head += std::to_string(jpeg.size());
                head += "\r\n\r\n";
                noteSent(*f);
                return sink.write(head.data(), head.size()) && sink.write(jpeg.data(), jpeg.size()) &&
                       sink.write("\r\n", 2);
            });
    }

    void noteSent(const LiveFrame& f) {
        const double latency = std::chrono::duration<double>(SteadyClock::now() - f.arrived()).count();
        std::lock_guard<std::mutex> lock(timingMutex);
        if (f.sequence() <= timedSequence) return;
        timedSequence = f.sequence();
        ++timing.frames;
        timing.encodeSeconds += f.jpegSeconds();
        timing.latencySeconds += latency;
        timing.latencyMax = std::max(timing.latencyMax, latency);
    }

    // Server-sent events: "hello" first, every change as it happens and
    // the acquisition's statistics twice a second.
    void eventStream(httplib::Response& res) {
        res.set_header("Cache-Control", "no-store");
        uint64_t start = 0;
        {
            std::lock_guard<std::mutex> lock(eventMutex);
            start = eventNumber;
        }
        auto seen = std::make_shared<uint64_t>(start);
        auto greeted = std::make_shared<bool>(false);
        res.set_chunked_content_provider("text/event-stream", [this, seen, greeted](size_t, httplib::DataSink& sink) {
            std::string out;
            if (!*greeted) {
                *greeted = true;
                out = "retry: 1000\n";
                out += "event: hello\ndata: " + Json({{"event", *seen}}).dump() + "\n\n";
            } else {
                std::unique_lock<std::mutex> lock(eventMutex);
                eventPosted.wait_for(lock, kEventPoll, [&] { return closing || eventNumber > *seen; });
                if (closing) return false;
                if (!events.empty() && events.front().first > *seen + 1)
                    out += "event: change\ndata: {\"type\":\"all\"}\n\n";  // fell behind: reload everything
                for (const auto& [number, data] : events)
                    if (number > *seen) out += "event: change\ndata: " + data + "\n\n";
                *seen = eventNumber;
            }
            out += "event: stats\ndata: " + statsJson(live.stats()).dump() + "\n\n";
            return sink.write(out.data(), out.size());
        });
    }

    void staticFile(const httplib::Request& req, httplib::Response& res) {
        const std::string path = req.path == "/" ? "/index.html" : req.path;
        for (const WebAsset& a : webAssets())
            if (path == a.path) {
                res.set_header("Cache-Control", "no-cache");
                res.set_content(reinterpret_cast<const char*>(a.data), a.size, a.contentType);
                return;
            }
        sendError(res, 404, "no such page: " + req.path);
    }

    void routesTable() {
        route("GET", "/api/info", [this](auto&, auto& res, auto&) {
            std::unique_lock<std::mutex> lock = live.board();
            const vboard::Grabber& g = session.grabber();
            sendJson(res, {{"applet", infoText(g, GET_INFO_FRIENDLY_NAME)},
                           {"version", infoText(g, GET_INFO_VERSIONSTRING_DETAIL)},
                           {"description", infoText(g, GET_INFO_DESCRIPTION)},
                           {"applet_id", session.value("FG_APPLET_ID")},
                           {"parameters", g.parameters().size()},
                           {"tool", std::string("pelagon ") + PELAGON_TOOL_VERSION}});
        });
        route("GET", "/api/params", [this](auto&, auto& res, auto&) {
            std::unique_lock<std::mutex> lock = live.board();
            Json tree = parameterTree(session);
            lock.unlock();
            sendJson(res, {{"categories", tree}});
        });
        route("GET", "/api/params/([^/]+)", [this](auto&, auto& res, const std::smatch& m) {
            std::unique_lock<std::mutex> lock = live.board();
            sendJson(res, parameterJson(session, parameter(m[1])));
        });
        route("PUT", "/api/params/([^/]+)",
              [this](auto& req, auto& res, const std::smatch& m) { setParameter(req, res, m[1]); });
        route("GET", "/api/acquisition", [this](auto&, auto& res, auto&) { sendJson(res, statsJson(live.stats())); });
        route("POST", "/api/acquisition", [this](auto& req, auto& res, auto&) { acquisition(req, res); });
        route("POST", "/api/trigger", [this](auto& req, auto& res, auto&) { trigger(req, res); });
        route("GET", "/api/config", [this](auto&, auto& res, auto&) { downloadConfig(res); });
        route("PUT", "/api/config", [this](auto& req, auto& res, auto&) { uploadConfig(req, res); });
        route("GET", "/api/xml", [this](auto&, auto& res, auto&) {
            std::unique_lock<std::mutex> lock = live.board();
            res.set_content(session.grabber().xml(0), "application/xml");
        });
        route("GET", "/api/lut", [this](auto&, auto& res, auto&) { lut(res); });
        route("GET", "/api/frame.png", [this](auto&, auto& res, auto&) { snapshot(res); });
        route("GET", "/api/pixel", [this](auto& req, auto& res, auto&) { pixel(req, res); });
        route("GET", "/api/histogram", [this](auto&, auto& res, auto&) { histogram(res); });
        route("GET", "/api/stream.mjpg", [this](auto&, auto& res, auto&) { stream(res); });
        route("GET", "/api/events", [this](auto&, auto& res, auto&) { eventStream(res); });
    }
};

Server::Server(Session& session, const ServeOptions& options) : impl_(std::make_unique<Impl>(session, options)) {
    Impl& m = *impl_;
    m.routesTable();
    m.http.new_task_queue = [] { return new httplib::ThreadPool(kThreads); };
    m.http.set_payload_max_length(options.maxBody);
    m.http.set_write_timeout(2, 0);
    m.http.set_keep_alive_timeout(2);
    m.http.set_pre_routing_handler([&m](const auto& req, auto& res) { return m.guard(req, res); });
    const auto api = [&m](const httplib::Request& req, httplib::Response& res) { m.dispatch(req, res); };
    for (const char* pattern : {"/api", "/api/.*"}) {
        m.http.Get(pattern, api);
        m.http.Post(pattern, api);
        m.http.Put(pattern, api);
        m.http.Delete(pattern, api);
        m.http.Patch(pattern, api);
    }
    m.http.Get("/.*", [&m](const auto& req, auto& res) { m.staticFile(req, res); });
    m.http.set_error_handler([](const httplib::Request&, httplib::Response& res) {
        if (!res.body.empty()) return;
        std::string message = "the request failed";
        if (res.status == 413) message = "the body is larger than this server takes";
        if (res.status == 404) message = "no such route";
        if (res.status == 400) message = "malformed request";
        if (res.status == 414) message = "the address is too long";
        sendError(res, res.status, message);
    });
    m.http.set_exception_handler([](const auto&, auto& res, std::exception_ptr) {
        sendError(res, 500, "the request failed");
    });
    m.port = options.port == 0 ? m.http.bind_to_any_port(options.host) :
             (m.http.bind_to_port(options.host, options.port) ? options.port : -1);
    if (m.port < 0)
        throw std::runtime_error("cannot listen on " + options.host + ":" + std::to_string(options.port) +
                                 " (in use, or not an address of this machine)");
    m.listener = std::thread([&m] { m.http.listen_after_bind(); });
}

Server::~Server() {
    stop();
}

int Server::port() const {
    return impl_->port;
}

std::string Server::url() const {
    const std::string& host = impl_->options.host;
    const std::string shown = host == "0.0.0.0" || host == "::" ? "127.0.0.1" : host;
    std::string url = "http://";
    url += shown.find(':') != std::string::npos ? "[" + shown + "]" : shown;
    url += ":" + std::to_string(impl_->port) + "/";
    return url;
}

void Server::stop() {
    Impl& m = *impl_;
    if (m.closing.exchange(true)) return;
    m.eventPosted.notify_all();
    m.live.close();
    m.http.stop();
    if (m.listener.joinable()) m.listener.join();
}

bool Server::running() const {
    return impl_->http.is_running();
}

StreamTiming Server::timing() const {
    std::lock_guard<std::mutex> lock(impl_->timingMutex);
    return impl_->timing;
}

int serve(Session& session, const ServeOptions& options) {
    Server server(session, options);
    std::printf("pelagon serve: open %s in a browser (Ctrl-C stops)\n", server.url().c_str());
    if (!isLoopback(options.host))
        std::fprintf(stderr,
                     "pelagon: warning: --host %s lets other machines reach this viewer and change the board's "
                     "settings; there is no password\n",
                     options.host.c_str());
    std::fflush(stdout);
    // Give the listener a moment to start before watching it.
    std::this_thread::sleep_for(100ms);
    while (interruptSignal() == 0 && server.running()) std::this_thread::sleep_for(100ms);
    const bool failed = interruptSignal() == 0;
    server.stop();
    std::printf("pelagon serve: stopped\n");
    return failed ? 1 : 0;
}

}  // namespace pelagon_tool
