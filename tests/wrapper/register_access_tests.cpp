// The applet's design register access against the virtual runtime.
#include <cmath>
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

double testDouble(const DesignRegister& r) { return static_cast<double>(testValue(r, 0)) / (1 << r.frac); }

std::vector<int> idsByTable(FgZuWrapperImpl& w) {
    std::vector<int> ids;
#define PELAGON_REGISTER(block, entry, kind, width, frac, count, access) \
    ids.push_back(w.zu_id_Device1_##block##_##entry);
#include "pelagon_design.def"
#undef PELAGON_REGISTER
    return ids;
}

}  // namespace

using RegisterAccess = DesignFixture;

TEST_F(RegisterAccess, EveryRegisterIdResolvesToItsOwnRegister) {
    const std::vector<int> ids = idsByTable(*wrapper);
    const std::vector<DesignRegister> regs = designRegisters();
    ASSERT_EQ(ids.size(), 146u);
    std::set<int> distinct(ids.begin(), ids.end());
    EXPECT_EQ(distinct.size(), ids.size());
    for (size_t i = 0; i < ids.size(); ++i) {
        EXPECT_EQ(ids[i], vboard::kRegisterIdBase + regs[i].number) << regs[i].name;
        EXPECT_EQ(HapGetRegisterByName(design, regs[i].name.c_str()), regs[i].number) << regs[i].name;
    }
}

// Writes every writable register through the accessor family, reads each back,
// and finds exactly those writes, in order, in the board's journal.
TEST_F(RegisterAccess, WritesEveryWritableRegisterAndJournalsExactlyThose) {
    const std::vector<DesignRegister> regs = designRegisters();
    const std::vector<int> ids = idsByTable(*wrapper);
    std::vector<vboard::JournalEntry> expected;

    for (const DesignRegister& r : regs) {
        if (!r.writable) continue;
        const int id = ids[static_cast<size_t>(r.number - 1)];
        vboard::JournalEntry e{r.number, r.name, 0, r.kind, 0, 0.0, {}, vboard::Path::Parameter};
        if (r.kind == 'U' && r.count > 1) {
            std::vector<uint32_t> values(static_cast<size_t>(r.count));
            for (unsigned i = 0; i < values.size(); ++i) values[i] = static_cast<uint32_t>(testValue(r, i));
            FieldParameterAccess access{};
            access.vtype = FG_PARAM_TYPE_UINT32_T;
            access.count = static_cast<uint32_t>(r.count);
            access.p.p_uint32_t = values.data();
            ASSERT_EQ(wrapper->setUnwrappedParameterWithType(id, &access, 0, FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS),
                      0)
                << r.name;
            for (unsigned i = 0; i < values.size(); ++i) {
                e.element = i;
                e.u = values[i];
                expected.push_back(e);
            }
            std::vector<uint32_t> back(values.size());
            access.p.p_uint32_t = back.data();
            ASSERT_EQ(wrapper->getUnwrappedParameterWithType(id, &access, 0, FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS),
                      0);
            EXPECT_EQ(back, values) << r.name;
        } else if (r.kind == 'U') {
            ASSERT_LE(r.width, 32) << r.name;
            const uint32_t value = static_cast<uint32_t>(testValue(r, 0));
            ASSERT_EQ(wrapper->setUnwrappedParameterWithType(id, &value, 0, FG_PARAM_TYPE_UINT32_T), 0) << r.name;
            uint32_t back = ~value;
            ASSERT_EQ(wrapper->getUnwrappedParameterWithType(id, &back, 0, FG_PARAM_TYPE_UINT32_T), 0);
            EXPECT_EQ(back, value) << r.name;
            e.u = value;
            expected.push_back(e);
        } else {
            ASSERT_EQ(r.kind, 'D') << r.name << ": no writable string registers expected";
            const double value = testDouble(r);
            ASSERT_EQ(wrapper->setUnwrappedParameterWithType(id, &value, 0, FG_PARAM_TYPE_DOUBLE), 0) << r.name;
            double back = -1;
            ASSERT_EQ(wrapper->getUnwrappedParameterWithType(id, &back, 0, FG_PARAM_TYPE_DOUBLE), 0);
            EXPECT_EQ(back, value) << r.name;
            e.d = value;
            expected.push_back(e);
        }
    }

    const std::vector<vboard::JournalEntry> journal = vboard::journal(board);
    ASSERT_EQ(journal.size(), expected.size());
    for (size_t i = 0; i < journal.size(); ++i) {
        SCOPED_TRACE(expected[i].name + "[" + std::to_string(expected[i].element) + "]");
        EXPECT_EQ(journal[i].reg, expected[i].reg);
        EXPECT_EQ(journal[i].name, expected[i].name);
        EXPECT_EQ(journal[i].element, expected[i].element);
        EXPECT_EQ(journal[i].kind, expected[i].kind);
        EXPECT_EQ(journal[i].path, vboard::Path::Parameter);
        if (expected[i].kind == 'U') {
            EXPECT_EQ(journal[i].u, expected[i].u);
        } else {
            EXPECT_EQ(journal[i].d, expected[i].d);
        }
    }
}

