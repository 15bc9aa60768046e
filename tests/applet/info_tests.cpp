// The information query, answered by the library without an instance.
#include <cstring>
#include <regex>
#include <string>
#include <utility>

#include "BoundaryHelpers.h"
#include "hap_runtime.h"
#include "pelagon_errors.h"

namespace {

const AppletApi& api() { return AppletApi::get(); }

constexpr uint64_t kUntouched = 0xDEADBEEFCAFEF00Dull;

// The query that resolves an enumeration symbol takes the symbol's address
// in place of the first out pointer.
int resolve(const char* symbol) {
    return api().Info(GET_INFO_RESOLVE_ENUM, 0, 0, reinterpret_cast<uint64_t*>(const_cast<char*>(symbol)), nullptr);
}

// A text answer: the address of a zero-terminated string in the second out value.
std::string textAnswer(int code) {
    uint64_t first = kUntouched, second = 0;
    EXPECT_EQ(api().Info(code, 0, 0, &first, &second), 0) << "code " << code;
    EXPECT_EQ(first, kUntouched) << "code " << code << " wrote the first out value";
    if (second == 0) return "<null>";
    return reinterpret_cast<const char*>(static_cast<uintptr_t>(second));
}

}  // namespace

TEST(AppletInfo, ConstantAnswersMatchTheApplet) {
    const std::pair<int, int> answers[] = {
        {GET_ISCAM_COLOR, 0},     {GET_IS_SMART_APPLET, 0}, {GET_IS_ADVANCED_ACQUISITION_APPLET, 1},
        {GET_NR_OF_PORTS, 1},     {GET_NR_OF_CAMS, 1},      {GET_NR_OF_DMAS, 1},
        {GET_VERSION, 0x30000},   {GET_HAP_NAME, 0},        {GET_BOARD_TYPE, 2647},
        {GET_PX_TYPE, 0},         {GET_IS_CUSTOM, 0},       {GET_IS_AREA, 1},
        {GET_IS_MEDIUM, 0},       {GET_IS_FULL, 0},         {GET_INFO_NR_OF_PROCESSES, 1},
    };
    for (const auto& [code, result] : answers) {
        uint64_t first = kUntouched, second = kUntouched;
        EXPECT_EQ(api().Info(code, 0, 0, &first, &second), result) << "code " << code;
        EXPECT_TRUE(first == kUntouched && second == kUntouched) << "code " << code << " wrote an out value";
    }
}

TEST(AppletInfo, TextAnswersAreTheAppletsStrings) {
    EXPECT_EQ(textAnswer(GET_INFO_DESCRIPTION),
              "Acquisition Applet with support of Zephane technology, 12 bit image processing (per color component), "
              "white balancing and lookup table for one CoaXPress Bayer area scan camera with 2 ports (12.5GB/s) and "
              "supported transfer speed of CXP-1 (1.250 Gbps) to CXP-6 (6.250 Gbps).");
    EXPECT_EQ(textAnswer(GET_INFO_CATEGORY), "Ostrakits:Area");
    EXPECT_EQ(textAnswer(GET_INFO_TAGS),
              "class=standard,family=acquisition,type=single,sensortype=area,color=Bayer,interface=cxp,lag=2");
    EXPECT_EQ(textAnswer(GET_INFO_FRIENDLY_NAME), "Pelagon");
    EXPECT_EQ(textAnswer(GET_INFO_VERSIONSTRING), "3.0.2.3");
    EXPECT_EQ(textAnswer(GET_INFO_VERSIONSTRING_DETAIL), "3.0.2.3.20170809.072605");
    const std::regex guid("[0-9a-fA-F]{8}-[0-9a-fA-F]{4}-[0-9a-fA-F]{4}-[0-9a-fA-F]{4}-[0-9a-fA-F]{12}");
    for (int code : {GET_HAP_ID, GET_BITSTREAM_ID}) EXPECT_TRUE(std::regex_match(textAnswer(code), guid)) << code;
}

TEST(AppletInfo, EmbeddedImageIsALoadableDesignOfTheAdvertisedSize) {
    uint64_t size = 0, address = 0;
    ASSERT_EQ(api().Info(GET_EMBEDDED_HAP, 0, 0, &size, &address), 0);
    EXPECT_EQ(size, 7902148u);
    ASSERT_NE(address, 0u);
    fpga_design* design =
        HapLoadDesignFromBuffer(reinterpret_cast<const void*>(static_cast<uintptr_t>(address)), size, 1);
    ASSERT_NE(design, nullptr) << "the address does not hold the design image";
    EXPECT_GT(HapGetNrOfRegister(design), 0);
    HapUnloadHapFile(design);

    // Only the size is wanted: the address is not written anywhere.
    uint64_t sizeOnly = 0;
    EXPECT_EQ(api().Info(GET_EMBEDDED_HAP, 0, 0, &sizeOnly, nullptr), 0);
    EXPECT_EQ(sizeOnly, 7902148u);
}

