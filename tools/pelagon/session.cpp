#include "session.h"

#include <cctype>
#include <cstdio>
#include <filesystem>

#include "safe_file.h"

namespace pelagon_tool {

std::string utf8(const std::string& latin1) {
    std::string out;
    for (const char c : latin1) {
        const auto u = static_cast<unsigned char>(c);
        if (u < 0x80) {
            out += c;
        } else {
            out += static_cast<char>(0xC0 | (u >> 6));
            out += static_cast<char>(0x80 | (u & 0x3F));
        }
    }
    return out;
}

Session::Session(const GlobalOptions& options)
    : options_(options), path_(options.applet.empty() ? vboard::defaultAppletPath() : options.applet), grabber_(path_) {}

void Session::applyGlobalOptions() {
    if (!options_.config.empty()) grabber_.loadConfig(options_.config);
    for (const std::string& assignment : options_.sets) assign(assignment);
}

void Session::finish() {
    if (!options_.saveConfig.empty()) saveConfig(options_.saveConfig);
}

namespace {

std::string lastLine(const std::string& text) {
    if (text.empty() || text.back() != '\n') return "";
    const std::size_t start = text.find_last_of('\n', text.size() - 2);
    return text.substr(start == std::string::npos ? 0 : start + 1, text.size() - 1 - (start + 1));
}

}  // namespace

void Session::saveConfig(const std::string& path) {
    // The header and a last key line ending in ";" : a file cut short by a
    // full disk ends inside a line or has no keys at all.
    writeByName(
        path, [this](const std::string& temp) { grabber_.saveConfig(temp); },
        [](std::string& text) {
            const std::string last = lastLine(text);
            return text.find("Hersteller=") != std::string::npos && text.find("[Port A]") != std::string::npos &&
                   last.size() > 1 && last.back() == ';' && last.find('=') != std::string::npos;
        });
}

void Session::saveLut(const std::string& path) {
    const std::string target = std::filesystem::absolute(path).string();
    std::string stored;
    writeByName(
        target,
        [&](const std::string& temp) {
            grabber_.setText(grabber_.id("FG_LUT_SAVE_FILE"), temp);
            stored = temp;
        },
        [](std::string& text) {
            // Three tables, the last one ending with its last entry.
            return text.find("[blue]") != std::string::npos && lastLine(text).rfind("4095,", 0) == 0 &&
                   lastLine(text).back() == ';';
        });
    lutTemp_ = stored;
    lutFinal_ = target;
}

vboard::ParameterInfo Session::parameter(const std::string& nameOrId) const {
    const bool numeric =
        !nameOrId.empty() && nameOrId.size() < 10 && nameOrId.find_first_not_of("0123456789") == std::string::npos;
    return grabber_.parameter(numeric ? std::stoi(nameOrId) : grabber_.id(nameOrId));
}

void Session::assign(const std::string& assignment) {
    const std::size_t eq = assignment.find('=');
    if (eq == std::string::npos || eq == 0)
        throw UsageError("\"" + assignment + "\" is not an assignment: write NAME=VALUE (or ID=VALUE)");
    set(assignment.substr(0, eq), assignment.substr(eq + 1));
}

void Session::set(const std::string& name, const std::string& value) {
    const vboard::ParameterInfo p = parameter(name);
    // Absolute names, so that a configuration saved with them finds the same
    // tables when loaded from another folder.
    if (p.name == "FG_LUT_SAVE_FILE" && !value.empty()) return saveLut(value);
    if (p.name == "FG_LUT_CUSTOM_FILE" && !value.empty())
        return grabber_.setText(p.id, std::filesystem::absolute(value).string());
    grabber_.setText(p.id, value);
}

std::string formatNumber(double v) {
    char text[40];
    std::snprintf(text, sizeof text, "%.10g", v);
    return text;
}

std::string Session::value(const vboard::ParameterInfo& p, bool allElements) const {
    switch (p.format) {
        case REG_FORMAT_DOUBLE:
        case REG_FORMAT_FLOAT: return formatNumber(grabber_.get<double>(p.id));
        case REG_FORMAT_STRING: {
            const std::string text = grabber_.getText(p.id);
            return utf8(!lutTemp_.empty() && text == lutTemp_ ? lutFinal_ : text);
        }
        case REG_FORMAT_UINTFIELD:
        case REG_FORMAT_DOUBLEFIELD: {
            // Appended piece by piece: GCC 12 at -O3 mistakes a literal-first
            // concatenation for an overlapping copy (-Wrestrict).
            std::string out;
            if (!allElements) {
                out = "(";
                out += std::to_string(p.elements);
                out += " elements)";
                return out;
            }
            const auto append = [&out](const std::string& element) {
                if (!out.empty()) out += ' ';
                out += element;
            };
            if (p.format == REG_FORMAT_UINTFIELD)
                for (const uint32_t v : grabber_.getField(p.id, 0, p.elements)) append(std::to_string(v));
            else
                for (const double v : grabber_.getDoubleField(p.id, 0, p.elements)) append(formatNumber(v));
            return out;
        }
        default: return grabber_.getText(p.id);
    }
}

uint32_t Session::enumValue(const std::string& name) const {
    return grabber_.get<uint32_t>(grabber_.id(name));
}

double Session::number(const std::string& name) const {
    return grabber_.get<double>(grabber_.id(name));
}

bool Session::is(const std::string& name, const std::string& symbol) const {
    const vboard::ParameterInfo p = parameter(name);
    const uint32_t v = grabber_.get<uint32_t>(p.id);
    for (const vboard::ParameterInfo::Entry& e : p.entries)
        if (e.symbol == symbol) return static_cast<uint32_t>(e.value) == v;
    return false;
}

}  // namespace pelagon_tool
