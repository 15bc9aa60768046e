// Routing of typed parameter sets and gets: the last error, direct register
// access, and the pass-through to the runtime's own parameters. (Refusals of
// bad ids, DMA indices and pointers are in hostile_calls_tests.cpp.)
#include <string>

#include "BoundaryHelpers.h"
#include "hap_runtime.h"
#include "pelagon_errors.h"

using boundary::lastError;
using boundary::ScopedEnv;

namespace {

constexpr int kWidth = 100, kAppletVersion = 24020, kDraBase = 1000000, kRuntimeBase = 2000000;
constexpr const char* kDnaRegister = "Device1_Process0_BoardStatus_FpgaDNA";
constexpr const char* kTemperatureRegister = "Device1_Process0_BoardStatus_FpgaTemperature";
constexpr const char* kDelayRegister =
    "Device1_Process1_Trigger_TriggerCam0_PulseFormGenerators_PulseFormGenerator0_Delay_Delay";

int registerNumber(const char* name) { return HapGetRegisterByName(boundary::currentDesign(), name); }

int getAs(AppletHost& host, int id, void* value, int type) {
    return host.api.Fg_getParameterWithType(host.fg, id, value, 0, type);
}

}  // namespace

TEST(AppletDispatch, SuccessAfterAFailureClearsTheLastError) {
    AppletHost host;
    ASSERT_TRUE(host.ok());
    uint32_t value = 0;
    ASSERT_NE(getAs(host, 424242, &value, FG_PARAM_TYPE_UINT32_T), 0);
    ASSERT_EQ(host.setU32(kWidth, 512), 0);
    EXPECT_EQ(lastError(host), 0);
    ASSERT_EQ(host.setU32(kAppletVersion, 1), PGN_ERR_READ_ONLY);
    EXPECT_EQ(host.u32(kAppletVersion), 3u);
    EXPECT_EQ(lastError(host), 0);
}

TEST(AppletDispatch, SixtyFourBitReadsOfThirtyTwoBitParametersHaveAZeroUpperHalf) {
    AppletHost host;
    ASSERT_TRUE(host.ok());
    for (int type : {FG_PARAM_TYPE_UINT64_T, FG_PARAM_TYPE_INT64_T}) {
        uint64_t value = ~uint64_t{0};
        EXPECT_EQ(getAs(host, kAppletVersion, &value, type), 0);
        EXPECT_EQ(value, 3u) << "type " << type;
    }
    // Other types leave the rest of the destination alone.
    uint64_t value = ~uint64_t{0};
    EXPECT_EQ(getAs(host, kAppletVersion, &value, FG_PARAM_TYPE_UINT32_T), 0);
    EXPECT_EQ(value, 0xFFFFFFFF00000003ull);
}

TEST(AppletDispatch, IdsAboveTwoMillionReachTheRuntimesOwnParameters) {
    AppletHost host;
    ASSERT_TRUE(host.ok());
    EXPECT_EQ(host.u32(kRuntimeBase + 600), 1000000u);  // the runtime's time-out before anyone changed it
    uint32_t value = 4321;  // untyped calls pass through as well
    ASSERT_EQ(host.api.Fg_setParameter(host.fg, kRuntimeBase + 600, &value, 0), 0);
    EXPECT_EQ(lastError(host), 0);
    EXPECT_EQ(host.u32(kRuntimeBase + 600), 4321u);
    value = 0;
    EXPECT_EQ(host.api.Fg_getParameter(host.fg, kRuntimeBase + 600, &value, 0), 0);
    EXPECT_EQ(value, 4321u);

    // The runtime's register parameters, by the runtime's ids, in their own
    // type (a double) also when the call names none.
    const int temperature = registerNumber(kTemperatureRegister);
    ASSERT_GT(temperature, 0);
    vboard::pokeDouble(host.board, kTemperatureRegister, 33.5);
    EXPECT_EQ(host.dbl(kRuntimeBase + vboard::kRegisterIdBase + temperature), 33.5);
    double celsius = 0;
    EXPECT_EQ(host.api.Fg_getParameter(host.fg, kRuntimeBase + vboard::kRegisterIdBase + temperature, &celsius, 0), 0);
    EXPECT_EQ(celsius, 33.5);

    // The runtime's refusals are passed on and recorded.
    EXPECT_EQ(host.setU32(kRuntimeBase + 3050, 2), PGN_ERR_READ_ONLY);
    EXPECT_EQ(lastError(host), PGN_ERR_READ_ONLY);
    EXPECT_EQ(host.setDouble(kRuntimeBase + vboard::kRegisterIdBase + temperature, 1.0), PGN_ERR_READ_ONLY);
}

