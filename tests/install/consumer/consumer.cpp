// Opens the applet that vboard::defaultAppletPath() finds, which must be the
// one the build system names (EXPECTED_APPLET), switches on the camera
// simulator and acquires one frame of the programmed size (at least three
// bytes a pixel in every output format).
#include <applet_info.h>
#include <vboard/grabber.h>

#include <cstdio>
#include <filesystem>

int main() try {
    const std::string path = vboard::defaultAppletPath();
    if (!std::filesystem::equivalent(path, EXPECTED_APPLET)) throw std::runtime_error("expected " EXPECTED_APPLET);
    vboard::Grabber g(path);
    uint64_t name = 0;
    g.info(GET_INFO_FRIENDLY_NAME, nullptr, &name);
    std::printf("applet %s (%s) with %zu parameters\n", reinterpret_cast<const char*>(name), path.c_str(),
                g.parameters().size());
    g.set("FG_CAMERASIMULATOR_ENABLE", "FG_CAMERASIMULATOR");
    const auto width = g.get<uint32_t>(g.id("FG_WIDTH")), height = g.get<uint32_t>(g.id("FG_HEIGHT"));
    g.start();
    const vboard::Frame f = g.frame(g.waitForFrame(1, std::chrono::seconds(5)));
    g.stop();
    std::printf("frame %ux%u, %zu bytes\n", f.info.width, f.info.height, f.bytes.size());
    const bool sized = f.info.width == width && f.info.height == height;
    return sized && f.bytes.size() >= std::size_t{width} * height * 3 ? 0 : 1;
} catch (const std::exception& e) {
    std::fprintf(stderr, "consumer: %s\n", e.what());
    return 1;
}
