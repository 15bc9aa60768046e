// Reader and writer of lookup-table files: text files with one integer table
// ("[gray]") or three ("[red]", "[green]", "[blue]"), knee-point tables of
// doubles, and integer matrices.
//
// Every value line is key, separator, value, ";" and a line feed: keys with
// "=" ("id=0;"), entries with "," and their index as key ("17,4095;").
// Lines are read in pieces of at most kLineLength - 1 characters; a longer
// line is treated as several lines.
//
// Hostile input: only regular files are read (a directory, a device such as
// /dev/zero or a FIFO cannot be opened as a table), and a table is never
// larger than kMaxLutElements entries, whatever its file says. Numbers are
// written and read with a decimal point, whatever the process locale.
#ifndef PELAGON_PARSERS_FG_LUTFILEPARSER_H
#define PELAGON_PARSERS_FG_LUTFILEPARSER_H

#include <cstdint>
#include <cstdio>

class Fg_Log;

// One integer table. `lut` is owned by the record when a reader filled it
// (release it with Fg_LutFileParser::freeTable); for writing it may point at
// the caller's own array.
typedef struct LookupTable_s {
    uint32_t* lut;
    uint32_t id;
    uint32_t nrOfElements;
    uint32_t format;
    uint8_t number;
} LookupTable;

// One knee-point table of doubles; `reserved` is not used by the files.
typedef struct KneeLookupTable_s {
    double* value;
    double* reserved;
    uint32_t id;
    uint32_t nrOfElements;
    uint32_t format;
    uint8_t number;
} KneeLookupTable;

class Fg_LutFileParser {
public:
    // The largest table the parser reads or writes: 1048576 entries (4 MiB
    // of integers, 8 MiB of doubles), far above the 4096 entries of the
    // design's tables. A file that announces more, or a negative count, is
    // refused with -1 before anything is allocated.
    static constexpr uint32_t kMaxLutElements = 1u << 20;
    // A read takes at most kLineLength - 1 characters of a line.
    static constexpr int kLineLength = 256;

    explicit Fg_LutFileParser(Fg_Log* log = nullptr);
    ~Fg_LutFileParser();
    Fg_LutFileParser(const Fg_LutFileParser&) = delete;
    Fg_LutFileParser& operator=(const Fg_LutFileParser&) = delete;

    // Every open first closes the stream of the previous one.
    // Opens `filename` for writing ("w"); false when it cannot.
    bool setSaveFile(const char* filename);
    // Opens an existing regular file "r" (readOnly) or "r+"; false otherwise.
    bool setOpenFile(const char* filename, const bool readOnly);
    // Any name is a LUT file name: always 1.
    int checkFileType(const char* fileName);
    // 1 when `filename` can be opened for reading, else 0.
    int checkFileExist(const char* filename);

    // Writers: 0, or -1 when the file cannot be opened for writing or the
    // table could not be read back exactly (null entries, more than
    // kMaxLutElements entries, a knee value whose line would be too long).
    int saveLutToFile(const char* filename, const LookupTable* lut);
    int saveLutToFile(const char* filename, const LookupTable* lutR, const LookupTable* lutG,
                      const LookupTable* lutB);
    int saveLutToFile(const char* filename, const KneeLookupTable* lut, const char* section);
    int saveLutToFile(const char* filename, const KneeLookupTable* lutR, const KneeLookupTable* lutG,
                      const KneeLookupTable* lutB);
    int saveMatrixToFile(const char* filename, const char* header, const int* matrix, int nb);
    // Reading matrices is not offered: always -1.
    int getMatrixFromFile(const char* filename, int* matrix, int maxSize);

    // Reads the integer table of `section`. Its id, count, format and number
    // come from the first line of the whole file that holds each key (so in
    // a three-table file all three sizes come from the red section); entries
    // are matched by "i," anywhere in a line, in file order, from the section
    // line on. Missing keys read as 0, entries not found stay 0. Returns 0,
    // or -1 when the file is missing, is not a regular file, cannot be opened,
    // announces a negative count or one above kMaxLutElements, or memory runs
    // out. The record's old entries are freed first in every case.
    int getLutFromFile(const char* filename, LookupTable* lut, const char* section);
    // "[red]", "[green]", "[blue]" in this order; the first non-zero result.
    int getLutFromFile(const char* filename, LookupTable* lutR, LookupTable* lutG, LookupTable* lutB);
    // The same for knee tables; the count is the caller's record's, entries
    // the file does not give are 0.
    int getLutFromFile(const char* filename, KneeLookupTable* lut, const char* section);
    int getLutFromFile(const char* filename, KneeLookupTable* lutR, KneeLookupTable* lutG, KneeLookupTable* lutB);

    // Releases the entries a reader allocated and clears the pointer.
    static void freeTable(LookupTable* lut);
    static void freeTable(KneeLookupTable* lut);

    // Line writers; each flushes at once. Nothing is written without a stream.
    void writeLutFileHeader(const char* text);
    void writeLutFileValue(const char* key, const char* value, const char* separator);
    void writeIntKey(const char* key, int value, const char* separator);
    void writeDoubleKey(const char* key, double value, const char* separator);
    void writeIntInt(int key, int value, const char* separator);
    void writeIntDouble(int key, double value, const char* separator);

    // Line readers on the open stream, each from the start of the file.
    // `value` receives at most kLineLength characters with the terminator:
    // the second separator-delimited piece of the first line that contains
    // `key`, or "Error" when no line does (or no file is open).
    void parseKeyFromLine(const char* key, char* value, const char* separator);
    // 0, or -1 when the key is missing (the value is then 0). Numbers beyond
    // the int range saturate.
    int parseIntKey(const char* key, int* intvalue, const char* separator);
    int parseDoubleKey(const char* key, double* dvalue, const char* separator);
    // Fill entries 0 .. nbElement - 1 of the table from the section on and
    // return how many were found.
    int parseIntInt(int* lutTable, int nbElement, const char* separator, const char* section);
    int parseIntDouble(double* lutTable, int nbElement, const char* separator, const char* section);

private:
    void closeFile();
    bool openRegular(const char* filename, const char* mode);
    bool readLine(char* line);
    void writeTable(const LookupTable& lut);
    void writeTable(const KneeLookupTable& lut);
    template <typename Table>
    int saveThree(const char* filename, const char* header, const Table* lutR, const Table* lutG, const Table* lutB);
    template <typename Store>
    int parseEntries(int nbElement, const char* separator, const char* section, Store store);

    FILE* mConfigFile = nullptr;
    char mCameraSectionText[30] = {};
    char mConfigFileVersionText[30] = {};
    char mPortAText[30] = {};
    char mPortBText[30] = {};
    Fg_Log* mFg_Log = nullptr;
};

#endif
