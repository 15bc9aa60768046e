// Read-only data linked into the applet library: the design image handed to
// the design runtime at start, and the icon the runtime may show.
#pragma once

#include <cstddef>

extern "C" {
extern const unsigned char pelagon_design_image[];
extern const unsigned char pelagon_design_image_end[];
extern const unsigned char pelagon_icon_png[];
extern const unsigned char pelagon_icon_png_end[];
}

inline size_t pelagonDesignImageSize() { return static_cast<size_t>(pelagon_design_image_end - pelagon_design_image); }
inline size_t pelagonIconSize() { return static_cast<size_t>(pelagon_icon_png_end - pelagon_icon_png); }
