#include "ParameterInfoBuilderXML.h"

#include <locale>
#include <map>

#include "FgZuWrapper.h"
#include "parameterInfo.h"

namespace {

constexpr const char* kGenApiNamespace = "http://www.genicam.org/GenApi/Version_1_0";
constexpr const char* kSchemaInstanceNamespace = "http://www.w3.org/2001/XMLSchema-instance";
constexpr const char* kSchemaFile = "GenApiSchema_Version_1_0.xsd";
constexpr const char* kPortName = "DevicePort";
constexpr const char* kHiddenGroup = "Direct Register Access";

std::string text(const char* s) {
    return s != nullptr ? s : "";
}

bool isAsciiLetter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

// Length of the well-formed UTF-8 sequence at `s` (at most `left` bytes), or
// 0 when the bytes there are not one.
std::size_t utf8SequenceLength(const unsigned char* s, std::size_t left) {
    std::size_t length;
    uint32_t code;
    if (s[0] >= 0xC2 && s[0] <= 0xDF) {
        length = 2;
        code = s[0] & 0x1Fu;
    } else if (s[0] >= 0xE0 && s[0] <= 0xEF) {
        length = 3;
        code = s[0] & 0x0Fu;
    } else if (s[0] >= 0xF0 && s[0] <= 0xF4) {
        length = 4;
        code = s[0] & 0x07u;
    } else {
        return 0;
    }
    if (length > left) return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((s[i] & 0xC0u) != 0x80u) return 0;
        code = (code << 6) | (s[i] & 0x3Fu);
    }
    const uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    return code < smallest[length] || code > 0x10FFFF || surrogate || code == 0xFFFE || code == 0xFFFF ? 0 : length;
}

// The document declares UTF-8, but the registry's texts are Latin-1 (the
// micro sign of "µs" is the single byte 0xB5). Well-formed UTF-8 sequences
// pass as they are, every other byte above 127 is taken as the Latin-1
// character it stands for, and control characters that XML 1.0 cannot carry
// at all are dropped. The markup itself is ASCII and passes unchanged.
std::string asUtf8(const std::string& document) {
    std::string out;
    out.reserve(document.size() + document.size() / 64);
    const auto* bytes = reinterpret_cast<const unsigned char*>(document.data());
    const std::size_t size = document.size();
    for (std::size_t i = 0; i < size;) {
        const unsigned char c = bytes[i];
        if (c < 0x80) {
            if (c >= 0x20 || c == '\t' || c == '\n' || c == '\r') out += static_cast<char>(c);
            ++i;
        } else if (const std::size_t length = utf8SequenceLength(bytes + i, size - i)) {
            out.append(document, i, length);
            i += length;
        } else {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
            ++i;
        }
    }
    return out;
}

}  // namespace

std::string xmlStringFilter(const std::string& in) {
    std::string out;
    out.reserve(in.size());
    for (const char c : in) {
        switch (c) {
            case '"': out += "&quot;"; break;
            case '&': out += "&amp;"; break;
            case '\'': out += "&apos;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            default: out += c; break;
        }
    }
    return out;
}

std::string xmlNameFilter(const std::string& in) {
    std::string out;
    for (const char c : in) {
        const bool laterOnly = (c >= '0' && c <= '9') || c == '_';
        if (isAsciiLetter(c) || (laterOnly && !out.empty())) out += c;
    }
    return out;
}

// ---------------------------------------------------------------------------

Category::Category(std::string name) : mName(std::move(name)) {}
Category::~Category() = default;

const std::string& Category::getName() const { return mName; }

Category* Category::addChild(const std::string& name) {
    mChilds.push_back(std::make_unique<Category>(name));
    return mChilds.back().get();
}

std::size_t Category::getChildCount() const { return mChilds.size(); }

Category* Category::getChild(std::size_t index) const {
    return index < mChilds.size() ? mChilds[index].get() : nullptr;
}

Category* Category::getChild(const std::string& name) const {
    for (const auto& child : mChilds)
        if (child->getName() == name) return child.get();
    return nullptr;
}

bool Category::hasChild(const std::string& name) const { return getChild(name) != nullptr; }

void Category::addFeature(const std::string& name) { mFeatures.push_back(name); }

std::size_t Category::getFeatureCount() const { return mFeatures.size(); }

const std::string& Category::getFeature(std::size_t index) const {
    static const std::string none;
    return index < mFeatures.size() ? mFeatures[index] : none;
}

bool Category::hasFeature(const std::string& name) const {
    for (const std::string& feature : mFeatures)
        if (feature == name) return true;
    return false;
}

// ---------------------------------------------------------------------------

ParameterInfoGeneratorXML::ParameterInfoGeneratorXML(std::ostringstream& out) : mOut(out) {}

void ParameterInfoGeneratorXML::infoGenerate(const RegisterInfo& info, int length) {
    if (info.id != 0) mOut << "<Address>" << info.id << "</Address>\n";
    mOut << "<Length>" << length << "</Length>\n";
    const bool readable = (info.accessFlags & REG_ACCESS_READ) != 0;
    const bool writable = (info.accessFlags & REG_ACCESS_WRITE) != 0;
    const char* mode = readable ? (writable ? "RW" : "RO") : (writable ? "WO" : nullptr);
    if (mode != nullptr) mOut << "<AccessMode>" << mode << "</AccessMode>\n";
    mOut << "<pPort>" << kPortName << "</pPort>\n";
}

