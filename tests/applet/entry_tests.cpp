// Creating and ending instances through Std_entry and Fg_FreeGrabber, and
// every way creation can fail.
#include <filesystem>
#include <fstream>

#include "BoundaryHelpers.h"
#include "pelagon_errors.h"

using boundary::ScopedEnv;
using boundary::ScopedTempDir;

namespace {

const AppletApi& api() { return AppletApi::get(); }

// Creates an instance on a fresh board and reports the error location.
struct Attempt {
    ZUdevice* board = vboard::createBoard();
    int error = 1;
    Fg_Master* master = nullptr;

    explicit Attempt(int flags = 0) { master = api().Std_entry(board, &error, flags); }
    ~Attempt() {
        if (master) {
            Fg_Struct fg{};
            fg.Master = master;
            api().Fg_FreeGrabber(&fg);
        }
        vboard::destroyBoard(board);
    }
    Attempt(const Attempt&) = delete;
    Attempt& operator=(const Attempt&) = delete;
};

}  // namespace

TEST(AppletEntry, CreationReportsSuccessAndFreeingReleasesTheInstance) {
    auto* fg = static_cast<Fg_Struct*>(std::calloc(1, sizeof(Fg_Struct)));
    ZUdevice* board = vboard::createBoard();
    int error = 1;
    fg->Master = api().Std_entry(board, &error, 0);
    ASSERT_NE(fg->Master, nullptr);
    EXPECT_EQ(error, 0);
    EXPECT_EQ(api().Fg_getLastErrorNumber(fg), 0);

    EXPECT_EQ(api().Fg_FreeGrabber(fg), 0);
    EXPECT_EQ(fg->Master, nullptr);
    // Freed once: a second call finds no instance.
    EXPECT_EQ(api().Fg_FreeGrabber(fg), PGN_ERR_NO_INSTANCE);
    std::free(fg);
    vboard::destroyBoard(board);
}

TEST(AppletEntry, NullErrorLocationIsAcceptedOnSuccess) {
    ZUdevice* board = vboard::createBoard();
    Fg_Struct fg{};
    fg.Master = api().Std_entry(board, nullptr, 0);
    ASSERT_NE(fg.Master, nullptr);
    EXPECT_EQ(api().Fg_FreeGrabber(&fg), 0);
    vboard::destroyBoard(board);
}

TEST(AppletEntry, FlagBitZeroIsRefused) {
    for (int flags : {1, 3, -1}) {
        Attempt a(flags);
        EXPECT_EQ(a.master, nullptr) << "flags " << flags;
        EXPECT_EQ(a.error, PGN_ERR_INVALID_ARGUMENT) << "flags " << flags;
    }
    ZUdevice* board = vboard::createBoard();
    EXPECT_EQ(api().Std_entry(board, nullptr, 1), nullptr);
    vboard::destroyBoard(board);
}

TEST(AppletEntry, OtherFlagBitsDoNotPreventCreation) {
    Attempt a(2);
    EXPECT_NE(a.master, nullptr);
    EXPECT_EQ(a.error, 0);
}

TEST(AppletEntry, RuntimeRefusingTheDesignReportsTheRuntimesError) {
    {
        vboard::failNextInit(-4711);
        Attempt a;
        EXPECT_EQ(a.master, nullptr);
        EXPECT_EQ(a.error, -4711);
    }
    {
        vboard::failNextInit(PGN_ERR_DESIGN_NOT_LOADED);
        ZUdevice* board = vboard::createBoard();
        EXPECT_EQ(api().Std_entry(board, nullptr, 0), nullptr);
        vboard::destroyBoard(board);
    }
    // The refusal was used up: the next creation succeeds.
    Attempt after;
    EXPECT_NE(after.master, nullptr);
    EXPECT_EQ(after.error, 0);
}

TEST(AppletEntry, ForcedExternalDesignWithoutTheFileIsNotLoaded) {
    for (const char* value : {"", "1", "no"}) {
        ScopedTempDir dir;
        ScopedEnv force("__QUOR_FORCE_EXTERNAL_HAP", value);
        Attempt a;
        EXPECT_EQ(a.master, nullptr) << "value \"" << value << "\"";
        EXPECT_EQ(a.error, PGN_ERR_DESIGN_NOT_LOADED) << "value \"" << value << "\"";
    }
}

TEST(AppletEntry, ForcedExternalDesignIsLoadedFromTheWorkingDirectory) {
    ScopedTempDir dir;
    std::filesystem::copy_file(PELAGON_DESIGN_IMAGE_PATH, dir.path() / "Pelagon.hap");
    ScopedEnv force("__QUOR_FORCE_EXTERNAL_HAP", "");
    AppletHost host;
    ASSERT_TRUE(host.ok());
    EXPECT_EQ(host.error, 0);
    EXPECT_EQ(host.u32(24020), 3u);
}

TEST(AppletEntry, ExternalFileIsIgnoredUnlessForced) {
    // A file that is not a design image lies in the working directory; the
    // built-in image is used all the same.
    ScopedTempDir dir;
    { std::ofstream(dir.path() / "Pelagon.hap") << "not a design"; }
    AppletHost host;
    EXPECT_TRUE(host.ok());
    EXPECT_EQ(host.error, 0);
}

TEST(AppletEntry, FreeingWithoutAnInstanceIsRefused) {
    EXPECT_EQ(api().Fg_FreeGrabber(nullptr), PGN_ERR_NO_INSTANCE);
    Fg_Struct empty{};
    EXPECT_EQ(api().Fg_FreeGrabber(&empty), PGN_ERR_NO_INSTANCE);
}

TEST(AppletEntry, TwoInstancesOnTwoBoardsAreIndependent) {
    AppletHost first;
    AppletHost second;
    ASSERT_TRUE(first.ok());
    ASSERT_TRUE(second.ok());
    ASSERT_EQ(first.setU32(100, 512), 0);
    EXPECT_EQ(first.u32(100), 512u);
    EXPECT_EQ(second.u32(100), 1024u);
}

// Many cycles in one process; the build with LeakSanitizer turns any
// unreleased instance, registry or design into a failure.
TEST(AppletEntry, ThousandCreateFreeCyclesReleaseEverything) {
    const AppletApi& a = api();
    ZUdevice* board = vboard::createBoard();
    Fg_Struct fg{};
    for (int i = 0; i < 1000; ++i) {
        int error = 1;
        fg.Master = a.Std_entry(board, &error, 0);
        ASSERT_NE(fg.Master, nullptr) << "cycle " << i;
        ASSERT_EQ(error, 0) << "cycle " << i;
        ASSERT_EQ(a.Fg_FreeGrabber(&fg), 0) << "cycle " << i;
    }
    vboard::destroyBoard(board);
}
