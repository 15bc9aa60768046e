// The runtime's parameter-info tree of the design.
#include <set>

#include "vboard_fixture.h"

using namespace vboard_test;

namespace {

RegisterInfo* child(const RegisterInfo* group, const std::string& name) {
    if (!group || group->format != REG_FORMAT_GROUP)
        return nullptr;
    for (int i = 0; i < group->u.gReg.nrOfElements; ++i)
        if (name == group->u.gReg.elements[i]->name)
            return group->u.gReg.elements[i];
    return nullptr;
}

RegisterInfo* topLevel(RegisterInfo* head, const std::string& name) {
    for (RegisterInfo* r = head; r; r = r->next)
        if (name == r->name)
            return r;
    return nullptr;
}

// The record at "Process0/Bayer/White_GreenCoefficient" and the like.
RegisterInfo* at(RegisterInfo* head, const std::vector<std::string>& path) {
    RegisterInfo* r = topLevel(head, path.front());
    for (std::size_t i = 1; i < path.size() && r; ++i)
        r = child(r, path[i]);
    return r;
}

void collectLeaves(const RegisterInfo* r, std::vector<const RegisterInfo*>& out) {
    if (r->format != REG_FORMAT_GROUP) {
        out.push_back(r);
        return;
    }
    for (int i = 0; i < r->u.gReg.nrOfElements; ++i)
        collectLeaves(r->u.gReg.elements[i], out);
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
    RegisterInfo* leaf = child(control, "Select0_Select_Select");
    ASSERT_NE(leaf, nullptr);
    EXPECT_STREQ(leaf->parameterName, "Device1_Process1_Trigger_TriggerCam0_CameraControl_Select0_Select_Select");
    EXPECT_EQ(leaf->id, id(leaf->parameterName));
    EXPECT_EQ(leaf->format, REG_FORMAT_UINT);
    EXPECT_EQ(leaf->u.uiReg.to, 7u);
    EXPECT_EQ(leaf->accessFlags, 3);
    EXPECT_EQ(leaf->unit, nullptr);
    EXPECT_NE(at(head, {"Process0", "Buffer", "0_DRAM_A_0_XLength"}), nullptr);

    EXPECT_EQ(Fg_getParameterInfo(fg, 0), head);  // built once
    EXPECT_EQ(Fg_getParameterInfo(fg, 1), nullptr);
}

TEST_F(VBoardTree, EveryRegisterIsOneLeafOfItsKind) {
    RegisterInfo* head = Fg_getParameterInfo(fg, 0);
    std::vector<const RegisterInfo*> leaves;
    for (RegisterInfo* r = head; r; r = r->next)
        collectLeaves(r, leaves);
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

    RegisterInfo* dna = at(head, {"Process0", "BoardStatus", "FpgaDNA"});
    ASSERT_NE(dna, nullptr);
    EXPECT_EQ(dna->format, REG_FORMAT_UINT64);
    EXPECT_EQ(static_cast<uint64_t>(dna->u.iReg64.to), (uint64_t{1} << 57) - 1);
    RegisterInfo* lut = at(head, {"Process0", "LookupTable", "R_LUTcontent"});
    ASSERT_NE(lut, nullptr);
    EXPECT_EQ(lut->format, REG_FORMAT_UINTFIELD);
    EXPECT_EQ(lut->u.uifReg.nrOfElements, 4096);
    EXPECT_EQ(lut->u.uifReg.to, 4095u);
    RegisterInfo* green = at(head, {"Process0", "Bayer", "White_GreenCoefficient"});
    ASSERT_NE(green, nullptr);
    EXPECT_EQ(green->format, REG_FORMAT_DOUBLE);
    EXPECT_EQ(green->u.dReg.to, 4095.0 / 1024);
    EXPECT_EQ(green->u.dReg.steps, 1.0 / 1024);
    RegisterInfo* current = at(head, {"Process0", "BoardStatus", "ChannelCurrent"});
    ASSERT_NE(current, nullptr);
    EXPECT_EQ(current->format, REG_FORMAT_DOUBLEFIELD);
    EXPECT_EQ(current->u.dfReg.nrOfElements, 4);
    EXPECT_EQ(at(head, {"Process0", "AppletProperties", "BuildTime"})->format, REG_FORMAT_STRING);

    RegisterInfo* format = at(head, {"Process0", "OutputFormat", "FG_FORMAT_SelectSource"});
    ASSERT_NE(format, nullptr);
    ASSERT_EQ(format->format, REG_FORMAT_ENUM);
    ASSERT_EQ(format->u.eReg.nrOfElements, 3);
    EXPECT_STREQ(format->u.eReg.enumNames[2], "Color30");
    EXPECT_EQ(format->u.eReg.enumValues[2], 2);
    EXPECT_STREQ(format->u.eReg.enumDefName[2], "Color30");
}
