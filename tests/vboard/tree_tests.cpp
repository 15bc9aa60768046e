// The runtime's parameter-info tree of the design.
#include <set>

#include "vboard_fixture.h"

using namespace vboard_test;

namespace {

// The record at {"Process0", "Bayer", "White_GreenCoefficient"} and the like, or null.
RegisterInfo* at(RegisterInfo* head, const std::vector<std::string>& path) {
    RegisterInfo* r = head;
    while (r && path.front() != r->name) r = r->next;
    for (std::size_t i = 1; i < path.size() && r; ++i) {
        RegisterInfo* group = r->format == REG_FORMAT_GROUP ? r : nullptr;
        r = nullptr;
        for (int k = 0; group && k < group->u.gReg.nrOfElements; ++k)
            if (path[i] == group->u.gReg.elements[k]->name) r = group->u.gReg.elements[k];
    }
    return r;
}

void collectLeaves(const RegisterInfo* r, std::vector<const RegisterInfo*>& out) {
    if (r->format != REG_FORMAT_GROUP) return out.push_back(r);
    for (int i = 0; i < r->u.gReg.nrOfElements; ++i) collectLeaves(r->u.gReg.elements[i], out);
}

}  // namespace

using VBoardTree = BoardTest;

TEST_F(VBoardTree, GroupsFollowTheBlockNames) {
    RegisterInfo* head = Fg_getParameterInfo(fg, 0);
    ASSERT_NE(head, nullptr);
    EXPECT_STREQ(head->name, "Process0");
    ASSERT_NE(head->next, nullptr);
    EXPECT_STREQ(head->next->name, "Process1");
    EXPECT_EQ(head->next->next, nullptr);

    RegisterInfo* control = at(head, {"Process1", "Trigger", "TriggerCam0", "CameraControl"});
    ASSERT_NE(control, nullptr);
    EXPECT_EQ(control->depth, 3);
    EXPECT_STREQ(control->parentName, "TriggerCam0");
    RegisterInfo* leaf = at(head, {"Process1", "Trigger", "TriggerCam0", "CameraControl", "Select0_Select_Select"});
    ASSERT_NE(leaf, nullptr);
    EXPECT_STREQ(leaf->parameterName, "Device1_Process1_Trigger_TriggerCam0_CameraControl_Select0_Select_Select");
    EXPECT_EQ(leaf->id, id(leaf->parameterName));
    EXPECT_EQ(std::tie(leaf->format, leaf->u.uiReg.to, leaf->accessFlags), std::tuple(REG_FORMAT_UINT, 7u, 3));
    EXPECT_EQ(leaf->unit, nullptr);
    EXPECT_NE(at(head, {"Process0", "Buffer", "0_DRAM_A_0_XLength"}), nullptr);

    EXPECT_EQ(Fg_getParameterInfo(fg, 0), head);  // built once
    EXPECT_EQ(Fg_getParameterInfo(fg, 1), nullptr);
}

TEST_F(VBoardTree, EveryRegisterIsOneLeafOfItsKind) {
    RegisterInfo* head = Fg_getParameterInfo(fg, 0);
    std::vector<const RegisterInfo*> leaves;
    for (RegisterInfo* r = head; r; r = r->next) collectLeaves(r, leaves);
    ASSERT_EQ(leaves.size(), 146u);
    std::set<int> ids;
    for (const RegisterInfo* leaf : leaves) {
        ids.insert(leaf->id);
        const int n = leaf->id - vboard::kRegisterIdBase;
        ASSERT_EQ(n, number(leaf->parameterName));
        const bool readOnly = !designRegisters()[static_cast<std::size_t>(n - 1)].writable;
        EXPECT_EQ(leaf->accessFlags, readOnly ? 1 : 3) << leaf->parameterName;
    }
    EXPECT_EQ(ids.size(), 146u);

    // The leaf at the path, which must be of the format (else a blank record).
    const auto leaf = [head](const std::vector<std::string>& path, REG_FORMAT format) -> const RegisterInfo& {
        static const RegisterInfo blank{};
        const RegisterInfo* r = at(head, path);
        EXPECT_TRUE(r && r->format == format) << path.back();
        return r && r->format == format ? *r : blank;
    };
    EXPECT_EQ(static_cast<uint64_t>(leaf({"Process0", "BoardStatus", "FpgaDNA"}, REG_FORMAT_UINT64).u.iReg64.to),
              (uint64_t{1} << 57) - 1);
    const UIntFieldReg_S& lut = leaf({"Process0", "LookupTable", "R_LUTcontent"}, REG_FORMAT_UINTFIELD).u.uifReg;
    EXPECT_EQ(std::tie(lut.nrOfElements, lut.to), std::tuple(4096, 4095u));
    const DoubleReg_S& green = leaf({"Process0", "Bayer", "White_GreenCoefficient"}, REG_FORMAT_DOUBLE).u.dReg;
    EXPECT_EQ(std::tie(green.to, green.steps), std::tuple(4095.0 / 1024, 1.0 / 1024));
    EXPECT_EQ(leaf({"Process0", "BoardStatus", "ChannelCurrent"}, REG_FORMAT_DOUBLEFIELD).u.dfReg.nrOfElements, 4);
    leaf({"Process0", "AppletProperties", "BuildTime"}, REG_FORMAT_STRING);
    const RegisterInfo& format = leaf({"Process0", "OutputFormat", "FG_FORMAT_SelectSource"}, REG_FORMAT_ENUM);
    ASSERT_EQ(format.u.eReg.nrOfElements, 3);
    EXPECT_STREQ(format.u.eReg.enumNames[2], "Color30");
    EXPECT_EQ(format.u.eReg.enumValues[2], 2);
    EXPECT_STREQ(format.u.eReg.enumDefName[2], "Color30");
}
