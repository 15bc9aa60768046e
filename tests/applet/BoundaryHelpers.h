// Helpers for the tests of the applet boundary: environment and working
// directory changes that undo themselves, the top level of a published
// registry, and the last error of a host.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "AppletHost.h"

namespace boundary {

// The names the applet numbers for clients (indices 0 .. 134): written here
// once, from what the applet must offer, not taken from its catalogue.
inline constexpr int kNamedParameters = 135;

// Sets an environment variable for the lifetime of the object (before the
// host that should see it is created) and removes it afterwards.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value) : name_(name) { setenv(name, value, 1); }
    ~ScopedEnv() { unsetenv(name_); }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    const char* name_;
};

// Works in a fresh, empty temporary directory and returns to the previous
// working directory (removing the temporary one) at the end.
class ScopedTempDir {
public:
    ScopedTempDir() : previous_(std::filesystem::current_path()) {
        char pattern[] = "/tmp/applet-boundary-XXXXXX";
        const char* made = mkdtemp(pattern);
        if (!made) throw std::runtime_error("cannot create a temporary directory");
        path_ = made;
        std::filesystem::current_path(path_);
    }
    ~ScopedTempDir() {
        std::error_code ignored;
        std::filesystem::current_path(previous_, ignored);
        std::filesystem::remove_all(path_, ignored);
    }
    ScopedTempDir(const ScopedTempDir&) = delete;
    ScopedTempDir& operator=(const ScopedTempDir&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path previous_;
    std::filesystem::path path_;
};

// The names of the top-level records in list order.
inline std::vector<std::string> topLevelNames(const RegisterInfo* head) {
    std::vector<std::string> names;
    for (const RegisterInfo* top = head; top; top = top->next) names.emplace_back(top->name ? top->name : "");
    return names;
}

inline const RegisterInfo* topLevelGroup(const RegisterInfo* head, const std::string& name) {
    for (const RegisterInfo* top = head; top; top = top->next)
        if (top->name && name == top->name) return top;
    return nullptr;
}

inline int lastError(AppletHost& host) { return host.api.Fg_getLastErrorNumber(host.fg); }

// The design the most recent instance handed to the runtime.
inline fpga_design* currentDesign() {
    uint64_t design = 0;
    AppletApi::get().Info(GET_INFO_DESIGN_HANDLE, 0, 0, &design, nullptr);
    return reinterpret_cast<fpga_design*>(static_cast<uintptr_t>(design));
}

}  // namespace boundary
