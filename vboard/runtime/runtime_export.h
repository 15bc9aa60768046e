// The runtime libraries are built with hidden visibility; only the C
// functions of their interface are exported, each marked with this.
#pragma once

#define VBOARD_EXPORT extern "C" __attribute__((visibility("default")))
