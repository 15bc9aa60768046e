// The wrapper base: runtime binding, handles, pass-through, events, field
// caches and temporary files.
#include <cctype>
#include <cstring>
#include <filesystem>
#include <string>

#include "DesignFixture.h"
#include "pelagon_errors.h"

using std::filesystem::exists;

TEST(WrapperBinding, MissingRuntimeLibraryIsReportedAndRecorded) {
    FgZuWrapperImpl w;
    EXPECT_EQ(w.Fg_getLastErrorNumber(), 0);
    EXPECT_EQ(w.initializeDllFunctions("libdoes-not-exist.so"), PGN_ERR_RUNTIME_UNAVAILABLE);
    EXPECT_EQ(w.Fg_getLastErrorNumber(), PGN_ERR_RUNTIME_UNAVAILABLE);
    // Without a runtime nothing can be asked of it.
    EXPECT_EQ(w.Fg_getLastErrorNumberZu(), PGN_ERR_READ_ONLY);
    EXPECT_EQ(w.getParameterIdByName("Device1_Process0_Overflow_OverflowOccurred"), PGN_ERR_READ_ONLY);
    uint32_t v = 0;
    EXPECT_EQ(w.getUnwrappedParameterWithType(FG_RT_TIMEOUT, &v, 0, FG_PARAM_TYPE_UINT32_T), PGN_ERR_READ_ONLY);
    EXPECT_EQ(w.getUnwrappedParameterInfo(), nullptr);
}

TEST(WrapperBinding, BindsEveryRuntimeFunctionByName) {
    FgZuWrapperImpl w;
    ASSERT_EQ(w.initializeDllFunctions("libfglib5.so"), 0);
    const Fg_Struct* fns = w.wrapperFg();
    EXPECT_EQ(fns->Master, nullptr);
#define PELAGON_EXPECT_BOUND(name) EXPECT_NE(reinterpret_cast<void*>(fns->DLL_##name), nullptr) << #name;
    PELAGON_BOUND_RUNTIME_FUNCTIONS(PELAGON_EXPECT_BOUND)
#undef PELAGON_EXPECT_BOUND
    // Bound but not yet initialised: there is no inner handle to call with.
    EXPECT_EQ(w.fglibFg(), nullptr);
    EXPECT_EQ(w.Fg_getLastErrorNumberZu(), PGN_ERR_READ_ONLY);
}

TEST(WrapperBinding, RefusedDesignReportsTheRuntimesReasonAndStoresNoHandles) {
    ZUdevice* board = vboard::createBoard();
    FgZuWrapperImpl w;
    ASSERT_EQ(w.initializeDllFunctions("libfglib5.so"), 0);
    vboard::failNextInit(-4711);
    EXPECT_EQ(w.runFgInit("Pelagon.hap", board, nullptr, 0), -4711);
    EXPECT_EQ(w.Fg_getLastErrorNumber(), -4711);
    EXPECT_EQ(w.fglibFg(), nullptr);
    EXPECT_NE(FgZuWrapper::accessDeviceHandle(nullptr), board);
    vboard::destroyBoard(board);
}

using WrapperRuntime = DesignFixture;

// The last board and design are remembered process-wide.
TEST_F(WrapperRuntime, RemembersBoardAndDesignAndPassesTheRuntimesOwnParametersThrough) {
    EXPECT_EQ(FgZuWrapper::accessDeviceHandle(nullptr), board);
    EXPECT_EQ(FgZuWrapper::accessDesignHandle(nullptr), design);
    EXPECT_EQ(wrapper->boardHandle(), board);
    EXPECT_EQ(wrapper->designHandle(), design);

    uint32_t timeout = 42, dmas = 0;
    ASSERT_EQ(wrapper->setUnwrappedParameterWithType(FG_RT_TIMEOUT, &timeout, 0, FG_PARAM_TYPE_UINT32_T), 0);
    timeout = 0;
    ASSERT_EQ(wrapper->getUnwrappedParameter(FG_RT_TIMEOUT, &timeout, 0), 0);
    EXPECT_EQ(timeout, 42u);
    ASSERT_EQ(wrapper->getUnwrappedParameterWithType(FG_RT_NR_OF_DMAS, &dmas, 0, FG_PARAM_TYPE_UINT32_T), 0);
    EXPECT_EQ(dmas, 1u);
    EXPECT_LT(wrapper->setUnwrappedParameter(FG_RT_NR_OF_DMAS, &dmas, 0), 0);
    EXPECT_EQ(wrapper->Fg_getLastErrorNumberZu(), PGN_ERR_READ_ONLY);

    const RegisterInfo* tree = wrapper->getUnwrappedParameterInfo();
    EXPECT_TRUE(tree && tree->format == REG_FORMAT_GROUP);
}

// The base answers event queries from the design itself (the applet class
// answers from its maps instead).
TEST_F(WrapperRuntime, BaseEventsComeFromTheDesignWithOneBitPerEvent) {
    FgZuWrapper& base = *wrapper;
    const uint64_t mask = base.FgZuWrapper::Fg_getEventMask("Device1_Process0_Overflow_Overflow");
    ASSERT_NE(mask, 0u);
    EXPECT_EQ(mask & (mask - 1), 0u) << "one bit";
    EXPECT_STREQ(base.FgZuWrapper::Fg_getEventName(mask), "Device1_Process0_Overflow_Overflow");
    EXPECT_EQ(base.FgZuWrapper::Fg_getEventMask("no such event"), 0u);
    EXPECT_EQ(base.FgZuWrapper::Fg_getEventMask(nullptr), 0u);
    EXPECT_EQ(base.FgZuWrapper::Fg_getEventName(3), nullptr);  // not a single bit
    EXPECT_EQ(base.FgZuWrapper::Fg_getEventName(uint64_t{1} << 63), nullptr);
}

