#include "config_check.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "pelagon_errors.h"
#include "safe_file.h"
#include "session.h"

namespace pelagon_tool {
namespace {

struct KeyLine {
    int line = 0;
    std::string key, value;
    bool complete = false;  // ends with ";"
};

// The "KEY=VALUE;" lines of the first port's section.
std::vector<KeyLine> portLines(const std::string& text, int* lastLine) {
    std::vector<KeyLine> out;
    std::istringstream in(text);
    std::string line;
    bool inPort = false;
    int number = 0;
    while (std::getline(in, line)) {
        ++number;
        if (!line.empty() && line[0] == '[') {
            inPort = line.rfind("[Port A]", 0) == 0;
            continue;
        }
        const std::size_t eq = line.find('=');
        if (!inPort || eq == std::string::npos) continue;
        KeyLine k;
        k.line = number;
        k.key = line.substr(0, eq);
        k.value = line.substr(eq + 1);
        k.complete = !k.value.empty() && k.value.back() == ';';
        if (k.complete) k.value.pop_back();
        out.push_back(k);
    }
    *lastLine = number;
    return out;
}

// The keys a configuration holds, in order: those the applet writes itself.
std::vector<std::string> expectedKeys(vboard::Grabber& g) {
    TempFile temp((std::filesystem::temp_directory_path() / "pelagon-keys.mcf").string());
    temp.closeStream();
    g.saveConfig(temp.path());
    std::ifstream in(temp.path(), std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    int last = 0;
    std::vector<std::string> keys;
    for (const KeyLine& k : portLines(text.str(), &last)) keys.push_back(k.key);
    return keys;
}

std::string unquoted(const std::string& v) {
    return v.size() >= 2 && v.front() == '\'' && v.back() == '\'' ? v.substr(1, v.size() - 2) : v;
}

}  // namespace

ConfigCheck checkConfig(const std::string& appletPath, const std::string& file) {
    ConfigCheck check;
    check.file = file;
    std::error_code ec;
    if (std::filesystem::is_directory(file, ec))
        throw std::runtime_error(file + " is a folder, not a configuration file");
    if (!std::filesystem::exists(file, ec))
        throw vboard::Error("reading the configuration " + file, PGN_ERR_FILE_MISSING);
    std::ifstream in(file, std::ios::binary);
    if (!in) throw std::runtime_error(file + " cannot be read: " + errnoText(errno));
    std::ostringstream raw;
    raw << in.rdbuf();
    for (const char c : raw.str()) {
        if (c == '\n' && !check.text.empty() && check.text.back() == '\r') {
            check.text.back() = '\n';
            check.crlf = true;
        } else {
            check.text += c;
        }
    }

    vboard::Grabber scratch(appletPath);
    const std::vector<std::string> expected = expectedKeys(scratch);
    int lastLine = 0;
    const std::vector<KeyLine> lines = portLines(check.text, &lastLine);
    const auto add = [&check](const KeyLine& k, const std::string& kind, int code, const std::string& allowed,
                              const std::string& detail) {
        ConfigIssue issue{k.line, k.key, k.value, kind, code, allowed, ""};
        issue.message = k.key + (kind == "missing" ? "" : "=" + k.value) + ": " + kind;
        if (code != 0) issue.message += ": " + std::to_string(code) + " (" + vboard::errorText(code) + ")";
        if (!detail.empty()) issue.message += "; " + detail;
        check.issues.push_back(issue);
    };

    std::map<std::string, int> seen;
    std::vector<std::pair<KeyLine, vboard::ParameterInfo>> refused;
    for (const KeyLine& k : lines) {
        seen[k.key] = k.line;
        vboard::ParameterInfo p;
        try {
            p = scratch.parameter(scratch.id(k.key));
        } catch (const vboard::Error&) {
            add(k, "unknown key", 0, "", "");
            continue;
        }
        if (!k.complete) {
            add(k, "malformed", 0, allowedValues(p), "the line ends without \";\" (the file is cut short?)");
            continue;
        }
        if (!p.writable()) continue;
        try {
            scratch.setText(p.id, unquoted(k.value));
        } catch (const vboard::Error& e) {
            if (e.code() == PGN_ERR_INVALID_ARGUMENT)
                add(k, "malformed", e.code(), allowedValues(p), "expected " + typeName(p));
            else
                refused.emplace_back(k, p);
        }
    }
    // A value refused for another key's value may be taken once that key is
    // set; what is still refused after a second try is reported.
    for (const auto& [k, p] : refused) {
        try {
            scratch.setText(p.id, unquoted(k.value));
        } catch (const vboard::Error& e) {
            const std::string reason = refusalReason(scratch, appletPath, p, unquoted(k.value));
            add(k, "refused", e.code(), allowedValues(scratch.parameter(p.id)), reason);
        }
    }
    for (const std::string& key : expected) {
        if (seen.count(key)) continue;
        KeyLine k;
        k.line = lastLine;
        k.key = key;
        add(k, "missing", 0, "", "the applet stops reading at the first missing key");
    }
    return check;
}

void printIssues(const ConfigCheck& check) {
    if (check.crlf)
        std::fprintf(stderr,
                     "pelagon: %s: note: CRLF line ends; read as the text it is (the file itself is left unchanged)\n",
                     check.file.c_str());
    // A file cut short misses every key after the cut: the first few name it.
    std::size_t missing = 0;
    for (const ConfigIssue& i : check.issues) {
        if (i.kind == "missing" && ++missing > 3) continue;
        std::fprintf(stderr, "pelagon: %s:%d: %s\n", check.file.c_str(), i.line, i.message.c_str());
    }
    if (missing > 3) std::fprintf(stderr, "pelagon: %s: %zu more keys missing\n", check.file.c_str(), missing - 3);
}

}  // namespace pelagon_tool
