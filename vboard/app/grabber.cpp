// The application side of the virtual board: an applet library loaded by
// path and run on a fresh virtual board, as a frame grabber runtime would.
#include "vboard/grabber.h"

#include <dlfcn.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <limits>
#include <type_traits>

#include "applet_info.h"
#include "pelagon_errors.h"

namespace vboard {

namespace {

std::string failure(const std::string& what, int code) {
    return what + ": error " + std::to_string(code) + " (" + errorText(code) + ")";
}

[[noreturn]] void fail(const std::string& what, int code) { throw Error(failure(what, code), code); }

template <typename T>
constexpr FgParamTypes typeOf() {
    if constexpr (std::is_same_v<T, int32_t>) return FG_PARAM_TYPE_INT32_T;
    else if constexpr (std::is_same_v<T, uint32_t>) return FG_PARAM_TYPE_UINT32_T;
    else if constexpr (std::is_same_v<T, int64_t>) return FG_PARAM_TYPE_INT64_T;
    else if constexpr (std::is_same_v<T, uint64_t>) return FG_PARAM_TYPE_UINT64_T;
    else return FG_PARAM_TYPE_DOUBLE;
}

void collect(const RegisterInfo* r, const std::string& group, std::vector<ParameterInfo>& out) {
    if (!r) return;
    if (r->format == REG_FORMAT_GROUP) {
        const std::string title = r->name ? r->name : "";
        const std::string inner = group.empty() ? title : title.empty() ? group : group + " / " + title;
        for (int i = 0; i < r->u.gReg.nrOfElements; ++i) collect(r->u.gReg.elements[i], inner, out);
        return;
    }
    ParameterInfo p;
    p.id = r->id;
    p.name = r->parameterName ? r->parameterName : "";
    p.displayName = r->name ? r->name : "";
    p.group = group;
    p.format = r->format;
    p.access = r->accessFlags;
    p.unit = r->unit ? r->unit : "";
    auto limits = [&p](double from, double to, double step) {
        p.minimum = from;
        p.maximum = to;
        p.step = step;
    };
    switch (r->format) {
        case REG_FORMAT_UINT: limits(r->u.uiReg.from, r->u.uiReg.to, r->u.uiReg.steps); break;
        case REG_FORMAT_INT: limits(r->u.iReg.from, r->u.iReg.to, r->u.iReg.steps); break;
        case REG_FORMAT_UINT64:
        case REG_FORMAT_INT64:
            limits(static_cast<double>(r->u.iReg64.from), static_cast<double>(r->u.iReg64.to),
                   static_cast<double>(r->u.iReg64.steps));
            break;
        case REG_FORMAT_DOUBLE: limits(r->u.dReg.from, r->u.dReg.to, r->u.dReg.steps); break;
        case REG_FORMAT_UINTFIELD:
            limits(r->u.uifReg.from, r->u.uifReg.to, 1);
            p.elements = static_cast<unsigned>(std::max(0, r->u.uifReg.nrOfElements));
            break;
        case REG_FORMAT_DOUBLEFIELD:
            limits(r->u.dfReg.from, r->u.dfReg.to, 0);
            p.elements = static_cast<unsigned>(std::max(0, r->u.dfReg.nrOfElements));
            break;
        case REG_FORMAT_FLOAT: limits(r->u.fReg.from, r->u.fReg.to, r->u.fReg.steps); break;
        case REG_FORMAT_ENUM:
            for (int i = 0; i < r->u.eReg.nrOfElements; ++i) {
                ParameterInfo::Entry e;
                e.displayName = r->u.eReg.enumNames && r->u.eReg.enumNames[i] ? r->u.eReg.enumNames[i] : "";
                e.symbol = r->u.eReg.enumDefName && r->u.eReg.enumDefName[i] ? r->u.eReg.enumDefName[i] : "";
                e.value = r->u.eReg.enumValues ? r->u.eReg.enumValues[i] : 0;
                p.entries.push_back(e);
            }
            break;
        default: break;
    }
    out.push_back(std::move(p));
}

// Whole text as a number of type T; nullopt-like false when it is not one.
// A value as an error message quotes it.
template <typename T>
std::string shown(const T& value) {
    if constexpr (std::is_same_v<T, std::string>) {
        return "\"" + value + "\"";
    } else if constexpr (std::is_floating_point_v<T>) {
        char text[64];
        std::snprintf(text, sizeof text, "%.17g", value);
        return text;
    } else {
        return std::to_string(value);
    }
}

template <typename T>
bool parseNumber(const std::string& text, T& value) {
    if (text.empty() || std::isspace(static_cast<unsigned char>(text.front()))) return false;
    errno = 0;
    char* end = nullptr;
    if constexpr (std::is_floating_point_v<T>) {
        value = std::strtod(text.c_str(), &end);
        return errno == 0 && *end == '\0';
    } else if constexpr (std::is_signed_v<T>) {
        const long long v = std::strtoll(text.c_str(), &end, 0);
        if (errno != 0 || *end != '\0' || v < std::numeric_limits<T>::min() || v > std::numeric_limits<T>::max())
            return false;
        value = static_cast<T>(v);
        return true;
    } else {
        if (text.front() == '-') return false;
        const unsigned long long v = std::strtoull(text.c_str(), &end, 0);
        if (errno != 0 || *end != '\0' || v > std::numeric_limits<T>::max()) return false;
        value = static_cast<T>(v);
        return true;
    }
}

}  // namespace

std::string errorText(int code) {
    const char* text = pelagon_error_text(code);
    return text ? text : "unknown error";
}

std::string defaultAppletPath() {
    if (const char* chosen = std::getenv("PELAGON_APPLET"); chosen && *chosen) return chosen;
    // The folder of this library as the loader found it, whichever way it did.
    Dl_info self{};
    if (!dladdr(reinterpret_cast<void*>(&defaultAppletPath), &self) || !self.dli_fname) return "libPelagon.so";
    const std::filesystem::path folder = std::filesystem::path(self.dli_fname).parent_path();
    const std::filesystem::path installed = folder / "pelagon" / "applets" / "libPelagon.so";
    std::error_code ignored;
    return (std::filesystem::exists(installed, ignored) ? installed : folder / "libPelagon.so").string();
}

struct Grabber::Impl {
    std::string path;
    void* library = nullptr;
    AppletExports api;
    ZUdevice* board = nullptr;
    Fg_Struct* fg = nullptr;
    dma_mem* memory = nullptr;
    bool acquiring = false;

