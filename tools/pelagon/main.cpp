// pelagon: the command-line tool for the Pelagon applet on the virtual board.
// Every run loads the applet library, creates one instance on a new virtual
// board, prepares it from --config and --set, runs one command, and saves the
// configuration when asked. Failures print the applet's error number and its
// meaning and end with a non-zero exit status.
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "acquisition.h"
#include "applet_info.h"
#include "config_check.h"
#include "safe_file.h"
#include "serve.h"
#include "session.h"
#include "shell.h"

namespace pelagon_tool {
namespace {

// Keys in the order the tool writes them, as the text output has them.
using Json = nlohmann::ordered_json;

constexpr int kFailure = 1;
constexpr int kUsage = 2;

std::string infoText(const vboard::Grabber& g, int code) {
    uint64_t address = 0;
    g.info(code, nullptr, &address);
    const char* text = reinterpret_cast<const char*>(static_cast<uintptr_t>(address));
    return text ? text : "";
}

void showInfo(Session& s) {
    const vboard::Grabber& g = s.grabber();
    uint64_t imageBytes = 0, imageAddress = 0;
    g.info(GET_EMBEDDED_HAP, &imageBytes, &imageAddress);
    std::printf("applet       %s %s\n", infoText(g, GET_INFO_FRIENDLY_NAME).c_str(),
                infoText(g, GET_INFO_VERSIONSTRING_DETAIL).c_str());
    std::printf("library      %s\n", std::filesystem::absolute(s.appletPath()).lexically_normal().c_str());
    std::printf("description  %s\n", infoText(g, GET_INFO_DESCRIPTION).c_str());
    std::printf("category     %s\n", infoText(g, GET_INFO_CATEGORY).c_str());
    std::printf("board type   %lld (the virtual board)\n", static_cast<long long>(g.info(GET_BOARD_TYPE)));
    std::printf("design       %s, an image of %llu bytes inside the library\n", infoText(g, GET_HAP_ID).c_str(),
                static_cast<unsigned long long>(imageBytes));
    std::printf("channels     %lld camera, %lld DMA channel\n", static_cast<long long>(g.info(GET_NR_OF_CAMS)),
                static_cast<long long>(g.info(GET_NR_OF_DMAS)));
    std::printf("parameters   %zu\n", g.parameters().size());
    std::printf("applet id    %s\n", s.value("FG_APPLET_ID").c_str());
    std::printf("sensors      FPGA %s \u00B0C, board power %s W\n",
                s.value("FG_SYSTEMMONITOR_FPGA_TEMPERATURE").c_str(), s.value("FG_SYSTEMMONITOR_BOARD_POWER").c_str());
}

Json infoJson(Session& s) {
    const vboard::Grabber& g = s.grabber();
    uint64_t imageBytes = 0, imageAddress = 0;
    g.info(GET_EMBEDDED_HAP, &imageBytes, &imageAddress);
    return {{"applet", infoText(g, GET_INFO_FRIENDLY_NAME)},
            {"version", infoText(g, GET_INFO_VERSIONSTRING_DETAIL)},
            {"library", std::filesystem::absolute(s.appletPath()).lexically_normal().string()},
            {"description", infoText(g, GET_INFO_DESCRIPTION)},
            {"category", infoText(g, GET_INFO_CATEGORY)},
            {"board_type", g.info(GET_BOARD_TYPE)},
            {"design", infoText(g, GET_HAP_ID)},
            {"design_bytes", imageBytes},
            {"cameras", g.info(GET_NR_OF_CAMS)},
            {"dma_channels", g.info(GET_NR_OF_DMAS)},
            {"parameters", g.parameters().size()},
            {"applet_id", s.value("FG_APPLET_ID")},
            {"fpga_temperature", s.number("FG_SYSTEMMONITOR_FPGA_TEMPERATURE")},
            {"board_power", s.number("FG_SYSTEMMONITOR_BOARD_POWER")}};
}

std::string accessName(int access) {
    std::string out;
    out += (access & REG_ACCESS_READ) ? 'r' : '-';
    out += (access & REG_ACCESS_WRITE) ? 'w' : '-';
    out += (access & REG_ACCESS_CHANGE) ? 'c' : '-';
    return out;
}

std::string limits(const vboard::ParameterInfo& p) {
    if (p.format == REG_FORMAT_ENUM || p.format == REG_FORMAT_STRING || p.format == REG_FORMAT_GROUP) return "";
    if (p.minimum == 0 && p.maximum == 0) return "";
    return numericRange(p, " step ");
}

bool matches(const vboard::ParameterInfo& p, const std::string& filter) {
    auto lower = [](std::string t) {
        for (char& c : t) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        return t;
    };
    const std::string f = lower(filter);
    return f.empty() || std::to_string(p.id) == f || lower(p.name).find(f) != std::string::npos || lower(p.group).find(f) != std::string::npos ||
           lower(p.displayName).find(f) != std::string::npos;
}

// The published list runs newest top-level group first; shown here in the
// order the applet created its groups, each group's members as published.
std::vector<vboard::ParameterInfo> inCatalogueOrder(std::vector<vboard::ParameterInfo> published) {
    std::vector<std::vector<vboard::ParameterInfo>> blocks;
    std::string top = "\x01";
    for (vboard::ParameterInfo& p : published) {
        const std::string key = p.group.substr(0, p.group.find(" / "));
        if (blocks.empty() || key != top || key.empty()) blocks.emplace_back();
        top = key;
        blocks.back().push_back(std::move(p));
    }
    std::vector<vboard::ParameterInfo> ordered;
    for (auto block = blocks.rbegin(); block != blocks.rend(); ++block)
        for (vboard::ParameterInfo& p : *block) ordered.push_back(std::move(p));
    return ordered;
}

// A value for scripts: numbers as numbers, fields as arrays, enumerations
// and strings as text.
Json jsonValue(const Session& s, const vboard::ParameterInfo& p) {
    std::string text;
    try {
        text = s.value(p, true);
    } catch (const vboard::Error& e) {
        return {{"error", e.code()}};
    }
    if (p.format == REG_FORMAT_ENUM || p.format == REG_FORMAT_STRING) return text;
    const auto number = [](const std::string& t) -> Json {
        const Json n = Json::parse(t, nullptr, false);
        return n.is_number() ? n : Json(t);
    };
    if (p.format != REG_FORMAT_UINTFIELD && p.format != REG_FORMAT_DOUBLEFIELD) return number(text);
    Json elements = Json::array();
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t end = std::min(text.find(' ', start), text.size());
        elements.push_back(number(text.substr(start, end - start)));
        start = end + 1;
    }
    return elements;
}

Json parameterJson(const Session& s, const vboard::ParameterInfo& p) {
    Json j = {{"id", p.id},           {"name", p.name},       {"display_name", utf8(p.displayName)},
                        {"group", utf8(p.group)}, {"type", typeName(p)}, {"access", accessName(p.access)},
                        {"unit", utf8(p.unit)},   {"value", jsonValue(s, p)}};
    if (!limits(p).empty()) {
        j["minimum"] = p.minimum;
        j["maximum"] = p.maximum;
        j["step"] = p.step;
    }
    if (!p.entries.empty()) {
        j["entries"] = Json::array();
        for (const vboard::ParameterInfo::Entry& e : p.entries)
            j["entries"].push_back({{"symbol", e.symbol}, {"display_name", utf8(e.displayName)}, {"value", e.value}});
    }
    return j;
}

void printJson(const Json& j) {
    std::printf("%s\n", j.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}

void listParameters(Session& s, const std::string& filter, bool json) {
    std::vector<vboard::ParameterInfo> shown;
    for (vboard::ParameterInfo& p : inCatalogueOrder(s.grabber().parameters()))
        if (matches(p, filter)) shown.push_back(std::move(p));
    if (shown.empty()) throw std::runtime_error("no parameter matches \"" + filter + "\"");
    if (json) {
        Json list = Json::array();
        for (const vboard::ParameterInfo& p : shown) list.push_back(parameterJson(s, p));
        return printJson(list);
    }
    std::string group = "\x01";
    std::printf("access: r readable, w writable, c changeable during acquisition\n");
    for (const vboard::ParameterInfo& p : shown) {
        if (p.group != group) {
            group = p.group;
            std::printf("\n%s\n", group.empty() ? "(no group)" : utf8(group).c_str());
            std::printf("  %-7s %-44s %-12s %-4s %-28s %-12s %s\n", "id", "name", "type", "acc", "limits", "unit",
                        "value");
        }
        std::string current;
        try {
            current = s.value(p);
        } catch (const vboard::Error& e) {
            current = "(unreadable: error " + std::to_string(e.code()) + ")";
        }
        // printf pads by bytes; the unit may hold a two-byte character.
        std::string unit = utf8(p.unit);
        unit += std::string(static_cast<std::size_t>(std::max(0, 12 - static_cast<int>(p.unit.size()))), ' ');
        std::printf("  %-7d %-44s %-12s %-4s %-28s %s %s\n", p.id, p.name.c_str(), typeName(p).c_str(),
                    accessName(p.access).c_str(), limits(p).c_str(), unit.c_str(), current.c_str());
        if (!p.entries.empty()) {
            std::string values;
            for (const vboard::ParameterInfo::Entry& e : p.entries)
                values += (values.empty() ? "" : ", ") + (e.symbol.empty() ? "\"" + e.displayName + "\"" : e.symbol) +
                          "=" + std::to_string(e.value);
            std::printf("  %-7s   one of %s\n", "", values.c_str());
        }
    }
}

void describe(const Session& s, const vboard::ParameterInfo& p) {
    std::printf("%s (id %d)\n", p.name.c_str(), p.id);
    std::printf("  display name  %s\n", utf8(p.displayName).c_str());
    std::printf("  group         %s\n", p.group.empty() ? "(none)" : utf8(p.group).c_str());
    std::printf("  type          %s\n", typeName(p).c_str());
    std::printf("  access        %s (r readable, w writable, c changeable during acquisition)\n",
                accessName(p.access).c_str());
    if (!limits(p).empty()) {
        std::printf("  limits        %s .. %s\n", formatNumber(p.minimum).c_str(), formatNumber(p.maximum).c_str());
        std::printf("  step          %s\n", p.step > 1e-12 ? formatNumber(p.step).c_str() : "any");
    }
    if (!p.unit.empty()) std::printf("  unit          %s\n", utf8(p.unit).c_str());
    for (const vboard::ParameterInfo::Entry& e : p.entries)
        std::printf("  entry         %-40s %d  \"%s\"\n", e.symbol.c_str(), e.value, utf8(e.displayName).c_str());
    std::printf("  value         %s\n", s.value(p).c_str());
}

// The demonstration: a small, warm diagonal pattern from the simulator, one
// frame per pulse of the trigger's generator.
constexpr const char* kDemoSettings[] = {
    "FG_CAMERASIMULATOR_ENABLE=FG_CAMERASIMULATOR",
    "FG_PIXELFORMAT=BayerRG8",  // 8-bit counters wrap every 256 pixels: full-range stripes
    "FG_CAMERASIMULATOR_WIDTH=640",
    "FG_CAMERASIMULATOR_HEIGHT=480",
    "FG_WIDTH=640",
    "FG_HEIGHT=480",
    "FG_CAMERASIMULATOR_PATTERN=FG_DIAGONAL",
    "FG_CAMERASIMULATOR_ROLL=FG_ON",
    "FG_CAMERASIMULATOR_SELECT_MODE=FG_PIXEL_FREQUENCY",
    "FG_CAMERASIMULATOR_PIXEL_FREQUENCY=100",
    "FG_CAMERASIMULATOR_TRIGGER_MODE=RISING_EDGE_TRIGGERS_FRAME",
    "FG_FORMAT=FG_COL24",
    "FG_SCALINGFACTOR_RED=1.4",
    "FG_SCALINGFACTOR_GREEN=1.0",
    "FG_SCALINGFACTOR_BLUE=0.6",
    "FG_LUT_TYPE=LUT_TYPE_PROCESSING",
    "FG_PROCESSING_GAMMA=1.6",
    "FG_AREATRIGGERMODE=ATM_GENERATOR",
    "FG_TRIGGER_FRAMESPERSECOND=25",
    "FG_TRIGGERCAMERA_OUT_SELECT=PULSEGEN0",
    "FG_TRIGGEROUT_STATS_SOURCE=PULSEGEN0",
};

void demo(Session& s, const std::string& folder, int frames) {
    std::printf("Pelagon demonstration on a virtual board\n\n");
    showInfo(s);

    // --config and --set come after the demonstration's own settings, and
    // the list shows what the board holds in the end.
    std::vector<std::string> shown;
    for (const char* assignment : kDemoSettings) {
        s.assign(assignment);
        shown.emplace_back(assignment, std::string(assignment).find('='));
    }
    s.applyGlobalOptions();
    for (const std::string& assignment : s.options().sets) {
        const std::string name = s.parameter(assignment.substr(0, assignment.find('='))).name;
        if (std::find(shown.begin(), shown.end(), name) == shown.end()) shown.push_back(name);
    }
    std::printf("\nsettings\n");
    for (const std::string& name : shown) std::printf("  %-40s %s\n", name.c_str(), s.value(name).c_str());

    std::printf("\nacquisition: %d frames, one per trigger pulse at %s pulses/s\n", frames,
                s.value("FG_TRIGGER_FRAMESPERSECOND").c_str());
    vboard::Grabber& g = s.grabber();
    AcquireOptions options;
    options.frames = frames;
    options.output = folder;
    options.afterStart = [&] {
        s.set("FG_TRIGGEROUT_STATS_PULSECOUNT_CLEAR", "FG_APPLY");
        s.set("FG_TRIGGERSTATE", "TS_ACTIVE");
        std::printf("  trigger started (FG_TRIGGERSTATE=TS_ACTIVE)\n");
    };
    const AcquireResult acquired = acquire(s, options);
    s.set("FG_TRIGGERSTATE", "TS_SYNC_STOP");
    std::printf("  trigger stopped; pulses counted: %s\n", s.value("FG_TRIGGEROUT_STATS_PULSECOUNT").c_str());

    const std::filesystem::path dir(folder);
    const std::string config = (dir / "pelagon-demo.mcf").string();
    const std::string xml = (dir / "pelagon.xml").string();
    const std::string lut = (dir / "pelagon-demo.lut").string();
    throwIfInterrupted(acquired.files.size(), folder);
    s.saveConfig(config);
    throwIfInterrupted(acquired.files.size(), folder);
    writeWholeFile(xml, g.xml());
    throwIfInterrupted(acquired.files.size(), folder);
    s.saveLut(lut);

    std::printf("\nfiles in %s\n", std::filesystem::absolute(dir).lexically_normal().c_str());
    for (const std::string& f : acquired.files) std::printf("  %s\n", f.c_str());
    std::printf("  %s  (configuration, for --config)\n", config.c_str());
    std::printf("  %s  (GenICam description)\n", xml.c_str());
    std::printf("  %s  (lookup tables)\n", lut.c_str());
}

Json checkJson(const ConfigCheck& check) {
    Json warnings = Json::array();
    for (const ConfigIssue& i : check.issues)
        warnings.push_back({{"line", i.line},
                            {"key", i.key},
                            {"value", i.value},
                            {"kind", i.kind},
                            {"code", i.code},
                            {"error", i.code != 0 ? vboard::errorText(i.code) : ""},
                            {"allowed", i.allowed},
                            {"message", i.message}});
    return {{"file", check.file}, {"crlf", check.crlf}, {"warnings", warnings}};
}

// The first word that is neither an option nor an option's value, when it
// is no command: CLI11 would only say that an argument was left over.
std::string unknownCommand(const std::vector<std::string>& words, const std::vector<std::string>& commands) {
    static const char* const withValue[] = {"--applet", "--config", "--set", "--save-config"};
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string& a = words[i];
        if (a.empty() || a[0] == '-') {
            if (std::find(std::begin(withValue), std::end(withValue), a) != std::end(withValue)) ++i;
            continue;
        }
        return std::find(commands.begin(), commands.end(), a) == commands.end() ? a : "";
    }
    return "";
}

// "FILE:LINE: " of the script line being run, for every message.
std::string where;

void printError(const std::string& message) {
    std::fprintf(stderr, "pelagon: %s%s%s\n", where.c_str(), where.empty() ? "" : ": ", message.c_str());
}

// The message of a failure: what was attempted and, where an error number is
// behind it, the number and its meaning.
void report(const vboard::Error& e) {
    std::string message = e.what();
    if (e.code() != 0 && message.find(std::to_string(e.code())) == std::string::npos)
        message += ": error " + std::to_string(e.code()) + " (" + vboard::errorText(e.code()) + ")";
    printError(message);
    if (const auto* hinted = dynamic_cast<const HintedError*>(&e))
        std::fprintf(stderr, "hint: %s\n", hinted->hint().c_str());
}

// Validators whose refusals say what was wrong with the argument.
CLI::Validator wholeNumber(long long low, long long high) {
    return CLI::Validator(
        [low, high](std::string& text) -> std::string {
            char* end = nullptr;
            errno = 0;
            const long long n = std::strtoll(text.c_str(), &end, 10);
            if (text.empty() || *end != '\0' || errno == ERANGE) return "\"" + text + "\" is not a number";
            if (n < low || n > high)
                return text + " is outside " + std::to_string(low) + " .. " + std::to_string(high);
            return "";
        },
        std::to_string(low) + ".." + std::to_string(high));
}

const CLI::Validator kSeconds(
    [](std::string& text) -> std::string {
        char* end = nullptr;
        const double v = std::strtod(text.c_str(), &end);
        if (text.empty() || *end != '\0' || !std::isfinite(v) || v <= 0)
            return "\"" + text + "\" is not a positive number of seconds";
        return "";
    },
    "SECONDS");

const CLI::Validator kNotEmpty([](std::string& text) { return text.empty() ? std::string("must not be empty") : ""; },
                               "");

// What every command's options are read into.
struct Args {
    GlobalOptions global;
    bool json = false;
    bool noClobber = false;
    std::string filter;
    std::vector<std::string> names;
    bool bare = false;
    std::string name;
    std::vector<std::string> assignments;
    std::string file;
    int port = 0;
    std::string output;
    AcquireOptions acquire;
    std::string stream = "ppm";
    bool failOnDrop = false;
    int pulses = 1;
    double timeout = 0;
    std::string demoFolder = "pelagon-demo";
    int demoFrames = 4;
    std::string script;
    ServeOptions serve;
};

constexpr int kFramesLost = 3;  // --fail-on-drop: frames were lost or overwritten

// What a command needs before it runs.
enum class Needs {
    Nothing,   // no board (help, config check)
    Prepared,  // a board after --config and --set
    Board,     // a board; the command applies --config and --set itself (demo)
};

using Runner = int (*)(Session* s, Args& a);

struct Command {
    const char* path;     // "config save": a command of the group "config"
    const char* summary;
    Needs needs;
    bool json;            // takes --json
    void (*options)(CLI::App& c, Args& a);
    Runner run;
};

void noOptions(CLI::App&, Args&) {}

// The shell reads its lines through runLine, defined below the table.
int runShellCommand(Session* s, Args& a);

const Command kCommands[] = {
    {"help", "this help", Needs::Nothing, false, noOptions, nullptr},
    {"info", "what the applet says about itself and the board", Needs::Prepared, true, noOptions,
     [](Session* s, Args& a) {
         if (a.json)
             printJson(infoJson(*s));
         else
             showInfo(*s);
         return 0;
     }},
    {"params", "every parameter by group: id, type, access, limits, unit, value", Needs::Prepared, true,
     [](CLI::App& c, Args& a) {
         c.add_option("FILTER", a.filter, "only parameters whose id is this or whose name, group or title contains it");
     },
     [](Session* s, Args& a) {
         listParameters(*s, a.filter, a.json);
         return 0;
     }},
    {"describe", "everything the applet publishes about one parameter, and its value", Needs::Prepared, true,
     [](CLI::App& c, Args& a) { c.add_option("NAME", a.name, "FG_WIDTH or 100")->required(); },
     [](Session* s, Args& a) {
         const vboard::ParameterInfo p = s->parameter(a.name);
         if (a.json)
             printJson(parameterJson(*s, p));
         else
             describe(*s, p);
         return 0;
     }},
    {"get", "print parameters by name or id", Needs::Prepared, true,
     [](CLI::App& c, Args& a) {
         c.add_option("NAME", a.names, "FG_WIDTH, 700, ...")->required();
         c.add_flag("--value", a.bare, "only the values, one per line");
     },
     [](Session* s, Args& a) {
         Json values = Json::object();
         for (const std::string& n : a.names) {
             const vboard::ParameterInfo p = s->parameter(n);
             if (a.json)
                 values[p.name] = jsonValue(*s, p);
             else if (a.bare)
                 std::printf("%s\n", s->value(p, true).c_str());
             else
                 std::printf("%s = %s\n", p.name.c_str(), s->value(p, true).c_str());
         }
         if (a.json) printJson(values);
         return 0;
     }},
    {"set", "set parameters (NAME=VALUE or ID=VALUE) in order and print them", Needs::Prepared, true,
     [](CLI::App& c, Args& a) {
         c.add_option("NAME=VALUE", a.assignments, "FG_FORMAT=FG_COL48, FG_WIDTH=640, ...")->required();
     },
     [](Session* s, Args& a) {
         Json values = Json::object();
         for (const std::string& assignment : a.assignments) {
             s->assign(assignment);
             const vboard::ParameterInfo p = s->parameter(assignment.substr(0, assignment.find('=')));
             if (a.json)
                 values[p.name] = jsonValue(*s, p);
             else
                 std::printf("%s = %s\n", p.name.c_str(), s->value(p).c_str());
         }
         if (a.json) printJson(values);
         return 0;
     }},
    {"config save", "save the configuration", Needs::Prepared, false,
     [](CLI::App& c, Args& a) { c.add_option("FILE", a.file)->required(); },
     [](Session* s, Args& a) {
         s->saveConfig(a.file);
         std::printf("configuration saved to %s\n", a.file.c_str());
         return 0;
     }},
    {"config load", "load a configuration (combine with --save-config)", Needs::Prepared, false,
     [](CLI::App& c, Args& a) { c.add_option("FILE", a.file)->required(); },
     [](Session* s, Args& a) {
         s->loadConfig(a.file);
         std::printf("configuration loaded from %s\n", a.file.c_str());
         return 0;
     }},
    {"config check", "name every key the applet would refuse, miss or not read (exit status 1 with warnings)",
     Needs::Nothing, true, [](CLI::App& c, Args& a) { c.add_option("FILE", a.file)->required(); },
     [](Session* s, Args& a) {
         const std::string applet =
             s ? s->appletPath() : a.global.applet.empty() ? vboard::defaultAppletPath() : a.global.applet;
         const ConfigCheck check = checkConfig(applet, a.file);
         printIssues(check);
         if (a.json)
             printJson(checkJson(check));
         else if (check.issues.empty())
             std::printf("%s: no warnings\n", a.file.c_str());
         else
             std::printf("%s: %zu warning%s\n", a.file.c_str(), check.issues.size(),
                         check.issues.size() == 1 ? "" : "s");
         return check.issues.empty() ? 0 : kFailure;
     }},
    {"xml", "the GenICam XML description of the parameters", Needs::Prepared, false,
     [](CLI::App& c, Args& a) {
         c.add_option("--port", a.port, "port (0 .. 3; the applet says how many it has)")->check(wholeNumber(0, 3));
         c.add_option("-o,--output", a.output, "write to this file instead of standard output");
     },
     [](Session* s, Args& a) {
         const int64_t ports = s->grabber().info(GET_NR_OF_CAMS);
         if (a.port >= ports)
             throw UsageError("--port " + std::to_string(a.port) + ": the applet has " + std::to_string(ports) +
                              (ports == 1 ? " port (0)" : " ports (0 .. " + std::to_string(ports - 1) + ")"));
         const std::string text = s->grabber().xml(a.port);
         if (a.output.empty()) {
             std::fwrite(text.data(), 1, text.size(), stdout);
         } else {
             writeWholeFile(a.output, text);
             std::printf("XML description of port %d written to %s (%zu bytes)\n", a.port, a.output.c_str(),
                         text.size());
         }
         return 0;
     }},
    {"lut save", "save the lookup tables in use (FG_LUT_SAVE_FILE)", Needs::Prepared, false,
     [](CLI::App& c, Args& a) { c.add_option("FILE", a.file)->required(); },
     [](Session* s, Args& a) {
         s->saveLut(a.file);
         std::printf("lookup tables saved to %s\n", a.file.c_str());
         return 0;
     }},
    {"lut load", "use the tables of a file (FG_LUT_TYPE=LUT_TYPE_CUSTOM, FG_LUT_CUSTOM_FILE)", Needs::Prepared,
     false, [](CLI::App& c, Args& a) { c.add_option("FILE", a.file)->required(); },
     [](Session* s, Args& a) {
         s->loadLut(a.file);
         std::printf("lookup tables loaded from %s\n", a.file.c_str());
         return 0;
     }},
    {"acquire", "acquire frames into PNG files (frame-NNNN.png), or onto standard output", Needs::Prepared, true,
     [](CLI::App& c, Args& a) {
         c.add_option("-n,--frames", a.acquire.frames, "number of frames")->check(wholeNumber(1, 1000000));
         c.add_option("-o,--output", a.acquire.output,
                      "a folder (created if missing), a file name with the frame number as %d or %05d, one .png "
                      "file, or - for standard output")
             ->check(kNotEmpty);
         c.add_option("--stream", a.stream, "what -o - writes: ppm (a PPM image per frame) or raw (the samples)")
             ->check(CLI::IsMember({"ppm", "raw"}));
         c.add_option("--timeout", a.acquire.timeoutSeconds,
                      "seconds to wait for each frame (default: from the rates)")
             ->check(kSeconds);
         c.add_option("--buffers", a.acquire.buffers,
                      "frame buffers (default: one per frame, within 256 MB); frames the acquisition overtakes in a "
                      "smaller ring are skipped")
             ->check(wholeNumber(2, 100000));
         c.add_flag("--stats", a.acquire.stats, "per-channel minimum, maximum and mean of every frame");
         c.add_flag("--fail-on-drop", a.failOnDrop,
                    "exit status 3 when frames were lost or overwritten before they were saved");
     },
     [](Session* s, Args& a) {
         a.acquire.json = a.json;
         a.acquire.stream = a.stream == "raw" ? StreamFormat::Raw : StreamFormat::Ppm;
         const AcquireResult r = acquire(*s, a.acquire);
         std::FILE* out = messages(a.acquire);
         std::fprintf(out, "%lld frame%s %s in %.2f s (%.1f frames/s)", static_cast<long long>(r.delivered),
                      r.delivered == 1 ? "" : "s", r.where.c_str(), r.seconds,
                      r.seconds > 0 ? static_cast<double>(r.delivered) / r.seconds : 0.0);
         if (r.skipped > 0)
             std::fprintf(out, "; %lld overwritten before they could be saved", static_cast<long long>(r.skipped));
         if (r.lost > 0) std::fprintf(out, "; %lld lost by the board", static_cast<long long>(r.lost));
         std::fprintf(out, "\n");
         if (a.failOnDrop && r.skipped + r.lost > 0) {
             printError(std::to_string(r.skipped + r.lost) + " frames lost or overwritten (--fail-on-drop)");
             return kFramesLost;
         }
         return 0;
     }},
    {"trigger", "send software trigger pulses and report what they did", Needs::Prepared, false,
     [](CLI::App& c, Args& a) {
         // The output pulse counter has 16 bits.
         c.add_option("-n,--pulses", a.pulses, "number of pulses (up to 65535, what the counter holds)")
             ->check(wholeNumber(1, 65535));
         c.add_option("--timeout", a.timeout, "seconds to wait for each frame (default: from the rates)")
             ->check(kSeconds);
     },
     [](Session* s, Args& a) {
         const TriggerResult r = trigger(*s, a.pulses, a.timeout);
         std::printf("%d software pulses sent\n", r.sent);
         std::printf("pulses counted at %s: %u\n", r.countedAt.c_str(), r.counted);
         if (r.acquiring)
             std::printf("frames from the simulator: %lld\n", static_cast<long long>(r.frames));
         else
             std::printf("no frames: the simulator is not the image source or runs free\n");
         return 0;
     }},
    {"demo", "a complete session; --config and --set apply after its settings", Needs::Board, false,
     [](CLI::App& c, Args& a) {
         c.add_option("-o,--output", a.demoFolder, "folder for its files (default ./pelagon-demo)")->check(kNotEmpty);
         c.add_option("-n,--frames", a.demoFrames, "number of frames")->check(wholeNumber(1, 1000));
     },
     [](Session* s, Args& a) {
         demo(*s, a.demoFolder, a.demoFrames);
         return 0;
     }},
    {"serve", "a live viewer in the browser: image, parameters, histogram, trigger (until Ctrl-C)", Needs::Prepared,
     false,
     [](CLI::App& c, Args& a) {
         c.add_option("--host", a.serve.host, "address to listen on (default 127.0.0.1: this machine only)")
             ->check(kNotEmpty);
         c.add_option("--port", a.serve.port, "port (default 8080; 0 picks a free one)")->check(wholeNumber(0, 65535));
     },
     [](Session* s, Args& a) { return serve(*s, a.serve); }},
    {"shell", "one board for many commands, from a terminal or a script file", Needs::Prepared, false,
     [](CLI::App& c, Args& a) {
         c.add_option("SCRIPT", a.script, "a file of commands, one per line (default: standard input)");
     },
     runShellCommand},
};

struct Parsed {
    const Command* command = nullptr;
    std::string help;  // the help text, for "help"
};

// Builds the parser for one command line; inside the shell the options that
// choose and prepare the board are the shell's own and do not come again.
void buildParser(CLI::App& app, Args& a, bool inShell, std::vector<std::pair<const Command*, CLI::App*>>& subs) {
    app.require_subcommand(0, 1);
    app.fallthrough();
    app.footer("Exit status: 0 done, 1 failed, 2 a usage error, 3 frames lost (acquire --fail-on-drop), 128 + the "
               "signal when one ended it (130 Ctrl-C, 143 SIGTERM).");
    app.add_flag("--json", a.json, "one JSON document on standard output (info, params, describe, get, set, config "
                                   "check; acquire: one object per frame)");
    if (!inShell) {
        app.set_version_flag("--version", std::string("pelagon ") + PELAGON_TOOL_VERSION);
        app.add_option("--applet", a.global.applet,
                       "applet library (default: $PELAGON_APPLET, else pelagon/applets/libPelagon.so or else "
                       "libPelagon.so in the folder of libpelagon_grabber.so)")
            ->type_name("PATH");
        app.add_option("--config", a.global.config, "configuration file loaded first")->type_name("FILE");
        app.add_option("--set", a.global.sets, "NAME=VALUE (or ID=VALUE) applied after --config, in order; repeatable")
            ->allow_extra_args(false)
            ->type_name("NAME=VALUE");
        app.add_flag("--strict", a.global.strict, "a configuration with warnings is refused (exit status 1)");
        app.add_option("--save-config", a.global.saveConfig, "save the configuration after the command")
            ->type_name("FILE");
        app.add_flag("--no-clobber", a.noClobber, "never replace an existing file (exit status 1 instead)");
    }
    for (const Command& c : kCommands) {
        if (inShell && std::string(c.path) == "shell") continue;
        const std::string path = c.path;
        CLI::App* parent = &app;
        if (const std::size_t space = path.find(' '); space != std::string::npos) {
            const std::string group = path.substr(0, space);
            try {
                parent = app.get_subcommand(group);
            } catch (const CLI::OptionNotFound&) {
                parent = app.add_subcommand(group, group == "config" ? "configuration files" : "lookup-table files");
                parent->require_subcommand(1);
            }
        }
        CLI::App* sub = parent->add_subcommand(path.substr(path.find(' ') + 1), c.summary);
        c.options(*sub, a);
        subs.emplace_back(&c, sub);
    }
}

std::vector<std::string> commandNames(bool inShell) {
    std::vector<std::string> names;
    for (const Command& c : kCommands) {
        const std::string path = c.path;
        const std::string first = path.substr(0, path.find(' '));
        if ((inShell && first == "shell") || std::find(names.begin(), names.end(), first) != names.end()) continue;
        names.push_back(first);
    }
    return names;
}

// Parses and runs one command line: a whole run of the tool when `shell` is
// null, one line of the shell with its board otherwise.
int runLine(const std::vector<std::string>& words, Session* shell) {
    Args a;
    CLI::App app{shell ? "Commands of the shell; settings persist from one to the next." :
                         "Runs the Pelagon applet on a new virtual board for one command.",
                 "pelagon"};
    std::vector<std::pair<const Command*, CLI::App*>> subs;
    buildParser(app, a, shell != nullptr, subs);

    const std::vector<std::string> commands = commandNames(shell != nullptr);
    if (const std::string unknown = unknownCommand(words, commands); !unknown.empty()) {
        std::string message = "\"" + unknown + "\" is not a command";
        const std::string near = closest(unknown, commands);
        if (!near.empty()) message += "; did you mean \"" + near + "\"?";
        printError(message);
        std::string all;
        for (const std::string& c : commands) all += (all.empty() ? "" : ", ") + c;
        std::fprintf(stderr, "commands: %s\nRun \"%shelp\" for more information.\n", all.c_str(),
                     shell ? "" : "pelagon ");
        return kUsage;
    }
    try {
        std::vector<std::string> reversed(words.rbegin(), words.rend());
        app.parse(reversed);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        printError(e.what());
        std::fprintf(stderr, "Run with --help for more information.\n");
        return kUsage;
    }
    const Command* command = nullptr;
    for (const auto& [c, sub] : subs)
        if (sub->parsed()) command = c;
    if (!command || command->run == nullptr) {
        // App::help() would describe the "help" command itself.
        const std::string text = app.get_formatter()->make_help(&app, "pelagon", CLI::AppFormatMode::Normal);
        std::fprintf(command ? stdout : stderr, "%s", text.c_str());
        return command ? 0 : kUsage;
    }
    if (a.json && !command->json) {
        std::string with;
        for (const Command& c : kCommands)
            if (c.json) with += (with.empty() ? "" : ", ") + std::string(c.path);
        throw UsageError("--json goes with " + with);
    }
    if (shell) return command->run(shell, a);
    if (a.noClobber) keepExistingFiles();
    if (command->needs == Needs::Nothing) return command->run(nullptr, a);
    Session s(a.global);
    catchInterrupts();
    if (command->needs == Needs::Prepared) s.applyGlobalOptions();
    const int status = command->run(&s, a);
    s.finish();
    return status;
}

// Runs `body`, turning what it throws into a message and an exit status.
int reported(const std::function<int()>& body) {
    try {
        return body();
    } catch (const Interrupted& e) {
        printError(e.what());
        return interruptStatus(e.signal);
    } catch (const vboard::Error& e) {
        report(e);
    } catch (const UsageError& e) {
        printError(e.what());
        return kUsage;
    } catch (const std::exception& e) {
        printError(e.what());
    } catch (int code) {
        printError("error " + std::to_string(code) + " (" + vboard::errorText(code) + ")");
    } catch (...) {
        printError("unexpected failure");
    }
    return kFailure;
}

int runShellCommand(Session* s, Args& a) {
    ShellVocabulary vocabulary;
    vocabulary.commands = commandNames(true);
    for (const vboard::ParameterInfo& p : s->grabber().parameters()) {
        vocabulary.names.push_back(p.name);
        for (const vboard::ParameterInfo::Entry& e : p.entries)
            if (!e.symbol.empty()) vocabulary.symbols[p.name].push_back(e.symbol);
    }
    return runShell(a.script, vocabulary, [s](const std::vector<std::string>& words, const std::string& at) {
        where = at;
        const int status = reported([&] { return runLine(words, s); });
        std::fflush(stdout);
        where.clear();
        return status;
    });
}

}  // namespace
}  // namespace pelagon_tool

namespace pelagon_tool {
namespace {

// What was printed must have arrived: a full disk or a closed pipe behind
// standard output is a failure like any other.
int checkedOutput(int status) {
    int error = std::fflush(stdout) == 0 ? 0 : errno;
    if (error == 0 && !std::ferror(stdout)) return status;
    if (error == 0) {
        // An earlier write failed and its errno is gone: one byte more finds it.
        error = ::write(STDOUT_FILENO, "\n", 1) == 1 ? EIO : errno;
    }
    std::fprintf(stderr, "pelagon: cannot write to standard output: %s\n", errnoText(error).c_str());
    return status == 0 ? kFailure : status;
}

}  // namespace
}  // namespace pelagon_tool

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + (argc > 0 ? 1 : 0), argv + argc);
    return pelagon_tool::checkedOutput(
        pelagon_tool::reported([&words] { return pelagon_tool::runLine(words, nullptr); }));
}
