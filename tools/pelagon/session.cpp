#include "session.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "config_check.h"
#include "pelagon_errors.h"
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
    if (!options_.config.empty()) loadConfig(options_.config);
    for (const std::string& assignment : options_.sets) assign(assignment);
}

void Session::loadConfig(const std::string& path) {
    const ConfigCheck check = checkConfig(path_, path);
    printIssues(check);
    if (options_.strict && !check.issues.empty())
        throw std::runtime_error(path + ": " + std::to_string(check.issues.size()) +
                                 " warnings, and --strict refuses a configuration with warnings");
    if (check.crlf) {
        // The applet reads LF line ends only: it gets a copy with them.
        TempFile copy((std::filesystem::temp_directory_path() / "pelagon-config.mcf").string());
        copy.write(check.text);
        copy.closeStream();
        grabber_.loadConfig(copy.path());
    } else {
        grabber_.loadConfig(path);
    }
    for (const ConfigIssue& i : check.issues) {
        if (i.kind == "unknown key") continue;
        std::string now;
        try {
            now = value(i.key);
        } catch (const vboard::Error& e) {
            now = "(unreadable: error " + std::to_string(e.code()) + ")";
        }
        std::fprintf(stderr, "pelagon: %s: after the load %s = %s\n", path.c_str(), i.key.c_str(), now.c_str());
    }
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
    if (numeric) return grabber_.parameter(std::stoi(nameOrId));
    try {
        return grabber_.parameter(grabber_.id(nameOrId));
    } catch (const vboard::Error& e) {
        std::vector<std::string> names;
        for (const vboard::ParameterInfo& p : grabber_.parameters()) names.push_back(p.name);
        const std::string near = closest(nameOrId, names);
        if (near.empty()) throw;
        throw vboard::Error(std::string(e.what()) + "; did you mean " + near + "?", e.code());
    }
}

std::string closest(const std::string& word, const std::vector<std::string>& candidates) {
    const auto upper = [](std::string t) {
        for (char& c : t) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        return t;
    };
    const std::string w = upper(word);
    std::string best;
    std::size_t bestDistance = std::max<std::size_t>(2, w.size() / 3) + 1;
    for (const std::string& candidate : candidates) {
        const std::string c = upper(candidate);
        // Levenshtein distance, one row at a time.
        std::vector<std::size_t> row(c.size() + 1);
        for (std::size_t j = 0; j <= c.size(); ++j) row[j] = j;
        for (std::size_t i = 1; i <= w.size(); ++i) {
            std::size_t diagonal = row[0];
            row[0] = i;
            for (std::size_t j = 1; j <= c.size(); ++j) {
                const std::size_t above = row[j];
                row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (w[i - 1] == c[j - 1] ? 0 : 1)});
                diagonal = above;
            }
        }
        if (row[c.size()] < bestDistance) {
            bestDistance = row[c.size()];
            best = candidate;
        }
    }
    return best;
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
    try {
        grabber_.setText(p.id, value);
    } catch (const vboard::Error& e) {
        if (e.code() != PGN_ERR_OUT_OF_RANGE && e.code() != PGN_ERR_STEP) throw;
        throw vboard::Error(std::string(e.what()) + "; " + refusalReason(grabber_, path_, p, value), e.code());
    }
}

void Session::loadLut(const std::string& path) {
    std::error_code ec;
    if (std::filesystem::is_directory(path, ec)) throw std::runtime_error(path + " cannot be read: it is a folder");
    if (std::filesystem::exists(path, ec)) {
        std::ifstream in(path, std::ios::binary);
        std::ostringstream text;
        text << in.rdbuf();
        if (!in) throw std::runtime_error(path + " cannot be read: " + errnoText(errno));
        const std::string t = text.str();
        if (t.find("[red]") == std::string::npos && t.find("[green]") == std::string::npos &&
            t.find("[blue]") == std::string::npos)
            throw std::runtime_error(path + " is not a lookup-table file: it has no [red], [green] or [blue] table");
    }
    // The file is read when the type is "User file" and the name is set.
    set("FG_LUT_TYPE", "LUT_TYPE_CUSTOM");
    try {
        set("FG_LUT_CUSTOM_FILE", path);
    } catch (const vboard::Error& e) {
        if (e.code() != PGN_ERR_FILE_IO) throw;
        throw vboard::Error(path + " is not a lookup-table file the applet can read: error -5001", e.code());
    }
}

