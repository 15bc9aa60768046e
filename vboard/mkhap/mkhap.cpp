// pelagon-mkhap: writes the design image that the applet carries. The image
// is the design's text header followed by a deterministic byte stream that
// stands for the bitstream, padded to the size of the real image.
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

#include "design_model.h"
#include "vboard/vboard.h"

namespace {

constexpr uint64_t kImageSize = 7902148;

vboard::RegisterModel makeRegister(const char* block, const char* entry, char kind, unsigned width, unsigned frac,
                                   unsigned count, const std::string& access) {
    vboard::RegisterModel r;
    r.block = block;
    r.entry = entry;
    r.name = "Device1_" + r.block + "_" + r.entry;
    r.kind = kind;
    r.width = width;
    r.frac = frac;
    r.count = count;
    r.readOnly = access == "RO";
    return r;
}

void addEnum(vboard::DesignModel& d, const std::string& name, const char* display, int32_t value) {
    for (vboard::RegisterModel& r : d.registers)
        if (r.name == name) {
            r.enums.emplace_back(display, value);
            return;
        }
    throw std::runtime_error("named value for unknown register " + name);
}

vboard::DesignModel describedDesign() {
    vboard::DesignModel d;
    d.boardType = vboard::kBoardType;
#define PELAGON_DESIGN_IDENTITY(hap, bitstream, uid, time) \
    d.hapId = hap;                                          \
    d.bitstreamId = bitstream;                              \
    d.appletUid = uid;                                      \
    d.buildTime = time;
#define PELAGON_REGISTER(block, entry, kind, width, frac, count, access) \
    d.registers.push_back(makeRegister(#block, #entry, #kind[0], width, frac, count, #access));
#define PELAGON_REGISTER_ENUM(block, entry, displayName, value) \
    addEnum(d, "Device1_" #block "_" #entry, displayName, value);
#define PELAGON_EVENT(name, firmware) d.events.push_back(vboard::EventModel{name, (firmware) == 1});
#include "pelagon_design.def"
    return d;
}

std::string buildImage(const vboard::DesignModel& design) {
    // The header states the bitstream size, whose digits change the header
    // length; a few rounds settle it.
    uint64_t bitstream = kImageSize;
    std::string header;
    for (int round = 0; round < 4; ++round) {
        header = vboard::writeImageHeader(design, bitstream);
        if (header.size() >= kImageSize)
            throw std::runtime_error("the design header does not fit the image");
        bitstream = kImageSize - header.size();
    }
    header = vboard::writeImageHeader(design, bitstream);
    if (header.size() + bitstream != kImageSize)
        throw std::runtime_error("the image size did not settle");

    std::string image = header;
    image.reserve(kImageSize);
    uint32_t state = 0x50454c41;  // linear congruential stream, same bytes on every build
    while (image.size() < kImageSize) {
        state = state * 1664525u + 1013904223u;
        image.push_back(static_cast<char>(state >> 24));
    }
    return image;
}

// The image must read back as the design it was made from.
void verify(const std::string& image, const vboard::DesignModel& design) {
    std::unique_ptr<vboard::DesignModel> parsed = vboard::parseImage(image.data(), image.size());
    if (!parsed || parsed->registers.size() != design.registers.size() || parsed->events.size() != design.events.size())
        throw std::runtime_error("the generated image does not parse back");
    for (std::size_t i = 0; i < design.registers.size(); ++i)
        if (parsed->registers[i].name != design.registers[i].name ||
            parsed->registers[i].enums != design.registers[i].enums)
            throw std::runtime_error("register " + design.registers[i].name + " does not parse back");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: pelagon-mkhap <output.hap>\n";
        return 2;
    }
    try {
        vboard::DesignModel design = describedDesign();
        std::string image = buildImage(design);
        verify(image, design);
        // Written aside and renamed, so a failed run never leaves a half image.
        std::string partial = std::string(argv[1]) + ".partial";
        {
            std::ofstream out(partial, std::ios::binary | std::ios::trunc);
            out.write(image.data(), static_cast<std::streamsize>(image.size()));
            if (!out.flush())
                throw std::runtime_error("cannot write " + partial);
        }
        if (std::rename(partial.c_str(), argv[1]) != 0)
            throw std::runtime_error(std::string("cannot rename to ") + argv[1]);
    } catch (const std::exception& e) {
        std::cerr << "pelagon-mkhap: " << e.what() << "\n";
        return 1;
    }
    return 0;
}
