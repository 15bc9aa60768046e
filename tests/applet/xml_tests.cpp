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

constexpr int kWidth = 100, kAreaTriggerMode = 300200;

// The document of a port through the two-call protocol; empty on failure.
std::string fetchDocument(AppletHost& host) {
    size_t size = 0;
    if (host.api.Fg_getParameterInfoXML(host.fg, 0, nullptr, &size) != 0 || size == 0) return {};
    std::vector<char> buffer(size);
    if (host.api.Fg_getParameterInfoXML(host.fg, 0, buffer.data(), &size) != 0) return {};
    return std::string(buffer.data());
}

std::string attribute(xmlNodePtr node, const char* name, const char* ns = nullptr) {
    xmlChar* raw = ns ? xmlGetNsProp(node, BAD_CAST name, BAD_CAST ns) : xmlGetProp(node, BAD_CAST name);
    const std::string value = raw ? reinterpret_cast<const char*>(raw) : "<missing>";
    xmlFree(raw);
    return value;
}

class XmlDescription : public AppletTest {
protected:
    std::unique_ptr<XmlDocument> parse() {
        auto document = std::make_unique<XmlDocument>(fetchDocument(host));
        EXPECT_TRUE(document->ok()) << document->errors();
        return document;
    }
};

}  // namespace

// Well-formed UTF-8 as declared, accepted by xmllint, node names unique, every
// pFeature names a node; the register access group never shows, fields and
// 64-bit values neither, the runtime mirror does when enabled.
TEST(XmlDescriptionDocument, WellFormedWithAndWithoutDirectAccessGroups) {
    const bool haveXmllint = std::system("command -v xmllint >/dev/null 2>&1") == 0;
    for (const auto& [dra, dzua] : {std::pair<const char*, const char*>{nullptr, nullptr}, {"yes", nullptr},
                                    {nullptr, "yes"}, {"1", "on"}}) {
        std::unique_ptr<ScopedEnv> draEnv, dzuaEnv;
        if (dra) draEnv = std::make_unique<ScopedEnv>("QUOR_ENABLE_DRA", dra);
        if (dzua) dzuaEnv = std::make_unique<ScopedEnv>("QUOR_ENABLE_DZUA", dzua);
        const std::string label = std::string("DRA=") + (dra ? dra : "-") + " DZUA=" + (dzua ? dzua : "-");
        AppletHost host;
        ASSERT_TRUE(host.ok()) << label;
        const std::string text = fetchDocument(host);
        XmlDocument document(text);
        ASSERT_TRUE(document.ok()) << label << ": " << document.errors();
        EXPECT_STREQ(reinterpret_cast<const char*>(document.doc()->encoding), "utf-8") << label;

        std::map<std::string, int> names;
        for (xmlNodePtr node : document.nodes("/g:RegisterDescription/*[@Name]")) ++names[attribute(node, "Name")];
        for (const auto& [name, count] : names) EXPECT_EQ(count, 1) << label << ": node " << name;
        const std::vector<std::string> targets = document.texts("//g:pFeature");
        EXPECT_GT(targets.size(), 128u) << label;
        for (const std::string& target : targets) EXPECT_EQ(names.count(target), 1u) << label << ": " << target;

        EXPECT_EQ(host.record(1000001) != nullptr, dra != nullptr) << label << ": the register group is published";
        for (const char* absent : {"DRA_", "DirectRegisterAccess", "FG_LUT_VALUE_RED", "FG_LUT_VALUE_GREEN",
                                   "FG_LUT_VALUE_BLUE", "FG_SYSTEMMONITOR_FPGA_DNA"})
            EXPECT_EQ(text.find(absent), std::string::npos) << label << ": " << absent;
        EXPECT_EQ(names.count("DZUA_Device1_Process0_CameraSimulator_Size_ImageWidth"), dzua ? 1u : 0u) << label;

        if (!haveXmllint) continue;
        char path[] = "/tmp/pelagon-xml-XXXXXX";
        close(mkstemp(path));
        std::ofstream(path, std::ios::binary) << text;
        EXPECT_EQ(std::system(("xmllint --noout --nonet " + std::string(path)).c_str()), 0) << label;
        std::remove(path);
    }
    if (!haveXmllint) GTEST_SKIP() << "xmllint is not installed; checked with libxml2 only";
}

