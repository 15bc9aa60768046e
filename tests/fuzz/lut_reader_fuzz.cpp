// The lookup-table file reader against arbitrary file contents: integer
// tables of every section and all three at once, knee tables of a short and
// a full count, the key readers, and the file loaded as the applet's custom
// table (FG_LUT_CUSTOM_FILE with FG_LUT_TYPE on the user file).
#include <cstdint>
#include <cstring>

#include "FuzzApplet.h"
#include "FuzzCatalogue.h"
#include "FuzzFiles.h"
#include "Fg_LutFileParser.h"
#include "fg_param_types.h"

namespace {

constexpr int kMaxFound = 64;  // entries asked of the line-level entry readers

// What a reader reports about a table must agree with what it allocated: the
// last entry must lie inside the allocation (the sanitizer checks the read).
template <typename Entry>
void checkEntries(const Entry* entries, uint32_t count) {
    if (count > Fg_LutFileParser::kMaxLutElements) __builtin_trap();
    if (count == 0) return;
    if (!entries) __builtin_trap();
    (void)*const_cast<const volatile Entry*>(entries + count - 1);
}

void readIntegerTables(Fg_LutFileParser& parser, const char* file) {
    for (const char* section : {"[gray]", "[red]", "[green]", "[blue]", ""}) {
        LookupTable t{};
        parser.getLutFromFile(file, &t, section);
        checkEntries(t.lut, t.nrOfElements);
        Fg_LutFileParser::freeTable(&t);
    }
    LookupTable r{}, g{}, b{};
    parser.getLutFromFile(file, &r, &g, &b);
    for (LookupTable* t : {&r, &g, &b}) {
        checkEntries(t->lut, t->nrOfElements);
        Fg_LutFileParser::freeTable(t);
    }
}

void readKneeTables(Fg_LutFileParser& parser, const char* file) {
    for (uint32_t count : {0u, 3u, 4096u}) {
        KneeLookupTable k{};
        k.nrOfElements = count;
        // A knee table keeps the caller's count, so only a read says the
        // entries are there.
        if (parser.getLutFromFile(file, &k, "[gray]") == 0) checkEntries(k.value, k.nrOfElements);
        Fg_LutFileParser::freeTable(&k);
    }
    KneeLookupTable r{}, g{}, b{};
    r.nrOfElements = g.nrOfElements = b.nrOfElements = 5;
    const bool read = parser.getLutFromFile(file, &r, &g, &b) == 0;
    for (KneeLookupTable* k : {&r, &g, &b}) {
        if (read) checkEntries(k->value, k->nrOfElements);
        Fg_LutFileParser::freeTable(k);
    }
}

void readLines(Fg_LutFileParser& parser, const char* file) {
    if (!parser.setOpenFile(file, true)) return;
    char value[Fg_LutFileParser::kLineLength];
    int i = 0;
    double d = 0;
    for (const char* separator : {"='", ",", "="}) {
        std::memset(value, 0xA5, sizeof value);
        parser.parseKeyFromLine("id", value, separator);
        if (!std::memchr(value, '\0', sizeof value)) __builtin_trap();
        parser.parseIntKey("nrOfElements", &i, separator);
        parser.parseDoubleKey("format", &d, separator);
    }
    int ints[kMaxFound];
    double doubles[kMaxFound];
    parser.parseIntInt(ints, kMaxFound, ",", "[red]");
    parser.parseIntDouble(doubles, kMaxFound, ",", "[gray]");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzApplet& applet = FuzzApplet::get();
    static const int customFile = fuzzParameterId("FG_LUT_CUSTOM_FILE");
    static const bool userFile = [&] {
        uint32_t type = fuzzSymbolValue("LUT_TYPE_CUSTOM");
        return applet.Fg_setParameterWithType(applet.fg, fuzzParameterId("FG_LUT_TYPE"), &type, 0,
                                              FG_PARAM_TYPE_UINT32_T) == 0;
    }();
    if (!userFile) __builtin_trap();

    const std::string file = FuzzFolder::write("input.lut", data, size);
    {
        Fg_LutFileParser parser;
        readIntegerTables(parser, file.c_str());
        readKneeTables(parser, file.c_str());
        readLines(parser, file.c_str());
    }
    applet.Fg_setParameterWithType(applet.fg, customFile, file.c_str(), 0, FG_PARAM_TYPE_CHAR_PTR);
    applet.forgetWrites();
    return 0;
}