void ParameterInfoGeneratorXML::infoGenerate(const RegisterInfo& info, uint64_t /*value*/, uint64_t from,
                                             uint64_t to, uint64_t steps) {
    const std::string name = xmlStringFilter(text(info.parameterName));
    // The runtime's transfer length is the one 64-bit register among them.
    const int length = text(info.parameterName) == "FG_TRANSFER_LEN" ? 8 : 4;
    mOut << "<IntReg Name=\"" << name << "_Reg\">\n";
    infoGenerate(info, length);
    // Unsigned parameters are described as signed registers too; consumers
    // rely on it, so it stays.
    registerTail("Signed");
    mOut << "<Integer Name='" << name << "'>\n";
    description(info);
    mOut << "<pValue>" << name << "_Reg</pValue>\n";
    mOut << "<Min>" << from << "</Min>\n";
    mOut << "<Max>" << to << "</Max>\n";
    if (steps != 0) mOut << "<Inc>" << steps << "</Inc>\n";
    mOut << "</Integer>";
}

void ParameterInfoGeneratorXML::infoGenerate(const RegisterInfo& info, double /*value*/, double from, double to,
                                             double /*steps*/) {
    const std::string name = xmlStringFilter(text(info.parameterName));
    mOut << "<FloatReg Name=\"" << name << "_Reg\">\n";
    infoGenerate(info, 8);
    mOut << "<Endianess>LittleEndian</Endianess>\n";
    mOut << "</FloatReg>\n";
    mOut << "<Float Name=\"" << name << "\">\n";
    description(info);
    mOut << "<pValue>" << name << "_Reg</pValue>\n";
    mOut << "<Min>" << from << "</Min>\n";
    mOut << "<Max>" << to << "</Max>\n";
    mOut << "</Float>\n";
}

void ParameterInfoGeneratorXML::infoGenerate(const RegisterInfo& info, const EnumReg_S& entries) {
    // One entry per value, in ascending order; of entries with equal values
    // the last one wins, and entries without a symbol are not offered.
    std::map<int32_t, std::string> symbols;
    if (entries.enumValues != nullptr && entries.enumDefName != nullptr) {
        for (int32_t i = 0; i < entries.nrOfElements; ++i) {
            const char* symbol = entries.enumDefName[i];
            if (symbol != nullptr && *symbol != '\0') symbols[entries.enumValues[i]] = symbol;
        }
    }
    const std::string name = xmlStringFilter(text(info.parameterName));
    mOut << "<Enumeration Name='" << name << "'>\n";
    description(info);
    for (const auto& [value, symbol] : symbols) {
        mOut << "<EnumEntry Name=\"" << xmlStringFilter(symbol) << "\">\n";
        mOut << "<Value>" << value << "</Value>\n";
        mOut << "</EnumEntry>\n";
    }
    mOut << "<pValue>" << name << "_Reg</pValue>\n";
    mOut << "</Enumeration>\n";
    mOut << "<IntReg Name=\"" << name << "_Reg\">\n";
    infoGenerate(info, 4);
    registerTail("Unsigned");
}

void ParameterInfoGeneratorXML::infoGenerate(const RegisterInfo& info, const StringReg_S& /*text*/) {
    mOut << "<StringReg Name=\"" << xmlStringFilter(text(info.parameterName)) << "\">\n";
    description(info);
    infoGenerate(info, 4096);
    mOut << "</StringReg>\n";
}

void ParameterInfoGeneratorXML::description(const RegisterInfo& info) {
    if (info.name != nullptr && *info.name != '\0')
        mOut << "<Description>" << xmlStringFilter(info.name) << "</Description>\n";
}

void ParameterInfoGeneratorXML::registerTail(const char* sign) {
    mOut << "<Sign>" << sign << "</Sign>\n";
    mOut << "<Endianess>LittleEndian</Endianess>\n";
    mOut << "</IntReg>\n";
}

// ---------------------------------------------------------------------------

struct ParameterInfoBuilderXMLPrivate {
    Fg_ParameterInfo& fgParamInfo;
    FgZuWrapper& wrapper;
    int32_t port;
    std::unique_ptr<Category> rootCategory;
};

ParameterInfoBuilderXML::ParameterInfoBuilderXML(Fg_ParameterInfo& fgParamInfo, FgZuWrapper& wrapper, int port)
    : d(new ParameterInfoBuilderXMLPrivate{fgParamInfo, wrapper, port, std::make_unique<Category>("Root")}) {}

ParameterInfoBuilderXML::~ParameterInfoBuilderXML() = default;