namespace {

bool integral(const vboard::ParameterInfo& p) {
    return p.format != REG_FORMAT_DOUBLE && p.format != REG_FORMAT_FLOAT && p.format != REG_FORMAT_DOUBLEFIELD &&
           std::fabs(p.maximum) < 9007199254740992.0;
}

std::string bound(const vboard::ParameterInfo& p, double v) {
    return integral(p) ? std::to_string(static_cast<long long>(v)) : formatNumber(v);
}

bool numeric(const vboard::ParameterInfo& p) {
    return p.format == REG_FORMAT_UINT || p.format == REG_FORMAT_INT || p.format == REG_FORMAT_UINT64 ||
           p.format == REG_FORMAT_INT64 || p.format == REG_FORMAT_DOUBLE || p.format == REG_FORMAT_FLOAT;
}

bool sameLimits(const vboard::ParameterInfo& a, const vboard::ParameterInfo& b) {
    return a.minimum == b.minimum && a.maximum == b.maximum;
}

// Of the parameters whose values differ between `board` and `probe` (an
// instance at its defaults), those that move p's limits on the probe when
// given the board's value.
std::string narrowedBy(const vboard::Grabber& board, vboard::Grabber& probe, const vboard::ParameterInfo& now,
                       const vboard::ParameterInfo& initial) {
    std::string out;
    for (const vboard::ParameterInfo& q : board.parameters()) {
        if (q.id == now.id || !q.writable() || (!numeric(q) && q.format != REG_FORMAT_ENUM)) continue;
        std::string current, initialValue;
        try {
            current = board.getText(q.id);
            initialValue = probe.getText(q.id);
            if (current == initialValue) continue;
            probe.setText(q.id, current);
        } catch (const vboard::Error&) {
            continue;
        }
        if (!sameLimits(probe.parameter(now.id), initial)) {
            out += out.empty() ? "; the limits move with " : "; and with ";
            out += q.name + " (now " + current + ")";
            // A shared budget: the two maxima add up to the same total.
            const double q0 = std::strtod(initialValue.c_str(), nullptr), q1 = std::strtod(current.c_str(), nullptr);
            if (initial.maximum + q0 == now.maximum + q1)
                out += ": " + now.name + " plus " + q.name + " must fit within " + bound(now, initial.maximum + q0);
        }
        try {
            probe.setText(q.id, initialValue);
        } catch (const vboard::Error&) {
        }
    }
    return out;
}

}  // namespace

std::string typeName(const vboard::ParameterInfo& p) {
    switch (p.format) {
        case REG_FORMAT_UINT: return "uint32";
        case REG_FORMAT_INT: return "int32";
        case REG_FORMAT_UINT64: return "uint64";
        case REG_FORMAT_INT64: return "int64";
        case REG_FORMAT_DOUBLE: return "double";
        case REG_FORMAT_FLOAT: return "float";
        case REG_FORMAT_ENUM: return "enum";
        case REG_FORMAT_STRING: return "string";
        case REG_FORMAT_UINTFIELD: return "uint32[" + std::to_string(p.elements) + "]";
        case REG_FORMAT_DOUBLEFIELD: return "double[" + std::to_string(p.elements) + "]";
        default: return "format " + std::to_string(static_cast<int>(p.format));
    }
}

std::string allowedValues(const vboard::ParameterInfo& p) {
    if (p.format == REG_FORMAT_ENUM) {
        std::string values;
        for (const vboard::ParameterInfo::Entry& e : p.entries)
            values += (values.empty() ? "" : ", ") + (e.symbol.empty() ? "\"" + e.displayName + "\"" : e.symbol) + "=" +
                      std::to_string(e.value);
        return "one of " + values;
    }
    if (!numeric(p) || (p.minimum == 0 && p.maximum == 0 && p.step == 0)) return "";
    return numericRange(p, " in steps of ");
}

std::string numericRange(const vboard::ParameterInfo& p, const std::string& stepWord) {
    std::string out = bound(p, p.minimum);
    out.append(" .. ").append(bound(p, p.maximum));
    // The smallest double step means "any value".
    if (p.step > 1e-12 && p.step != 1) out.append(stepWord).append(formatNumber(p.step));
    return out;
}

std::string refusalReason(const vboard::Grabber& board, const std::string& appletPath, const vboard::ParameterInfo& p,
                          const std::string& value) {
    const vboard::ParameterInfo now = board.parameter(p.id);
    const std::string allowed = allowedValues(now);
    std::string out = allowed.empty() ? "" : "allowed: " + allowed;
    char* end = nullptr;
    const double v = std::strtod(value.c_str(), &end);
    if (!numeric(now) || value.empty() || *end != '\0') return out;
    vboard::Grabber probe(appletPath);
    const vboard::ParameterInfo initial = probe.parameter(p.id);
    const bool onStep = initial.step <= 1e-12 || std::fabs(std::remainder(v - initial.minimum, initial.step)) < 1e-9;
    if (v < initial.minimum || v > initial.maximum || !onStep || sameLimits(now, initial)) return out;
    return out + " (" + allowedValues(initial) + " at power-on)" + narrowedBy(board, probe, now, initial);
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
