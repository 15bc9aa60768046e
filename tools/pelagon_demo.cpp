// Demonstration on the virtual board: loads the Pelagon design image, binds
// the applet's register access to the frame grabber runtime, programs a
// region of interest and shows what reached the board.
#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

#include "applet/FgZuWrapperImpl.h"
#include "hap_runtime.h"
#include "vboard/vboard.h"

namespace {

int fail(const char* what, int code) {
    std::fprintf(stderr, "pelagon-demo: %s (error %d)\n", what, code);
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    const char* imagePath = argc > 1 ? argv[1] : PELAGON_DESIGN_IMAGE_PATH;
    std::ifstream in(imagePath, std::ios::binary);
    const std::vector<char> image{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    if (image.empty()) return fail("cannot read the design image", -5001);

    fpga_design* design = HapLoadDesignFromBuffer(image.data(), image.size(), 1);
    if (!design) return fail("the design runtime refused the image", -100);
    std::printf("design image %s: %zu bytes, %d register parameters\n", imagePath, image.size(),
                HapGetNrOfRegister(design));

    ZUdevice* board = vboard::createBoard();
    int status = 0;
    {
        FgZuWrapperImpl applet;
        if (int rc = applet.initializeDllFunctions("libfglib5.so"); rc != 0) return fail("no runtime", rc);
        if (int rc = applet.runFgInit("Pelagon.hap", board, design, 0); rc != 0) return fail("design refused", rc);
        applet.initHandles(board, design);
        applet.retrieveIds();
        std::printf("runtime bound, inner handle created, register ids resolved\n");

        const uint32_t width = 1024, height = 768, xOffset = 64, yOffset = 8;
        try {
            applet.set_zu_param_Device1_Process0_Buffer_0_DRAM_A_0_XLength(&width, 0, FG_PARAM_TYPE_UINT32_T, true);
            applet.set_zu_param_Device1_Process0_Buffer_0_DRAM_A_1_XLength(&width, 0, FG_PARAM_TYPE_UINT32_T, true);
            applet.set_zu_param_Device1_Process0_Buffer_0_DRAM_A_0_YLength(&height, 0, FG_PARAM_TYPE_UINT32_T, true);
            applet.set_zu_param_Device1_Process0_Buffer_0_DRAM_A_1_YLength(&height, 0, FG_PARAM_TYPE_UINT32_T, true);
            applet.set_zu_param_Device1_Process0_Buffer_0_DRAM_A_0_XOffset(&xOffset, 0, FG_PARAM_TYPE_UINT32_T, true);
            applet.set_zu_param_Device1_Process0_Buffer_0_DRAM_A_1_XOffset(&xOffset, 0, FG_PARAM_TYPE_UINT32_T, true);
            applet.set_zu_param_Device1_Process0_Buffer_0_DRAM_A_0_YOffset(&yOffset, 0, FG_PARAM_TYPE_UINT32_T, true);
            applet.set_zu_param_Device1_Process0_Buffer_0_DRAM_A_1_YOffset(&yOffset, 0, FG_PARAM_TYPE_UINT32_T, true);
            // A width the buffer cannot hold is refused by the board.
            const uint32_t tooWide = 40000;
            applet.set_zu_param_Device1_Process0_Buffer_0_DRAM_A_0_XLength(&tooWide, 0, FG_PARAM_TYPE_UINT32_T, true);
        } catch (int error) {
            std::printf("write of 40000 to an X length refused with %d, as a 15-bit register must\n", error);
        }

        double temperature = 0;
        applet.get_zu_param_Device1_Process0_BoardStatus_FpgaTemperature(&temperature, 0, FG_PARAM_TYPE_DOUBLE, false);
        char uid[64] = {};
        applet.get_zu_param_Device1_Process0_AppletProperties_AppletUid(uid, 0, FG_PARAM_TYPE_CHAR_PTR, false);
        std::printf("applet uid %s, FPGA at %.1f degrees Celsius\n", uid, temperature);

        std::printf("register writes journaled by the board:\n");
        for (const vboard::JournalEntry& e : vboard::journal(board))
            std::printf("  %-45s [%u] = %llu\n", e.name.c_str(), e.element, static_cast<unsigned long long>(e.u));
        if (vboard::journal(board).size() != 8) status = 1;

        if (applet.fglibFg()) applet.wrapperFg()->DLL_Fg_FreeGrabber(applet.fglibFg());
    }
    vboard::destroyBoard(board);
    std::printf(status == 0 ? "demo finished\n" : "demo: unexpected journal\n");
    return status;
}