// The environment variables are read when the instance is created; the
// register access takes "1" as well, the runtime mirror does not.
TEST(AppletDispatch, DirectAccessIsEnabledOnlyByAYesValue) {
    const struct {
        const char* setting;
        bool dra, dzua;
    } settings[] = {{"YES", true, true},      {"On", true, true}, {"true", true, true}, {"1", true, false},
                    {"2", false, false},      {"enabled", false, false}, {"", false, false}, {"no", false, false}};
    for (const auto& s : settings) {
        SCOPED_TRACE(std::string("setting \"") + s.setting + "\"");
        ScopedEnv dra("QUOR_ENABLE_DRA", s.setting), dzua("QUOR_ENABLE_DZUA", s.setting);
        AppletHost host;
        ASSERT_TRUE(host.ok());
        const int dna = registerNumber(kDnaRegister);
        ASSERT_GT(dna, 0);
        uint64_t value = 0;
        EXPECT_EQ(getAs(host, kDraBase + dna, &value, FG_PARAM_TYPE_UINT32_T), s.dra ? 0 : PGN_ERR_INVALID_ARGUMENT);
        EXPECT_EQ(host.record(kDraBase + dna) != nullptr, s.dra);
        const bool mirrored = boundary::topLevelGroup(host.api.Fg_getParameterInfo(host.fg, 0), "Direct ZU Access");
        EXPECT_EQ(mirrored, s.dzua);
        if (s.dra) continue;
        // Without it a register id names nothing, and nothing is written.
        vboard::clearJournal(host.board);
        EXPECT_EQ(host.setU32(kDraBase + 5, 1), PGN_ERR_INVALID_ARGUMENT);
        EXPECT_EQ(lastError(host), PGN_ERR_INVALID_ARGUMENT);
        EXPECT_TRUE(vboard::journal(host.board).empty());
    }
}

TEST(AppletDispatch, DirectRegisterAccessReadsTheRegistersWidthAndWritesByTheRawPath) {
    ScopedEnv dra("QUOR_ENABLE_DRA", "yes");
    AppletHost host;
    ASSERT_TRUE(host.ok());
    const int dna = registerNumber(kDnaRegister), delay = registerNumber(kDelayRegister);
    ASSERT_GT(dna, 0);
    ASSERT_GT(delay, 0);

    const uint64_t dnaValue = 0x1D2C3B4A5968778ull;
    vboard::poke(host.board, kDnaRegister, dnaValue);
    uint64_t value = 0;
    ASSERT_EQ(getAs(host, kDraBase + dna, &value, FG_PARAM_TYPE_UINT32_T), 0);
    EXPECT_EQ(value, dnaValue);
    EXPECT_EQ(lastError(host), 0);
    vboard::poke(host.board, kDelayRegister, 0x89ABCDEFu);
    value = ~uint64_t{0};
    ASSERT_EQ(getAs(host, kDraBase + delay, &value, FG_PARAM_TYPE_UINT32_T), 0);
    EXPECT_EQ(value, 0xFFFFFFFF89ABCDEFull) << "a 32-bit register wrote more than 32 bits";
    const RegisterInfo* record = host.record(kDraBase + dna);
    ASSERT_NE(record, nullptr);
    EXPECT_STREQ(record->parameterName, "DRA_Device1_Process0_BoardStatus_FpgaDNA");
    EXPECT_EQ(record->format, REG_FORMAT_UINT64);

    vboard::clearJournal(host.board);
    ASSERT_EQ(host.setU32(kDraBase + delay, 0x12345678), 0);
    EXPECT_EQ(lastError(host), 0);
    EXPECT_EQ(vboard::peek(host.board, kDelayRegister), 0x12345678u);
    const std::vector<vboard::JournalEntry> journal = vboard::journal(host.board);
    ASSERT_EQ(journal.size(), 1u);
    EXPECT_EQ(journal[0].reg, delay);
    EXPECT_EQ(journal[0].u, 0x12345678u);
    EXPECT_EQ(journal[0].path, vboard::Path::Raw);

    // The board's refusals are the results.
    const uint64_t one = 1;
    EXPECT_EQ(host.api.Fg_setParameterWithType(host.fg, kDraBase + dna, &one, 0, FG_PARAM_TYPE_UINT64_T),
              PGN_ERR_READ_ONLY);
    EXPECT_EQ(lastError(host), PGN_ERR_READ_ONLY);
    vboard::injectFault(host.board, kDelayRegister, vboard::Access::Read, 1, -4343);
    uint64_t untouched = 99;
    EXPECT_EQ(getAs(host, kDraBase + delay, &untouched, FG_PARAM_TYPE_UINT32_T), -4343);
    EXPECT_EQ(untouched, 99u);
    EXPECT_EQ(lastError(host), -4343);
}

