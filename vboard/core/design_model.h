// The design as the virtual board knows it: identity, register parameters and
// events, plus the text header of the design image that carries them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace vboard {

struct RegisterModel {
    std::string name;   // "Device1_" + block + "_" + entry
    std::string block;  // e.g. "Process1_Trigger_TriggerCam0_CameraControl"
    std::string entry;  // e.g. "Select0_Select_Select"
    char kind = 'U';    // 'U' unsigned, 'D' double, 'S' string
    unsigned width = 0;
    unsigned frac = 0;
    unsigned count = 1;
    bool readOnly = false;
    std::vector<std::pair<std::string, int32_t>> enums;  // display name, value

    bool ieee() const { return kind == 'D' && width == 64; }
    // Largest raw element value (unsigned value or fixed-point integer).
    uint64_t maxRaw() const { return width >= 64 ? UINT64_MAX : (uint64_t{1} << width) - 1; }
    // Largest fixed-point value, (2^width - 1) / 2^frac.
    double maxFixed() const;
    double step() const;
    // Fixed point: false when the value is NaN, negative or too large;
    // otherwise the nearest step. IEEE: the bit pattern, always true.
    bool encodeDouble(double value, uint64_t& raw) const;
    double decodeDouble(uint64_t raw) const;
    // Longest string, terminating zero excluded.
    std::size_t maxStringLength() const { return width / 8 - 1; }
};

struct EventModel {
    std::string name;
    bool firmware = false;
};

struct DesignModel {
    int boardType = 0;
    std::string hapId;
    std::string bitstreamId;
    std::string appletUid;
    std::string buildTime;
    std::vector<RegisterModel> registers;  // register n is registers[n - 1]
    std::vector<EventModel> events;        // in index order

    // Register number (1-based) or -1. Valid after indexNames().
    int findRegister(std::string_view name) const;
    void indexNames();

private:
    std::unordered_map<std::string, int> byName_;
};

inline constexpr std::string_view kImageMagic = "PELAGON-HAP 1";

// The text header for `design`, telling that `bitstreamBytes` bytes follow it.
std::string writeImageHeader(const DesignModel& design, uint64_t bitstreamBytes);
// The design of an image, or null when the image is malformed. Reads only the
// header; the bitstream is checked for its size alone.
std::unique_ptr<DesignModel> parseImage(const void* image, std::size_t size);

}  // namespace vboard