std::string ParameterInfoBuilderXML::build() {
    // Each document is built from a fresh tree, so a second build does not
    // list every feature twice.
    d->rootCategory = std::make_unique<Category>("Root");
    std::ostringstream out;
    // The host's C++ locale must not group digits or change the decimal point.
    out.imbue(std::locale::classic());
    out.precision(12);

    out << "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n\n";
    out << "<RegisterDescription\n"
        << "  ModelName=\"" << xmlStringFilter(text(d->wrapper.getCameraType())) << "\"\n"
        << "  VendorName=\"Quorvant\"\n"
        << "  StandardNameSpace=\"None\"\n"
        << "  SchemaMajorVersion=\"1\"\n"
        << "  SchemaMinorVersion=\"0\"\n"
        << "  SchemaSubMinorVersion=\"1\"\n"
        << "  MajorVersion=\"1\"\n"
        << "  MinorVersion=\"0\"\n"
        << "  SubMinorVersion=\"0\"\n"
        << "  ProductGuid=\"0\"\n"
        << "  VersionGuid=\"0\"\n"
        << "  xmlns=\"" << kGenApiNamespace << "\"\n"
        << "  xmlns:xsi=\"" << kSchemaInstanceNamespace << "\"\n"
        << "  xsi:schemaLocation=\"" << kGenApiNamespace << " " << kSchemaFile << "\"\n"
        << ">\n";

    // Newest top-level group first, as the registry lists them.
    for (RegisterInfo* top = d->fgParamInfo.getRegisterInfo(d->port); top != nullptr; top = top->next) {
        if (top->format == REG_FORMAT_GROUP) {
            buildGroup(out, *top, 0);
        } else {
            buildParamDescr(out, *top, nullptr);
        }
    }

    writeCategory(out, *d->rootCategory);
    out << "<Port Name=\"" << kPortName << "\"/>\n";
    out << "</RegisterDescription>\n";
    return asUtf8(out.str());
}

// Depth first, children in index order; every leaf goes with its own group.
void ParameterInfoBuilderXML::buildGroup(std::ostringstream& out, const RegisterInfo& group, int depth) {
    // The registry cannot nest this deep; a cycle in a damaged tree ends here.
    constexpr int kMaxDepth = 64;
    if (depth > kMaxDepth || group.u.gReg.elements == nullptr) return;
    for (int32_t i = 0; i < group.u.gReg.nrOfElements; ++i) {
        const RegisterInfo* child = group.u.gReg.elements[i];
        if (child == nullptr) continue;
        if (child->format == REG_FORMAT_GROUP) {
            buildGroup(out, *child, depth + 1);
        } else {
            buildParamDescr(out, *child, &group);
        }
    }
}

void ParameterInfoBuilderXML::buildParamDescr(std::ostringstream& out, const RegisterInfo& info,
                                              const RegisterInfo* parent) {
    if (info.visibilityFlags == 0) return;
    if (parent != nullptr && text(parent->name) == kHiddenGroup) return;

    ParameterInfoGeneratorXML generator(out);
    switch (info.format) {
        case REG_FORMAT_UINT:
            generator.infoGenerate(info, uint64_t{info.u.uiReg.value}, uint64_t{info.u.uiReg.from},
                                   uint64_t{info.u.uiReg.to}, uint64_t{info.u.uiReg.steps});
            break;
        case REG_FORMAT_INT: {
            // Widened with their sign, then written unsigned: -1 reads
            // 18446744073709551615. Kept so for existing consumers.
            auto widen = [](int32_t v) { return static_cast<uint64_t>(static_cast<int64_t>(v)); };
            generator.infoGenerate(info, widen(info.u.iReg.value), widen(info.u.iReg.from), widen(info.u.iReg.to),
                                   widen(info.u.iReg.steps));
            break;
        }
        case REG_FORMAT_DOUBLE:
            generator.infoGenerate(info, info.u.dReg.value, info.u.dReg.from, info.u.dReg.to, info.u.dReg.steps);
            break;
        case REG_FORMAT_ENUM:
            generator.infoGenerate(info, info.u.eReg);
            break;
        case REG_FORMAT_STRING:
            generator.infoGenerate(info, info.u.sReg);
            break;
        default:
            return;  // fields, 64-bit integers and the rest have no GenApi form here
    }

    // Categories stay flat below the root, in order of first use; groups of
    // equal name share one.
    Category* category = d->rootCategory.get();
    if (parent != nullptr) {
        const std::string name = xmlNameFilter(text(parent->name));
        category = d->rootCategory->getChild(name);
        if (category == nullptr) category = d->rootCategory->addChild(name);
    }
    category->addFeature(xmlNameFilter(text(info.parameterName)));
}

void ParameterInfoBuilderXML::writeCategory(std::ostringstream& out, const Category& category) {
    out << "<Category Name='" << category.getName() << "' ";
    if (&category == d->rootCategory.get()) out << "NameSpace='Standard'";
    out << " >\n";
    for (std::size_t i = 0; i < category.getChildCount(); ++i)
        out << "<pFeature>" << category.getChild(i)->getName() << "</pFeature>\n";
    for (std::size_t i = 0; i < category.getFeatureCount(); ++i)
        out << "<pFeature>" << category.getFeature(i) << "</pFeature>\n";
    out << "</Category>\n";
    for (std::size_t i = 0; i < category.getChildCount(); ++i) writeCategory(out, *category.getChild(i));
}
