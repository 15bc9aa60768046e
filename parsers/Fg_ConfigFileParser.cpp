#include "Fg_ConfigFileParser.h"

#include <sys/stat.h>

#include <cinttypes>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <locale.h>

#include "pelagon_errors.h"
#include "Fg_Log.h"

namespace {

constexpr const char* kErrorText = "Error";
// Characters that delimit a value inside its line.
constexpr const char* kValueDelimiters = "=;'";
constexpr const char* kLinePieceDelimiters = "='";

// The "C" locale, made once for the process; null when it cannot be made, in
// which case conversions run in whatever locale the thread has.
locale_t classicLocale() {
    static const locale_t classic = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
    return classic;
}

// Switches the calling thread to the "C" locale while it lives, so that
// numbers use a decimal point even in a host that runs with a decimal comma.
// Other threads and the process locale are not affected.
class ClassicNumbers {
public:
    ClassicNumbers() : previous_(classicLocale() ? uselocale(classicLocale()) : static_cast<locale_t>(0)) {}
    ~ClassicNumbers() {
        if (previous_) uselocale(previous_);
    }
    ClassicNumbers(const ClassicNumbers&) = delete;
    ClassicNumbers& operator=(const ClassicNumbers&) = delete;

private:
    locale_t previous_;
};

// Copies the first `length` characters of `text` into a reader's value.
void setValue(char* value, const char* text, std::size_t length) {
    if (length >= Fg_ConfigFileParser::kValueBufferSize) length = Fg_ConfigFileParser::kValueBufferSize - 1;
    std::memcpy(value, text, length);
    value[length] = '\0';
}

int notFound(char* value) {
    if (value != nullptr) setValue(value, kErrorText, std::strlen(kErrorText));
    return PGN_ERR_KEY_MISSING;
}

// One read piece of a line: at most kMaxLineLength characters, the line feed
// included when it fits.
struct Line {
    char text[Fg_ConfigFileParser::kMaxLineLength + 1];
    bool read(FILE* file) { return std::fgets(text, sizeof text, file) != nullptr; }
    // From the start of the file, reads up to the first line containing
    // `part`; false when the file ends first.
    bool findFromStart(FILE* file, const char* part) {
        std::rewind(file);
        while (read(file))
            if (std::strstr(text, part) != nullptr) return true;
        return false;
    }
};
static_assert(sizeof(Line::text) == Fg_ConfigFileParser::kValueBufferSize,
              "a value is never longer than one read piece");

}  // namespace

Fg_ConfigFileParser::Fg_ConfigFileParser(Fg_Log* log, const char* filename, bool readOnly) : mFg_Log(log) {
    trace("Fg_ConfigFileParser::Fg_ConfigFileParser(char * filename)");
    if (checkFileType(filename) && checkFileExist(filename)) {
        mConfigFile = std::fopen(filename, readOnly ? "r" : "r+");
    }
}

Fg_ConfigFileParser::Fg_ConfigFileParser(Fg_Log* log) : mFg_Log(log) {
    trace("Fg_ConfigFileParser::Fg_ConfigFileParser(char * filename)");
}

Fg_ConfigFileParser::~Fg_ConfigFileParser() {
    trace("Fg_ConfigFileParser::~Fg_ConfigFileParser");
    if (mConfigFile != nullptr) {
        std::fflush(mConfigFile);
        std::fclose(mConfigFile);
    }
}

FILE* Fg_ConfigFileParser::getFile() {
    trace("Fg_ConfigFileParser::getFile");
    return mConfigFile;
}

int Fg_ConfigFileParser::checkFileType(const char* fileName) {
    trace("Fg_ConfigFileParser::checkFileType");
    const bool ok = fileName != nullptr && std::strstr(fileName, ".mcf") != nullptr;
    trace(ok ? "File type ok" : "File type not ok");
    return ok ? 1 : 0;
}

int Fg_ConfigFileParser::checkFileExist(const char* filename) {
    trace("Fg_ConfigFileParser::checkFileExist");
    bool exists = false;
    if (filename != nullptr) {
        // A folder opens for reading too, but holds no configuration.
        if (FILE* file = std::fopen(filename, "r")) {
            struct stat status {};
            exists = fstat(fileno(file), &status) == 0 && !S_ISDIR(status.st_mode);
            std::fclose(file);
        }
    }
    info(exists ? "Config File exist" : "Config File don't exist");
    return exists ? 1 : 0;
}

int Fg_ConfigFileParser::setSaveFile(const char* filename) {
    trace("Fg_ConfigFileParser::setSaveFile");
    if (!checkFileType(filename)) {
        error("Config File is Invalid");
        return 0;
    }
    FILE* file = std::fopen(filename, "w");
    if (file == nullptr) {
        error("Config File: fopen failed");
        return 0;
    }
    // A stream the constructor opened would otherwise stay open unowned.
    if (mConfigFile != nullptr) std::fclose(mConfigFile);
    mConfigFile = file;
    info("Config File is valid");
    return 1;
}

