// One run of the tool: an applet instance on a new virtual board, prepared
// from the global options, and the helpers the commands share for naming,
// reading and writing its parameters.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "vboard/grabber.h"

namespace pelagon_tool {

struct GlobalOptions {
    std::string applet;             // empty: vboard::defaultAppletPath()
    std::string config;             // loaded first when given
    std::vector<std::string> sets;  // NAME=VALUE, applied in order after the configuration
    std::string saveConfig;         // written after the command when given
    bool strict = false;            // a configuration with warnings is refused
};

// A failure of the tool's own (a malformed argument, a file it cannot
// write): no applet error number behind it.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A failure with a suggestion of what to change, printed below the message.
class HintedError : public vboard::Error {
public:
    HintedError(const vboard::Error& cause, std::string hint)
        : vboard::Error(cause.what(), cause.code()), hint_(std::move(hint)) {}
    const std::string& hint() const { return hint_; }

private:
    std::string hint_;
};

// Ten significant digits, without trailing zeros.
std::string formatNumber(double v);

// Latin-1 text of the catalogue (units such as "µs") as UTF-8.
std::string utf8(const std::string& latin1);

// The parameter's type as the tool names it: uint32, double, enum, ...
std::string typeName(const vboard::ParameterInfo& p);

// Of `candidates`, the one nearest to `word` in edit distance, when near
// enough to be a likely typing error ("" otherwise).
std::string closest(const std::string& word, const std::vector<std::string>& candidates);

// What a parameter takes, from its published description: "32 .. 16384 in
// steps of 16", "one of FG_GRAY=0, FG_COL24=2, ..." ("" for strings).
std::string allowedValues(const vboard::ParameterInfo& p);
// "MIN .. MAX" of a numeric parameter, then `stepWord` and its step where it
// has one (integers printed as integers).
std::string numericRange(const vboard::ParameterInfo& p, const std::string& stepWord);

// Why `board` refused `value` for `p`: what is allowed now and, when the
// value fits the limits the parameter has at power-on but not the ones it
// has now, the parameters whose current values narrowed them. `appletPath`
// names the library of a second instance, at its defaults, to compare with.
std::string refusalReason(const vboard::Grabber& board, const std::string& appletPath, const vboard::ParameterInfo& p,
                          const std::string& value);

class Session {
public:
    explicit Session(const GlobalOptions& options);

    // --config, then every --set in order.
    void applyGlobalOptions();
    // A configuration file, checked first (config_check.h): its warnings on
    // standard error, and after the load what the board holds for each key
    // warned about. A file with CRLF line ends reaches the applet as a copy
    // with LF line ends.
    void loadConfig(const std::string& path);
    // --save-config, when given.
    void finish();

    // The configuration and the lookup tables saved whole or not at all (see
    // safe_file.h), each checked by reading it back.
    void saveConfig(const std::string& path);
    void saveLut(const std::string& path);
    // Lookup tables from a file (type "User file"); a file that is not one
    // is named as such rather than left to the applet, which keeps its
    // tables for text it does not understand.
    void loadLut(const std::string& path);

    // A parameter by SDK name (FG_WIDTH) or by decimal id (700).
    vboard::ParameterInfo parameter(const std::string& nameOrId) const;
    // NAME=VALUE with the value as text (enumeration symbols or names, numbers).
    void assign(const std::string& assignment);
    void set(const std::string& name, const std::string& value);
    // The current value as the tool shows it; fields as their elements.
    std::string value(const vboard::ParameterInfo& p, bool allElements = false) const;
    std::string value(const std::string& name) const { return value(parameter(name)); }
    uint32_t enumValue(const std::string& name) const;  // enumerations and uints
    double number(const std::string& name) const;
    // Whether enumeration `name` holds the entry with this symbol.
    bool is(const std::string& name, const std::string& symbol) const;

    vboard::Grabber& grabber() { return grabber_; }
    const vboard::Grabber& grabber() const { return grabber_; }
    const std::string& appletPath() const { return path_; }
    const GlobalOptions& options() const { return options_; }

private:
    GlobalOptions options_;
    std::string path_;
    vboard::Grabber grabber_;
    // The applet keeps the name FG_LUT_SAVE_FILE was set to, and setting it
    // writes the file again, so after a save it holds the temporary name.
    // The configuration file does not store that name; the tool shows the
    // final one in its place.
    std::string lutTemp_, lutFinal_;
};

}  // namespace pelagon_tool
