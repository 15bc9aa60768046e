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
#include <string>
#include <utility>
#include <vector>

#include "acquisition.h"
#include "applet_info.h"
#include "config_check.h"
#include "safe_file.h"
#include "session.h"

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

    std::printf("\nsettings\n");
    for (const char* assignment : kDemoSettings) {
        s.assign(assignment);
        const std::string name(assignment, std::string(assignment).find('='));
        std::printf("  %-40s %s\n", name.c_str(), s.value(name).c_str());
    }
    s.applyGlobalOptions();

    std::printf("\nacquisition: %d frames, one per trigger pulse at %s pulses/s\n", frames,
                s.value("FG_TRIGGER_FRAMESPERSECOND").c_str());
    vboard::Grabber& g = s.grabber();
    AcquireOptions options;
    options.frames = frames;
    options.folder = folder;
    options.afterStart = [&] {
        s.set("FG_TRIGGEROUT_STATS_PULSECOUNT_CLEAR", "FG_APPLY");
        s.set("FG_TRIGGERSTATE", "TS_ACTIVE");
        std::printf("  trigger started (FG_TRIGGERSTATE=TS_ACTIVE)\n");
    };
    const AcquireResult acquired = acquire(s, options);
    s.set("FG_TRIGGERSTATE", "TS_SYNC_STOP");
    const auto stopIfInterrupted = [&] {
        if (interruptSignal() != 0) throw Interrupted(interruptSignal(), acquired.files.size(), folder);
    };
    std::printf("  trigger stopped; pulses counted: %s\n", s.value("FG_TRIGGEROUT_STATS_PULSECOUNT").c_str());

    const std::filesystem::path dir(folder);
    const std::string config = (dir / "pelagon-demo.mcf").string();
    const std::string xml = (dir / "pelagon.xml").string();
    const std::string lut = (dir / "pelagon-demo.lut").string();
    stopIfInterrupted();
    s.saveConfig(config);
    stopIfInterrupted();
    writeWholeFile(xml, g.xml());
    stopIfInterrupted();
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
std::string unknownCommand(int argc, char** argv, const std::vector<std::string>& commands) {
    static const char* const withValue[] = {"--applet", "--config", "--set", "--save-config"};
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a.empty() || a[0] == '-') {
            if (std::find(std::begin(withValue), std::end(withValue), a) != std::end(withValue)) ++i;
            continue;
        }
        return std::find(commands.begin(), commands.end(), a) == commands.end() ? a : "";
    }
    return "";
}

