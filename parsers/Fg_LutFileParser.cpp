#include "Fg_LutFileParser.h"

#include <fcntl.h>
#include <locale.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr const char* kKeySeparator = "='";
constexpr const char* kEntrySeparator = ",";
constexpr const char* kMissing = "Error";
constexpr const char* kLutHeader = "# Lut data file v1.1";
constexpr const char* kKneeHeader = "# KneeLut data file v1.0\n\n";
constexpr const char* kKneeHeaderThree = "# KneeLut data file v1.1";
constexpr const char* kChannelSections[] = {"[red]", "[green]", "[blue]"};

// Doubles go through the "C" conventions for the duration of one call, on
// this thread only: the host's locale (a decimal comma, say) stays as it is
// for everyone else.
locale_t cLocale() {
    static const locale_t c = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    return c;
}

class CNumbers {
public:
    CNumbers() : previous_(cLocale() ? uselocale(cLocale()) : static_cast<locale_t>(nullptr)) {}
    ~CNumbers() {
        if (previous_) uselocale(previous_);
    }
    CNumbers(const CNumbers&) = delete;
    CNumbers& operator=(const CNumbers&) = delete;

private:
    locale_t previous_;
};

const char* orEmpty(const char* text) { return text ? text : ""; }

// The second run of characters that are not separators, cut at the next
// separator; empty when the line has no second run. `out` takes at least as
// much as `line` holds.
void secondPiece(const char* line, const char* separator, char* out) {
    const char* p = line + std::strspn(line, separator);
    p += std::strcspn(p, separator);
    p += std::strspn(p, separator);
    const size_t length = std::strcspn(p, separator);
    std::memcpy(out, p, length);
    out[length] = '\0';
}

// Decimal, saturating at the ends of the int range.
int toInt(const char* text) {
    const long value = std::strtol(text, nullptr, 10);
    if (value > INT_MAX) return INT_MAX;
    if (value < INT_MIN) return INT_MIN;
    return static_cast<int>(value);
}

bool fitsLimits(uint32_t count, const void* entries) {
    return count <= Fg_LutFileParser::kMaxLutElements && (count == 0 || entries != nullptr);
}

bool writable(const LookupTable* lut) { return lut && fitsLimits(lut->nrOfElements, lut->lut); }

// A knee value is written with twelve decimals; a huge one would make a
// line the reader takes in pieces, so it is refused instead.
bool writable(const KneeLookupTable* lut) {
    if (!lut || !fitsLimits(lut->nrOfElements, lut->value)) return false;
    CNumbers numbers;
    for (uint32_t i = 0; i < lut->nrOfElements; ++i) {
        const int length = std::snprintf(nullptr, 0, "%u,%0.12lf;\n", i, lut->value[i]);
        if (length < 0 || length >= Fg_LutFileParser::kLineLength - 1) return false;
    }
    return true;
}

}  // namespace

Fg_LutFileParser::Fg_LutFileParser(Fg_Log* log) : mFg_Log(log) {}

Fg_LutFileParser::~Fg_LutFileParser() { closeFile(); }

void Fg_LutFileParser::closeFile() {
    if (!mConfigFile) return;
    std::fflush(mConfigFile);
    std::fclose(mConfigFile);
    mConfigFile = nullptr;
}

// Opens without blocking (a FIFO without a partner would hang an ordinary
// open) and keeps the stream only for a regular file: a directory or a device
// such as /dev/zero never becomes a table.
bool Fg_LutFileParser::openRegular(const char* filename, const char* mode) {
    closeFile();
    if (!filename) return false;
    const bool reading = mode[0] == 'r';
    int flags = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    flags |= reading ? (mode[1] == '+' ? O_RDWR : O_RDONLY) : (O_WRONLY | O_CREAT | O_TRUNC);
    const int fd = ::open(filename, flags, 0666);
    if (fd < 0) return false;
    struct stat info {};
    const bool regular = fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
    // Writing to a character device such as /dev/null is harmless; reading
    // from one is not.
    const bool usable = regular || (!reading && S_ISCHR(info.st_mode));
    if (!usable || fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK) != 0) {
        ::close(fd);
        return false;
    }
    mConfigFile = fdopen(fd, mode);
    if (!mConfigFile) ::close(fd);
    return mConfigFile != nullptr;
}