TEST(AppletInfo, IconIsA3132BytePng) {
    static const unsigned char kPngSignature[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    uint64_t size = 0, address = 0;
    ASSERT_EQ(api().Info(GET_PNG_ICON, 0, 0, &size, &address), 0);
    EXPECT_EQ(size, 3132u);
    ASSERT_NE(address, 0u);
    EXPECT_EQ(std::memcmp(reinterpret_cast<const void*>(static_cast<uintptr_t>(address)), kPngSignature,
                          sizeof kPngSignature),
              0);

    // Non-zero arguments change nothing in the answer.
    uint64_t size2 = kUntouched, address2 = kUntouched;
    EXPECT_EQ(api().Info(GET_PNG_ICON, 1, 7, &size2, &address2), 0);
    EXPECT_EQ(size2, size);
    EXPECT_EQ(address2, address);
}

TEST(AppletInfo, NullOutPointersAreNeverWritten) {
    for (int code : {GET_PNG_ICON, GET_EMBEDDED_HAP, GET_HAP_ID, GET_BITSTREAM_ID, GET_INFO_DESCRIPTION,
                     GET_INFO_CATEGORY, GET_INFO_TAGS, GET_INFO_DEVICE_HANDLE, GET_INFO_DESIGN_HANDLE,
                     GET_INFO_FRIENDLY_NAME, GET_INFO_VERSIONSTRING, GET_INFO_VERSIONSTRING_DETAIL}) {
        EXPECT_EQ(api().Info(code, 0, 0, nullptr, nullptr), 0) << "code " << code;
        EXPECT_EQ(api().Info(code, 3, 3, nullptr, nullptr), 0) << "code " << code;
    }
}

TEST(AppletInfo, HandleQueriesReturnTheLatestInstancesBoardAndDesign) {
    AppletHost host;
    ASSERT_TRUE(host.ok());
    uint64_t board = 0, design = 0, untouched = kUntouched;
    EXPECT_EQ(api().Info(GET_INFO_DEVICE_HANDLE, 0, 0, &board, &untouched), 0);
    EXPECT_EQ(board, reinterpret_cast<uintptr_t>(host.board));
    EXPECT_EQ(untouched, kUntouched);
    EXPECT_EQ(api().Info(GET_INFO_DESIGN_HANDLE, 0, 0, &design, nullptr), 0);
    ASSERT_NE(design, 0u);
    EXPECT_GT(HapGetNrOfRegister(reinterpret_cast<fpga_design*>(static_cast<uintptr_t>(design))), 0);

    // A second instance takes over the stored handles.
    AppletHost second;
    ASSERT_TRUE(second.ok());
    EXPECT_EQ(api().Info(GET_INFO_DEVICE_HANDLE, 0, 0, &board, nullptr), 0);
    EXPECT_EQ(board, reinterpret_cast<uintptr_t>(second.board));
}

TEST(AppletInfo, ResolvesEnumerationSymbols) {
    const std::pair<const char*, int> symbols[] = {
        {"FG_COL30", 5},         {"FG_COL48", 6},          {"BayerGR8", 785},       {"BayerBG12", 835},
        {"FG_RIGHT_ALIGNED", 0}, {"FG_DIAGONAL", 3},       {"RISING_EDGE_TRIGGERS_FRAME", 9},
        {"LUT_TYPE_PROCESSING", 3}, {"LUT_IMPLEMENTATION_KNEELUT", 1}, {"ATM_SOFTWARE", 4}, {"TS_SYNC_STOP", 2},
        {"TRGINSRC_7", 7},       {"LOW_ACTIVE", 1},        {"IS_NOT_BUSY", 0},      {"NOT_INPUT_BYPASS", 11},
        {"PULSEGEN3", 3},        {"FG_COL31", PGN_ERR_INVALID_ARGUMENT}, {"fg_col30", PGN_ERR_INVALID_ARGUMENT},
        {"", PGN_ERR_INVALID_ARGUMENT}};
    for (const auto& [symbol, value] : symbols) EXPECT_EQ(resolve(symbol), value) << symbol;
}

TEST(AppletInfo, ProcessChannelCameraAndDmaIndicesOtherThanZeroAreRefused) {
    const std::pair<int, int> perIndex[] = {{GET_INFO_NR_OF_PROCESS_CHANNELS, 1}, {GET_INFO_NR_OF_PROCESS_CAMERAS, 1},
                                            {GET_INFO_DMA_DIRECTION, 1}, {GET_INFO_DMA_DATATYPE, DMA_DATATYPE_RGB24}};
    for (const auto& [code, result] : perIndex) {
        EXPECT_EQ(api().Info(code, 0, 0, nullptr, nullptr), result) << "code " << code;
        EXPECT_EQ(api().Info(code, 1, 0, nullptr, nullptr), PGN_ERR_INVALID_ARGUMENT) << "code " << code;
        EXPECT_EQ(api().Info(code, -1, 0, nullptr, nullptr), PGN_ERR_INVALID_ARGUMENT) << "code " << code;
    }
    for (int code : {GET_INFO_PROCESS_CHANNEL_DMA, GET_INFO_PROCESS_CAMERA_PORT}) {
        EXPECT_EQ(api().Info(code, 0, 0, nullptr, nullptr), 0) << "code " << code;
        EXPECT_EQ(api().Info(code, 0, 1, nullptr, nullptr), PGN_ERR_INVALID_ARGUMENT) << "code " << code;
        EXPECT_EQ(api().Info(code, 1, 0, nullptr, nullptr), PGN_ERR_INVALID_ARGUMENT) << "code " << code;
    }
}

TEST(AppletInfo, UnknownCodesAreNotSupported) {
    uint64_t first = kUntouched;
    for (int code : {1, 0, -1, 849, 4353, 1 << 30}) {
        EXPECT_EQ(api().Info(code, 0, 0, &first, nullptr), PGN_ERR_NOT_SUPPORTED) << "code " << code;
    }
    EXPECT_EQ(first, kUntouched);
}
