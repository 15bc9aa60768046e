#include "design_model.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <set>

namespace vboard {

namespace {

// Bounds that keep a hostile image from making the board allocate without
// limit when the design is bound.
constexpr uint64_t kMaxRegisters = 65535;
constexpr uint64_t kMaxCount = uint64_t{1} << 20;
constexpr uint64_t kMaxTotalElements = uint64_t{1} << 22;
constexpr uint64_t kMaxStringBits = 65536;
constexpr uint64_t kMaxEnums = 65535;
constexpr uint64_t kMaxEvents = 64;  // event masks are 64-bit

bool isNameChar(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
}

bool isName(std::string_view s) {
    if (s.empty())
        return false;
    for (char c : s)
        if (!isNameChar(c))
            return false;
    return true;
}

bool isHex(char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

bool isGuid(std::string_view s) {
    if (s.size() != 36)
        return false;
    for (std::size_t i = 0; i < s.size(); ++i) {
        bool dash = i == 8 || i == 13 || i == 18 || i == 23;
        if (dash ? s[i] != '-' : !isHex(s[i]))
            return false;
    }
    return true;
}

bool isPlainText(std::string_view s) {
    for (char c : s)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
            return false;
    return true;
}

// Words of one header line, separated by single spaces. Text that may hold
// spaces is written as "<length>:<bytes>".
class LineReader {
public:
    explicit LineReader(std::string_view line) : rest_(line) {}

    bool word(std::string_view& out) {
        if (rest_.empty())
            return false;
        std::size_t end = rest_.find(' ');
        out = rest_.substr(0, end);
        rest_ = end == std::string_view::npos ? std::string_view{} : rest_.substr(end + 1);
        // A separator must be followed by another word.
        return !out.empty() && (end == std::string_view::npos || !rest_.empty());
    }

    bool keyword(std::string_view expected) {
        std::string_view w;
        return word(w) && w == expected;
    }

    template <typename T>
    bool number(T& out) {
        std::string_view w;
        if (!word(w))
            return false;
        // from_chars accepts a leading minus for signed types only; a plus sign
        // or anything after the digits is refused here.
        auto [ptr, ec] = std::from_chars(w.data(), w.data() + w.size(), out);
        return ec == std::errc{} && ptr == w.data() + w.size();
    }

    bool text(std::string& out) {
        std::size_t colon = rest_.find(':');
        if (colon == std::string_view::npos || colon == 0)
            return false;
        uint64_t length = 0;
        auto [ptr, ec] = std::from_chars(rest_.data(), rest_.data() + colon, length);
        if (ec != std::errc{} || ptr != rest_.data() + colon || length > rest_.size() - colon - 1)
            return false;
        std::string_view value = rest_.substr(colon + 1, length);
        rest_ = rest_.substr(colon + 1 + length);
        if (!rest_.empty()) {
            if (rest_.front() != ' ' || rest_.size() == 1)
                return false;
            rest_.remove_prefix(1);
        }
        if (!isPlainText(value))
            return false;
        out.assign(value);
        return true;
    }

    bool done() const { return rest_.empty(); }

private:
    std::string_view rest_;
};

class HeaderReader {
public:
    HeaderReader(const char* data, std::size_t size) : data_(data), size_(size) {}

    // The next line without its '\n'; false when no '\n' is left in the buffer.
    bool line(std::string_view& out) {
        if (pos_ >= size_)
            return false;
        const void* nl = std::memchr(data_ + pos_, '\n', size_ - pos_);
        if (!nl)
            return false;
        std::size_t end = static_cast<std::size_t>(static_cast<const char*>(nl) - data_);
        out = std::string_view(data_ + pos_, end - pos_);
        pos_ = end + 1;
        return true;
    }

    std::size_t consumed() const { return pos_; }

private:
    const char* data_;
    std::size_t size_;
    std::size_t pos_ = 0;
};

// "<key> <number>" with the number at most `limit`.
bool countLine(HeaderReader& in, std::string_view key, uint64_t limit, uint64_t& n) {
    std::string_view line;
    if (!in.line(line))
        return false;
    LineReader r(line);
    return r.keyword(key) && r.number(n) && r.done() && n <= limit;
}

bool parseRegister(std::string_view line, RegisterModel& reg, uint64_t& totalElements) {
    LineReader r(line);
    std::string_view name, block, kind, access;
    uint64_t width = 0, frac = 0, count = 0;
    if (!r.keyword("reg") || !r.word(name) || !r.word(block) || !r.word(kind) || !r.number(width) ||
        !r.number(frac) || !r.number(count) || !r.word(access) || !r.done())
        return false;
    if (!isName(name) || !isName(block) || kind.size() != 1 || (access != "RW" && access != "RO"))
        return false;
    std::string prefix = "Device1_" + std::string(block) + "_";
    if (name.size() <= prefix.size() || name.substr(0, prefix.size()) != prefix)
        return false;
    if (count == 0 || count > kMaxCount)
        return false;
    switch (kind[0]) {
    case 'U':
        if (width == 0 || width > 64 || frac != 0)
            return false;
        break;
    case 'D':
        if (width == 0 || width > 64 || frac > width || (width == 64 && frac != 0) || frac >= 64)
            return false;
        break;
    case 'S':
        if (width < 8 || width > kMaxStringBits || width % 8 != 0 || frac != 0 || count != 1)
            return false;
        break;
    default:
        return false;
    }
    totalElements += count;
    if (totalElements > kMaxTotalElements)
        return false;
    reg.name.assign(name);
    reg.block.assign(block);
    reg.entry.assign(name.substr(prefix.size()));
    reg.kind = kind[0];
    reg.width = static_cast<unsigned>(width);
    reg.frac = static_cast<unsigned>(frac);
    reg.count = static_cast<unsigned>(count);
    reg.readOnly = access == "RO";
    return true;
}

bool parseEnum(std::string_view line, DesignModel& design) {
    LineReader r(line);
    std::string_view name;
    int32_t value = 0;
    std::string display;
    if (!r.keyword("enum") || !r.word(name) || !r.number(value) || !r.text(display) || !r.done() || display.empty())
        return false;
    int n = design.findRegister(name);
    if (n < 1)
        return false;
    RegisterModel& reg = design.registers[static_cast<std::size_t>(n - 1)];
    if (reg.kind != 'U' || reg.count != 1)
        return false;
    for (const auto& [existing, v] : reg.enums)
        if (existing == display)
            return false;
    reg.enums.emplace_back(std::move(display), value);
    return true;
}

bool parseEvent(std::string_view line, EventModel& event) {
    LineReader r(line);
    unsigned firmware = 0;
    std::string_view name;
    if (!r.keyword("event") || !r.number(firmware) || !r.word(name) || !r.done() || firmware > 1 || !isName(name))
        return false;
    event.name.assign(name);
    event.firmware = firmware == 1;
    return true;
}

std::unique_ptr<DesignModel> parseHeader(HeaderReader& in, std::size_t size) {
    auto design = std::make_unique<DesignModel>();
    std::string_view line;
    if (!in.line(line) || line != kImageMagic)
        return nullptr;

    if (!in.line(line))
        return nullptr;
    {
        LineReader r(line);
        if (!r.keyword("board") || !r.number(design->boardType) || !r.done() || design->boardType <= 0)
            return nullptr;
    }
    struct IdLine {
        std::string_view key;
        std::string* out;
        bool guid;
    };
    for (const IdLine& id : {IdLine{"hap-id", &design->hapId, true}, IdLine{"bitstream-id", &design->bitstreamId, true},
                             IdLine{"applet-uid", &design->appletUid, false},
                             IdLine{"build-time", &design->buildTime, false}}) {
        if (!in.line(line))
            return nullptr;
        LineReader r(line);
        if (!r.keyword(id.key))
            return nullptr;
        if (id.guid) {
            std::string_view w;
            if (!r.word(w) || !isGuid(w))
                return nullptr;
            id.out->assign(w);
        } else if (!r.text(*id.out)) {
            return nullptr;
        }
        if (!r.done())
            return nullptr;
    }

    uint64_t n = 0;
    if (!countLine(in, "registers", kMaxRegisters, n))
        return nullptr;
    uint64_t totalElements = 0;
    std::set<std::string, std::less<>> names;
    for (uint64_t i = 0; i < n; ++i) {
        RegisterModel reg;
        if (!in.line(line) || !parseRegister(line, reg, totalElements) || !names.insert(reg.name).second)
            return nullptr;
        design->registers.push_back(std::move(reg));
    }
    design->indexNames();

    if (!countLine(in, "enums", kMaxEnums, n))
        return nullptr;
    for (uint64_t i = 0; i < n; ++i)
        if (!in.line(line) || !parseEnum(line, *design))
            return nullptr;

    if (!countLine(in, "events", kMaxEvents, n))
        return nullptr;
    names.clear();
    for (uint64_t i = 0; i < n; ++i) {
        EventModel event;
        if (!in.line(line) || !parseEvent(line, event) || !names.insert(event.name).second)
            return nullptr;
        design->events.push_back(std::move(event));
    }

    uint64_t bitstream = 0;
    if (!countLine(in, "bitstream", UINT64_MAX, bitstream) || !in.line(line) || line != "end")
        return nullptr;
    if (bitstream != size - in.consumed())
        return nullptr;
    return design;
}

}  // namespace

double RegisterModel::maxFixed() const {
    return std::ldexp(static_cast<double>(maxRaw()), -static_cast<int>(frac));
}

double RegisterModel::step() const { return std::ldexp(1.0, -static_cast<int>(frac)); }

bool RegisterModel::encodeDouble(double value, uint64_t& raw) const {
    if (ieee()) {
        std::memcpy(&raw, &value, sizeof raw);
        return true;
    }
    if (std::isnan(value) || value < 0.0 || value > maxFixed())
        return false;
    // Above 53 bits the largest value is not exact in a double and may round
    // one step past the register; such values are refused, not wrapped.
    double scaled = std::ldexp(value, static_cast<int>(frac));
    if (scaled >= 0x1p63)
        return false;
    raw = static_cast<uint64_t>(std::llround(scaled));
    return raw <= maxRaw();
}

double RegisterModel::decodeDouble(uint64_t raw) const {
    if (ieee()) {
        double value = 0;
        std::memcpy(&value, &raw, sizeof value);
        return value;
    }
    return std::ldexp(static_cast<double>(raw), -static_cast<int>(frac));
}

int DesignModel::findRegister(std::string_view name) const {
    auto it = byName_.find(std::string(name));
    return it == byName_.end() ? -1 : it->second;
}

void DesignModel::indexNames() {
    byName_.clear();
    for (std::size_t i = 0; i < registers.size(); ++i)
        byName_.emplace(registers[i].name, static_cast<int>(i + 1));
}

std::string writeImageHeader(const DesignModel& design, uint64_t bitstreamBytes) {
    auto text = [](const std::string& s) { return std::to_string(s.size()) + ":" + s; };
    std::string out;
    out += std::string(kImageMagic) + "\n";
    out += "board " + std::to_string(design.boardType) + "\n";
    out += "hap-id " + design.hapId + "\n";
    out += "bitstream-id " + design.bitstreamId + "\n";
    out += "applet-uid " + text(design.appletUid) + "\n";
    out += "build-time " + text(design.buildTime) + "\n";
    out += "registers " + std::to_string(design.registers.size()) + "\n";
    std::size_t enums = 0;
    for (const RegisterModel& r : design.registers) {
        out += "reg " + r.name + " " + r.block + " " + r.kind + " " + std::to_string(r.width) + " " +
               std::to_string(r.frac) + " " + std::to_string(r.count) + " " + (r.readOnly ? "RO" : "RW") + "\n";
        enums += r.enums.size();
    }
    out += "enums " + std::to_string(enums) + "\n";
    for (const RegisterModel& r : design.registers)
        for (const auto& [display, value] : r.enums)
            out += "enum " + r.name + " " + std::to_string(value) + " " + text(display) + "\n";
    out += "events " + std::to_string(design.events.size()) + "\n";
    for (const EventModel& e : design.events)
        out += std::string("event ") + (e.firmware ? "1" : "0") + " " + e.name + "\n";
    out += "bitstream " + std::to_string(bitstreamBytes) + "\n";
    out += "end\n";
    return out;
}

std::unique_ptr<DesignModel> parseImage(const void* image, std::size_t size) {
    if (!image || size == 0)
        return nullptr;
    try {
        HeaderReader in(static_cast<const char*>(image), size);
        return parseHeader(in, size);
    } catch (const std::exception&) {
        return nullptr;  // out of memory while building the model
    }
}

}  // namespace vboard
