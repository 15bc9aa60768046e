// Reader and writer of the applet's configuration files (".mcf"): a fixed
// header, one section per camera port and one "KEY=value;" line per value.
//
// Numbers are always written and read with a decimal point, whatever locale
// the host process runs with: every conversion runs in the "C" locale of the
// calling thread only, so the process locale is never touched.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

class Fg_Log;

class Fg_ConfigFileParser {
public:
    // Lines are read in pieces of at most this many characters; a longer
    // line is read as several lines.
    static constexpr int kMaxLineLength = 255;
    // Size of the buffer every `char* value` of the readers must provide.
    // A value is at most one read piece, so it always fits together with its
    // terminating NUL; the readers never write more than this.
    static constexpr std::size_t kValueBufferSize = kMaxLineLength + 1;

    static constexpr const char* CameraSectionText = "[Kamerasektion]\n";
    static constexpr const char* ConfigFileVersionText = "\nConfigFileVersion=2.0;\n";

    // Opens `filename` for reading ("r", readOnly) or reading and updating
    // ("r+") when it names an existing ".mcf" file; otherwise no file is open.
    // `log` may be null and is not owned.
    Fg_ConfigFileParser(Fg_Log* log, const char* filename, bool readOnly);
    // A parser without a file, for writing one through setSaveFile.
    explicit Fg_ConfigFileParser(Fg_Log* log);
    ~Fg_ConfigFileParser();

    Fg_ConfigFileParser(const Fg_ConfigFileParser&) = delete;
    Fg_ConfigFileParser& operator=(const Fg_ConfigFileParser&) = delete;

    FILE* getFile();

    // 1 when the name contains ".mcf" (case-sensitive), else 0.
    int checkFileType(const char* fileName);
    // 1 when the name is a file (not a folder) that can be opened for reading.
    int checkFileExist(const char* filename);
    // Creates or truncates `filename` as the parser's stream: 1 on success.
    // 0 when the name fails the type check or the file cannot be opened; the
    // file is then untouched and a stream opened before stays the parser's.
    int setSaveFile(const char* filename);

    // Each writer writes one line at the end of the file and flushes it.
    void writeConfigFileHeader();
    void writeConfigFilePortA();
    void writeConfigFilePortB();
    void writeConfigFileByPort(const int port);
    void writeConfigFile(const char* key, const char* value);       // KEY='value';
    void writeConfigFileValue(const char* key, const char* value);  // KEY=value;
    void writeConfigFileIntKey(const char* key, int value);
    void writeConfigFileUInt64Key(const char* key, const uint64_t value);
    void writeConfigFileDoubleKey(const char* key, double value);

    // The first line starting with "key=" after the first line that contains
    // `subsection`: 0 and its value, or -8000 and "Error". `value` must hold
    // kValueBufferSize bytes.
    int parseKey(const char* subsection, const char* key, char* value);
    // 0 and the converted value, or -1 with the output untouched.
    int parseIntKey(const char* subsection, const char* key, int* intvalue);
    int parseUInt64Key(const char* subsection, const char* key, uint64_t* intvalue);
    int parseDoubleKey(const char* subsection, const char* key, double* dvalue);
    // The same below the section of `port`; -1 for a null key.
    int parseKeySection(const int port, const char* key, char* value);
    int parseIntKeySection(const int port, const char* key, int* intvalue);
    int parseUInt64KeySection(const int port, const char* key, uint64_t* intvalue);
    int parseDoubleKeySection(const int port, const char* key, double* dvalue);
    int parseIntKeyFromHeader(const char* key, int* value);
    // The first line containing `key` anywhere, split at '=' and apostrophes:
    // the second piece is the value. `value` must hold kValueBufferSize bytes.
    int parseKeyFromLine(const char* key, char* value);

    // Conversions that never fail: unparsable text gives 0 or its leading
    // numeric part. All return 0.
    int getIntValue(const char* string, int* value);
    int getUInt64Value(const char* string, uint64_t* value);
    int getDoubleValue(const char* string, double* value);

    std::string getPortString(const int port);

private:
    void trace(const char* name);
    void info(const char* text);
    void error(const char* text);
    void writeKeyLine(const char* key, const char* quote, const char* value);
    void writeText(const std::string& text);
    template <typename T, typename Convert>
    int parseNumber(const char* subsection, const char* key, T* out, Convert convert);

    FILE* mConfigFile = nullptr;
    Fg_Log* mFg_Log = nullptr;
};