TEST(WrapperBase, ShadingIsNotOfferedAndLastErrorIsRecordedAndReturnedInOneStep) {
    FgZuWrapperImpl w;
    EXPECT_EQ(w.Fg_AllocShading(0, 0), nullptr);
    EXPECT_EQ(w.Fg_getLastErrorNumber(), -1);
    EXPECT_EQ(w.Fg_FreeShading(nullptr), PGN_ERR_NOT_SUPPORTED);
    EXPECT_EQ(w.Shad_GetMaxLine(nullptr), PGN_ERR_NOT_SUPPORTED);
    EXPECT_EQ(w.Shad_WriteActLine(nullptr, 0), PGN_ERR_NOT_SUPPORTED);

    EXPECT_EQ(w.setError(-6000), -6000);
    EXPECT_EQ(w.Fg_getLastErrorNumber(), -6000);
    EXPECT_EQ(w.Fg_getParameterInfo(0), nullptr);
    EXPECT_EQ(w.Fg_getParameterInfo(7), nullptr);
}

// Slices by element type, single elements to their index; records of an
// unknown element type, without an array, or null leave the cache alone.
TEST(WrapperFieldCache, CopiesSlicesAndSingleElementsAndIgnoresWhatItCannotUse) {
    uint32_t cache32[8] = {}, in32[3] = {7, 8, 9}, out32[3] = {};
    FieldParameterAccess a{FG_PARAM_TYPE_UINT32_T, 2, 3, 0, {}};
    a.p.p_uint32_t = in32;
    FgZuWrapper::setFieldCache(cache32, &a);
    a.p.p_uint32_t = out32;
    FgZuWrapper::getFieldCache(cache32, &a);
    EXPECT_EQ(std::vector<uint32_t>(out32, out32 + 3), (std::vector<uint32_t>{7, 8, 9}));
    const FieldParameterInt_s in{77, 6};
    FieldParameterInt_s out{0, 6};
    FgZuWrapper::setFieldCache(cache32, &in);
    FgZuWrapper::getFieldCache(cache32, &out);
    EXPECT_EQ(out.value, 77u);

    a.vtype = FG_PARAM_TYPE_CHAR_PTR;
    a.p.p_uint32_t = in32;
    FgZuWrapper::setFieldCache(cache32, &a);
    FgZuWrapper::setFieldCache(cache32, static_cast<const FieldParameterAccess*>(nullptr));
    FgZuWrapper::setFieldCache(cache32, static_cast<const FieldParameterInt_s*>(nullptr));
    a.vtype = FG_PARAM_TYPE_UINT32_T;
    a.p.p_uint32_t = nullptr;
    FgZuWrapper::setFieldCache(cache32, &a);
    FgZuWrapper::getFieldCache(cache32, &a);
    EXPECT_EQ(std::vector<uint32_t>(cache32, cache32 + 8), (std::vector<uint32_t>{0, 0, 7, 8, 9, 0, 77, 0}));

    double cacheD[4] = {}, inD[2] = {1.5, -2.25};
    FieldParameterAccess d{FG_PARAM_TYPE_DOUBLE, 1, 2, 0, {}};
    d.p.p_double = inD;
    FgZuWrapper::setFieldCache(cacheD, &d);
    const FieldParameterDouble_s din{0.125, 3};
    FgZuWrapper::setFieldCache(cacheD, &din);
    EXPECT_EQ(std::vector<double>(cacheD, cacheD + 4), (std::vector<double>{0.0, 1.5, -2.25, 0.125}));
}

// Two names in a row differ, use base-62 digits in place of the six
// placeholders, and name files that exist until deleted.
TEST(WrapperTempFile, NamesAreFreshFilesAndTemplatesWithoutSixPlaceholdersAreRefused) {
    char *first = FgZuWrapper::createTempFile(), *second = FgZuWrapper::createTempFile();
    ASSERT_TRUE(first && second);
    EXPECT_STRNE(first, second);
    for (const char* name : {first, second}) {
        EXPECT_EQ(std::strncmp(name, "/tmp/coef-", 10), 0) << name;
        EXPECT_EQ(std::strlen(name), std::strlen("/tmp/coef-XXXXXX.tiff")) << name;
        EXPECT_STREQ(name + std::strlen(name) - 5, ".tiff");
        for (int i = 10; i < 16; ++i) EXPECT_TRUE(std::isalnum(static_cast<unsigned char>(name[i]))) << name;
        EXPECT_TRUE(exists(name)) << name;
    }
    const std::string firstName = first;
    FgZuWrapper::deleteTempFile(first);
    FgZuWrapper::deleteTempFile(second);
    EXPECT_FALSE(exists(firstName));
    FgZuWrapper::deleteTempFile(nullptr);

    char wrongPlace[] = "/tmp/coef-XXXXXX.tif";  // suffix of 5 would eat one X
    EXPECT_EQ(pelagon::mkstemps(wrongPlace, 5), -1);
    EXPECT_STREQ(wrongPlace, "/tmp/coef-XXXXXX.tif");
    char tooShort[] = "XXXX.tiff", noPlaceholders[] = "/tmp/coef-abcdef.tiff";
    EXPECT_EQ(pelagon::mkstemps(tooShort, 5), -1);
    EXPECT_EQ(pelagon::mkstemps(noPlaceholders, 5), -1);
    EXPECT_FALSE(exists("/tmp/coef-abcdef.tiff"));
    EXPECT_EQ(pelagon::mkstemps(nullptr, 5), -1);
}