TEST_F(XmlDescription, RootElementAndDevicePort) {
    EXPECT_EQ(fetchDocument(host).rfind("<?xml version=\"1.0\" encoding=\"utf-8\"?>\n\n<RegisterDescription", 0), 0u);
    auto document = parse();
    xmlNodePtr root = xmlDocGetRootElement(document->doc());
    ASSERT_TRUE(root && root->ns);
    EXPECT_EQ(XmlDocument::name(root), "RegisterDescription");
    EXPECT_STREQ(reinterpret_cast<const char*>(root->ns->href), XmlDocument::kGenApi);
    for (const auto& [name, value] : std::map<std::string, std::string>{
             {"ModelName", "Pelagon"}, {"VendorName", "Quorvant"}, {"StandardNameSpace", "None"}, {"ProductGuid", "0"},
             {"SchemaMajorVersion", "1"}, {"SchemaMinorVersion", "0"}, {"SchemaSubMinorVersion", "1"},
             {"MajorVersion", "1"}, {"MinorVersion", "0"}, {"SubMinorVersion", "0"}, {"VersionGuid", "0"}})
        EXPECT_EQ(attribute(root, name.c_str()), value) << name;
    EXPECT_EQ(attribute(root, "schemaLocation", "http://www.w3.org/2001/XMLSchema-instance"),
              "http://www.genicam.org/GenApi/Version_1_0 GenApiSchema_Version_1_0.xsd");
    xmlNodePtr last = xmlLastElementChild(root);
    ASSERT_NE(last, nullptr);
    EXPECT_EQ(XmlDocument::name(last), "Port");
    EXPECT_EQ(attribute(last, "Name"), "DevicePort");
}

