// The configuration file reader against arbitrary file contents: every key
// the applet saves read as the type it is saved with, the header keys, the
// line search, and, once the parser has had its turn, the same file loaded
// into the applet instance.
#include <cstdint>
#include <cstring>

#include "FuzzApplet.h"
#include "FuzzFiles.h"
#include "Fg_ConfigFileParser.h"

namespace {

// Every byte after the value's terminator must stay as the reader found it.
constexpr unsigned char kFill = 0xA5;

void checkValue(const char (&value)[Fg_ConfigFileParser::kValueBufferSize]) {
    if (std::memchr(value, '\0', sizeof value) == nullptr) __builtin_trap();
}

void readKeys(Fg_ConfigFileParser& parser) {
    char value[Fg_ConfigFileParser::kValueBufferSize];
    int i = 0;
    uint64_t u64 = 0;
    double d = 0;
    for (const char* key : {"Hersteller", "Typ", "Version"}) {
        std::memset(value, kFill, sizeof value);
        parser.parseKey("Kamerasektion", key, value);
        checkValue(value);
    }
    parser.parseIntKeyFromHeader("LoadAppletId", &i);
    parser.parseIntKeyFromHeader("AktivePort", &i);
    parser.parseIntKey("ConfigFileVersion", "ConfigFileVersion", &i);
    parser.parseDoubleKey("Kamerasektion", "FG_TRIGGER_FRAMESPERSECOND", &d);
    parser.parseUInt64Key("Kamerasektion", "FG_TIMEOUT", &u64);
    std::memset(value, kFill, sizeof value);
    parser.parseKeyFromLine("ConfigFileVersion", value);
    checkValue(value);
    for (int port : {0, 1, -1}) {
#define PELAGON_READ_Int(NAME) parser.parseIntKeySection(port, #NAME, &i);
#define PELAGON_READ_Double(NAME) parser.parseDoubleKeySection(port, #NAME, &d);
#define PELAGON_READ_String(NAME)                        \
    std::memset(value, kFill, sizeof value);             \
    parser.parseKeySection(port, #NAME, value);          \
    checkValue(value);
#define PELAGON_CONFIG_KEY(NAME, kind, source, use) PELAGON_READ_##kind(NAME)
#include "configuration.def"
#undef PELAGON_READ_Int
#undef PELAGON_READ_Double
#undef PELAGON_READ_String
        parser.parseUInt64KeySection(port, "FG_TIMEOUT", &u64);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzApplet& applet = FuzzApplet::get();
    const std::string file = FuzzFolder::write("input.mcf", data, size);
    {
        Fg_ConfigFileParser parser(nullptr, file.c_str(), true);
        readKeys(parser);
    }
    applet.Fg_loadConfig(applet.fg, file.c_str());
    applet.forgetWrites();
    return 0;
}
