// Configuration files looked at before the applet loads them. The applet
// stores what it reads without testing it and reports only a file it cannot
// parse, so the tool tries every key on a second instance first and names
// what that instance refuses: file, line, key, value, error and what is
// allowed.
#pragma once

#include <string>
#include <vector>

#include "vboard/grabber.h"

namespace pelagon_tool {

struct ConfigIssue {
    int line = 0;          // 1-based; for a missing key the file's last line
    std::string key;
    std::string value;     // as written, without the ";"
    std::string kind;      // "missing", "malformed", "refused", "unknown key"
    int code = 0;          // the error number behind it, 0 for none
    std::string allowed;   // what the parameter takes, when known
    std::string message;   // the whole warning after "FILE:LINE: "
};

struct ConfigCheck {
    std::string file;
    bool crlf = false;        // CRLF line ends; the text is read without the CRs
    std::string text;         // the file's text with LF line ends
    std::vector<ConfigIssue> issues;
};

// Reads and checks `file` with a new instance of the applet at `appletPath`.
// A folder or a file that cannot be read throws.
ConfigCheck checkConfig(const std::string& appletPath, const std::string& file);

// The warnings of a check on standard error, one line each, and the note on
// line ends.
void printIssues(const ConfigCheck& check);

}  // namespace pelagon_tool
