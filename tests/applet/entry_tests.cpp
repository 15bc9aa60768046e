// Creating and ending instances through Std_entry and Fg_FreeGrabber, and
// every way creation can fail. (Freeing without an instance is in
// exports_tests.cpp, many create/free cycles in create_free_cycles_tests.cpp.)
#include <filesystem>
#include <fstream>

#include "BoundaryHelpers.h"
#include "pelagon_errors.h"

using boundary::ScopedEnv;
using boundary::ScopedTempDir;

namespace {

const AppletApi& api() { return AppletApi::get(); }

}  // namespace

TEST(AppletEntry, CreationReportsSuccessAndFreeingReleasesTheInstance) {
    auto* fg = static_cast<Fg_Struct*>(std::calloc(1, sizeof(Fg_Struct)));
    ZUdevice* board = vboard::createBoard();
    int error = 1;
    fg->Master = api().Std_entry(board, &error, 0);
    ASSERT_NE(fg->Master, nullptr);
    EXPECT_EQ(error, 0);
    EXPECT_EQ(api().Fg_getLastErrorNumber(fg), 0);
    EXPECT_EQ(api().Fg_getNrOfParameter(fg), boundary::kNamedParameters);
    EXPECT_EQ(api().Fg_FreeGrabber(fg), 0);
    EXPECT_EQ(fg->Master, nullptr);
    // Freed once: a second call finds no instance.
    EXPECT_EQ(api().Fg_FreeGrabber(fg), PGN_ERR_NO_INSTANCE);
    std::free(fg);
    vboard::destroyBoard(board);

    EXPECT_TRUE(AppletHost(0, false).ok()) << "without an error location";
}

// Bit 0 is refused before anything else, even the board; other bits do not matter.
TEST(AppletEntry, FlagBitZeroIsRefused) {
    for (int flags : {1, 3, -1}) {
        AppletHost a(flags);
        EXPECT_FALSE(a.ok()) << "flags " << flags;
        EXPECT_EQ(a.error, PGN_ERR_INVALID_ARGUMENT) << "flags " << flags;
        EXPECT_FALSE(AppletHost(flags, false).ok()) << "flags " << flags;
    }
    int error = 1;
    EXPECT_EQ(api().Std_entry(nullptr, &error, 1), nullptr);
    EXPECT_EQ(error, PGN_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(api().Std_entry(nullptr, nullptr, -1), nullptr);
    AppletHost a(2);
    EXPECT_TRUE(a.ok());
    EXPECT_EQ(a.error, 0);
}

TEST(AppletEntry, RuntimeRefusingTheDesignReportsTheRuntimesError) {
    vboard::failNextInit(-4711);
    AppletHost refused;
    EXPECT_FALSE(refused.ok());
    EXPECT_EQ(refused.error, -4711);
    vboard::failNextInit(PGN_ERR_DESIGN_NOT_LOADED);
    EXPECT_FALSE(AppletHost(0, false).ok());
    // The refusal was used up: the next creation succeeds.
    AppletHost after;
    EXPECT_TRUE(after.ok());
    EXPECT_EQ(after.error, 0);
}

TEST(AppletEntry, ExternalDesignIsLoadedOnlyWhenForcedAndFromTheWorkingDirectoryOnly) {
    for (const char* value : {"", "1", "no"}) {
        ScopedTempDir dir;
        ScopedEnv force("__QUOR_FORCE_EXTERNAL_HAP", value);
        AppletHost a;
        EXPECT_FALSE(a.ok()) << "value \"" << value << "\"";
        EXPECT_EQ(a.error, PGN_ERR_DESIGN_NOT_LOADED) << "value \"" << value << "\"";
    }
    // Unforced, a file there that is no design image is ignored: the built-in image is used.
    ScopedTempDir dir;
    { std::ofstream(dir.path() / "Pelagon.hap") << "not a design"; }
    EXPECT_EQ(AppletHost().error, 0);
    std::filesystem::copy_file(PELAGON_DESIGN_IMAGE_PATH, dir.path() / "Pelagon.hap",
                               std::filesystem::copy_options::overwrite_existing);
    ScopedEnv force("__QUOR_FORCE_EXTERNAL_HAP", "");
    AppletHost host;
    ASSERT_TRUE(host.ok());
    EXPECT_EQ(host.error, 0);
    EXPECT_EQ(host.u32(24020), 3u);
}

TEST(AppletEntry, TwoInstancesOnTwoBoardsAreIndependent) {
    AppletHost first, second;
    ASSERT_TRUE(first.ok() && second.ok());
    ASSERT_EQ(first.setU32(100, 512), 0);
    EXPECT_EQ(first.u32(100), 512u);
    EXPECT_EQ(second.u32(100), 1024u);
}