void Fg_ConfigFileParser::writeConfigFileHeader() {
    trace("Fg_ConfigFileParser::writeConfigFileHeader");
    writeText(std::string(CameraSectionText) + ConfigFileVersionText);
}

void Fg_ConfigFileParser::writeConfigFilePortA() {
    trace("Fg_ConfigFileParser::writeConfigFilePortA");
    writeConfigFileByPort(0);
}

void Fg_ConfigFileParser::writeConfigFilePortB() {
    trace("Fg_ConfigFileParser::writeConfigFilePortB");
    writeConfigFileByPort(1);
}

void Fg_ConfigFileParser::writeConfigFileByPort(const int port) {
    trace("Fg_ConfigFileParser::writeConfigFileByPort");
    // Appended piece by piece: GCC 12 at -O3 mistakes the literal-first
    // concatenation for an overlapping copy (-Wrestrict).
    std::string line(1, '\n');
    line += getPortString(port);
    line += '\n';
    writeText(line);
}

void Fg_ConfigFileParser::writeConfigFile(const char* key, const char* value) {
    trace("Fg_ConfigFileParser::writeConfigFile");
    writeKeyLine(key, "'", value);
}

void Fg_ConfigFileParser::writeConfigFileValue(const char* key, const char* value) {
    trace("Fg_ConfigFileParser::writeConfigFileValue");
    writeKeyLine(key, "", value);
}

void Fg_ConfigFileParser::writeConfigFileIntKey(const char* key, int value) {
    trace("Fg_ConfigFileParser::writeConfigFileIntKey");
    char number[32];
    std::snprintf(number, sizeof number, "%d", value);
    writeConfigFileValue(key, number);
}

void Fg_ConfigFileParser::writeConfigFileUInt64Key(const char* key, const uint64_t value) {
    trace("Fg_ConfigFileParser::writeConfigFileUInt64Key");
    char number[32];
    std::snprintf(number, sizeof number, "%" PRIu64, value);
    writeConfigFileValue(key, number);
}

void Fg_ConfigFileParser::writeConfigFileDoubleKey(const char* key, double value) {
    trace("Fg_ConfigFileParser::wrtiteConfigFileDoubleKey");
    // Twelve significant digits with sign, point and exponent stay far below
    // 32 characters ("-1.23456789012e-308").
    char number[32];
    {
        ClassicNumbers classic;
        std::snprintf(number, sizeof number, "%.*g", 12, value);
    }
    writeConfigFileValue(key, number);
}

int Fg_ConfigFileParser::parseKey(const char* subsection, const char* key, char* value) {
    trace("Fg_ConfigFileParser::parseKey");
    if (mConfigFile == nullptr || subsection == nullptr || key == nullptr || value == nullptr) return notFound(value);
    Line line;
    if (!line.findFromStart(mConfigFile, subsection)) return notFound(value);

    // Deliberately not bounded by the next section: a key missing under its
    // own port is taken from a later one.
    const std::size_t keyLength = std::strlen(key);
    while (line.read(mConfigFile)) {
        if (std::strncmp(line.text, key, keyLength) != 0 || line.text[keyLength] != '=') continue;
        const char* start = line.text + keyLength;
        start += std::strspn(start, kValueDelimiters);
        if (*start == '\r' || *start == '\n') {
            setValue(value, "", 0);
        } else {
            setValue(value, start, std::strcspn(start, kValueDelimiters));
        }
        return PGN_OK;
    }
    return notFound(value);
}

template <typename T, typename Convert>
int Fg_ConfigFileParser::parseNumber(const char* subsection, const char* key, T* out, Convert convert) {
    char text[kValueBufferSize] = {};
    parseKey(subsection, key, text);
    if (std::strstr(text, kErrorText) != nullptr || out == nullptr) return -1;
    (this->*convert)(text, out);
    return PGN_OK;
}

int Fg_ConfigFileParser::parseIntKey(const char* subsection, const char* key, int* intvalue) {
    trace("Fg_ConfigFileParser::parseIntKey");
    return parseNumber(subsection, key, intvalue, &Fg_ConfigFileParser::getIntValue);
}

int Fg_ConfigFileParser::parseUInt64Key(const char* subsection, const char* key, uint64_t* intvalue) {
    trace("Fg_ConfigFileParser::parseIntKey");
    return parseNumber(subsection, key, intvalue, &Fg_ConfigFileParser::getUInt64Value);
}

int Fg_ConfigFileParser::parseDoubleKey(const char* subsection, const char* key, double* dvalue) {
    trace("Fg_ConfigFileParser::parseDoubleKey");
    return parseNumber(subsection, key, dvalue, &Fg_ConfigFileParser::getDoubleValue);
}

int Fg_ConfigFileParser::parseKeySection(const int port, const char* key, char* value) {
    trace("Fg_ConfigFileParser::parseKeySection");
    if (key == nullptr) return -1;
    return parseKey(getPortString(port).c_str(), key, value);
}

