// Tests of the per-port parameter-info registry. Leak freedom of every path,
// refused adds included, is checked by running the suite under LeakSanitizer;
// each test runs in its own process.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "parameterInfo.h"
#include "pelagon_errors.h"

namespace {

class RegistryTest : public ::testing::Test {
protected:
    RegisterInfo* uintLeaf(RegisterInfo* parent, const char* name, int port = 0) {
        return reg.addInfoUInt(parent, name, name, 0, 100, 1, 3, 1, 1, nullptr, 1000, port);
    }
    RegisterInfo* enumLeaf(RegisterInfo* parent, int entries) {
        return reg.addInfoEnum(parent, "Mode", "FG_MODE", entries, 3, 1, 1, nullptr, 7, 0);
    }
    std::vector<std::string> topLevelNames(int port) {
        std::vector<std::string> names;
        for (RegisterInfo* r = reg.getNextRegisterInfo(nullptr, port); r; r = reg.getNextRegisterInfo(r, port))
            names.emplace_back(r->name);
        return names;
    }
    Fg_ParameterInfo reg;
};

using RegistryStructure = RegistryTest;
using RegistryKinds = RegistryTest;
using RegistryLifecycle = RegistryTest;

// Nested groups never join the top-level list; they know their depth and parent.
TEST_F(RegistryStructure, TopLevelGroupsAreListedNewestFirstAndNestedOnesKnowTheirPlace) {
    RegisterInfo* a = reg.addGroupInfo(0, nullptr, "A");
    RegisterInfo* b = reg.addGroupInfo(0, nullptr, "B");
    RegisterInfo* mid = reg.addGroupInfo(0, a, "Trigger Input");
    RegisterInfo* low = reg.addGroupInfo(0, mid, "Statistics");
    EXPECT_EQ(topLevelNames(0), (std::vector<std::string>{"B", "A"}));
    EXPECT_EQ(a->previous, b);
    EXPECT_EQ(b->previous, nullptr);
    EXPECT_EQ(reg.getRegisterInfo(1), nullptr);
    ASSERT_TRUE(mid && low);
    EXPECT_EQ(std::tie(mid->depth, low->depth), std::tuple(1, 2));
    EXPECT_STREQ(mid->parentName, "A");
    EXPECT_STREQ(low->parentName, "Trigger Input");
}

TEST_F(RegistryStructure, ChildIndexIsCountBeforeAndNamesItsSlot) {
    RegisterInfo* g = reg.addGroupInfo(0, nullptr, "G");
    // Leaves of different kinds and a nested group share one running index.
    std::vector<RegisterInfo*> children{uintLeaf(g, "u"), reg.addGroupInfo(0, g, "Nested"), enumLeaf(g, 2),
                                        reg.addInfoString(g, "s", "S", nullptr, 1, 1, 1, nullptr, 3, 0)};
    ASSERT_EQ(g->u.gReg.nrOfElements, 4);
    for (int i = 0; i < 4; ++i) {
        ASSERT_NE(children[i], nullptr) << i;
        EXPECT_EQ(children[i]->index, i);
        EXPECT_EQ(g->u.gReg.elements[i], children[i]);
    }
}

TEST_F(RegistryStructure, ChildrenOfLeavesAreRefused) {
    RegisterInfo* e = enumLeaf(reg.addGroupInfo(0, nullptr, "G"), 2);
    ASSERT_EQ(reg.addEnumNameValue(e, 0, "On", 1, "ON"), PGN_OK);
    const EnumReg_S before = e->u.eReg;
    // A refused nested group stays owned by the port (LeakSanitizer checks it
    // is freed); a refused leaf is not created at all.
    EXPECT_EQ(reg.addGroupInfo(0, e, "Orphan"), nullptr);
    EXPECT_EQ(uintLeaf(e, "x"), nullptr);
    ASSERT_EQ(reg.allRegInfo[0].size(), 3u);
    EXPECT_STREQ(reg.allRegInfo[0].back()->name, "Orphan");
    EXPECT_EQ(std::memcmp(&before, &e->u.eReg, sizeof before), 0);  // the leaf's data is intact
}

// Fields start at their lower limit whatever the step; 64-bit limits survive.
TEST_F(RegistryKinds, FieldsStartAtTheirLowerLimitAndSixtyFourBitLimitsSurvive) {
    RegisterInfo* g = reg.addGroupInfo(0, nullptr, "G");
    RegisterInfo* i = reg.addInfoIntField(g, "i", "I", 8, 5, 9, 3, 3, 1, 1, nullptr, 1, 0);
    RegisterInfo* f = reg.addInfoUIntField(g, "u", "U", 4096, 7, 4095, 0, 3, 1, 1, nullptr, 2, 0);
    RegisterInfo* d = reg.addInfoDoubleField(g, "d", "D", 3, 0.25, 8.0, 0.5, 3, 1, 1, nullptr, 3, 0);
    ASSERT_TRUE(i && f && d);
    EXPECT_EQ(std::tie(i->u.ifReg.value, i->u.ifReg.index), std::tuple(5, 0));
    EXPECT_EQ(std::tie(f->u.uifReg.value, f->u.uifReg.nrOfElements), std::tuple(7u, 4096));
    EXPECT_EQ(std::tie(d->u.dfReg.value, d->u.dfReg.index), std::tuple(0.25, 0));

    const int64_t big = (int64_t{1} << 57) - 1;
    RegisterInfo* s = reg.addInfoInt64(g, "s", "S", -big, big, 1, 3, 1, 1, nullptr, 1, 0);
    RegisterInfo* u = reg.addInfoUInt64(g, "u", "U", big, UINT64_MAX, uint64_t{1} << 40, 3, 1, 1, nullptr, 2, 0);
    ASSERT_TRUE(s && u);
    EXPECT_EQ(std::tie(s->u.iReg64.from, s->u.iReg64.to), std::tuple(-big, big));
    EXPECT_EQ(std::tie(u->u.iReg64.from, u->u.iReg64.steps), std::tuple(big, int64_t{1} << 40));
    EXPECT_EQ(static_cast<uint64_t>(u->u.iReg64.to), UINT64_MAX);
}

TEST_F(RegistryKinds, LeavesOwnCopiesOfTheirTexts) {
    RegisterInfo* g = reg.addGroupInfo(0, nullptr, "G");
    char name[] = "Width", param[] = "FG_WIDTH", unit[] = "pixel", ext[] = "*.lut";
    RegisterInfo* w = reg.addInfoInt(g, name, param, 16, 4096, 16, 7, 2, 1, unit, 100, 0);
    RegisterInfo* s = reg.addInfoString(g, name, param, ext, 3, 1, 0, nullptr, 101, 0);
    ASSERT_TRUE(w && s);
    name[0] = param[0] = unit[0] = ext[0] = '#';
    EXPECT_STREQ(w->name, "Width");
    EXPECT_STREQ(w->parameterName, "FG_WIDTH");
    EXPECT_STREQ(w->unit, "pixel");
    EXPECT_STREQ(s->u.sReg.FileExtension, "*.lut");
    EXPECT_EQ(s->u.sReg.string, nullptr);
    EXPECT_EQ(s->unit, nullptr);
}

TEST_F(RegistryKinds, EnumEntriesAreReplacedAndBadTargetsRefused) {
    RegisterInfo* e = enumLeaf(reg.addGroupInfo(0, nullptr, "G"), 3);
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(e->u.eReg.enumNames[2], nullptr);
    EXPECT_EQ(e->u.eReg.enumValues[2], 0);
    ASSERT_EQ(reg.addEnumNameValue(e, 1, "Free Run", 0, "FREE_RUN"), PGN_OK);
    ASSERT_EQ(reg.addEnumNameValue(e, 1, "Async", 2, "ASYNC"), PGN_OK);
    EXPECT_STREQ(e->u.eReg.enumNames[1], "Async");
    EXPECT_STREQ(e->u.eReg.enumDefName[1], "ASYNC");
    EXPECT_EQ(e->u.eReg.enumValues[1], 2);
    ASSERT_EQ(reg.addEnumNameValue(e, 1, "Hidden", 9, nullptr), PGN_OK);
    EXPECT_STREQ(e->u.eReg.enumNames[1], "Hidden");
    EXPECT_EQ(e->u.eReg.enumDefName[1], nullptr);

    RegisterInfo* empty = enumLeaf(reg.getRegisterInfo(0), 0);
    for (auto [target, element] : {std::pair{e, -1}, {e, 3}, {empty, 0}, {reg.getRegisterInfo(0), 0}})
        EXPECT_EQ(reg.addEnumNameValue(target, element, "x", 1, "X"), PGN_ERR_INVALID_ARGUMENT) << element;
    EXPECT_EQ(reg.addEnumNameValue(nullptr, 0, "x", 1, "X"), PGN_ERR_INVALID_ARGUMENT);
}

TEST_F(RegistryLifecycle, FinalizeBlocksOnlyItsOwnPort) {
    RegisterInfo* g0 = reg.addGroupInfo(0, nullptr, "G0");
    RegisterInfo* g1 = reg.addGroupInfo(1, nullptr, "G1");
    reg.finalize(0);
    EXPECT_EQ(uintLeaf(g0, "u"), nullptr);
    EXPECT_EQ(reg.addGroupInfo(0, nullptr, "Late"), nullptr);
    EXPECT_EQ(reg.addGroupInfo(0, g0, "LateNested"), nullptr);
    EXPECT_EQ(reg.allRegInfo[0].size(), 1u);
    EXPECT_NE(uintLeaf(g1, "u", 1), nullptr);
    EXPECT_NE(reg.addGroupInfo(1, nullptr, "More"), nullptr);
}

TEST_F(RegistryLifecycle, InitAfterDestroyGivesCleanPortAndLeavesOthers) {
    RegisterInfo* g = reg.addGroupInfo(0, nullptr, "G");
    reg.addEnumNameValue(enumLeaf(g, 2), 0, "A", 1, "A_DEF");
    reg.addInfoString(g, "s", "S", "*.mcf", 3, 1, 1, "unit", 2, 0);
    reg.addGroupInfo(0, reg.addGroupInfo(0, g, "Sub"), "SubSub");
    uintLeaf(reg.addGroupInfo(1, nullptr, "Other"), "kept", 1);
    reg.finalize(0);
    reg.destroy(0);
    EXPECT_TRUE(reg.allRegInfo[0].empty());
    reg.init(0);
    EXPECT_EQ(reg.getRegisterInfo(0), nullptr);
    RegisterInfo* fresh = reg.addGroupInfo(0, nullptr, "Fresh");
    ASSERT_NE(fresh, nullptr);
    EXPECT_EQ(fresh->next, nullptr);
    EXPECT_EQ(uintLeaf(fresh, "first")->index, 0);
    EXPECT_EQ(topLevelNames(1), std::vector<std::string>{"Other"});
    EXPECT_STREQ(reg.getRegisterInfo(1)->u.gReg.elements[0]->name, "kept");
}

TEST_F(RegistryLifecycle, MissingArgumentsAndBadPortsNeverCrash) {
    RegisterInfo* g = reg.addGroupInfo(0, nullptr, nullptr);
    RegisterInfo* u = reg.addInfoUInt(g, nullptr, nullptr, 0, 1, 1, 3, 1, 1, nullptr, 1, 0);
    ASSERT_TRUE(g && u);
    EXPECT_STREQ(u->name, "");
    EXPECT_STREQ(u->parameterName, "");
    EXPECT_STREQ(reg.addGroupInfo(0, g, "n")->parentName, "");
    EXPECT_EQ(uintLeaf(nullptr, "orphan"), nullptr);
    for (int port : {-1, 4}) {
        EXPECT_EQ(reg.addGroupInfo(port, nullptr, "bad"), nullptr);
        EXPECT_EQ(uintLeaf(g, "bad", port), nullptr);
        EXPECT_EQ(reg.getRegisterInfo(port), nullptr);
        reg.finalize(port);
        reg.init(port);
    }
    EXPECT_EQ(reg.addInfoLut(g, "lut", "LUT", 4096, 12, 3, 1, 1, 1, 0), nullptr);
}

}  // namespace