// Each kind of parameter: its register, its feature, their order and values.
TEST_F(XmlDescription, NodesOfIntegersFloatsEnumerationsAndStrings) {
    auto document = parse();
    const auto single = [&](const std::string& name, const char* element) -> xmlNodePtr {
        const std::vector<xmlNodePtr> found = document->named(name);
        if (found.size() != 1u) return nullptr;
        EXPECT_EQ(XmlDocument::name(found[0]), element) << name;
        return found[0];
    };
    const struct {
        const char* name;
        const char* feature, *reg;  // element names; a string has no separate feature
        const char* address, *length, *access, *sign, *description, *min, *max, *inc;
    } rows[] = {
        {"FG_WIDTH", "Integer", "IntReg", "100", "4", "RW", "Signed", "Width", "32", "16384", "16"},
        {"FG_LUT_IN_BITS", "Integer", "IntReg", "300007", "4", "RO", "Signed", "LUT In Bits", "0", "0", "<missing>"},
        // A new instance publishes the limits of its defaults: the phase stays
        // below the input downscale of 1, and the LUT file is read only while
        // the processor computes the table.
        {"FG_TRIGGERIN_DOWNSCALE_PHASE", "Integer", "IntReg", "300206", "4", "RW", "Signed", "Downscale Phase", "0",
         "0", "1"},
        {"FG_TRIGGERIN_DEBOUNCE", "Float", "FloatReg", "300204", "8", "RW", "<missing>", "Input Debounce", "0.048",
         "1.512", "<missing>"},
        {"FG_TRIGGER_PULSEFORMGEN0_DELAY", "Float", "FloatReg", "300218", "8", "RW", "<missing>", "Delay", "0",
         "34000000", "<missing>"},
        {"FG_AREATRIGGERMODE", "Enumeration", "IntReg", "300200", "4", "RW", "Unsigned", "Area Trigger Mode",
         "<missing>", "<missing>", "<missing>"},
        {"FG_LUT_CUSTOM_FILE", nullptr, "StringReg", "300000", "4096", "RO", "<missing>", "Load File", "<missing>",
         "<missing>", "<missing>"},
    };
    for (const auto& r : rows) {
        const std::string regName = r.feature ? r.name + std::string("_Reg") : r.name;
        const xmlNodePtr reg = single(regName, r.reg);
        ASSERT_NE(reg, nullptr) << regName;
        EXPECT_EQ(document->field(regName, "Address"), r.address) << regName;
        EXPECT_EQ(document->field(regName, "Length"), r.length) << regName;
        EXPECT_EQ(document->field(regName, "AccessMode"), r.access) << regName;
        EXPECT_EQ(document->field(regName, "pPort"), "DevicePort") << regName;
        EXPECT_EQ(document->field(regName, "Sign"), r.sign) << regName;
        EXPECT_EQ(document->field(regName, "Endianess"), r.feature ? "LittleEndian" : "<missing>") << regName;
        EXPECT_EQ(document->field(r.name, "Description"), r.description) << r.name;
        EXPECT_EQ(document->field(r.name, "Min"), r.min) << r.name;
        EXPECT_EQ(document->field(r.name, "Max"), r.max) << r.name;
        EXPECT_EQ(document->field(r.name, "Inc"), r.inc) << r.name;
        if (!r.feature) continue;
        const xmlNodePtr feature = single(r.name, r.feature);
        ASSERT_NE(feature, nullptr) << r.name;
        EXPECT_EQ(document->field(r.name, "pValue"), regName);
        // The enumeration comes before its register; integers and floats after.
        if (std::string(r.feature) == "Enumeration") {
            EXPECT_EQ(xmlNextElementSibling(feature), reg) << r.name;
        } else {
            EXPECT_EQ(xmlNextElementSibling(reg), feature) << r.name;
        }
    }
    EXPECT_EQ(document->texts(XmlDocument::path("FG_FORMAT", "EnumEntry/@Name")),
              (std::vector<std::string>{"FG_COL24", "FG_COL30", "FG_COL48"}));
    EXPECT_EQ(document->texts(XmlDocument::path("FG_FORMAT", "EnumEntry/g:Value")),
              (std::vector<std::string>{"2", "5", "6"}));
}

TEST_F(XmlDescription, CategoriesAreFlatInOrderOfFirstUse) {
    auto document = parse();
    const auto features = [&](const std::string& category) {
        return document->texts("/g:RegisterDescription/g:Category[@Name='" + category + "']/g:pFeature");
    };
    const std::vector<std::string> categories = document->texts("/g:RegisterDescription/g:Category/@Name");
    ASSERT_GT(categories.size(), 4u);
    EXPECT_EQ(categories[0], "Root");
    EXPECT_EQ(document->texts("/g:RegisterDescription/g:Category/@NameSpace"), std::vector<std::string>{"Standard"});
    EXPECT_EQ(document->text("/g:RegisterDescription/g:Category[@NameSpace]/@Name"), "Root");
    // Root lists the others in the order they are written: newest top-level
    // group first, depth first inside it, one category per name.
    EXPECT_EQ(features("Root"), std::vector<std::string>(categories.begin() + 1, categories.end()));
    EXPECT_EQ(std::set<std::string>(categories.begin(), categories.end()).size(), categories.size());
    EXPECT_EQ(std::vector<std::string>(categories.begin() + 1, categories.begin() + 4),
              (std::vector<std::string>{"Miscellaneous", "CameraSimulator", "OutputFormat"}));

    const auto holds = [&](const std::string& category, const char* feature) {
        const std::vector<std::string> list = features(category);
        return std::count(list.begin(), list.end(), feature) == 1;
    };
    for (const auto& [category, feature] : {std::pair{"PulseFormGenerator0", "FG_TRIGGER_PULSEFORMGEN0_DELAY"},
                                            {"Statistics", "FG_TRIGGERIN_STATS_PULSECOUNT"},
                                            {"Statistics", "FG_TRIGGEROUT_STATS_PULSECOUNT"}})
        EXPECT_TRUE(holds(category, feature)) << feature;
    // Every feature node stands in exactly one category.
    std::multiset<std::string> placed;
    for (auto it = categories.begin() + 1; it != categories.end(); ++it)
        for (const std::string& feature : features(*it)) placed.insert(feature);
    std::vector<std::string> nodes = document->texts(
        "/g:RegisterDescription/*[self::g:Integer or self::g:Float or self::g:Enumeration or self::g:StringReg]/@Name");
    std::sort(nodes.begin(), nodes.end());
    EXPECT_EQ(nodes, std::vector<std::string>(placed.begin(), placed.end()));
}

