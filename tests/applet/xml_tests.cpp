// The GenApi description through the export, read back with a real XML
// parser: well-formedness, the nodes of each kind of parameter, the
// categories, live limits, and the buffer protocol of the call.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "BoundaryHelpers.h"
#include "XmlDocument.h"
#include "pelagon_errors.h"

using boundary::lastError;
using boundary::ScopedEnv;

namespace {

constexpr int kWidth = 100, kXOffset = 300, kAreaTriggerMode = 300200, kSendSoftwareTrigger = 8800;

// The document of a port through the two-call protocol; empty on failure.
std::string fetchDocument(AppletHost& host, int port = 0) {
    size_t size = 0;
    if (host.api.Fg_getParameterInfoXML(host.fg, port, nullptr, &size) != 0 || size == 0) return {};
    std::vector<char> buffer(size);
    if (host.api.Fg_getParameterInfoXML(host.fg, port, buffer.data(), &size) != 0) return {};
    return std::string(buffer.data());
}

class XmlDescription : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(host.ok()); }

    std::unique_ptr<XmlDocument> parse() {
        auto document = std::make_unique<XmlDocument>(fetchDocument(host));
        EXPECT_TRUE(document->ok()) << document->errors();
        return document;
    }

    AppletHost host;
};

}  // namespace

// Well-formed UTF-8 as declared, accepted by xmllint, every pFeature names a
// node, node names are unique, and the direct access groups change only what
// they should: the register group never shows, the runtime mirror does.
TEST(XmlDescriptionDocument, WellFormedWithAndWithoutDirectAccessGroups) {
    const struct {
        const char* dra;
        const char* dzua;
    } settings[] = {{nullptr, nullptr}, {"yes", nullptr}, {nullptr, "yes"}, {"1", "on"}};
    const bool haveXmllint = std::system("command -v xmllint >/dev/null 2>&1") == 0;
    for (const auto& setting : settings) {
        std::unique_ptr<ScopedEnv> dra, dzua;
        if (setting.dra) dra = std::make_unique<ScopedEnv>("QUOR_ENABLE_DRA", setting.dra);
        if (setting.dzua) dzua = std::make_unique<ScopedEnv>("QUOR_ENABLE_DZUA", setting.dzua);
        const std::string label = std::string("DRA=") + (setting.dra ? setting.dra : "-") +
                                  " DZUA=" + (setting.dzua ? setting.dzua : "-");
        AppletHost host;
        ASSERT_TRUE(host.ok()) << label;
        const std::string text = fetchDocument(host);
        ASSERT_FALSE(text.empty()) << label;
        XmlDocument document(text);
        ASSERT_TRUE(document.ok()) << label << ": " << document.errors();
        ASSERT_NE(document.doc()->encoding, nullptr);
        EXPECT_STREQ(reinterpret_cast<const char*>(document.doc()->encoding), "utf-8") << label;

        std::map<std::string, int> names;
        for (xmlNodePtr node : document.nodes("/g:RegisterDescription/*[@Name]")) {
            xmlChar* raw = xmlGetProp(node, BAD_CAST "Name");
            ++names[reinterpret_cast<const char*>(raw)];
            xmlFree(raw);
        }
        for (const auto& [name, count] : names) EXPECT_EQ(count, 1) << label << ": node " << name;
        const std::vector<std::string> targets = document.texts("//g:pFeature");
        EXPECT_GT(targets.size(), 128u) << label;
        for (const std::string& target : targets)
            EXPECT_EQ(names.count(target), 1u) << label << ": pFeature " << target << " names no node";

        const bool draOn = setting.dra != nullptr, dzuaOn = setting.dzua != nullptr;
        EXPECT_EQ(host.record(1000001) != nullptr, draOn) << label << ": the register group is published";
        EXPECT_EQ(text.find("DRA_"), std::string::npos) << label;
        EXPECT_EQ(text.find("DirectRegisterAccess"), std::string::npos) << label;
        EXPECT_EQ(names.count("DZUA_Device1_Process0_CameraSimulator_Size_ImageWidth_Reg"), dzuaOn ? 1u : 0u)
            << label;

        if (!haveXmllint) continue;
        char path[] = "/tmp/pelagon-xml-XXXXXX";
        const int fd = mkstemp(path);
        ASSERT_GE(fd, 0);
        close(fd);
        std::ofstream(path, std::ios::binary) << text;
        EXPECT_EQ(std::system(("xmllint --noout --nonet " + std::string(path)).c_str()), 0) << label;
        std::remove(path);
    }
    if (!haveXmllint) GTEST_SKIP() << "xmllint is not installed; parsed with libxml2 only";
}

