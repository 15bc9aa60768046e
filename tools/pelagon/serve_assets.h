// The page of `pelagon serve` (the files of web/), built into the tool so
// that nothing has to be found on disk at run time.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace pelagon_tool {

struct WebAsset {
    const char* path;          // as requested: "/index.html", "/app.js"
    const char* contentType;
    const unsigned char* data;
    std::size_t size;
};

const std::vector<WebAsset>& webAssets();

}  // namespace pelagon_tool