// The document shows the limits and access the current settings publish.
TEST_F(XmlDescription, FollowsTheCurrentSettings) {
    ASSERT_EQ(host.setU32(kWidth, 2048), 0);
    EXPECT_EQ(parse()->field("FG_XOFFSET", "Max"), "14336");
    ASSERT_EQ(host.setU32(kWidth, 1024), 0);
    EXPECT_EQ(parse()->field("FG_XOFFSET", "Max"), "15360");

    EXPECT_EQ(parse()->field("FG_SENDSOFTWARETRIGGER_Reg", "AccessMode"), "RW");
    ASSERT_EQ(host.setU32(kAreaTriggerMode, 2), 0);
    EXPECT_EQ(parse()->field("FG_SENDSOFTWARETRIGGER_Reg", "AccessMode"), "RO");
    ASSERT_EQ(host.setU32(kAreaTriggerMode, 4), 0);
    EXPECT_EQ(parse()->field("FG_SENDSOFTWARETRIGGER_Reg", "AccessMode"), "RW");
}

TEST_F(XmlDescription, SizeQueryAndBufferRules) {
    const auto call = [&](int port, char* buffer, size_t* size) {
        return host.api.Fg_getParameterInfoXML(host.fg, port, buffer, size);
    };
    size_t size = 7;
    ASSERT_EQ(call(0, nullptr, &size), 0);
    EXPECT_EQ(lastError(host), 0);
    const size_t needed = size;
    std::vector<char> buffer(needed + 8, '#');
    const struct {
        int port;
        size_t size;
        int result;
        size_t sizeAfter;
    } rows[] = {
        {0, needed - 1, PGN_ERR_OUT_OF_MEMORY, needed - 1},  // exactly the length: one byte short
        {0, 0, PGN_ERR_OUT_OF_MEMORY, 0},
        {1, 0, PGN_ERR_OUT_OF_MEMORY, 0},  // a zero size is refused before the port is looked at
        {1, needed, PGN_ERR_DECODE, needed},
        {4, needed, PGN_ERR_DECODE, needed},
        {-1, needed, PGN_ERR_DECODE, needed},
    };
    for (const auto& row : rows) {
        size = row.size;
        EXPECT_EQ(call(row.port, buffer.data(), &size), row.result) << row.port << " " << row.size;
        EXPECT_EQ(size, row.sizeAfter);
        EXPECT_EQ(lastError(host), row.result);
        EXPECT_EQ(buffer[0], '#') << "a refused buffer is not written";
    }
    EXPECT_EQ(call(0, buffer.data(), nullptr), PGN_ERR_INVALID_ARGUMENT);
    for (const size_t given : {needed, buffer.size()}) {
        size = given;
        ASSERT_EQ(call(0, buffer.data(), &size), 0);
        EXPECT_EQ(lastError(host), 0);
        EXPECT_EQ(size, needed);
        EXPECT_EQ(std::string(buffer.data()).size(), needed - 1);
        EXPECT_EQ(buffer[needed], '#') << "nothing beyond the terminating NUL";
    }
}