TEST_F(XmlDescription, DeclarationAndRootElement) {
    const std::string text = fetchDocument(host);
    EXPECT_EQ(text.rfind("<?xml version=\"1.0\" encoding=\"utf-8\"?>\n\n<RegisterDescription\n", 0), 0u);
    auto document = parse();
    xmlNodePtr root = xmlDocGetRootElement(document->doc());
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(XmlDocument::name(root), "RegisterDescription");
    ASSERT_NE(root->ns, nullptr);
    EXPECT_STREQ(reinterpret_cast<const char*>(root->ns->href), XmlDocument::kGenApi);
    const std::map<std::string, std::string> attributes = {
        {"ModelName", "Pelagon"},    {"VendorName", "Quorvant"},  {"StandardNameSpace", "None"},
        {"SchemaMajorVersion", "1"}, {"SchemaMinorVersion", "0"}, {"SchemaSubMinorVersion", "1"},
        {"MajorVersion", "1"},       {"MinorVersion", "0"},       {"SubMinorVersion", "0"},
        {"ProductGuid", "0"},        {"VersionGuid", "0"}};
    for (const auto& [attribute, value] : attributes) {
        xmlChar* raw = xmlGetProp(root, BAD_CAST attribute.c_str());
        EXPECT_EQ(raw ? std::string(reinterpret_cast<const char*>(raw)) : "<missing>", value) << attribute;
        xmlFree(raw);
    }
    xmlChar* location =
        xmlGetNsProp(root, BAD_CAST "schemaLocation", BAD_CAST "http://www.w3.org/2001/XMLSchema-instance");
    ASSERT_NE(location, nullptr);
    EXPECT_STREQ(reinterpret_cast<const char*>(location),
                 "http://www.genicam.org/GenApi/Version_1_0 GenApiSchema_Version_1_0.xsd");
    xmlFree(location);
    // The last node is the device port every register reads through.
    xmlNodePtr last = xmlLastElementChild(root);
    ASSERT_NE(last, nullptr);
    EXPECT_EQ(XmlDocument::name(last), "Port");
    EXPECT_EQ(document->text("/g:RegisterDescription/g:Port/@Name"), "DevicePort");
}

// Each kind of parameter: its register, its feature, their order and values.
TEST_F(XmlDescription, NodesOfIntegersFloatsEnumerationsAndStrings) {
    auto document = parse();
    const auto field = [&](const char* node, const char* element) {
        return document->text(XmlDocument::path(node, element));
    };
    // The one top-level node of that name, which must be an `element`.
    const auto single = [&](const char* name, const char* element) -> xmlNodePtr {
        const std::vector<xmlNodePtr> found = document->named(name);
        if (found.size() != 1u) return nullptr;
        EXPECT_EQ(XmlDocument::name(found[0]), element) << name;
        return found[0];
    };
    const struct {
        const char* reg;      // node holding the register part
        const char* feature;  // node with the limits or entries ("" for a string)
        const char* element;
        const char* address, *length, *access, *sign;
    } registers[] = {
        {"FG_WIDTH_Reg", "FG_WIDTH", "IntReg", "100", "4", "RW", "Signed"},
        {"FG_LUT_IN_BITS_Reg", "FG_LUT_IN_BITS", "IntReg", "300007", "4", "RO", "Signed"},
        {"FG_TRIGGERIN_DEBOUNCE_Reg", "FG_TRIGGERIN_DEBOUNCE", "FloatReg", "300204", "8", "RW", "<missing>"},
        {"FG_AREATRIGGERMODE_Reg", "FG_AREATRIGGERMODE", "IntReg", "300200", "4", "RW", "Unsigned"},
        {"FG_LUT_CUSTOM_FILE", "", "StringReg", "300000", "4096", "RW", "<missing>"},
    };
    for (const auto& r : registers) {
        const xmlNodePtr reg = single(r.reg, r.element);
        ASSERT_NE(reg, nullptr) << r.reg;
        EXPECT_EQ(field(r.reg, "Address"), r.address) << r.reg;
        EXPECT_EQ(field(r.reg, "Length"), r.length) << r.reg;
        EXPECT_EQ(field(r.reg, "AccessMode"), r.access) << r.reg;
        EXPECT_EQ(field(r.reg, "pPort"), "DevicePort") << r.reg;
        EXPECT_EQ(field(r.reg, "Sign"), r.sign) << r.reg;
        EXPECT_EQ(field(r.reg, "Endianess"), std::string(r.element) == "StringReg" ? "<missing>" : "LittleEndian")
            << r.reg;
        if (*r.feature == '\0') continue;
        const std::vector<xmlNodePtr> feature = document->named(r.feature);
        ASSERT_EQ(feature.size(), 1u) << r.feature;
        EXPECT_EQ(field(r.feature, "pValue"), r.reg) << r.feature;
        // The enumeration comes before its register; integers and floats after.
        if (XmlDocument::name(feature[0]) == "Enumeration") {
            EXPECT_EQ(XmlDocument::nextElement(feature[0]), reg) << r.feature;
        } else {
            EXPECT_EQ(XmlDocument::nextElement(reg), feature[0]) << r.feature;
        }
    }

    const struct {
        const char* name;
        const char* element;
        const char* description;
        const char* min, *max, *inc;
    } features[] = {
        {"FG_WIDTH", "Integer", "Width", "32", "16384", "16"},
        {"FG_LUT_IN_BITS", "Integer", "LUT In Bits", "0", "0", "<missing>"},
        {"FG_TRIGGERIN_DOWNSCALE_PHASE", "Integer", "Downscale Phase", "0", "4294967294", "1"},
        {"FG_TRIGGERIN_DEBOUNCE", "Float", "Input Debounce", "0.048", "1.512", "<missing>"},
        {"FG_TRIGGER_PULSEFORMGEN0_DELAY", "Float", "Delay", "0", "34000000", "<missing>"},
        {"FG_AREATRIGGERMODE", "Enumeration", "Area Trigger Mode", "<missing>", "<missing>", "<missing>"},
    };
    for (const auto& f : features) {
        ASSERT_NE(single(f.name, f.element), nullptr) << f.name;
        EXPECT_EQ(field(f.name, "Description"), f.description) << f.name;
        EXPECT_EQ(field(f.name, "Min"), f.min) << f.name;
        EXPECT_EQ(field(f.name, "Max"), f.max) << f.name;
        EXPECT_EQ(field(f.name, "Inc"), f.inc) << f.name;
    }

    EXPECT_EQ(document->texts(XmlDocument::path("FG_FORMAT", "EnumEntry/@Name")),
              (std::vector<std::string>{"FG_COL24", "FG_COL30", "FG_COL48"}));
    EXPECT_EQ(document->texts(XmlDocument::path("FG_FORMAT", "EnumEntry/g:Value")),
              (std::vector<std::string>{"2", "5", "6"}));
    EXPECT_EQ(document->texts(XmlDocument::path("FG_AREATRIGGERMODE", "EnumEntry/@Name")),
              (std::vector<std::string>{"ATM_GENERATOR", "ATM_EXTERNAL", "ATM_SOFTWARE"}));

    // A string is its register alone.
    EXPECT_EQ(document->text(XmlDocument::path("FG_LUT_CUSTOM_FILE", "Description")), "Load File");
    EXPECT_TRUE(document->nodes("//*[@Name='FG_LUT_CUSTOM_FILE_Reg']").empty());
}

