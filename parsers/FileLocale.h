// The locale call made before a configuration or LUT file is read or
// written. Runtimes have always asked for the "English" locale there so that
// numbers carry a decimal point; glibc knows no locale of that name, so on
// Linux the call changes nothing, and the parsers convert numbers in the "C"
// conventions themselves whatever the process locale is.
#pragma once

#include <clocale>

namespace pelagon {

inline void useFileLocale() { std::setlocale(LC_ALL, "English"); }

}  // namespace pelagon
