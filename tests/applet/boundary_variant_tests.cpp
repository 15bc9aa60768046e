// The applet in a process whose frame grabber runtime is missing or lacks
// functions. This executable does not link the runtime: each test (its own
// process under ctest) loads the variant it needs, or none.
#include <dlfcn.h>

#include <string>

#include "BoundaryHelpers.h"
#include "pelagon_errors.h"

using boundary::lastError;

namespace {

void* loadedRuntime() { return dlopen("libfglib5.so", RTLD_NOW | RTLD_NOLOAD); }

// True when the variant is the runtime of this process (loaded now, or before).
bool loadVariant(const char* variant) {
    void* before = loadedRuntime();
    void* wanted =
        dlopen((std::string(PELAGON_VARIANT_DIR) + "/" + variant + "/libfglib5.so").c_str(), RTLD_NOW | RTLD_GLOBAL);
    return wanted && (!before || before == wanted);
}

#define REQUIRE_VARIANT(name) \
    if (!loadVariant(name)) GTEST_SKIP() << "another runtime is loaded; run each test in its own process (ctest)"

}  // namespace

TEST(AppletVariant, WithoutARuntimeNoInstanceIsCreated) {
    if (loadedRuntime()) GTEST_SKIP() << "a runtime is loaded; run each test in its own process (ctest)";
    AppletHost host;
    EXPECT_FALSE(host.ok());
    EXPECT_EQ(host.error, PGN_ERR_RUNTIME_UNAVAILABLE);

    ZUdevice* board = vboard::createBoard();
    EXPECT_EQ(host.api.Std_entry(board, nullptr, 0), nullptr);
    vboard::destroyBoard(board);
}

TEST(AppletVariant, RuntimeWithoutInitFunctionsCannotTakeTheDesign) {
    REQUIRE_VARIANT("bare");
    AppletHost host;
    EXPECT_FALSE(host.ok());
    EXPECT_EQ(host.error, PGN_ERR_RUNTIME_UNAVAILABLE);
}

TEST(AppletVariant, LegacyRuntimeServesParametersButNotTheMissingCalls) {
    REQUIRE_VARIANT("legacy");
    AppletHost host;
    ASSERT_TRUE(host.ok());
    EXPECT_EQ(host.error, 0);
    EXPECT_EQ(host.u32(24020), 3u);

    EXPECT_EQ(host.api.Fg_AcquireEx(host.fg, 0, 1, 0, nullptr), PGN_ERR_READ_ONLY);
    EXPECT_EQ(lastError(host), PGN_ERR_READ_ONLY);
    EXPECT_EQ(host.api.Fg_getStatusEx(host.fg, 0, 0, 0, nullptr), PGN_ERR_READ_ONLY);
    EXPECT_EQ(host.api.Fg_getAppletId(host.fg, nullptr), PGN_ERR_READ_ONLY);
    EXPECT_EQ(host.api.Fg_getParameterInfo(host.fg, 0), nullptr);
}
