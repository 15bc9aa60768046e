// The GenApi builder on registries made by hand, for what the applet's own
// catalogue never shows: Latin-1 and control bytes, markup characters, signed
// limits, duplicate enumeration values, hidden records and nested groups.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "FgZuWrapperImpl.h"
#include "ParameterInfoBuilderXML.h"
#include "XmlDocument.h"

namespace {

class XmlBuilder : public ::testing::Test {
protected:
    Fg_ParameterInfo& registry() { return *instance->parameterInfo(); }
    std::string build() { return ParameterInfoBuilderXML(registry(), *instance, 0).build(); }

    // No design: only the instance's registry and name are used.
    std::unique_ptr<FgZuWrapperImpl> instance = std::make_unique<FgZuWrapperImpl>();
};

}  // namespace

TEST(XmlFilters, EscapeMarkupAndKeepNameCharacters) {
    EXPECT_EQ(xmlStringFilter("a\"b&c'd<e>f"), "a&quot;b&amp;c&apos;d&lt;e&gt;f");
    EXPECT_EQ(xmlStringFilter("\xB5s"), "\xB5s") << "bytes above 127 pass unchanged";
    const std::pair<const char*, const char*> names[] = {
        {"Pulse Form Generator 0", "PulseFormGenerator0"}, {"0abc_1", "abc_1"}, {"_9x_", "x_"}, {"\xB5s / ms", "sms"}};
    for (const auto& [in, out] : names) EXPECT_EQ(xmlNameFilter(in), out) << in;
}

TEST_F(XmlBuilder, TextsBecomeUtf8AndMarkupIsEscaped) {
    Fg_ParameterInfo& r = registry();
    RegisterInfo* group = r.addGroupInfo(0, nullptr, "Timing & Co");
    r.addInfoDouble(group, "Delay in \xB5s <max> & more", "FG_DELAY", 0.0, 1.0, 0.1, 3, 1, 1, "\xB5s", 10, 0);
    r.addInfoUInt(group, "Already \xC2\xB5 UTF-8", "FG_UTF8", 0, 1, 1, 3, 1, 1, nullptr, 11, 0);
    r.addInfoUInt(group, "Bell\x07 and tab\tkept", "FG_CONTROL", 0, 1, 1, 3, 1, 1, nullptr, 12, 0);
    r.addInfoUInt(group, "quote", "FG_A'B\"C", 0, 1, 1, 3, 1, 1, nullptr, 13, 0);
    const std::string text = build();
    XmlDocument document(text);
    ASSERT_TRUE(document.ok()) << document.errors();
    EXPECT_EQ(document.field("FG_DELAY", "Description"), "Delay in \xC2\xB5s <max> & more");
    EXPECT_NE(text.find("<Description>Delay in \xC2\xB5s &lt;max&gt; &amp; more</Description>"), std::string::npos);
    EXPECT_EQ(document.field("FG_UTF8", "Description"), "Already \xC2\xB5 UTF-8");
    EXPECT_EQ(document.field("FG_CONTROL", "Description"), "Bell and tab\tkept");
    EXPECT_EQ(document.text("/g:RegisterDescription/*[@Name=concat('FG_A', \"'\", 'B\"C')]/g:pValue"),
              "FG_A'B\"C_Reg");
    EXPECT_EQ(document.text("/g:RegisterDescription/g:Category[@Name='TimingCo']/g:pFeature[4]"), "FG_ABC");
}

