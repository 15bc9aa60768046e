// The design image and the design runtime that reads it.
#include <cstdio>

#include "support/scratch_folder.h"
#include "vboard_fixture.h"

using namespace vboard_test;

namespace {

// The image with the first `from` in its header replaced by `to` of the same
// length, so that only the intended field is damaged.
std::string damaged(const std::string& from, const std::string& to) {
    EXPECT_EQ(from.size(), to.size());
    std::string image = designImage();
    std::size_t headerSize = image.find("\nend\n") + 5;
    std::size_t at = image.find(from);
    EXPECT_LE(at + from.size(), headerSize) << from;
    image.replace(at, from.size(), to);
    return image;
}

fpga_design* load(const std::string& image) { return HapLoadDesignFromBuffer(image.data(), image.size(), 1); }

}  // namespace

TEST(VBoardImage, GeneratedImageDescribesTheDesign) {
    ASSERT_EQ(designImage().size(), 7902148u);
    fpga_design* design = load(designImage());
    ASSERT_NE(design, nullptr);

    std::vector<DesignRegister> described = designRegisters();
    ASSERT_EQ(HapGetNrOfRegister(design), 146);
    ASSERT_EQ(described.size(), 146u);
    for (int n = 1; n <= 146; ++n) {
        const DesignRegister& d = described[static_cast<std::size_t>(n - 1)];
        ASSERT_STREQ(HapGetRegisterName(design, n), d.name.c_str()) << n;
        EXPECT_EQ(HapGetRegisterByName(design, d.name.c_str()), n);
        EXPECT_EQ(HapGetRegisterBitRange(design, n), d.width) << d.name;
    }
    EXPECT_EQ(HapGetRegisterName(design, 0), nullptr);
    EXPECT_EQ(HapGetRegisterName(design, 147), nullptr);
    EXPECT_EQ(HapGetRegisterBitRange(design, 147), 0);
    EXPECT_LT(HapGetRegisterByName(design, "Device1_Nothing"), 0);
    EXPECT_LT(HapGetRegisterByName(design, nullptr), 0);

    const int firmware[] = {0, 0, 1, 1, 0, 1};
    for (int i = 0; i < 6; ++i) {
        const hap_event_data* e = HapGetEvent(design, i);
        ASSERT_NE(e, nullptr);
        EXPECT_EQ(std::tuple(e->index, e->is_firmware_event), std::tuple(unsigned(i), firmware[i])) << e->name;
    }
    EXPECT_STREQ(HapGetEvent(design, 5)->name, "Device1_Process0_Overflow_Overflow");
    EXPECT_EQ(HapGetEvent(design, 6), nullptr);
    EXPECT_EQ(HapGetEvent(design, -1), nullptr);
    EXPECT_EQ(HapUnloadHapFile(design), 0);
}

TEST(VBoardImage, EveryLoadIsItsOwnDesignAndStaleOnesAreRefused) {
    fpga_design* first = load(designImage());
    fpga_design* second = load(designImage());
    ASSERT_NE(first, nullptr);
    ASSERT_NE(first, second);
    EXPECT_EQ(HapUnloadHapFile(first), 0);
    EXPECT_LT(HapUnloadHapFile(first), 0);
    EXPECT_LT(HapGetNrOfRegister(first), 1);
    EXPECT_EQ(HapGetRegisterName(first, 1), nullptr);
    EXPECT_EQ(HapGetEvent(first, 0), nullptr);
    EXPECT_EQ(HapGetRegisterBitRange(nullptr, 1), 0);
    EXPECT_EQ(HapGetNrOfRegister(second), 146);  // the other load is untouched
    EXPECT_EQ(HapUnloadHapFile(second), 0);
}

TEST(VBoardImage, MalformedImagesAreRefused) {
    const std::string& good = designImage();
    struct Case {
        const char* what;
        std::string image;
    } cases[] = {
        {"magic", damaged("PELAGON-HAP 1", "PELAGON-HAP 2")},
        {"board type", damaged("board 2647", "board 26x7")},
        {"guid", damaged("hap-id 5f3c2a91", "hap-id 5f3c2a9g")},
        {"text length", damaged("applet-uid 26:", "applet-uid 99:")},
        {"register count", damaged("registers 146", "registers 147")},
        {"garbage width", damaged("U 13 0 1 RW", "U 1x 0 1 RW")},
        {"zero width", damaged("U 13 0 1 RW", "U 00 0 1 RW")},
        {"U wider than 64", damaged("FpgaDNA Process0_BoardStatus U 57", "FpgaDNA Process0_BoardStatus U 65")},
        {"zero count", damaged("U 13 0 1 RW", "U 13 0 0 RW")},
        {"kind", damaged("U 13 0 1 RW", "X 13 0 1 RW")},
        {"access", damaged("U 13 0 1 RW", "U 13 0 1 WO")},
        {"duplicate name", damaged("CameraControl_Select1_Select_Select", "CameraControl_Select0_Select_Select")},
        {"enum of unknown register", damaged("enum Device1_Process0_Camera", "enum Device1_Process0_Camerb")},
        {"event flag", damaged("event 1 Device1_Process0_Overflow", "event 2 Device1_Process0_Overflow")},
        {"end marker", damaged("\nend\n", "\nEND\n")},
        {"truncated header", good.substr(0, 700)},
        {"truncated bitstream", good.substr(0, good.size() - 1)},
        {"trailing byte", good + '\0'},
        {"header only", good.substr(0, good.find("\nend\n") + 5)},
    };
    for (const Case& c : cases)
        EXPECT_EQ(load(c.image), nullptr) << c.what;
    EXPECT_EQ(HapLoadDesignFromBuffer(good.data(), 0, 1), nullptr);
    EXPECT_EQ(HapLoadDesignFromBuffer(nullptr, good.size(), 1), nullptr);

    fpga_design* intact = load(good);  // the damage, not the copying, was refused
    EXPECT_NE(intact, nullptr);
    HapUnloadHapFile(intact);
}

TEST(VBoardImage, FilesAreLoadedForTheirBoardTypeOnly) {
    ScratchFolder folder;
    const std::string path = folder.write("design.hap", designImage());

    fpga_design* design = HapLoadHapFileWithType(path.c_str(), vboard::kBoardType, 1);
    EXPECT_NE(design, nullptr);
    EXPECT_EQ(HapUnloadHapFile(design), 0);
    EXPECT_EQ(HapLoadHapFileWithType(path.c_str(), vboard::kBoardType + 1, 1), nullptr);
    std::remove(path.c_str());
    EXPECT_EQ(HapLoadHapFileWithType(path.c_str(), vboard::kBoardType, 1), nullptr);
    EXPECT_EQ(HapLoadHapFileWithType(folder.dir.c_str(), vboard::kBoardType, 1), nullptr);
    EXPECT_EQ(HapLoadHapFileWithType(nullptr, vboard::kBoardType, 1), nullptr);
}