// Fields and 64-bit integers have no GenApi form here: no node, no category entry.
TEST_F(XmlDescription, FieldsAndSixtyFourBitValuesAreLeftOut) {
    const std::string text = fetchDocument(host);
    for (const char* name : {"FG_LUT_VALUE_RED", "FG_LUT_VALUE_GREEN", "FG_LUT_VALUE_BLUE",
                             "FG_SYSTEMMONITOR_FPGA_DNA"}) {
        ASSERT_NE(host.record(host.api.Fg_getParameterIdByName(host.fg, name)), nullptr) << name;
        EXPECT_EQ(text.find(name), std::string::npos) << name;
    }
}

TEST_F(XmlDescription, CategoriesAreFlatInOrderOfFirstUse) {
    auto document = parse();
    const std::vector<std::string> categories = document->texts("/g:RegisterDescription/g:Category/@Name");
    ASSERT_FALSE(categories.empty());
    EXPECT_EQ(categories.front(), "Root");
    EXPECT_EQ(document->text("/g:RegisterDescription/g:Category[@Name='Root']/@NameSpace"), "Standard");
    EXPECT_EQ(document->nodes("/g:RegisterDescription/g:Category[@NameSpace]").size(), 1u);
    // Root lists every other category, in the order they are written.
    const std::vector<std::string> listed = document->texts("/g:RegisterDescription/g:Category[@Name='Root']/g:pFeature");
    EXPECT_EQ(listed, std::vector<std::string>(categories.begin() + 1, categories.end()));
    EXPECT_EQ(std::set<std::string>(categories.begin(), categories.end()).size(), categories.size())
        << "one category per name";
    // Newest top-level group first, depth first inside it.
    EXPECT_EQ(std::vector<std::string>(listed.begin(), listed.begin() + 4),
              (std::vector<std::string>{"Miscellaneous", "CameraSimulator", "OutputFormat", "Processing"}));
    EXPECT_EQ(listed.back(), "CoaXPress");

    const auto features = [&](const std::string& category) {
        return document->texts("/g:RegisterDescription/g:Category[@Name='" + category + "']/g:pFeature");
    };
    const std::vector<std::string> generator0 = features("PulseFormGenerator0");
    EXPECT_NE(std::find(generator0.begin(), generator0.end(), "FG_TRIGGER_PULSEFORMGEN0_DELAY"), generator0.end());
    const std::vector<std::string> statistics = features("Statistics");
    for (const char* name : {"FG_TRIGGERIN_STATS_PULSECOUNT", "FG_TRIGGEROUT_STATS_PULSECOUNT"})
        EXPECT_NE(std::find(statistics.begin(), statistics.end(), name), statistics.end()) << name;

    // Every feature node stands in exactly one category.
    std::map<std::string, int> placed;
    for (const std::string& category : categories)
        if (category != "Root")
            for (const std::string& feature : features(category)) ++placed[feature];
    const std::vector<std::string> featureNodes = document->texts(
        "/g:RegisterDescription/*[self::g:Integer or self::g:Float or self::g:Enumeration or self::g:StringReg]/@Name");
    EXPECT_EQ(featureNodes.size(), placed.size());
    for (const std::string& feature : featureNodes) EXPECT_EQ(placed[feature], 1) << feature;
}

