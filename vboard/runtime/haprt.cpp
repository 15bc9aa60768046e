// The design runtime: loads design images and answers questions about the
// loaded designs. Every design pointer is checked against the loaded ones, so
// a stale or foreign pointer gets an error instead of a crash.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "board_state.h"
#include "pelagon_errors.h"
#include "runtime_export.h"

using vboard::detail::State;
using vboard::detail::state;

namespace {

// Larger files are not design images; reading them would only eat memory.
constexpr off_t kMaxImageFile = off_t{1} << 30;

bool readFile(const char* fileName, std::string& content) {
    int fd = ::open(fileName, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat st {};
    bool ok = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size <= kMaxImageFile;
    if (ok) {
        content.resize(static_cast<std::size_t>(st.st_size));
        std::size_t done = 0;
        while (ok && done < content.size()) {
            ssize_t n = ::read(fd, content.data() + done, content.size() - done);
            if (n > 0)
                done += static_cast<std::size_t>(n);
            else
                ok = n < 0 && errno == EINTR;
        }
        content.resize(done);
    }
    ::close(fd);
    return ok;
}

// The model of a loaded design, or null. Caller holds the lock.
const vboard::DesignModel* model(State& s, fpga_design* design) {
    return s.design(design) ? design->model.get() : nullptr;
}

// Register `reg` (1-based) of a loaded design, or null.
const vboard::RegisterModel* registerAt(State& s, fpga_design* design, int reg) {
    const vboard::DesignModel* m = model(s, design);
    if (!m || reg < 1 || static_cast<std::size_t>(reg) > m->registers.size())
        return nullptr;
    return &m->registers[static_cast<std::size_t>(reg - 1)];
}

}  // namespace

VBOARD_EXPORT fpga_design* HapLoadDesignFromBuffer(const void* image, size_t imageSize, int /*flags*/) {
    return vboard::detail::loadDesign(image, imageSize);
}

VBOARD_EXPORT fpga_design* HapLoadHapFileWithType(const char* fileName, int boardType, int /*flags*/) try {
    std::string content;
    if (!fileName || !readFile(fileName, content))
        return nullptr;
    return vboard::detail::loadDesign(content.data(), content.size(), boardType);
} catch (const std::exception&) {
    return nullptr;
}

VBOARD_EXPORT int HapUnloadHapFile(fpga_design* design) {
    State& s = state();
    std::lock_guard lock(s.mutex);
    return s.designs.erase(design) ? PGN_OK : PGN_ERR_INVALID_ARGUMENT;
}

VBOARD_EXPORT int HapGetNrOfRegister(fpga_design* design) {
    State& s = state();
    std::lock_guard lock(s.mutex);
    const vboard::DesignModel* m = model(s, design);
    return m ? static_cast<int>(m->registers.size()) : PGN_ERR_INVALID_ARGUMENT;
}

VBOARD_EXPORT const char* HapGetRegisterName(fpga_design* design, int reg) {
    State& s = state();
    std::lock_guard lock(s.mutex);
    const vboard::RegisterModel* r = registerAt(s, design, reg);
    return r ? r->name.c_str() : nullptr;
}

VBOARD_EXPORT int HapGetRegisterByName(fpga_design* design, const char* name) {
    State& s = state();
    std::lock_guard lock(s.mutex);
    const vboard::DesignModel* m = model(s, design);
    if (!m)
        return PGN_ERR_INVALID_ARGUMENT;
    return name ? m->findRegister(name) : -1;
}

VBOARD_EXPORT int HapGetRegisterBitRange(fpga_design* design, int reg) {
    State& s = state();
    std::lock_guard lock(s.mutex);
    const vboard::RegisterModel* r = registerAt(s, design, reg);
    return r ? static_cast<int>(r->width) : 0;
}

VBOARD_EXPORT const hap_event_data* HapGetEvent(fpga_design* design, int index) {
    State& s = state();
    std::lock_guard lock(s.mutex);
    if (!s.design(design) || index < 0 || static_cast<std::size_t>(index) >= design->events.size())
        return nullptr;
    return &design->events[static_cast<std::size_t>(index)];
}