bool Fg_LutFileParser::setSaveFile(const char* filename) { return openRegular(filename, "w"); }

bool Fg_LutFileParser::setOpenFile(const char* filename, const bool readOnly) {
    closeFile();
    if (!checkFileExist(filename)) return false;
    return openRegular(filename, readOnly ? "r" : "r+");
}

int Fg_LutFileParser::checkFileType(const char*) { return 1; }

int Fg_LutFileParser::checkFileExist(const char* filename) {
    if (!filename) return 0;
    const int fd = ::open(filename, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (fd < 0) return 0;
    ::close(fd);
    return 1;
}

bool Fg_LutFileParser::readLine(char* line) {
    return mConfigFile && std::fgets(line, kLineLength, mConfigFile) != nullptr;
}

// ---- Line writers -------------------------------------------------------------

void Fg_LutFileParser::writeLutFileHeader(const char* text) {
    if (!mConfigFile) return;
    std::fputs(orEmpty(text), mConfigFile);
    std::fflush(mConfigFile);
}

void Fg_LutFileParser::writeLutFileValue(const char* key, const char* value, const char* separator) {
    if (!mConfigFile) return;
    std::fprintf(mConfigFile, "%s%s%s;\n", orEmpty(key), orEmpty(separator), orEmpty(value));
    std::fflush(mConfigFile);
}

void Fg_LutFileParser::writeIntKey(const char* key, int value, const char* separator) {
    writeLutFileValue(key, std::to_string(value).c_str(), separator);
}

void Fg_LutFileParser::writeDoubleKey(const char* key, double value, const char* separator) {
    CNumbers numbers;
    char text[32];
    std::snprintf(text, sizeof text, "%.*g", 12, value);
    writeLutFileValue(key, text, separator);
}

void Fg_LutFileParser::writeIntInt(int key, int value, const char* separator) {
    writeLutFileValue(std::to_string(key).c_str(), std::to_string(value).c_str(), separator);
}

void Fg_LutFileParser::writeIntDouble(int key, double value, const char* separator) {
    CNumbers numbers;
    const int length = std::snprintf(nullptr, 0, "%0.12lf", value);
    if (length < 0) return;
    std::string text(static_cast<size_t>(length) + 1, '\0');
    std::snprintf(text.data(), text.size(), "%0.12lf", value);
    writeLutFileValue(std::to_string(key).c_str(), text.c_str(), separator);
}

// ---- Line readers -------------------------------------------------------------

void Fg_LutFileParser::parseKeyFromLine(const char* key, char* value, const char* separator) {
    if (!value) return;
    if (mConfigFile && key && separator) {
        std::rewind(mConfigFile);
        char line[kLineLength];
        while (readLine(line)) {
            if (std::strstr(line, key)) {
                secondPiece(line, separator, value);
                return;
            }
        }
    }
    std::strcpy(value, kMissing);
}

int Fg_LutFileParser::parseIntKey(const char* key, int* intvalue, const char* separator) {
    char value[kLineLength];
    parseKeyFromLine(key, value, separator);
    const bool missing = std::strcmp(value, kMissing) == 0;
    if (intvalue) *intvalue = missing ? 0 : toInt(value);
    return missing ? -1 : 0;
}

int Fg_LutFileParser::parseDoubleKey(const char* key, double* dvalue, const char* separator) {
    char value[kLineLength];
    parseKeyFromLine(key, value, separator);
    const bool missing = std::strcmp(value, kMissing) == 0;
    CNumbers numbers;
    if (dvalue) *dvalue = missing ? 0.0 : std::strtod(value, nullptr);
    return missing ? -1 : 0;
}

// From the first line that holds the section text on (that line included),
// the entry sought next is the first line holding its index followed by the
// separator; lines in between are passed over. The scan runs past later
// section lines and ends when every entry is found or the file ends.
template <typename Store>
int Fg_LutFileParser::parseEntries(int nbElement, const char* separator, const char* section, Store store) {
    if (!mConfigFile || nbElement <= 0 || !separator || !*separator || !section) return 0;
    std::rewind(mConfigFile);
    char line[kLineLength];
    bool found = false;
    while (!found && readLine(line)) found = std::strstr(line, section) != nullptr;
    if (!found) return 0;
    int index = 0;
    char piece[kLineLength];
    do {
        char pattern[16];
        std::snprintf(pattern, sizeof pattern, "%d%c", index, separator[0]);
        if (std::strstr(line, pattern)) {
            secondPiece(line, separator, piece);
            store(index, piece);
            ++index;
        }
    } while (index < nbElement && readLine(line));
    return index;
}

int Fg_LutFileParser::parseIntInt(int* lutTable, int nbElement, const char* separator, const char* section) {
    if (!lutTable) return 0;
    return parseEntries(nbElement, separator, section, [&](int i, const char* text) { lutTable[i] = toInt(text); });
}

int Fg_LutFileParser::parseIntDouble(double* lutTable, int nbElement, const char* separator, const char* section) {
    if (!lutTable) return 0;
    CNumbers numbers;
    return parseEntries(nbElement, separator, section,
                        [&](int i, const char* text) { lutTable[i] = std::strtod(text, nullptr); });
}

// ---- Tables -------------------------------------------------------------------

void Fg_LutFileParser::freeTable(LookupTable* lut) {
    if (!lut) return;
    std::free(lut->lut);
    lut->lut = nullptr;
}

void Fg_LutFileParser::freeTable(KneeLookupTable* lut) {
    if (!lut) return;
    std::free(lut->value);
    lut->value = nullptr;
}

int Fg_LutFileParser::getLutFromFile(const char* filename, LookupTable* lut, const char* section) {
    if (!lut) return -1;
    freeTable(lut);
    lut->nrOfElements = 0;
    if (!checkFileExist(filename) || !setOpenFile(filename, true)) return -1;

    int id = 0, count = 0, format = 0, number = 0;
    parseIntKey("id", &id, kKeySeparator);
    parseIntKey("nrOfElements", &count, kKeySeparator);
    if (count < 0 || static_cast<uint32_t>(count) > kMaxLutElements) return -1;
    auto* entries = static_cast<uint32_t*>(std::calloc(static_cast<size_t>(count) + 1, sizeof(uint32_t)));
    if (!entries) return -1;
    parseIntKey("format", &format, kKeySeparator);
    parseIntKey("number", &number, kKeySeparator);

    lut->lut = entries;
    lut->id = static_cast<uint32_t>(id);
    lut->nrOfElements = static_cast<uint32_t>(count);
    lut->format = static_cast<uint32_t>(format);
    lut->number = static_cast<uint8_t>(number);
    // Signed and unsigned 32-bit entries share their representation.
    parseIntInt(reinterpret_cast<int*>(entries), count, kEntrySeparator, orEmpty(section));
    return 0;
}

int Fg_LutFileParser::getLutFromFile(const char* filename, KneeLookupTable* lut, const char* section) {
    if (!lut) return -1;
    freeTable(lut);
    if (!checkFileExist(filename) || !setOpenFile(filename, true)) return -1;
    if (lut->nrOfElements > kMaxLutElements) return -1;
    auto* values = static_cast<double*>(std::calloc(size_t{lut->nrOfElements} + 1, sizeof(double)));
    if (!values) return -1;
    lut->value = values;
    parseIntDouble(values, static_cast<int>(lut->nrOfElements), kEntrySeparator, orEmpty(section));
    return 0;
}

namespace {

template <typename Parser, typename Table>
int readThree(Parser& parser, const char* filename, Table* r, Table* g, Table* b) {
    Table* tables[] = {r, g, b};
    for (int i = 0; i < 3; ++i)
        if (const int rc = parser.getLutFromFile(filename, tables[i], kChannelSections[i])) return rc;
    return 0;
}

}  // namespace

int Fg_LutFileParser::getLutFromFile(const char* filename, LookupTable* lutR, LookupTable* lutG, LookupTable* lutB) {
    return readThree(*this, filename, lutR, lutG, lutB);
}

int Fg_LutFileParser::getLutFromFile(const char* filename, KneeLookupTable* lutR, KneeLookupTable* lutG,
                                     KneeLookupTable* lutB) {
    return readThree(*this, filename, lutR, lutG, lutB);
}

int Fg_LutFileParser::getMatrixFromFile(const char*, int*, int) { return -1; }

namespace {

// Runs `write` on a freshly opened save file and reports whether everything
// reached the file.
template <typename Write>
int saveWith(Fg_LutFileParser& parser, FILE*& stream, const char* filename, Write write) {
    if (!parser.setSaveFile(filename)) return -1;
    write();
    const bool failed = std::ferror(stream) != 0;
    const bool closed = std::fclose(stream) == 0;
    stream = nullptr;
    return failed || !closed ? -1 : 0;
}

}  // namespace

// The four key lines, then one line per entry (printed as signed, which
// reads back to the same bits).
void Fg_LutFileParser::writeTable(const LookupTable& lut) {
    writeIntKey("id", static_cast<int>(lut.id), "=");
    writeIntKey("nrOfElements", static_cast<int>(lut.nrOfElements), "=");
    writeIntKey("format", static_cast<int>(lut.format), "=");
    writeIntKey("number", lut.number, "=");
    for (uint32_t i = 0; i < lut.nrOfElements; ++i)
        writeIntInt(static_cast<int>(i), static_cast<int>(lut.lut[i]), kEntrySeparator);
}

// Knee tables have entry lines only.
void Fg_LutFileParser::writeTable(const KneeLookupTable& lut) {
    for (uint32_t i = 0; i < lut.nrOfElements; ++i) writeIntDouble(static_cast<int>(i), lut.value[i], kEntrySeparator);
}

int Fg_LutFileParser::saveLutToFile(const char* filename, const LookupTable* lut) {
    if (!writable(lut)) return -1;
    return saveWith(*this, mConfigFile, filename, [&] {
        writeLutFileHeader(kLutHeader);
        writeLutFileHeader("\n\n");
        writeLutFileHeader("\n\n");
        writeLutFileHeader("[gray]");
        writeLutFileHeader("\n\n");
        writeTable(*lut);
    });
}

// The header line, then per channel an empty line, the section line, an
// empty line and the table.
template <typename Table>
int Fg_LutFileParser::saveThree(const char* filename, const char* header, const Table* lutR, const Table* lutG,
                                const Table* lutB) {
    const Table* tables[] = {lutR, lutG, lutB};
    for (const Table* t : tables)
        if (!writable(t)) return -1;
    return saveWith(*this, mConfigFile, filename, [&] {
        writeLutFileHeader(header);
        for (int c = 0; c < 3; ++c) {
            writeLutFileHeader("\n\n");
            writeLutFileHeader(kChannelSections[c]);
            writeLutFileHeader("\n\n");
            writeTable(*tables[c]);
        }
    });
}

int Fg_LutFileParser::saveLutToFile(const char* filename, const LookupTable* lutR, const LookupTable* lutG,
                                    const LookupTable* lutB) {
    return saveThree(filename, kLutHeader, lutR, lutG, lutB);
}

int Fg_LutFileParser::saveLutToFile(const char* filename, const KneeLookupTable* lut, const char* section) {
    if (!writable(lut)) return -1;
    return saveWith(*this, mConfigFile, filename, [&] {
        writeLutFileHeader(kKneeHeader);
        writeLutFileHeader(section);
        writeLutFileHeader("\n\n");
        writeTable(*lut);
    });
}

int Fg_LutFileParser::saveLutToFile(const char* filename, const KneeLookupTable* lutR, const KneeLookupTable* lutG,
                                    const KneeLookupTable* lutB) {
    return saveThree(filename, kKneeHeaderThree, lutR, lutG, lutB);
}

int Fg_LutFileParser::saveMatrixToFile(const char* filename, const char* header, const int* matrix, int nb) {
    if (nb > 0 && (!matrix || static_cast<uint32_t>(nb) > kMaxLutElements)) return -1;
    return saveWith(*this, mConfigFile, filename, [&] {
        writeLutFileHeader(header);
        writeIntKey("nrOfElements", nb, "=");
        for (int i = 0; i < nb; ++i) writeIntInt(i, matrix[i], kEntrySeparator);
    });
}