TEST_F(RegisterAccess, WriterWithNullValueThrowsOnlyWhenAskedAndNeverReachesTheRuntime) {
    wrapper->set_zu_param_Device1_Process0_Buffer_0_DRAM_A_0_XLength(nullptr, 0, FG_PARAM_TYPE_UINT32_T, false);
    try {
        wrapper->set_zu_param_Device1_Process0_Buffer_0_DRAM_A_0_XLength(nullptr, 0, FG_PARAM_TYPE_UINT32_T, true);
        FAIL() << "expected an int error";
    } catch (int e) {
        EXPECT_EQ(e, PGN_ERR_INVALID_ARGUMENT);
    }
    EXPECT_TRUE(vboard::journal(board).empty());
}

TEST_F(RegisterAccess, RuntimeRefusalIsThrownOnlyWhenAsked) {
    const uint32_t width = 1024;
    vboard::injectFault(board, "Device1_Process0_Buffer_0_DRAM_A_0_XLength", vboard::Access::Write, 1, -5);
    vboard::injectFault(board, "Device1_Process0_Buffer_0_DRAM_A_0_XLength", vboard::Access::Write, 2, -5);
    try {
        wrapper->set_zu_param_Device1_Process0_Buffer_0_DRAM_A_0_XLength(&width, 0, FG_PARAM_TYPE_UINT32_T, true);
        FAIL() << "expected an int error";
    } catch (int e) {
        EXPECT_EQ(e, -5);
    }
    EXPECT_NO_THROW(
        wrapper->set_zu_param_Device1_Process0_Buffer_0_DRAM_A_0_XLength(&width, 0, FG_PARAM_TYPE_UINT32_T, false));
    EXPECT_TRUE(vboard::journal(board).empty());

    // The third write is not faulted and lands.
    wrapper->set_zu_param_Device1_Process0_Buffer_0_DRAM_A_0_XLength(&width, 0, FG_PARAM_TYPE_UINT32_T, true);
    EXPECT_EQ(vboard::peek(board, "Device1_Process0_Buffer_0_DRAM_A_0_XLength"), 1024u);
}

TEST_F(RegisterAccess, ReaderPassesRefusalsOfReadOnlyAndOversizedValuesThrough) {
    // A status register cannot be written; a value wider than the register is refused.
    const uint32_t one = 1;
    EXPECT_THROW(wrapper->set_zu_param_Device1_Process0_Overflow_OverflowOccurred(&one, 0, FG_PARAM_TYPE_UINT32_T,
                                                                                  true),
                 int);
    const uint32_t tooWide = 1u << 15;
    try {
        wrapper->set_zu_param_Device1_Process0_Buffer_0_DRAM_A_0_XLength(&tooWide, 0, FG_PARAM_TYPE_UINT32_T, true);
        FAIL() << "expected an int error";
    } catch (int e) {
        EXPECT_EQ(e, PGN_ERR_OUT_OF_RANGE);
    }

    vboard::poke(board, "Device1_Process0_Overflow_OverflowOccurred", 1);
    uint32_t value = 0;
    wrapper->get_zu_param_Device1_Process0_Overflow_OverflowOccurred(&value, 0, FG_PARAM_TYPE_UINT32_T, true);
    EXPECT_EQ(value, 1u);

    char uid[64] = {};
    wrapper->get_zu_param_Device1_Process0_AppletProperties_AppletUid(uid, 0, FG_PARAM_TYPE_CHAR_PTR, true);
    EXPECT_STREQ(uid, "PELAGON-CXP2-BAYER12-30203");
}

TEST_F(RegisterAccess, SingleLutElementsGoThroughFieldRecords) {
    FieldParameterInt_s element{4095, 4095};
    wrapper->set_zu_param_Device1_Process0_LookupTable_G_LUTcontent(&element, 0, FG_PARAM_TYPE_STRUCT_FIELDPARAMINT,
                                                                    true);
    EXPECT_EQ(vboard::peek(board, "Device1_Process0_LookupTable_G_LUTcontent", 4095), 4095u);

    FieldParameterInt_s outside{1, 4096};
    EXPECT_THROW(wrapper->set_zu_param_Device1_Process0_LookupTable_G_LUTcontent(
                     &outside, 0, FG_PARAM_TYPE_STRUCT_FIELDPARAMINT, true),
                 int);

    FieldParameterDouble_s voltage{0.0, 3};
    vboard::pokeDouble(board, "Device1_Process0_BoardStatus_ChannelVoltage", 12.5, 3);
    wrapper->get_zu_param_Device1_Process0_BoardStatus_ChannelVoltage(&voltage, 0,
                                                                      FG_PARAM_TYPE_STRUCT_FIELDPARAMDOUBLE, true);
    EXPECT_EQ(voltage.value, 12.5);
}

TEST_F(RegisterAccess, DmaMappingIsNotOffered) {
    const auto message = [](auto&& call) {
        try {
            call();
        } catch (const std::runtime_error& e) {
            return std::string(e.what());
        }
        return std::string("no exception");
    };
    EXPECT_EQ(message([&] { wrapper->processChannelToDma(0, 0); }), "processChannelToDma() is not implemented.");
    EXPECT_EQ(message([&] { wrapper->mapDmaToFormat(0); }), "mapDmaToFormat() is not implemented.");
    EXPECT_EQ(message([&] { wrapper->setDmaAlignment(0, 0); }), "setDmaAlignment() is not implemented.");
    EXPECT_EQ(message([&] { wrapper->getDmaAlignment(0); }), "getDmaAlignment() is not implemented.");
}