TEST_F(XmlBuilder, LimitsKindsAndHiddenRecords) {
    Fg_ParameterInfo& r = registry();
    RegisterInfo* top = r.addGroupInfo(0, nullptr, "Outer Group");
    r.addInfoInt(top, "Signed", "FG_SIGNED", -1, 5, 0, 3, 1, 1, nullptr, 20, 0);
    r.addInfoUInt(top, "", "FG_NODESCRIPTION", 0, 4000000000u, 2, 2, 1, 1, nullptr, 0, 0);
    r.addInfoUInt(top, "Invisible", "FG_INVISIBLE", 0, 1, 1, 3, 1, 0, nullptr, 22, 0);
    r.addInfoUInt(top, "No access", "FG_NOACCESS", 0, 1, 1, 4, 1, 1, nullptr, 23, 0);
    r.addInfoUInt64(top, "Wide", "FG_WIDE", 0, 1, 1, 3, 1, 1, nullptr, 24, 0);
    r.addInfoUInt(top, "Transfer", "FG_TRANSFER_LEN", 0, 1, 1, 1, 1, 1, nullptr, 5210, 0);
    r.addInfoUIntField(top, "Field", "FG_FIELD", 4, 0, 1, 1, 3, 1, 1, nullptr, 25, 0);
    RegisterInfo* e = r.addInfoEnum(top, "Mode", "FG_MODE", 5, 1, 1, 1, nullptr, 26, 0);
    r.addEnumNameValue(e, 0, "Third", 3, "M_THREE");
    r.addEnumNameValue(e, 1, "First", 1, "M_ONE");
    r.addEnumNameValue(e, 2, "Third again", 3, "M_THREE_AGAIN");
    r.addEnumNameValue(e, 3, "Unnamed", 0, nullptr);
    r.addEnumNameValue(e, 4, "Negative", -4, "M_NEG");
    RegisterInfo* inner = r.addGroupInfo(0, top, "Inner 1");
    r.addInfoDouble(inner, "Rate", "FG_RATE", 1.0 / 3.0, 1e20, 0.5, 7, 1, 1, nullptr, 27, 0);
    RegisterInfo* hidden = r.addGroupInfo(0, inner, "Direct Register Access");
    r.addInfoUInt(hidden, "Reg", "FG_HIDDEN_REG", 0, 1, 1, 3, 1, 1, nullptr, 28, 0);
    r.addInfoUInt(inner, "After", "FG_AFTER", 0, 1, 1, 1, 1, 1, nullptr, 29, 0);
    // A second top-level group of the same name shares the category.
    RegisterInfo* again = r.addGroupInfo(0, nullptr, "Outer Group");
    r.addInfoString(again, "Name", "FG_NAME", "*.txt", 3, 1, 1, nullptr, 30, 0);

    const std::string text = build();
    XmlDocument document(text);
    ASSERT_TRUE(document.ok()) << document.errors();

    const char* const fields[][3] = {
        {"FG_SIGNED", "Min", "18446744073709551615"}, {"FG_SIGNED", "Max", "5"}, {"FG_SIGNED", "Inc", "<missing>"},
        {"FG_NODESCRIPTION", "Max", "4000000000"}, {"FG_NODESCRIPTION", "Description", "<missing>"},
        {"FG_NODESCRIPTION_Reg", "Address", "<missing>"},  // id 0 has no address
        {"FG_NODESCRIPTION_Reg", "AccessMode", "WO"}, {"FG_NOACCESS_Reg", "AccessMode", "<missing>"},
        {"FG_RATE", "Min", "0.333333333333"}, {"FG_RATE", "Max", "1e+20"}, {"FG_MODE_Reg", "AccessMode", "RO"},
        {"FG_TRANSFER_LEN_Reg", "Length", "8"}};
    for (const auto& [name, element, value] : fields) EXPECT_EQ(document.field(name, element), value) << name;

    EXPECT_EQ(document.texts(XmlDocument::path("FG_MODE", "EnumEntry/@Name")),
              (std::vector<std::string>{"M_NEG", "M_ONE", "M_THREE_AGAIN"}));
    EXPECT_EQ(document.texts(XmlDocument::path("FG_MODE", "EnumEntry/g:Value")), (std::vector<std::string>{"-4", "1", "3"}));

    for (const char* absent : {"FG_INVISIBLE", "FG_WIDE", "FG_FIELD", "FG_HIDDEN_REG"})
        EXPECT_EQ(text.find(absent), std::string::npos) << absent;

    // Newest top-level group first; nested groups become flat categories.
    EXPECT_EQ(document.texts("/g:RegisterDescription/g:Category/@Name"),
              (std::vector<std::string>{"Root", "OuterGroup", "Inner1"}));
    EXPECT_EQ(document.texts("/g:RegisterDescription/g:Category[@Name='OuterGroup']/g:pFeature"),
              (std::vector<std::string>{"FG_NAME", "FG_SIGNED", "FG_NODESCRIPTION", "FG_NOACCESS", "FG_TRANSFER_LEN",
                                        "FG_MODE"}));
    EXPECT_EQ(document.texts("/g:RegisterDescription/g:Category[@Name='Inner1']/g:pFeature"),
              (std::vector<std::string>{"FG_RATE", "FG_AFTER"}));

    EXPECT_EQ(build(), text) << "building again gives the same document";
}