int Fg_ConfigFileParser::parseIntKeySection(const int port, const char* key, int* intvalue) {
    trace("Fg_ConfigFileParser::parseIntKeySection");
    if (key == nullptr) return -1;
    return parseIntKey(getPortString(port).c_str(), key, intvalue);
}

int Fg_ConfigFileParser::parseUInt64KeySection(const int port, const char* key, uint64_t* intvalue) {
    trace("Fg_ConfigFileParser::parseUInt64KeySection");
    if (key == nullptr) return -1;
    return parseUInt64Key(getPortString(port).c_str(), key, intvalue);
}

int Fg_ConfigFileParser::parseDoubleKeySection(const int port, const char* key, double* dvalue) {
    trace("Fg_ConfigFileParser::parseDoubleKeySection");
    if (key == nullptr) return -1;
    return parseDoubleKey(getPortString(port).c_str(), key, dvalue);
}

int Fg_ConfigFileParser::parseIntKeyFromHeader(const char* key, int* value) {
    trace("Fg_ConfigFileParser::parseIntKeyFromHeader");
    // The section text keeps its line feed, so a header whose lines end in
    // CR-LF does not match.
    return parseIntKey(CameraSectionText, key, value);
}

int Fg_ConfigFileParser::parseKeyFromLine(const char* key, char* value) {
    trace("Fg_ConfigFileParser::parseKeyFromLine");
    if (mConfigFile == nullptr || key == nullptr || value == nullptr) return notFound(value);
    Line line;
    if (!line.findFromStart(mConfigFile, key)) return notFound(value);

    // Pieces are the runs between '=' and apostrophes; the value is the
    // second one, or empty when the line has none.
    const char* first = line.text + std::strspn(line.text, kLinePieceDelimiters);
    const char* afterFirst = first + std::strcspn(first, kLinePieceDelimiters);
    const char* second = afterFirst + std::strspn(afterFirst, kLinePieceDelimiters);
    setValue(value, second, std::strcspn(second, kLinePieceDelimiters));
    return PGN_OK;
}

int Fg_ConfigFileParser::getIntValue(const char* string, int* value) {
    trace("Fg_ConfigFileParser::getIntValue");
    if (string == nullptr || value == nullptr) return PGN_OK;
    ClassicNumbers classic;
    // Narrowed modulo 2^32 like the C conversion, so that an unsigned value
    // above INT_MAX written by hand still reaches an unsigned cache intact.
    *value = static_cast<int>(std::strtol(string, nullptr, 10));
    return PGN_OK;
}

int Fg_ConfigFileParser::getUInt64Value(const char* string, uint64_t* value) {
    trace("Fg_ConfigFileParser::getIntValue");
    if (string == nullptr || value == nullptr) return PGN_OK;
    ClassicNumbers classic;
    // What "%lu" accepts (blanks, a sign, decimal digits), but with a defined
    // result for text without digits (0) and for overflow (the largest value).
    *value = std::strtoull(string, nullptr, 10);
    return PGN_OK;
}

int Fg_ConfigFileParser::getDoubleValue(const char* string, double* value) {
    trace("Fg_ConfigFileParser::getDoubleValue");
    if (string == nullptr || value == nullptr) return PGN_OK;
    ClassicNumbers classic;
    *value = std::strtod(string, nullptr);
    return PGN_OK;
}

std::string Fg_ConfigFileParser::getPortString(const int port) {
    trace("Fg_ConfigFileParser::getPortString");
    // Unsigned arithmetic: any port gives some letter instead of an overflow.
    const char letter = static_cast<char>(static_cast<unsigned>('A') + static_cast<unsigned>(port));
    return std::string("[Port ") + letter + "]";
}

void Fg_ConfigFileParser::trace(const char* name) {
    if (mFg_Log != nullptr) mFg_Log->Func(name);
}

void Fg_ConfigFileParser::info(const char* text) {
    if (mFg_Log != nullptr) mFg_Log->Info(text);
}

void Fg_ConfigFileParser::error(const char* text) {
    if (mFg_Log != nullptr) mFg_Log->Error(text);
}

// "key=" value ";" with the value between two `quote`s. A line without a key
// could never be read back, so none is written; a null value is empty.
void Fg_ConfigFileParser::writeKeyLine(const char* key, const char* quote, const char* value) {
    if (key == nullptr) return;
    writeText(std::string(key) + "=" + quote + (value != nullptr ? value : "") + quote + ";\n");
}

void Fg_ConfigFileParser::writeText(const std::string& text) {
    if (mConfigFile == nullptr) return;
    // New lines go to the end, also when reads of an updatable file moved the
    // position; the seek is also what a stream needs between a read and a write.
    std::fseek(mConfigFile, 0, SEEK_END);
    std::fwrite(text.data(), 1, text.size(), mConfigFile);
    std::fflush(mConfigFile);
}
