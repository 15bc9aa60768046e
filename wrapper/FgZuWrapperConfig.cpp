// The configuration file of an instance: its header, written and checked
// here, around the parameter keys that the applet writes and reads.
#include <cstring>

#include "FgZuWrapper.h"
#include "FileLocale.h"
#include "Fg_ConfigFileParser.h"
#include "pelagon_errors.h"

using pelagon::useFileLocale;

namespace {

// Values of the header lines are at most one read line long.
constexpr size_t kHeaderValueBuffer = 1024;

}  // namespace

int FgZuWrapper::Fg_saveConfig(Fg_Struct*, const char* fileName) {
    useFileLocale();
    Fg_ConfigFileParser parser(nullptr, nullptr, false);
    if (!parser.setSaveFile(fileName)) return setError(PGN_ERR_FILE_IO);
    parser.writeConfigFileHeader();
    parser.writeConfigFile("Hersteller", getManufacturer());
    parser.writeConfigFile("Typ", getCameraType());
    parser.writeConfigFile("Version", getCameraVersion());
    parser.writeConfigFileIntKey("LoadAppletId", getAppletID());
    parser.writeConfigFileIntKey("AktivePort", 0);
    saveConfig(parser);
    return setError(0);
}

int FgZuWrapper::Fg_loadConfig(Fg_Struct*, const char* fileName) {
    useFileLocale();
    Fg_ConfigFileParser parser(nullptr, fileName, true);
    if (!parser.checkFileExist(fileName)) {
        // The result names the missing file; the last error keeps the
        // general configuration failure that callers have always seen.
        setError(PGN_ERR_BAD_CONFIG);
        return PGN_ERR_FILE_MISSING;
    }
    if (!parser.checkFileType(fileName)) return setError(PGN_ERR_BAD_CONFIG);

    char value[kHeaderValueBuffer] = {};
    if (parser.parseKeyFromLine("Hersteller", value) != 0) return setError(PGN_ERR_BAD_CONFIG);
    if (parser.parseKeyFromLine("Typ", value) != 0 || std::strcmp(value, getCameraType()) != 0)
        return setError(PGN_ERR_BAD_CONFIG);
    int port = 0;
    if (parser.parseIntKeyFromHeader("AktivePort", &port) != 0) return setError(PGN_ERR_BAD_CONFIG);

    return setError(loadConfig(parser) ? 0 : PGN_ERR_BAD_CONFIG);
}