    ~Impl() {
        if (fg && fg->Master && acquiring) api.Fg_stopAcquireEx(fg, 0, memory, 0);
        if (fg && fg->Master) api.Fg_FreeGrabber(fg);
        std::free(fg);
        freeMemory(memory);
        destroyBoard(board);
        if (library) dlclose(library);
    }

    // Runs a parameter call and throws its refusal.
    void check(int result, const std::function<std::string()>& what) const {
        if (result < 0) fail(what(), result);
    }
    template <typename T>
    std::vector<T> readField(int id, unsigned index, unsigned count) const {
        std::vector<T> values(count);
        FieldParameterAccess access{};
        access.vtype = typeOf<T>();
        access.index = index;
        access.count = count;
        if constexpr (std::is_same_v<T, double>)
            access.p.p_double = values.data();
        else
            access.p.p_uint32_t = values.data();
        check(api.Fg_getParameterWithType(fg, id, &access, 0, FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS),
              [&] { return "reading elements of " + describe(id); });
        return values;
    }
    std::string describe(int id) const {
        std::vector<ParameterInfo> all;
        for (const RegisterInfo* r = api.Fg_getParameterInfo(fg, 0); r; r = r->next) collect(r, "", all);
        for (const ParameterInfo& p : all)
            if (p.id == id && !p.name.empty()) return p.name;
        return "parameter " + std::to_string(id);
    }
};

Grabber::Grabber(const std::string& appletPath, int flags) : impl_(std::make_unique<Impl>()) {
    Impl& m = *impl_;
    m.path = appletPath;
    m.library = dlopen(appletPath.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!m.library) {
        const char* why = dlerror();
        throw Error("cannot load the applet library " + appletPath + ": " + (why ? why : "unknown reason"));
    }
    if (const char* missing = bindAppletExports(m.library, m.api))
        throw Error(appletPath + " is not an applet library: it does not export " + missing);

    const int boardType = m.api.Info(GET_BOARD_TYPE, 0, 0, nullptr, nullptr);
    if (boardType != kBoardType)
        throw Error(appletPath + " is an applet for board type " + std::to_string(boardType) +
                    ", the virtual board is of type " + std::to_string(kBoardType));

    m.board = createBoard();
    m.fg = static_cast<Fg_Struct*>(std::calloc(1, sizeof(Fg_Struct)));
    if (!m.fg) throw Error("out of memory for the frame grabber handle", PGN_ERR_OUT_OF_MEMORY);
    int error = 0;
    m.fg->Master = m.api.Std_entry(m.board, &error, flags);
    if (!m.fg->Master) fail("the applet " + appletPath + " refused to start on the virtual board", error ? error : -1);
}

Grabber::~Grabber() = default;

int64_t Grabber::info(int code, uint64_t* out1, uint64_t* out2) const {
    const int result = impl_->api.Info(code, 0, 0, out1, out2);
    if (result < 0) fail("information query " + std::to_string(code), result);
    return result;
}

int Grabber::id(const std::string& name) const {
    const int result = impl_->api.Fg_getParameterIdByName(impl_->fg, name.c_str());
    if (result < 0) fail("no parameter named \"" + name + "\"", result);
    return result;
}

std::string Grabber::name(int id) const { return parameter(id).name; }

std::vector<ParameterInfo> Grabber::parameters() const {
    std::vector<ParameterInfo> all;
    for (const RegisterInfo* r = impl_->api.Fg_getParameterInfo(impl_->fg, 0); r; r = r->next) collect(r, "", all);
    return all;
}

ParameterInfo Grabber::parameter(int id) const {
    for (ParameterInfo& p : parameters())
        if (p.id == id) return std::move(p);
    throw Error("no parameter with id " + std::to_string(id), PGN_ERR_INVALID_ARGUMENT);
}

template <typename T>
void Grabber::set(int id, const T& value) {
    const Impl& m = *impl_;
    int result = 0;
    if constexpr (std::is_same_v<T, std::string>)
        result = m.api.Fg_setParameterWithType(m.fg, id, value.c_str(), 0, FG_PARAM_TYPE_CHAR_PTR);
    else
        result = m.api.Fg_setParameterWithType(m.fg, id, &value, 0, typeOf<T>());
    m.check(result, [&] { return "setting " + m.describe(id) + " to " + shown(value); });
}

template <typename T>
T Grabber::get(int id) const {
    const Impl& m = *impl_;
    if constexpr (std::is_same_v<T, std::string>) {
        // The applet does not take a buffer size; strings of this design are short.
        std::vector<char> buffer(64 * 1024, '\0');
        m.check(m.api.Fg_getParameterWithType(m.fg, id, buffer.data(), 0, FG_PARAM_TYPE_CHAR_PTR),
                [&] { return "reading " + m.describe(id); });
        buffer.back() = '\0';
        return std::string(buffer.data());
    } else {
        T value{};
        m.check(m.api.Fg_getParameterWithType(m.fg, id, &value, 0, typeOf<T>()),
                [&] { return "reading " + m.describe(id); });
        return value;
    }
}

template VBOARD_API void Grabber::set<int32_t>(int, const int32_t&);
template VBOARD_API void Grabber::set<uint32_t>(int, const uint32_t&);
template VBOARD_API void Grabber::set<int64_t>(int, const int64_t&);
template VBOARD_API void Grabber::set<uint64_t>(int, const uint64_t&);
template VBOARD_API void Grabber::set<double>(int, const double&);
template VBOARD_API void Grabber::set<std::string>(int, const std::string&);
template VBOARD_API int32_t Grabber::get<int32_t>(int) const;
template VBOARD_API uint32_t Grabber::get<uint32_t>(int) const;
template VBOARD_API int64_t Grabber::get<int64_t>(int) const;
template VBOARD_API uint64_t Grabber::get<uint64_t>(int) const;
template VBOARD_API double Grabber::get<double>(int) const;
template VBOARD_API std::string Grabber::get<std::string>(int) const;

void Grabber::setField(int id, unsigned index, const std::vector<uint32_t>& values) {
    const Impl& m = *impl_;
    std::vector<uint32_t> copy = values;
    FieldParameterAccess access{};
    access.vtype = FG_PARAM_TYPE_UINT32_T;
    access.index = index;
    access.count = static_cast<unsigned>(copy.size());
    access.p.p_uint32_t = copy.data();
    m.check(m.api.Fg_setParameterWithType(m.fg, id, &access, 0, FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS),
            [&] { return "setting elements of " + m.describe(id); });
}

std::vector<uint32_t> Grabber::getField(int id, unsigned index, unsigned count) const {
    return impl_->readField<uint32_t>(id, index, count);
}

std::vector<double> Grabber::getDoubleField(int id, unsigned index, unsigned count) const {
    return impl_->readField<double>(id, index, count);
}

void Grabber::set(const std::string& name, const std::string& text) { setText(id(name), text); }

void Grabber::setText(int id, const std::string& text) {
    const ParameterInfo p = parameter(id);
    auto refuse = [&](const std::string& expected) {
        throw Error("\"" + text + "\" is not a value for " + p.name + " (expected " + expected + ")",
                    PGN_ERR_INVALID_ARGUMENT);
    };
    // The text as a number of the parameter's own type, then set as that type.
    auto setNumber = [&](auto value, const char* expected) {
        if (!parseNumber(text, value)) refuse(expected);
        set(id, value);
    };
    switch (p.format) {
        case REG_FORMAT_ENUM: {
            for (const ParameterInfo::Entry& e : p.entries)
                if (text == e.symbol || text == e.displayName) return set<uint32_t>(id, static_cast<uint32_t>(e.value));
            uint32_t value = 0;
            if (!parseNumber(text, value)) {
                std::string names;
                for (const ParameterInfo::Entry& e : p.entries)
                    names += (names.empty() ? "" : ", ") + (e.symbol.empty() ? e.displayName : e.symbol);
                refuse("one of " + names + ", or a number");
            }
            return set<uint32_t>(id, value);
        }
        case REG_FORMAT_UINT: return setNumber(uint32_t{}, "an unsigned 32-bit integer");
        case REG_FORMAT_INT: return setNumber(int32_t{}, "a 32-bit integer");
        case REG_FORMAT_UINT64: return setNumber(uint64_t{}, "an unsigned 64-bit integer");
        case REG_FORMAT_INT64: return setNumber(int64_t{}, "a 64-bit integer");
        case REG_FORMAT_DOUBLE:
        case REG_FORMAT_FLOAT: return setNumber(double{}, "a number");
        case REG_FORMAT_STRING: return set<std::string>(id, text);
        default:
            throw Error(p.name + " is a field parameter; set its elements with setField", PGN_ERR_INVALID_ARGUMENT);
    }
}

std::string Grabber::getText(int id) const {
    const ParameterInfo p = parameter(id);
    switch (p.format) {
        case REG_FORMAT_ENUM: {
            const uint32_t value = get<uint32_t>(id);
            for (const ParameterInfo::Entry& e : p.entries)
                if (static_cast<uint32_t>(e.value) == value) return e.symbol.empty() ? e.displayName : e.symbol;
            return std::to_string(value);
        }
        case REG_FORMAT_UINT: return std::to_string(get<uint32_t>(id));
        case REG_FORMAT_INT: return std::to_string(get<int32_t>(id));
        case REG_FORMAT_UINT64: return std::to_string(get<uint64_t>(id));
        case REG_FORMAT_INT64: return std::to_string(get<int64_t>(id));
        case REG_FORMAT_DOUBLE:
        case REG_FORMAT_FLOAT: {
            char text[64];
            std::snprintf(text, sizeof text, "%.17g", get<double>(id));
            return text;
        }
        case REG_FORMAT_STRING: return get<std::string>(id);
        default: throw Error(p.name + " is a field parameter; read its elements with getField", PGN_ERR_INVALID_ARGUMENT);
    }
}

void Grabber::saveConfig(const std::string& path) {
    impl_->check(impl_->api.Fg_saveConfig(impl_->fg, path.c_str()), [&] { return "saving the configuration to " + path; });
}

void Grabber::loadConfig(const std::string& path) {
    impl_->check(impl_->api.Fg_loadConfig(impl_->fg, path.c_str()),
                 [&] { return "loading the configuration from " + path; });
}

std::string Grabber::xml(int port) const {
    const Impl& m = *impl_;
    size_t size = 0;
    auto what = [&] { return "describing port " + std::to_string(port) + " as XML"; };
    m.check(m.api.Fg_getParameterInfoXML(m.fg, port, nullptr, &size), what);
    std::vector<char> buffer(size + 1, '\0');
    size = buffer.size();
    m.check(m.api.Fg_getParameterInfoXML(m.fg, port, buffer.data(), &size), what);
    buffer.back() = '\0';
    return std::string(buffer.data());
}

uint64_t Grabber::eventMask(const std::string& name) const {
    return impl_->api.Fg_getEventMask(impl_->fg, name.c_str());
}

std::string Grabber::eventName(uint64_t mask) const {
    const char* name = impl_->api.Fg_getEventName(impl_->fg, mask);
    return name ? name : "";
}

int Grabber::lastError() const { return impl_->api.Fg_getLastErrorNumber(impl_->fg); }

void Grabber::allocateBuffers(unsigned count, std::size_t bytes) {
    Impl& m = *impl_;
    if (m.acquiring) throw Error("frame memory cannot change while acquiring");
    if (bytes == 0) bytes = frameBytes(m.board);
    if (bytes == 0) throw Error("the board delivers empty frames as programmed (no region of interest)");
    dma_mem* fresh = allocateMemory(count, bytes);
    freeMemory(m.memory);
    m.memory = fresh;
}

unsigned Grabber::bufferCount() const { return impl_->memory ? vboard::bufferCount(impl_->memory) : 0; }

std::size_t Grabber::bufferBytes() const { return impl_->memory ? vboard::bufferBytes(impl_->memory) : 0; }

void Grabber::start(int64_t frames) {
    Impl& m = *impl_;
    if (!m.memory) allocateBuffers(4);
    m.check(m.api.Fg_AcquireEx(m.fg, 0, frames > 0 ? frames : -1, 0, m.memory),
            [] { return std::string("starting the acquisition"); });
    m.acquiring = true;
}

void Grabber::stop() {
    Impl& m = *impl_;
    if (!m.acquiring) return;
    m.acquiring = false;
    m.check(m.api.Fg_stopAcquireEx(m.fg, 0, m.memory, 0), [] { return std::string("stopping the acquisition"); });
}

bool Grabber::acquiring() const { return impl_->acquiring; }

int64_t Grabber::lastFrame() const {
    const int64_t n = impl_->api.Fg_getLastPicNumberEx(impl_->fg, 0, impl_->memory);
    if (n < 0) fail("asking for the last frame", static_cast<int>(n));
    return n;
}

int64_t Grabber::lostFrames() const {
    const int64_t n = impl_->api.Fg_getStatusEx(impl_->fg, kStatusFramesLost, 0, 0, impl_->memory);
    if (n < 0) fail("asking for lost frames", static_cast<int>(n));
    return n;
}

int64_t Grabber::waitForFrame(int64_t n, std::chrono::milliseconds timeout) {
    const auto ms = std::clamp<int64_t>(timeout.count(), 0, std::numeric_limits<int>::max());
    const int64_t result =
        impl_->api.Fg_getLastPicNumberBlockingEx(impl_->fg, n, 0, static_cast<int>(ms), impl_->memory);
    if (result < 0)
        fail("waiting " + std::to_string(ms) + " ms for frame " + std::to_string(n), static_cast<int>(result));
    return result;
}

Frame Grabber::frame(int64_t n) const {
    if (!impl_->memory) throw Error("no frame memory: nothing was acquired");
    Frame f;
    f.info = copyFrame(impl_->memory, n, f.bytes);
    return f;
}

ZUdevice* Grabber::board() const { return impl_->board; }
Fg_Struct* Grabber::handle() const { return impl_->fg; }
const AppletExports& Grabber::exports() const { return impl_->api; }
dma_mem* Grabber::memory() const { return impl_->memory; }

}  // namespace vboard
