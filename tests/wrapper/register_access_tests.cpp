// The applet's design register access against the virtual runtime.
#include <set>
#include <stdexcept>

#include "DesignFixture.h"
#include "pelagon_errors.h"

namespace {

// A value that fits the register and differs from its neighbours'.
uint64_t testValue(const DesignRegister& r, unsigned element) {
    const uint64_t mask = r.width >= 64 ? ~uint64_t{0} : (uint64_t{1} << r.width) - 1;
    return (uint64_t{2654435761u} * static_cast<uint64_t>(r.number) + element * 40503u + 1) & mask;
}

std::vector<int> idsByTable(FgZuWrapperImpl& w) {
    std::vector<int> ids;
#define PELAGON_REGISTER(block, entry, kind, width, frac, count, access) \
    ids.push_back(w.zu_id_Device1_##block##_##entry);
#include "pelagon_design.def"
    return ids;
}

const char* const kXLength = "Device1_Process0_Buffer_0_DRAM_A_0_XLength";

}  // namespace

using RegisterAccess = DesignFixture;

TEST_F(RegisterAccess, EveryRegisterIdResolvesToItsOwnRegister) {
    const std::vector<int> ids = idsByTable(*wrapper);
    const std::vector<DesignRegister> regs = designRegisters();
    ASSERT_EQ(ids.size(), 146u);
    EXPECT_EQ(std::set<int>(ids.begin(), ids.end()).size(), ids.size());
    for (size_t i = 0; i < ids.size(); ++i) {
        EXPECT_EQ(ids[i], vboard::kRegisterIdBase + regs[i].number) << regs[i].name;
        EXPECT_EQ(HapGetRegisterByName(design, regs[i].name.c_str()), regs[i].number) << regs[i].name;
    }
}

// Writes every writable register through the accessor family, reads each back,
// and finds exactly those writes, in order, in the board's journal.
TEST_F(RegisterAccess, WritesEveryWritableRegisterAndJournalsExactlyThose) {
    const std::vector<int> ids = idsByTable(*wrapper);
    std::vector<vboard::JournalEntry> expected;
    for (const DesignRegister& r : designRegisters()) {
        if (!r.writable) continue;
        SCOPED_TRACE(r.name);
        const int id = ids[static_cast<size_t>(r.number - 1)];
        vboard::JournalEntry e{r.number, r.name, 0, r.kind, 0, 0.0, {}, vboard::Path::Parameter};
        const auto roundTrip = [&](auto value, FgParamTypes type) {
            decltype(value) back = value + 1;
            ASSERT_EQ(wrapper->setUnwrappedParameterWithType(id, &value, 0, type), 0);
            ASSERT_EQ(wrapper->getUnwrappedParameterWithType(id, &back, 0, type), 0);
            EXPECT_EQ(back, value);
        };
        if (r.kind == 'U' && r.count > 1) {
            std::vector<uint32_t> values(static_cast<size_t>(r.count)), back(values.size());
            for (unsigned i = 0; i < values.size(); ++i) {
                values[i] = static_cast<uint32_t>(testValue(r, i));
                e.element = i, e.u = values[i];
                expected.push_back(e);
            }
            FieldParameterAccess access{FG_PARAM_TYPE_UINT32_T, 0, static_cast<uint32_t>(r.count), 0, {}};
            access.p.p_uint32_t = values.data();
            ASSERT_EQ(wrapper->setUnwrappedParameterWithType(id, &access, 0, FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS), 0);
            access.p.p_uint32_t = back.data();
            ASSERT_EQ(wrapper->getUnwrappedParameterWithType(id, &access, 0, FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS), 0);
            EXPECT_EQ(back, values);
        } else if (r.kind == 'U') {
            ASSERT_LE(r.width, 32);
            e.u = testValue(r, 0);
            roundTrip(static_cast<uint32_t>(e.u), FG_PARAM_TYPE_UINT32_T);
            expected.push_back(e);
        } else {
            ASSERT_EQ(r.kind, 'D') << "no writable string registers expected";
            e.d = static_cast<double>(testValue(r, 0)) / (1 << r.frac);
            roundTrip(e.d, FG_PARAM_TYPE_DOUBLE);
            expected.push_back(e);
        }
    }

    const std::vector<vboard::JournalEntry> journal = vboard::journal(board);
    ASSERT_EQ(journal.size(), expected.size());
    for (size_t i = 0; i < journal.size(); ++i) {
        const vboard::JournalEntry &j = journal[i], &e = expected[i];
        SCOPED_TRACE(e.name + "[" + std::to_string(e.element) + "]");
        EXPECT_EQ(std::tie(j.reg, j.name, j.element, j.kind), std::tie(e.reg, e.name, e.element, e.kind));
        EXPECT_EQ(j.path, vboard::Path::Parameter);
        EXPECT_EQ(j.kind == 'U' ? j.u : 0, e.u);
        EXPECT_EQ(j.kind == 'D' ? j.d : 0.0, e.d);
    }
}

TEST_F(RegisterAccess, RefusalsAreThrownOnlyWhenAskedAndNullValuesNeverReachTheRuntime) {
    const auto setXLength = [&](const uint32_t* value, bool throwOnError) {
        return thrownBy([&] {
            wrapper->set_zu_param_Device1_Process0_Buffer_0_DRAM_A_0_XLength(value, 0, FG_PARAM_TYPE_UINT32_T,
                                                                             throwOnError);
        });
    };
    const uint32_t width = 1024, tooWide = 1u << 15;
    EXPECT_EQ(setXLength(nullptr, false), 0);
    EXPECT_EQ(setXLength(nullptr, true), PGN_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(setXLength(&tooWide, true), PGN_ERR_OUT_OF_RANGE);

    vboard::injectFault(board, kXLength, vboard::Access::Write, 1, -5);
    vboard::injectFault(board, kXLength, vboard::Access::Write, 2, -5);
    EXPECT_EQ(setXLength(&width, true), -5);
    EXPECT_EQ(setXLength(&width, false), 0);
    EXPECT_TRUE(vboard::journal(board).empty());
    EXPECT_EQ(setXLength(&width, true), 0);  // the third write is not faulted and lands
    EXPECT_EQ(vboard::peek(board, kXLength), 1024u);
}

// Status registers cannot be written but read through; fields go element-wise.
TEST_F(RegisterAccess, StatusRegistersAndSingleFieldElements) {
    const uint32_t one = 1;
    EXPECT_THROW(
        wrapper->set_zu_param_Device1_Process0_Overflow_OverflowOccurred(&one, 0, FG_PARAM_TYPE_UINT32_T, true), int);
    vboard::poke(board, "Device1_Process0_Overflow_OverflowOccurred", 1);
    uint32_t value = 0;
    wrapper->get_zu_param_Device1_Process0_Overflow_OverflowOccurred(&value, 0, FG_PARAM_TYPE_UINT32_T, true);
    EXPECT_EQ(value, 1u);
    char uid[64] = {};
    wrapper->get_zu_param_Device1_Process0_AppletProperties_AppletUid(uid, 0, FG_PARAM_TYPE_CHAR_PTR, true);
    EXPECT_STREQ(uid, "PELAGON-CXP2-BAYER12-30203");

    FieldParameterInt_s element{4095, 4095}, outside{1, 4096};
    const auto setGreen = [&](FieldParameterInt_s* e) {
        wrapper->set_zu_param_Device1_Process0_LookupTable_G_LUTcontent(e, 0, FG_PARAM_TYPE_STRUCT_FIELDPARAMINT, true);
    };
    setGreen(&element);
    EXPECT_EQ(vboard::peek(board, "Device1_Process0_LookupTable_G_LUTcontent", 4095), 4095u);
    EXPECT_THROW(setGreen(&outside), int);
    FieldParameterDouble_s voltage{0.0, 3};
    vboard::pokeDouble(board, "Device1_Process0_BoardStatus_ChannelVoltage", 12.5, 3);
    wrapper->get_zu_param_Device1_Process0_BoardStatus_ChannelVoltage(&voltage, 0,
                                                                      FG_PARAM_TYPE_STRUCT_FIELDPARAMDOUBLE, true);
    EXPECT_EQ(voltage.value, 12.5);
}

TEST_F(RegisterAccess, DmaMappingIsNotOffered) {
    EXPECT_THROW(wrapper->processChannelToDma(0, 0), std::runtime_error);
    EXPECT_THROW(wrapper->mapDmaToFormat(0), std::runtime_error);
    EXPECT_THROW(wrapper->setDmaAlignment(0, 0), std::runtime_error);
    EXPECT_THROW(wrapper->getDmaAlignment(0), std::runtime_error);
}
