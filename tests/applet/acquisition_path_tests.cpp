// Region of interest, formats, time-out, image selector and buffer status,
// through the exported interface and the board's journal.
#include <string>
#include <utility>
#include <vector>

#include "AppletHost.h"
#include "pelagon_errors.h"

namespace {

enum Id : int {
    WIDTH = 100,
    HEIGHT = 200,
    XOFFSET = 300,
    YOFFSET = 400,
    FORMAT = 700,
    TIMEOUT = 600,
    BITALIGNMENT = 4010,
    PIXELFORMAT = 200368,
    PACKET_MODE = 200369,
    IMG_SELECT_PERIOD = 25110,
    IMG_SELECT = 25111,
    FILLLEVEL = 110086,
    OVERFLOW_FLAG = 110087,
    CAMSTATUS_EXTENDED = 2050,
};

const std::string kBuffer = "Device1_Process0_Buffer_0_DRAM_A_";
const std::string kWhiteInit = "Device1_Process0_Bayer_White_BayerInit";
const std::string kBayerInit = "Device1_Process0_Bayer_Bayer_BayerInit";
const std::string kOverflow = "Device1_Process0_Overflow_OverflowOccurred";

Writes writes(AppletHost& host) { return takeWrites(host.board); }

class AppletAcquisitionPath : public AppletTest {
protected:
    void SetUp() override {
        AppletTest::SetUp();
        vboard::clearJournal(host.board);
    }
    uint32_t publishedMaximum(int id) {
        const RegisterInfo* r = host.record(id);
        return r ? r->u.uiReg.to : 0;
    }
};

}  // namespace