// The document shows the limits and access the current settings publish.
TEST_F(XmlDescription, FollowsTheCurrentSettings) {
    ASSERT_EQ(host.setU32(kWidth, 2048), 0);
    EXPECT_EQ(parse()->text(XmlDocument::path("FG_XOFFSET", "Max")), "14336");
    ASSERT_EQ(host.setU32(kWidth, 1024), 0);
    EXPECT_EQ(parse()->text(XmlDocument::path("FG_XOFFSET", "Max")), "15360");

    const int switched = host.setU32(kAreaTriggerMode, 2);
    if (switched == PGN_ERR_INVALID_ARGUMENT) GTEST_SKIP() << "the trigger mode cannot be set yet";
    ASSERT_EQ(switched, 0);
    EXPECT_EQ(parse()->text(XmlDocument::path("FG_SENDSOFTWARETRIGGER_Reg", "AccessMode")), "RO");
    ASSERT_NE(host.record(kSendSoftwareTrigger), nullptr);
}

TEST_F(XmlDescription, SizeQueryAndBufferRules) {
    size_t size = 7;
    ASSERT_EQ(host.api.Fg_getParameterInfoXML(host.fg, 0, nullptr, &size), 0);
    EXPECT_EQ(lastError(host), 0);
    const size_t needed = size;
    ASSERT_GT(needed, 1u);

    // Exactly the document's length is one byte short.
    std::vector<char> buffer(needed + 8, '#');
    size = needed - 1;
    EXPECT_EQ(host.api.Fg_getParameterInfoXML(host.fg, 0, buffer.data(), &size), PGN_ERR_OUT_OF_MEMORY);
    EXPECT_EQ(size, needed - 1);
    EXPECT_EQ(lastError(host), PGN_ERR_OUT_OF_MEMORY);
    EXPECT_EQ(buffer[0], '#') << "a refused buffer is not written";

    size = 0;
    EXPECT_EQ(host.api.Fg_getParameterInfoXML(host.fg, 0, buffer.data(), &size), PGN_ERR_OUT_OF_MEMORY);
    EXPECT_EQ(size, 0u);

    size = needed;
    ASSERT_EQ(host.api.Fg_getParameterInfoXML(host.fg, 0, buffer.data(), &size), 0);
    EXPECT_EQ(lastError(host), 0);
    EXPECT_EQ(size, needed);
    EXPECT_EQ(std::string(buffer.data()).size(), needed - 1);
    EXPECT_EQ(buffer[needed], '#') << "nothing beyond the terminating NUL";

    // A larger buffer is fine and reports the exact size.
    size = buffer.size();
    ASSERT_EQ(host.api.Fg_getParameterInfoXML(host.fg, 0, buffer.data(), &size), 0);
    EXPECT_EQ(size, needed);

    for (const int port : {1, 3, 4, -1}) {
        size = 9;
        EXPECT_EQ(host.api.Fg_getParameterInfoXML(host.fg, port, nullptr, &size), PGN_ERR_DECODE) << port;
        EXPECT_EQ(size, 9u);
        EXPECT_EQ(lastError(host), PGN_ERR_DECODE);
    }
    // A zero size is refused before the port is even looked at.
    size = 0;
    EXPECT_EQ(host.api.Fg_getParameterInfoXML(host.fg, 1, buffer.data(), &size), PGN_ERR_OUT_OF_MEMORY);
    EXPECT_EQ(host.api.Fg_getParameterInfoXML(host.fg, 0, buffer.data(), nullptr), PGN_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(lastError(host), PGN_ERR_INVALID_ARGUMENT);
}
