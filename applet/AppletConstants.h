// Facts of the Pelagon applet that several parts of the library rely on.
#pragma once

namespace pelagon {

// The design file, by this name, whether embedded or loaded from disk.
inline constexpr const char* kDesignFileName = "Pelagon.hap";
// The board the design is built for.
inline constexpr int kBoardType = 2647;
// Ids above this are direct register access: register number + base.
inline constexpr int kDirectRegisterIdBase = 1000000;
// Ids above this are the runtime's own parameters: runtime id + base.
inline constexpr int kRuntimeIdBase = 2000000;

}  // namespace pelagon