namespace {

// Compares the mirror below `copy` with the runtime's record `original`:
// same shape, names prefixed, ids moved up by two million.
void expectMirror(const RegisterInfo* original, const RegisterInfo* copy, int& leavesSeen) {
    ASSERT_NE(copy, nullptr) << "no mirror of " << original->name;
    EXPECT_EQ(std::string(copy->name), std::string("DZUA_") + original->name);
    EXPECT_EQ(copy->format, original->format) << original->name;
    if (original->format == REG_FORMAT_GROUP) {
        ASSERT_EQ(copy->u.gReg.nrOfElements, original->u.gReg.nrOfElements) << original->name;
        for (int i = 0; i < original->u.gReg.nrOfElements; ++i)
            expectMirror(original->u.gReg.elements[i], copy->u.gReg.elements[i], leavesSeen);
        return;
    }
    ++leavesSeen;
    EXPECT_EQ(copy->id, original->id + kRuntimeBase) << original->name;
    EXPECT_EQ(std::string(copy->parameterName), std::string("DZUA_") + original->parameterName);
    EXPECT_EQ(copy->accessFlags, original->accessFlags) << original->name;
}

}  // namespace

TEST(AppletDispatch, DirectZuAccessMirrorsTheRuntimesTree) {
    ScopedEnv dzua("QUOR_ENABLE_DZUA", "yes");
    AppletHost host;
    ASSERT_TRUE(host.ok());
    const RegisterInfo* head = host.api.Fg_getParameterInfo(host.fg, 0);
    const RegisterInfo* mirror = boundary::topLevelGroup(head, "Direct ZU Access");
    ASSERT_NE(mirror, nullptr);
    EXPECT_EQ(boundary::topLevelNames(head).front(), "Direct ZU Access");
    EXPECT_EQ(boundary::topLevelNames(head).back(), "CoaXPress");

    // The runtime's own tree of the same design, from a handle of our own.
    uint64_t size = 0, image = 0;
    ASSERT_EQ(host.api.Info(GET_EMBEDDED_HAP, 0, 0, &size, &image), 0);
    fpga_design* design = HapLoadDesignFromBuffer(reinterpret_cast<const void*>(static_cast<uintptr_t>(image)), size, 1);
    ZUdevice* board = vboard::createBoard();
    Fg_Struct* runtime = Fg_InitHandle("Pelagon.hap", board, design);
    ASSERT_NE(runtime, nullptr);
    std::vector<const RegisterInfo*> originals;
    for (const RegisterInfo* r = Fg_getParameterInfo(runtime, 0); r; r = r->next) originals.push_back(r);

    ASSERT_EQ(mirror->u.gReg.nrOfElements, static_cast<int>(originals.size()));
    int leavesSeen = 0;
    for (std::size_t i = 0; i < originals.size(); ++i) expectMirror(originals[i], mirror->u.gReg.elements[i], leavesSeen);
    EXPECT_EQ(leavesSeen, HapGetNrOfRegister(design));

    // A mirrored entry is usable by its id.
    vboard::pokeDouble(host.board, kTemperatureRegister, 21.5);
    const int temperature = HapGetRegisterByName(design, kTemperatureRegister);
    const RegisterInfo* entry = host.record(kRuntimeBase + vboard::kRegisterIdBase + temperature);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(host.dbl(entry->id), 21.5);

    Fg_FreeGrabber(runtime);
    vboard::destroyBoard(board);
    HapUnloadHapFile(design);
}