// The message of a failure: what was attempted and, where an error number is
// behind it, the number and its meaning.
void report(const vboard::Error& e) {
    std::string message = e.what();
    if (e.code() != 0 && message.find(std::to_string(e.code())) == std::string::npos)
        message += ": error " + std::to_string(e.code()) + " (" + vboard::errorText(e.code()) + ")";
    std::fprintf(stderr, "pelagon: %s\n", message.c_str());
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

int run(int argc, char** argv) {
    CLI::App app{"Runs the Pelagon applet on a new virtual board for one command.", "pelagon"};
    app.require_subcommand(0, 1);
    app.fallthrough();
    app.set_version_flag("--version", std::string("pelagon ") + PELAGON_TOOL_VERSION);
    bool json = false;
    app.add_flag("--json", json, "one JSON document on standard output (info, params, get, set, config check)");
    GlobalOptions global;
    app.add_option("--applet", global.applet,
                   "applet library (default: $PELAGON_APPLET, else pelagon/applets/libPelagon.so or else "
                   "libPelagon.so in the folder of libpelagon_grabber.so)")
        ->type_name("PATH");
    app.add_option("--config", global.config, "configuration file loaded first")->type_name("FILE");
    app.add_option("--set", global.sets, "NAME=VALUE (or ID=VALUE) applied after --config, in order; repeatable")
        ->allow_extra_args(false)
        ->type_name("NAME=VALUE");
    app.add_flag("--strict", global.strict, "a configuration with warnings is refused (exit status 1)");
    app.add_option("--save-config", global.saveConfig, "save the configuration after the command")->type_name("FILE");

    auto* help = app.add_subcommand("help", "this help");
    auto* info = app.add_subcommand("info", "what the applet says about itself and the board");
    std::string filter;
    auto* params = app.add_subcommand("params", "every parameter by group: id, type, access, limits, unit, value");
    params->add_option("FILTER", filter, "only parameters whose name, group or title contains this");
    std::vector<std::string> names;
    auto* get = app.add_subcommand("get", "print parameters by name or id");
    get->add_option("NAME", names, "FG_WIDTH, 700, ...")->required();
    bool bare = false;
    get->add_flag("--value", bare, "only the values, one per line");
    std::string describeName;
    auto* describeCommand =
        app.add_subcommand("describe", "everything the applet publishes about one parameter, and its value");
    describeCommand->add_option("NAME", describeName, "FG_WIDTH or 100")->required();
    std::vector<std::string> assignments;
    auto* set = app.add_subcommand("set", "set parameters (NAME=VALUE or ID=VALUE) in order and print them");
    set->add_option("NAME=VALUE", assignments, "FG_FORMAT=FG_COL48, FG_WIDTH=640, ...")->required();

    std::string file;
    auto* config = app.add_subcommand("config", "configuration files");
    config->require_subcommand(1);
    auto* configSave = config->add_subcommand("save", "save the configuration");
    configSave->add_option("FILE", file)->required();
    auto* configLoad = config->add_subcommand("load", "load a configuration (combine with --save-config)");
    configLoad->add_option("FILE", file)->required();
    auto* configCheck = config->add_subcommand(
        "check", "name every key the applet would refuse, miss or not read (exit status 1 with warnings)");
    configCheck->add_option("FILE", file)->required();

    int port = 0;
    std::string output;
    auto* xml = app.add_subcommand("xml", "the GenICam XML description of the parameters");
    xml->add_option("--port", port, "port (0 .. 3; the applet says how many it has)")->check(wholeNumber(0, 3));
    xml->add_option("-o,--output", output, "write to this file instead of standard output");

    auto* lut = app.add_subcommand("lut", "lookup-table files");
    lut->require_subcommand(1);
    auto* lutSave = lut->add_subcommand("save", "save the lookup tables in use (FG_LUT_SAVE_FILE)");
    lutSave->add_option("FILE", file)->required();
    auto* lutLoad =
        lut->add_subcommand("load", "use the tables of a file (FG_LUT_TYPE=LUT_TYPE_CUSTOM, FG_LUT_CUSTOM_FILE)");
    lutLoad->add_option("FILE", file)->required();

    int count = 1;
    double timeout = 0;
    std::string folder = ".";
    auto* acquireCommand = app.add_subcommand("acquire", "acquire frames into PNG files frame-NNNN.png");
    acquireCommand->add_option("-n,--frames", count, "number of frames")->check(wholeNumber(1, 1000000));
    acquireCommand->add_option("-o,--output", folder, "folder for the files (created if missing)")->check(kNotEmpty);
    acquireCommand->add_option("--timeout", timeout, "seconds to wait for each frame (default: from the rates)")
        ->check(kSeconds);

    int pulses = 1;
    auto* triggerCommand = app.add_subcommand("trigger", "send software trigger pulses and report what they did");
    // The output pulse counter has 16 bits.
    triggerCommand->add_option("-n,--pulses", pulses, "number of pulses (up to 65535, what the counter holds)")
        ->check(wholeNumber(1, 65535));
    triggerCommand->add_option("--timeout", timeout, "seconds to wait for each frame (default: from the rates)")
        ->check(kSeconds);

    std::string demoFolder = "pelagon-demo";
    int demoFrames = 4;
    auto* demoCommand = app.add_subcommand("demo", "a complete session; --config and --set apply after its settings");
    demoCommand->add_option("-o,--output", demoFolder, "folder for its files (default ./pelagon-demo)")
        ->check(kNotEmpty);
    demoCommand->add_option("-n,--frames", demoFrames, "number of frames")->check(wholeNumber(1, 1000));

    std::vector<std::string> commands;
    for (const CLI::App* sub : app.get_subcommands({})) commands.push_back(sub->get_name());
    if (const std::string unknown = unknownCommand(argc, argv, commands); !unknown.empty()) {
        std::fprintf(stderr, "pelagon: \"%s\" is not a command", unknown.c_str());
        const std::string near = closest(unknown, commands);
        if (!near.empty()) std::fprintf(stderr, "; did you mean \"%s\"?", near.c_str());
        std::string all;
        for (const std::string& c : commands) all += (all.empty() ? "" : ", ") + c;
        std::fprintf(stderr, "\ncommands: %s\nRun \"pelagon help\" for more information.\n", all.c_str());
        return kUsage;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        std::fprintf(stderr, "pelagon: %s\nRun with --help for more information.\n", e.what());
        return kUsage;
    }
    if (*help || app.get_subcommands().empty()) {
        // App::help() would describe the "help" command itself.
        const std::string text = app.get_formatter()->make_help(&app, "pelagon", CLI::AppFormatMode::Normal);
        std::fprintf(*help ? stdout : stderr, "%s", text.c_str());
        return *help ? 0 : kUsage;
    }
    if (json && !(*info || *params || *get || *set || *configCheck)) {
        std::fprintf(stderr, "pelagon: --json goes with info, params, get, set and config check\n");
        return kUsage;
    }

    if (*configCheck) {
        const ConfigCheck check = checkConfig(global.applet.empty() ? vboard::defaultAppletPath() : global.applet, file);
        printIssues(check);
        if (json)
            printJson(checkJson(check));
        else if (check.issues.empty())
            std::printf("%s: no warnings\n", file.c_str());
        else
            std::printf("%s: %zu warning%s\n", file.c_str(), check.issues.size(), check.issues.size() == 1 ? "" : "s");
        return check.issues.empty() ? 0 : kFailure;
    }
    Session s(global);
    if (*demoCommand || *acquireCommand) catchInterrupts();
    if (*demoCommand) {
        demo(s, demoFolder, demoFrames);
        s.finish();
        return 0;
    }
    s.applyGlobalOptions();
    vboard::Grabber& g = s.grabber();
    Json values = Json::object();
    if (*info) {
        if (json)
            printJson(infoJson(s));
        else
            showInfo(s);
    } else if (*params) {
        listParameters(s, filter, json);
    } else if (*describeCommand) {
        describe(s, s.parameter(describeName));
    } else if (*get) {
        for (const std::string& n : names) {
            const vboard::ParameterInfo p = s.parameter(n);
            if (json)
                values[p.name] = jsonValue(s, p);
            else if (bare)
                std::printf("%s\n", s.value(p, true).c_str());
            else
                std::printf("%s = %s\n", p.name.c_str(), s.value(p, true).c_str());
        }
    } else if (*set) {
        for (const std::string& a : assignments) {
            s.assign(a);
            const vboard::ParameterInfo p = s.parameter(a.substr(0, a.find('=')));
            if (json)
                values[p.name] = jsonValue(s, p);
            else
                std::printf("%s = %s\n", p.name.c_str(), s.value(p).c_str());
        }
    } else if (*configSave) {
        s.saveConfig(file);
        std::printf("configuration saved to %s\n", file.c_str());
    } else if (*configLoad) {
        s.loadConfig(file);
        std::printf("configuration loaded from %s\n", file.c_str());
    } else if (*xml) {
        const int64_t ports = g.info(GET_NR_OF_CAMS);
        if (port >= ports)
            throw UsageError("--port " + std::to_string(port) + ": the applet has " + std::to_string(ports) +
                             (ports == 1 ? " port (0)" : " ports (0 .. " + std::to_string(ports - 1) + ")"));
        const std::string text = g.xml(port);
        if (output.empty()) {
            std::fwrite(text.data(), 1, text.size(), stdout);
        } else {
            writeWholeFile(output, text);
            std::printf("XML description of port %d written to %s (%zu bytes)\n", port, output.c_str(), text.size());
        }
    } else if (*lutSave) {
        s.saveLut(file);
        std::printf("lookup tables saved to %s\n", file.c_str());
    } else if (*lutLoad) {
        s.loadLut(file);
        std::printf("lookup tables loaded from %s\n", file.c_str());
    } else if (*acquireCommand) {
        AcquireOptions options;
        options.frames = count;
        options.folder = folder;
        options.timeoutSeconds = timeout;
        const AcquireResult r = acquire(s, options);
        std::printf("%zu frames saved in %s", r.files.size(), folder.c_str());
        if (r.skipped > 0)
            std::printf(" (%lld frames were overwritten before they could be saved)",
                        static_cast<long long>(r.skipped));
        std::printf("\n");
    } else if (*triggerCommand) {
        const TriggerResult r = trigger(s, pulses, timeout);
        std::printf("%d software pulses sent\n", r.sent);
        std::printf("pulses counted at %s: %u\n", r.countedAt.c_str(), r.counted);
        if (r.acquiring)
            std::printf("frames from the simulator: %lld\n", static_cast<long long>(r.frames));
        else
            std::printf("no frames: the simulator is not the image source or runs free\n");
    }
    if (json && (*get || *set)) printJson(values);
    s.finish();
    return 0;
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

int runReported(int argc, char** argv) {
    try {
        return pelagon_tool::run(argc, argv);
    } catch (const pelagon_tool::Interrupted& e) {
        std::fprintf(stderr, "pelagon: %s\n", e.what());
        return pelagon_tool::interruptStatus(e.signal);
    } catch (const vboard::Error& e) {
        pelagon_tool::report(e);
    } catch (const pelagon_tool::UsageError& e) {
        std::fprintf(stderr, "pelagon: %s\n", e.what());
        return pelagon_tool::kUsage;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "pelagon: %s\n", e.what());
    } catch (int code) {
        std::fprintf(stderr, "pelagon: error %d (%s)\n", code, vboard::errorText(code).c_str());
    } catch (...) {
        std::fprintf(stderr, "pelagon: unexpected failure\n");
    }
    return pelagon_tool::kFailure;
}

}  // namespace
}  // namespace pelagon_tool

int main(int argc, char** argv) {
    return pelagon_tool::checkedOutput(pelagon_tool::runReported(argc, argv));
}
