// A test host that does what the frame grabber runtime does with the applet:
// loads libPelagon.so, creates an instance for a virtual board through
// Std_entry, keeps it in the Master member of a handle record, and calls the
// applet's exports with that handle.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "applet_info.h"
#include "fg_api.h"
#include "vboard/vboard.h"

// The applet's exports, looked up in the loaded library (the process may also
// have the runtime's functions of the same names).
struct AppletApi {
#define PELAGON_APPLET_EXPORTS(X)                                                                           \
    X(Std_entry) X(Fg_FreeGrabber) X(Info) X(Fg_setParameterWithType) X(Fg_getParameterWithType)            \
    X(Fg_setParameter) X(Fg_getParameter) X(Fg_getNrOfParameter) X(Fg_getParameterName) X(Fg_getParameterId) \
    X(Fg_getParameterIdByName) X(Fg_saveConfig) X(Fg_loadConfig) X(Fg_getParameterInfoXML)                 \
    X(Fg_getEventMask) X(Fg_getEventName) X(Fg_getLastErrorNumber) X(Fg_getParameterInfo)                  \
    X(Fg_AllocShading) X(Fg_FreeShading) X(Shad_SetSubValueLine) X(Shad_SetMultValueLine)                  \
    X(Shad_SetFixedPatternNoiseLine) X(Shad_GetMaxLine) X(Shad_GetAccess) X(Shad_FreeAccess)                 \
    X(Shad_WriteActLine) X(Fg_getAppletId) X(Fg_getStatusEx) X(Fg_AcquireEx) X(Fg_stopAcquireEx)             \
    X(Fg_getLastPicNumberEx) X(Fg_getLastPicNumberBlockingEx)
#define PELAGON_DECLARE_EXPORT(name) decltype(&::name) name = nullptr;
    PELAGON_APPLET_EXPORTS(PELAGON_DECLARE_EXPORT)
#undef PELAGON_DECLARE_EXPORT

    void* library = nullptr;

    // The library of this build, loaded once per process.
    static const AppletApi& get() {
        static const AppletApi api = [] {
            AppletApi a;
            a.library = dlopen(PELAGON_APPLET_PATH, RTLD_NOW | RTLD_LOCAL);
            if (!a.library) throw std::runtime_error(std::string("cannot load the applet: ") + dlerror());
#define PELAGON_LOOKUP_EXPORT(name) \
    a.name = reinterpret_cast<decltype(&::name)>(dlsym(a.library, #name));
            PELAGON_APPLET_EXPORTS(PELAGON_LOOKUP_EXPORT)
#undef PELAGON_LOOKUP_EXPORT
            return a;
        }();
        return api;
    }
};

// (register name without `prefix`, value) of each write the board
// journalled since the last call, in write order; the journal is cleared.
using Writes = std::vector<std::pair<std::string, uint64_t>>;
inline Writes takeWrites(ZUdevice* board, const std::string& prefix = "") {
    Writes out;
    for (const vboard::JournalEntry& e : vboard::journal(board))
        out.emplace_back(e.name.starts_with(prefix) ? e.name.substr(prefix.size()) : e.name, e.u);
    vboard::clearJournal(board);
    return out;
}

// Every leaf record of a port, depth first, following the top-level list from its head.
inline std::vector<const RegisterInfo*> leaves(const RegisterInfo* head) {
    std::vector<const RegisterInfo*> found;
    std::function<void(const RegisterInfo*)> visit = [&](const RegisterInfo* r) {
        if (r && r->format != REG_FORMAT_GROUP) found.push_back(r);
        for (int i = 0; r && r->format == REG_FORMAT_GROUP && i < r->u.gReg.nrOfElements; ++i)
            visit(r->u.gReg.elements[i]);
    };
    for (const RegisterInfo* top = head; top; top = top->next) visit(top);
    return found;
}

// One board with one applet instance on it, ended with Fg_FreeGrabber.
class AppletHost {
public:
    // `withError` false passes no error location.
    explicit AppletHost(int flags = 0, bool withError = true) : api(AppletApi::get()), board(vboard::createBoard()) {
        fg = static_cast<Fg_Struct*>(std::calloc(1, sizeof(Fg_Struct)));
        fg->Master = api.Std_entry(board, withError ? &error : nullptr, flags);
    }
    ~AppletHost() {
        if (fg->Master) api.Fg_FreeGrabber(fg);
        std::free(fg);
        vboard::destroyBoard(board);
    }
    AppletHost(const AppletHost&) = delete;
    AppletHost& operator=(const AppletHost&) = delete;

    bool ok() const { return fg->Master != nullptr; }

    int setU32(int id, uint32_t value) { return api.Fg_setParameterWithType(fg, id, &value, 0, FG_PARAM_TYPE_UINT32_T); }
    int setDouble(int id, double value) { return api.Fg_setParameterWithType(fg, id, &value, 0, FG_PARAM_TYPE_DOUBLE); }
    int getU32(int id, uint32_t& value) { return api.Fg_getParameterWithType(fg, id, &value, 0, FG_PARAM_TYPE_UINT32_T); }
    int getDouble(int id, double& value) { return api.Fg_getParameterWithType(fg, id, &value, 0, FG_PARAM_TYPE_DOUBLE); }
    uint32_t u32(int id) {
        uint32_t v = 0;
        EXPECT_EQ(getU32(id, v), 0) << "reading id " << id;
        return v;
    }
    double dbl(int id) {
        double v = 0;
        EXPECT_EQ(getDouble(id, v), 0) << "reading id " << id;
        return v;
    }
    // The published record of a parameter on port 0, found by walking the registry.
    const RegisterInfo* record(int id) const {
        for (const RegisterInfo* r : leaves(api.Fg_getParameterInfo(fg, 0)))
            if (r->id == id) return r;
        return nullptr;
    }

    const AppletApi& api;
    ZUdevice* board;
    Fg_Struct* fg = nullptr;
    int error = 1;
};

// A test with one instance on its board, which must exist for the test to run.
class AppletTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(host.ok()); }
    AppletHost host;
};