TEST_F(AppletAcquisitionPath, WidthMustBeAStepOf16WithinTheBufferBesideTheOffset) {
    EXPECT_EQ(host.setU32(WIDTH, 31), PGN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(host.setU32(WIDTH, 40), PGN_ERR_STEP);
    EXPECT_EQ(host.api.Fg_getLastErrorNumber(host.fg), PGN_ERR_STEP);
    EXPECT_EQ(host.setU32(WIDTH, 32), 0);
    EXPECT_EQ(host.setU32(WIDTH, 48), 0);
    EXPECT_EQ(writes(host), (Writes{{kBuffer + "0_XLength", 32}, {kBuffer + "1_XLength", 32},
                                    {kBuffer + "0_XLength", 48}, {kBuffer + "1_XLength", 48}}));

    ASSERT_EQ(host.setU32(XOFFSET, 16), 0);
    EXPECT_EQ(host.setU32(WIDTH, 16384), PGN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(host.setU32(WIDTH, 16368), 0);
    EXPECT_EQ(host.u32(WIDTH), 16368u);
    EXPECT_EQ(host.setU32(XOFFSET, 17), PGN_ERR_OUT_OF_RANGE) << "the width leaves no room";
}

TEST_F(AppletAcquisitionPath, PartnerMaximaFollowTheRegionOfInterest) {
    ASSERT_EQ(host.setU32(WIDTH, 1024), 0);
    EXPECT_EQ(publishedMaximum(XOFFSET), 15360u);
    ASSERT_EQ(host.setU32(YOFFSET, 100), 0);
    EXPECT_EQ(publishedMaximum(HEIGHT), 65435u);
    ASSERT_EQ(host.setU32(XOFFSET, 512), 0);
    EXPECT_EQ(publishedMaximum(WIDTH), 15872u);
    ASSERT_EQ(host.setU32(HEIGHT, 1000), 0);
    EXPECT_EQ(publishedMaximum(YOFFSET), 64535u);
}

TEST_F(AppletAcquisitionPath, HeightAndYOffsetShareTheBuffer) {
    EXPECT_EQ(host.setU32(HEIGHT, 1), PGN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(host.setU32(HEIGHT, 65535), 0);
    EXPECT_EQ(writes(host), (Writes{{kBuffer + "0_YLength", 65535}, {kBuffer + "1_YLength", 65535}}));
    EXPECT_EQ(host.setU32(YOFFSET, 1), PGN_ERR_OUT_OF_RANGE);
    ASSERT_EQ(host.setU32(HEIGHT, 2), 0);
    ASSERT_EQ(host.setU32(YOFFSET, 1), 0);
    EXPECT_EQ(host.setU32(HEIGHT, 65535), PGN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(host.u32(HEIGHT), 2u);
}

TEST_F(AppletAcquisitionPath, PixelFormatSetsBayerPhaseAndDepthCorrectedForOddOffsets) {
    ASSERT_EQ(host.setU32(YOFFSET, 1), 0);
    vboard::clearJournal(host.board);
    ASSERT_EQ(host.setU32(PIXELFORMAT, 0x323), 0);  // BayerRG12: base phase 2, odd line
    EXPECT_EQ(writes(host), (Writes{{kWhiteInit, 0},
                                    {kBayerInit, 0},
                                    {"Device1_Process0_12BitSelector_PixelFormat_SelectSource", 2}}));

    ASSERT_EQ(host.setU32(YOFFSET, 0), 0);
    ASSERT_EQ(host.setU32(PIXELFORMAT, 785), 0);  // BayerGR8: base phase 3, depth selector 0
    EXPECT_EQ(vboard::peek(host.board, kBayerInit), 3u);
    EXPECT_EQ(vboard::peek(host.board, "Device1_Process0_12BitSelector_PixelFormat_SelectSource"), 0u);
    vboard::clearJournal(host.board);
    ASSERT_EQ(host.setU32(YOFFSET, 1), 0);
    EXPECT_EQ(writes(host), (Writes{{kBuffer + "0_YOffset", 1}, {kBuffer + "1_YOffset", 1},
                                    {kWhiteInit, 1}, {kBayerInit, 1}}));

    EXPECT_EQ(host.setU32(PIXELFORMAT, 0x314), PGN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(host.u32(PIXELFORMAT), 785u);
    EXPECT_TRUE(writes(host).empty());
}

TEST_F(AppletAcquisitionPath, OutputFormatSelectsOnePathAndDiscardsTheOthers) {
    const std::string p = "Device1_Process0_OutputFormat_";
    ASSERT_EQ(host.setU32(FORMAT, 5), 0);
    EXPECT_EQ(writes(host), (Writes{{p + "FG_FORMAT_SelectSource", 2},
                                    {p + "VirtualTrash16Bit_EnableTrash_Value", 1},
                                    {p + "VirtualTrash8Bit_EnableTrash_Value", 1},
                                    {p + "VirtualTrash10Bit_EnableTrash_Value", 0}}));
    ASSERT_EQ(host.setU32(FORMAT, 6), 0);
    EXPECT_EQ(writes(host)[0], std::make_pair(p + "FG_FORMAT_SelectSource", uint64_t{0}));
    EXPECT_EQ(host.setU32(FORMAT, 3), PGN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(host.u32(FORMAT), 6u);

    EXPECT_EQ(host.setU32(BITALIGNMENT, 2), PGN_ERR_OUT_OF_RANGE);
    ASSERT_EQ(host.setU32(BITALIGNMENT, 0), 0);
    ASSERT_EQ(host.setU32(PACKET_MODE, 1), 0);
    EXPECT_EQ(writes(host), (Writes{{p + "FG_BITALIGNMENT_Value", 0},
                                    {"Device1_Process0_Camera_Camera_TxTriggerPacketMode", 1}}));
    EXPECT_EQ(host.setU32(PACKET_MODE, 2), PGN_ERR_OUT_OF_RANGE);
}

TEST_F(AppletAcquisitionPath, TimeoutIsCheckedAndHandedToTheRuntime) {
    EXPECT_EQ(host.setU32(TIMEOUT, 1), PGN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(host.setU32(TIMEOUT, 2147483647u), PGN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(host.setU32(TIMEOUT, 2), 0);
    ASSERT_EQ(host.setU32(TIMEOUT, 2147483646u), 0);
    EXPECT_EQ(host.u32(TIMEOUT), 2147483646u);
    EXPECT_EQ(host.u32(2000000 + FG_RT_TIMEOUT), 2147483646u) << "the runtime's own time-out";
    EXPECT_TRUE(writes(host).empty()) << "no design register is involved";
}

TEST_F(AppletAcquisitionPath, ImageSelectStaysBelowItsPeriod) {
    EXPECT_EQ(host.setU32(IMG_SELECT_PERIOD, 1), 0);
    EXPECT_EQ(host.setU32(IMG_SELECT, 1), PGN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(host.setU32(IMG_SELECT_PERIOD, 257), PGN_ERR_OUT_OF_RANGE);
    ASSERT_EQ(host.setU32(IMG_SELECT_PERIOD, 256), 0);
    ASSERT_EQ(host.setU32(IMG_SELECT, 255), 0);
    EXPECT_EQ(host.setU32(IMG_SELECT_PERIOD, 255), PGN_ERR_OUT_OF_RANGE);
    EXPECT_EQ(writes(host), (Writes{{"Device1_Process0_ImageSelector_FG_IMG_SELECT_PERIOD_Divisor", 1},
                                    {"Device1_Process0_ImageSelector_FG_IMG_SELECT_PERIOD_Divisor", 256},
                                    {"Device1_Process0_ImageSelector_FG_IMG_SELECT_PHASE_Number", 255}}));
}

TEST_F(AppletAcquisitionPath, FillLevelAndExtendedStatusReadTheBufferAfresh) {
    vboard::poke(host.board, kBuffer + "0_FillLevel", 24);
    vboard::poke(host.board, kBuffer + "1_FillLevel", 10);
    EXPECT_EQ(host.u32(FILLLEVEL), 24u);
    EXPECT_EQ(host.u32(OVERFLOW_FLAG), 0u);
    EXPECT_EQ(host.u32(CAMSTATUS_EXTENDED), 1u);

    vboard::poke(host.board, kBuffer + "1_FillLevel", 50);
    EXPECT_EQ(host.u32(FILLLEVEL), 50u);
    EXPECT_EQ(host.u32(CAMSTATUS_EXTENDED), 129u);

    vboard::poke(host.board, kOverflow, 1);
    EXPECT_EQ(host.u32(FILLLEVEL), 100u);
    EXPECT_EQ(host.u32(OVERFLOW_FLAG), 1u);
    EXPECT_EQ(host.u32(CAMSTATUS_EXTENDED), 225u);

    vboard::injectFault(host.board, kOverflow, vboard::Access::Read, 1, -77);
    uint32_t value = 0;
    EXPECT_EQ(host.getU32(FILLLEVEL, value), -77);
    EXPECT_EQ(host.setU32(FILLLEVEL, 5), PGN_ERR_READ_ONLY);
}

TEST_F(AppletAcquisitionPath, AFailedRegisterWriteRestoresTheCacheButKeepsEarlierWrites) {
    ASSERT_EQ(host.setU32(WIDTH, 1024), 0);
    vboard::clearJournal(host.board);
    vboard::injectFault(host.board, kBuffer + "1_XLength", vboard::Access::Write, 1, -31);
    EXPECT_EQ(host.setU32(WIDTH, 2048), -31);
    EXPECT_EQ(host.api.Fg_getLastErrorNumber(host.fg), -31);
    EXPECT_EQ(host.u32(WIDTH), 1024u);
    EXPECT_EQ(vboard::peek(host.board, kBuffer + "0_XLength"), 2048u) << "writes already made stay made";
    EXPECT_EQ(publishedMaximum(XOFFSET), 15360u) << "the partner maximum follows only a completed set";
}
