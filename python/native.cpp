// pelagon._native: the grabber as Python sees it. Parameter values cross in
// Python's own types, frames as numpy arrays that own the copied bytes, and
// every failure as one of the exception classes of pelagon._errors. The
// Python package wraps this class with the parts that need no speed.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <limits>
#include <deque>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "applet_info.h"
#include "pelagon_errors.h"
#include "vboard/grabber.h"

namespace py = pybind11;

namespace {

using Clock = std::chrono::steady_clock;

// Waits sleep in slices this long so that a signal (Ctrl-C) is seen soon.
constexpr auto kWaitSlice = std::chrono::milliseconds(50);

// The exception classes, looked up once from pelagon._errors.
struct Errors {
    py::object base, unknownName, refused, timeout, closed, unknownNameFor;
};
Errors& errors() {
    static Errors* e = nullptr;  // leaked on purpose: lives as long as the interpreter
    if (!e) {
        py::module_ m = py::module_::import("pelagon._errors");
        e = new Errors{m.attr("Error"), m.attr("UnknownNameError"), m.attr("RefusedValueError"),
                       m.attr("AcquisitionTimeout"), m.attr("ClosedError"), m.attr("_unknown_name")};
    }
    return *e;
}

[[noreturn]] void raise(const py::object& exception) {
    PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(exception.ptr())), exception.ptr());
    throw py::error_already_set();
}
[[noreturn]] void raise(const py::object& cls, const std::string& message, int code = 0) {
    raise(cls(message, code));
}
[[noreturn]] void raiseType(const std::string& message) { throw py::type_error(message); }

// The class for an error number of the applet or the runtime.
const py::object& classFor(int code) {
    return code == vboard::kErrTimeout ? errors().timeout : errors().base;
}

const char* typeName(REG_FORMAT f) {
    switch (f) {
        case REG_FORMAT_UINT: return "uint";
        case REG_FORMAT_INT: return "int";
        case REG_FORMAT_UINT64: return "uint64";
        case REG_FORMAT_INT64: return "int64";
        case REG_FORMAT_DOUBLE: return "double";
        case REG_FORMAT_FLOAT: return "float";
        case REG_FORMAT_STRING: return "string";
        case REG_FORMAT_ENUM: return "enum";
        case REG_FORMAT_UINTFIELD: return "uint_field";
        case REG_FORMAT_DOUBLEFIELD: return "double_field";
        default: return "other";
    }
}

// Parameter strings are bytes to the applet (file names among them): bytes
// that are not UTF-8 come and go as surrogate escapes, as os.fsdecode does.
py::str decoded(const std::string& s) {
    PyObject* o = PyUnicode_DecodeUTF8(s.data(), static_cast<Py_ssize_t>(s.size()), "surrogateescape");
    if (!o) throw py::error_already_set();
    return py::reinterpret_steal<py::str>(o);
}
std::string encoded(py::handle text) {
    py::object bytes = py::reinterpret_steal<py::object>(PyUnicode_AsEncodedString(text.ptr(), "utf-8", "surrogateescape"));
    if (!bytes) throw py::error_already_set();
    std::string s(PyBytes_AS_STRING(bytes.ptr()), static_cast<std::size_t>(PyBytes_GET_SIZE(bytes.ptr())));
    if (s.find('\0') != std::string::npos) raise(errors().refused, "text with a NUL character cannot be passed on",
                                                 PGN_ERR_INVALID_ARGUMENT);
    return s;
}

// What a parameter is, kept per parameter: its type, size and enumeration do
// not change while the applet runs (its limits do, and are read afresh).
struct Meta {
    int id = 0;
    std::string name;
    REG_FORMAT format = REG_FORMAT_UINT;
    unsigned elements = 0;
    std::vector<vboard::ParameterInfo::Entry> entries;
};

// Samples of one frame as numpy wants them: (height, width, 3), 8-bit for
// 24-bit output, 16-bit words otherwise.
py::array frameArray(std::unique_ptr<vboard::Frame> frame) {
    const vboard::FrameInfo& info = frame->info;
    const auto h = static_cast<py::ssize_t>(info.height), w = static_cast<py::ssize_t>(info.width);
    const std::size_t samples = static_cast<std::size_t>(h) * static_cast<std::size_t>(w) * 3;
    std::vector<uint8_t>& bytes = frame->bytes;
    if (info.format == vboard::OutputFormat::Color30) {
        // A bit stream: component k at bits 10k .. 10k + 9, little-endian.
        py::array_t<uint16_t> out(std::vector<py::ssize_t>{h, w, 3});
        uint16_t* o = out.mutable_data();
        {
            py::gil_scoped_release released;
            const std::size_t n = bytes.size();
            auto byte = [&](std::size_t i) -> uint32_t { return i < n ? bytes[i] : 0; };
            for (std::size_t k = 0; k < samples; ++k) {
                const std::size_t bit = k * 10, first = bit / 8;
                o[k] = static_cast<uint16_t>(((byte(first) | byte(first + 1) << 8) >> (bit % 8)) & 0x3FF);
            }
        }
        return out;
    }
    // 24- and 48-bit output are already laid out as numpy wants them: the
    // array takes over the copied bytes. A buffer smaller than the frame
    // (frame size raised after the buffers were allocated) reads as zeros.
    const bool wide = info.format == vboard::OutputFormat::Color48;
    const std::size_t sampleBytes = wide ? 2 : 1;
    if (bytes.size() < samples * sampleBytes) bytes.resize(samples * sampleBytes, 0);
    void* data = bytes.data();
    auto* owner = frame.release();
    py::capsule keep(owner, [](void* p) { delete static_cast<vboard::Frame*>(p); });
    const auto s = static_cast<py::ssize_t>(sampleBytes);
    const std::vector<py::ssize_t> shape{h, w, 3}, strides{w * 3 * s, 3 * s, s};
    return py::array(wide ? py::dtype::of<uint16_t>() : py::dtype::of<uint8_t>(), shape, strides, data, keep);
}

const char* formatSymbol(vboard::OutputFormat f) {
    switch (f) {
        case vboard::OutputFormat::Color24: return "FG_COL24";
        case vboard::OutputFormat::Color30: return "FG_COL30";
        default: return "FG_COL48";
    }
}

double wallClock() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

class Grabber {
    // The live grabber; a closed one raises ClosedError.
    vboard::Grabber& live() {
        if (!grabber_) raise(errors().closed, "the grabber is closed");
        return *grabber_;
    }
    std::shared_ptr<vboard::Grabber> shared() {
        live();
        return grabber_;
    }

    // Runs a grabber call and turns its failure into the Python exception.
    template <typename F>
    auto call(F&& f) {
        vboard::Grabber& g = live();
        try {
            return f(g);
        } catch (const vboard::Error& e) {
            raise(classFor(e.code()), e.what(), e.code());
        }
    }

public:
    explicit Grabber(const std::optional<std::string>& applet) {
        path_ = applet && !applet->empty() ? *applet
                                           : std::filesystem::path(vboard::defaultAppletPath()).lexically_normal().string();
        try {
            grabber_ = std::make_shared<vboard::Grabber>(path_);
        } catch (const vboard::Error& e) {
            raise(errors().base, e.what(), e.code());
        }
    }

    const std::string& applet() const { return path_; }
    bool closed() const { return !grabber_; }

    void close() {
        if (!grabber_) return;
        auto g = std::move(grabber_);
        grabber_.reset();
        // An acquisition still running is stopped here so that a wait in
        // another thread wakes; the grabber ends with its last user.
        try {
            g->stop();
        } catch (const vboard::Error&) {
        }
        py::gil_scoped_release released;
        g.reset();
    }

    // --- Parameters ---------------------------------------------------------

    int id(const std::string& name) { return meta(py::str(name)).id; }
    std::string name(int id) { return meta(py::int_(id)).name; }

    py::object get(py::handle key) {
        const Meta& m = meta(key);
        vboard::Grabber& g = live();
        try {
            switch (m.format) {
                case REG_FORMAT_UINT: return py::int_(g.get<uint32_t>(m.id));
                case REG_FORMAT_INT: return py::int_(g.get<int32_t>(m.id));
                case REG_FORMAT_UINT64: return py::int_(g.get<uint64_t>(m.id));
                case REG_FORMAT_INT64: return py::int_(g.get<int64_t>(m.id));
                case REG_FORMAT_DOUBLE:
                case REG_FORMAT_FLOAT: return py::float_(g.get<double>(m.id));
                case REG_FORMAT_STRING: return decoded(g.get<std::string>(m.id));
                case REG_FORMAT_ENUM: {
                    const uint32_t v = g.get<uint32_t>(m.id);
                    for (const auto& e : m.entries)
                        if (static_cast<uint32_t>(e.value) == v)
                            return py::str(e.symbol.empty() ? e.displayName : e.symbol);
                    return py::int_(v);
                }
                case REG_FORMAT_UINTFIELD: {
                    std::vector<uint32_t> v = g.getField(m.id, 0, m.elements);
                    py::array_t<uint32_t> out(static_cast<py::ssize_t>(v.size()));
                    std::copy(v.begin(), v.end(), out.mutable_data());
                    return out;
                }
                case REG_FORMAT_DOUBLEFIELD: {
                    std::vector<double> v = g.getDoubleField(m.id, 0, m.elements);
                    py::array_t<double> out(static_cast<py::ssize_t>(v.size()));
                    std::copy(v.begin(), v.end(), out.mutable_data());
                    return out;
                }
                default: raise(errors().base, m.name + " has no value to read", PGN_ERR_INVALID_ARGUMENT);
            }
        } catch (const vboard::Error& e) {
            raise(classFor(e.code()), e.what(), e.code());
        }
    }

    void set(py::handle key, py::handle value) {
        const Meta& m = meta(key);
        vboard::Grabber& g = live();
        if (value.is_none()) raiseType(m.name + " cannot be set to None");
        try {
            if (PyUnicode_Check(value.ptr()) && m.format != REG_FORMAT_STRING) return setText(g, m, value);
            switch (m.format) {
                case REG_FORMAT_UINT:
                case REG_FORMAT_ENUM: return g.set<uint32_t>(m.id, integer<uint32_t>(m, value));
                case REG_FORMAT_INT: return g.set<int32_t>(m.id, integer<int32_t>(m, value));
                case REG_FORMAT_UINT64: return g.set<uint64_t>(m.id, integer<uint64_t>(m, value));
                case REG_FORMAT_INT64: return g.set<int64_t>(m.id, integer<int64_t>(m, value));
                case REG_FORMAT_DOUBLE:
                case REG_FORMAT_FLOAT: return g.set<double>(m.id, real(m, value));
                case REG_FORMAT_STRING: return g.set<std::string>(m.id, encoded(pathText(m, value)));
                case REG_FORMAT_UINTFIELD: return g.setField(m.id, 0, field(m, value));
                default: raiseType(m.name + " cannot be set from Python");
            }
        } catch (const vboard::Error& e) {
            refuse(m, e);
        }
    }

    // Every published parameter as a dict of plain values.
    py::list parameters() {
        vboard::Grabber& g = live();
        py::list out;
        for (const vboard::ParameterInfo& p : g.parameters()) out.append(describe(p));
        return out;
    }
    py::dict parameter(py::handle key) {
        const Meta& m = meta(key);
        try {
            return describe(live().parameter(m.id));
        } catch (const vboard::Error& e) {
            raise(classFor(e.code()), e.what(), e.code());
        }
    }

    py::dict info() {
        vboard::Grabber& g = live();
        auto text = [&g](int code) {
            uint64_t address = 0;
            g.info(code, nullptr, &address);
            const char* t = reinterpret_cast<const char*>(static_cast<uintptr_t>(address));
            return decoded(t ? t : "");
        };
        try {
            uint64_t imageBytes = 0, imageAddress = 0;
            g.info(GET_EMBEDDED_HAP, &imageBytes, &imageAddress);
            py::dict d;
            d["applet"] = text(GET_INFO_FRIENDLY_NAME);
            d["version"] = text(GET_INFO_VERSIONSTRING_DETAIL);
            d["library"] = path_;
            d["description"] = text(GET_INFO_DESCRIPTION);
            d["category"] = text(GET_INFO_CATEGORY);
            d["board_type"] = g.info(GET_BOARD_TYPE);
            d["design"] = text(GET_HAP_ID);
            d["design_bytes"] = imageBytes;
            d["cameras"] = g.info(GET_NR_OF_CAMS);
            d["dma_channels"] = g.info(GET_NR_OF_DMAS);
            d["parameters"] = g.parameters().size();
            return d;
        } catch (const vboard::Error& e) {
            raise(classFor(e.code()), e.what(), e.code());
        }
    }

    std::string xml(int port) { return call([&](vboard::Grabber& g) { return g.xml(port); }); }
    void saveConfig(const std::string& path) {
        call([&](vboard::Grabber& g) { g.saveConfig(path); return 0; });
    }
    void loadConfig(const std::string& path) {
        call([&](vboard::Grabber& g) { g.loadConfig(path); return 0; });
    }

    // --- Acquisition --------------------------------------------------------

    // frames > 0 ends the acquisition after that many, so that none of them
    // is overwritten when each has a buffer of its own.
    void start(unsigned buffers, int64_t frames) {
        vboard::Grabber& g = live();
        if (g.acquiring()) raise(errors().base, "the grabber is acquiring already: stop it first");
        if (buffers == 0) raise(errors().refused, "an acquisition needs at least one buffer", PGN_ERR_INVALID_ARGUMENT);
        call([&](vboard::Grabber& gr) {
            gr.allocateBuffers(buffers);
            gr.start(frames);
            return 0;
        });
    }
    void stop() {
        if (!grabber_) return;
        call([](vboard::Grabber& g) { g.stop(); return 0; });
    }
    bool acquiring() { return live().acquiring(); }
    int64_t lastFrame() { return call([](vboard::Grabber& g) { return g.lastFrame(); }); }
    int64_t lostFrames() { return call([](vboard::Grabber& g) { return g.lostFrames(); }); }
    unsigned bufferCount() { return live().bufferCount(); }

    // Waits for frame n without holding the GIL, in short slices that look
    // for signals, a close from another thread and a stopped acquisition.
    int64_t wait(int64_t n, double timeout) {
        if (!(timeout >= 0)) raise(errors().refused, "the time-out must be a number of seconds, 0 or more");
        std::shared_ptr<vboard::Grabber> g = shared();
        const auto limit = std::chrono::duration<double>(std::min(timeout, 1e9));
        const Clock::time_point deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(limit);
        for (;;) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            const auto slice = std::clamp(left, std::chrono::milliseconds(0), std::chrono::milliseconds(kWaitSlice));
            int code = 0;
            int64_t newest = 0;
            std::string message;
            {
                py::gil_scoped_release released;
                try {
                    newest = g->waitForFrame(n, slice);
                } catch (const vboard::Error& e) {
                    code = e.code();
                    message = e.what();
                }
            }
            if (code == 0) return newest;
            if (code != vboard::kErrTimeout) raise(classFor(code), message, code);
            if (PyErr_CheckSignals() != 0) throw py::error_already_set();
            if (!grabber_) raise(errors().closed, "the grabber was closed while waiting for a frame");
            if (!g->acquiring()) raise(errors().base, "the acquisition stopped while waiting for frame " + std::to_string(n));
            if (Clock::now() >= deadline) {
                std::string what = "no frame ";
                what += std::to_string(n);
                what += " within ";
                what += py::str(py::float_(timeout)).cast<std::string>();
                what += " s";
                raise(errors().timeout, what, vboard::kErrTimeout);
            }
        }
    }

    // The first frame from n on that is still in memory, once it has
    // arrived: (number, samples, format, left aligned, arrival time, frames
    // passed over because their buffers were refilled before they were read).
    py::tuple next(int64_t n, double timeout) {
        if (n < 1) raise(errors().refused, "frames are numbered from 1", PGN_ERR_INVALID_ARGUMENT);
        std::shared_ptr<vboard::Grabber> g = shared();
        const int64_t buffers = std::max<int64_t>(1, g->bufferCount());
        int64_t skipped = 0;
        for (;;) {
            int64_t newest = wait(n, timeout);
            const double arrived = wallClock();
            if (newest - n >= buffers) {
                skipped += newest - buffers + 1 - n;
                n = newest - buffers + 1;
            }
            auto frame = std::make_unique<vboard::Frame>();
            int code = 0;
            std::string message;
            {
                py::gil_scoped_release released;
                try {
                    *frame = g->frame(n);
                } catch (const vboard::Error& e) {
                    code = e.code();
                    message = e.what();
                }
            }
            if (!message.empty()) {
                // Refilled between the wait and the copy: on to the oldest
                // frame still held, one buffer's margin for the one being written.
                newest = g->lastFrame();
                if (code == 0 && newest - n >= buffers - 1) {
                    const int64_t from = std::max(n + 1, newest - buffers + 2);
                    skipped += from - n;
                    n = from;
                    continue;
                }
                raise(classFor(code), message, code);
            }
            const vboard::FrameInfo info = frame->info;
            py::array samples = frameArray(std::move(frame));
            return py::make_tuple(info.number, samples, formatSymbol(info.format), info.leftAligned, arrived, skipped);
        }
    }

private:
    // Names and ids are looked up once; the dict keeps them by the very
    // object Python passes (its hash cached), which makes a repeated
    // get/set by name a dict lookup.
    const Meta& meta(py::handle key) {
        if (PyObject* hit = PyDict_GetItemWithError(index_.ptr(), key.ptr()))
            return metas_[PyLong_AsSize_t(hit)];
        if (PyErr_Occurred()) throw py::error_already_set();  // an unhashable key
        vboard::Grabber& g = live();
        int id = 0;
        if (PyUnicode_Check(key.ptr())) {
            const std::string name = key.cast<std::string>();
            try {
                id = g.id(name);
            } catch (const vboard::Error& e) {
                unknown(name, e.code());
            }
        } else if (PyLong_Check(key.ptr()) && !PyBool_Check(key.ptr())) {
            int overflow = 0;
            const long long v = PyLong_AsLongLongAndOverflow(key.ptr(), &overflow);
            if (overflow || v < std::numeric_limits<int>::min() || v > std::numeric_limits<int>::max())
                unknown(py::str(key).cast<std::string>(), PGN_ERR_INVALID_ARGUMENT);
            id = static_cast<int>(v);
        } else {
            raiseType(std::string("a parameter is named by its name (str) or id (int), not by ") +
                      Py_TYPE(key.ptr())->tp_name);
        }
        std::size_t slot = 0;
        for (; slot < metas_.size(); ++slot)
            if (metas_[slot].id == id) break;
        if (slot == metas_.size()) {
            vboard::ParameterInfo p;
            try {
                p = g.parameter(id);
            } catch (const vboard::Error& e) {
                unknown(py::str(key).cast<std::string>(), e.code());
            }
            metas_.push_back(Meta{p.id, p.name, p.format, p.elements, p.entries});
        }
        index_[key] = py::int_(slot);
        return metas_[slot];
    }

    [[noreturn]] void unknown(const std::string& name, int code) {
        std::vector<std::string> names;
        for (const vboard::ParameterInfo& p : live().parameters()) names.push_back(p.name);
        raise(errors().unknownNameFor(name, names, code));
    }

    // A Python integer as T; one that does not fit is refused here, before
    // the applet sees a truncated number.
    template <typename T>
    T integer(const Meta& m, py::handle value) {
        if (PyFloat_Check(value.ptr()) || !PyIndex_Check(value.ptr()))
            raiseType(m.name + " takes an integer, not " + Py_TYPE(value.ptr())->tp_name);
        py::object number = py::reinterpret_steal<py::object>(PyNumber_Index(value.ptr()));
        if (!number) throw py::error_already_set();
        int overflow = 0;
        const long long v = PyLong_AsLongLongAndOverflow(number.ptr(), &overflow);
        if (v == -1 && PyErr_Occurred()) throw py::error_already_set();
        bool fits = overflow == 0 && v >= static_cast<long long>(std::numeric_limits<T>::min()) &&
                    (std::is_signed_v<T> || v >= 0) &&
                    static_cast<unsigned long long>(std::max(v, 0LL)) <= std::numeric_limits<T>::max();
        if constexpr (std::is_same_v<T, uint64_t>) {
            if (overflow > 0) {
                const unsigned long long u = PyLong_AsUnsignedLongLong(number.ptr());
                if (!PyErr_Occurred()) return static_cast<T>(u);
                PyErr_Clear();
            }
        }
        if (!fits) {
            std::string what = py::str(number).cast<std::string>();
            what += " does not fit ";
            what += m.name;
            what += " (a ";
            what += typeName(m.format);
            what += " parameter)";
            raise(errors().refused, what, PGN_ERR_OUT_OF_RANGE);
        }
        return static_cast<T>(v);
    }

    double real(const Meta& m, py::handle value) {
        if (!PyFloat_Check(value.ptr()) && !PyIndex_Check(value.ptr()) &&
            !PyObject_HasAttrString(value.ptr(), "__float__"))
            raiseType(m.name + " takes a number, not " + Py_TYPE(value.ptr())->tp_name);
        const double v = PyFloat_AsDouble(value.ptr());
        if (v == -1.0 && PyErr_Occurred()) throw py::error_already_set();
        if (!std::isfinite(v)) raise(errors().refused, m.name + " takes a finite number", PGN_ERR_OUT_OF_RANGE);
        return v;
    }

    // Strings, and for file names anything os.fspath accepts.
    static py::object pathText(const Meta& m, py::handle value) {
        if (PyUnicode_Check(value.ptr())) return py::reinterpret_borrow<py::object>(value);
        if (PyObject_HasAttrString(value.ptr(), "__fspath__")) {
            py::object p = py::module_::import("os").attr("fspath")(value);
            if (PyUnicode_Check(p.ptr())) return p;
        }
        raiseType(m.name + " takes a string, not " + Py_TYPE(value.ptr())->tp_name);
    }

    // A whole field: one value per element, unsigned integers only.
    std::vector<uint32_t> field(const Meta& m, py::handle value) {
        py::array a = py::array::ensure(value);
        if (!a) {
            PyErr_Clear();
            raiseType(m.name + " takes an array of " + std::to_string(m.elements) + " unsigned integers");
        }
        const char kind = a.dtype().kind();
        if (kind != 'u' && kind != 'i')
            raiseType(m.name + " takes unsigned integers (numpy uint32), not " +
                      py::str(a.dtype()).cast<std::string>());
        if (a.ndim() != 1 || a.shape(0) != static_cast<py::ssize_t>(m.elements)) {
            std::string shape = py::str(a.attr("shape")).cast<std::string>();
            raise(errors().refused,
                  m.name + " takes " + std::to_string(m.elements) + " values in one dimension, not shape " + shape,
                  PGN_ERR_INVALID_ARGUMENT);
        }
        // Widened first, so that no value is cut before the range test.
        auto wide = py::array_t<int64_t, py::array::c_style | py::array::forcecast>::ensure(a);
        if (kind == 'u' && a.dtype().itemsize() == 8) {
            auto u = py::array_t<uint64_t, py::array::c_style>::ensure(a);
            for (py::ssize_t i = 0; i < u.shape(0); ++i)
                if (u.at(i) > std::numeric_limits<uint32_t>::max()) outOfField(m, i);
        }
        std::vector<uint32_t> out(m.elements);
        for (py::ssize_t i = 0; i < wide.shape(0); ++i) {
            const int64_t v = wide.at(i);
            if (v < 0 || v > std::numeric_limits<uint32_t>::max()) outOfField(m, i);
            out[static_cast<std::size_t>(i)] = static_cast<uint32_t>(v);
        }
        return out;
    }
    [[noreturn]] void outOfField(const Meta& m, py::ssize_t i) {
        raise(errors().refused, m.name + "[" + std::to_string(i) + "] is not a 32-bit unsigned value",
              PGN_ERR_OUT_OF_RANGE);
    }

    void setText(vboard::Grabber& g, const Meta& m, py::handle value) {
        if (m.format == REG_FORMAT_UINTFIELD || m.format == REG_FORMAT_DOUBLEFIELD)
            raiseType(m.name + " takes an array, not a string");
        g.setText(m.id, encoded(value));
    }

    // An applet's refusal of a write, with what the parameter accepts now.
    [[noreturn]] void refuse(const Meta& m, const vboard::Error& e) {
        std::string message = e.what();
        if (e.code() == PGN_ERR_OUT_OF_RANGE || e.code() == PGN_ERR_STEP || e.code() == PGN_ERR_INVALID_ARGUMENT) {
            try {
                message += "; ";
                message += accepted(live().parameter(m.id));
            } catch (const vboard::Error&) {
            }
        }
        raise(e.code() == vboard::kErrTimeout ? errors().timeout : errors().refused, message, e.code());
    }

    static std::string number(double v) {
        return py::str(py::float_(v).attr("__format__")("g")).cast<std::string>();
    }
    static std::string accepted(const vboard::ParameterInfo& p) {
        std::string out;
        if (p.format == REG_FORMAT_ENUM) {
            for (const auto& e : p.entries) {
                out += out.empty() ? "accepted: " : ", ";
                out += e.symbol.empty() ? e.displayName : e.symbol;
            }
            return out;
        }
        if (p.format == REG_FORMAT_STRING) return "a string";
        if (!p.writable()) return "read-only at present";
        out = "accepted now: ";
        out += number(p.minimum);
        out += " to ";
        out += number(p.maximum);
        if (p.step > 1 || (p.step > 0 && p.format != REG_FORMAT_UINT && p.format != REG_FORMAT_INT)) {
            out += " in steps of ";
            out += number(p.step);
        }
        return out;
    }

    py::dict describe(const vboard::ParameterInfo& p) {
        py::dict d;
        d["id"] = p.id;
        d["name"] = decoded(p.name);
        d["display_name"] = decoded(p.displayName);
        d["group"] = decoded(p.group);
        d["type"] = typeName(p.format);
        d["access"] = p.access;
        d["unit"] = decoded(p.unit);
        const bool integral = p.format == REG_FORMAT_UINT || p.format == REG_FORMAT_INT ||
                              p.format == REG_FORMAT_UINT64 || p.format == REG_FORMAT_INT64 ||
                              p.format == REG_FORMAT_UINTFIELD;
        const bool limited = integral || p.format == REG_FORMAT_DOUBLE || p.format == REG_FORMAT_FLOAT ||
                             p.format == REG_FORMAT_DOUBLEFIELD;
        auto limit = [&](double v) -> py::object {
            if (!limited) return py::none();
            if (integral) return py::int_(static_cast<long long>(v));
            return py::float_(v);
        };
        d["minimum"] = limit(p.minimum);
        d["maximum"] = limit(p.maximum);
        d["step"] = limit(p.step);
        d["elements"] = p.elements;
        py::list entries;
        for (const auto& e : p.entries) entries.append(py::make_tuple(decoded(e.symbol), decoded(e.displayName), e.value));
        d["entries"] = entries;
        py::object value = py::none();
        if (p.access & REG_ACCESS_READ) {
            try {
                value = get(py::int_(p.id));
            } catch (py::error_already_set&) {
                // A value the applet will not give now (a read-out that
                // fails) leaves the description without one.
            }
        }
        d["value"] = value;
        return d;
    }

    std::string path_;
    std::shared_ptr<vboard::Grabber> grabber_;
    py::dict index_;          // name or id -> slot in metas_
    std::deque<Meta> metas_;  // a deque: references to its elements stay valid as it grows
};

}  // namespace

PYBIND11_MODULE(_native, m) {
    m.doc() = "The compiled part of pelagon: the grabber, its parameters and frames. Use the pelagon package.";

    py::register_exception_translator([](std::exception_ptr p) {
        try {
            if (p) std::rethrow_exception(p);
        } catch (const vboard::Error& e) {
            py::object exc = classFor(e.code())(e.what(), e.code());
            PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(exc.ptr())), exc.ptr());
        }
    });

    m.def("error_text", &vboard::errorText, py::arg("code"),
          "The meaning of an error number of the applet or the runtime, in words.");
    m.def("default_applet", &vboard::defaultAppletPath,
          "The applet library a Grabber opens when none is named: $PELAGON_APPLET, else the one beside the package.");

    py::class_<Grabber>(m, "Grabber", "An applet instance on a virtual board; see pelagon.Grabber.")
        .def(py::init<const std::optional<std::string>&>(), py::arg("applet") = py::none())
        .def_property_readonly("applet", &Grabber::applet, "The applet library this grabber runs.")
        .def_property_readonly("closed", &Grabber::closed, "True once close() was called.")
        .def("close", &Grabber::close, "Stops any acquisition and ends the applet instance.")
        .def("id", &Grabber::id, py::arg("name"), "The id of a parameter named so.")
        .def("name", &Grabber::name, py::arg("id"), "The name of the parameter with this id.")
        .def("get", &Grabber::get, py::arg("key"), "The value of a parameter, by name or id.")
        .def("set", &Grabber::set, py::arg("key"), py::arg("value"), "Sets a parameter, by name or id.")
        .def("__getitem__", &Grabber::get, py::arg("key"))
        .def("__setitem__", &Grabber::set, py::arg("key"), py::arg("value"))
        .def("_parameters", &Grabber::parameters)
        .def("_parameter", &Grabber::parameter, py::arg("key"))
        .def("info", &Grabber::info, "The applet's identity: name, version, design, channels.")
        .def("xml", &Grabber::xml, py::arg("port") = 0, "The GenICam description of a port's parameters.")
        .def("_save_config", &Grabber::saveConfig, py::arg("path"))
        .def("_load_config", &Grabber::loadConfig, py::arg("path"))
        .def("_start", &Grabber::start, py::arg("buffers"), py::arg("frames") = 0)
        .def("stop", &Grabber::stop, "Stops the acquisition; nothing happens when none runs.")
        .def_property_readonly("acquiring", &Grabber::acquiring, "True while an acquisition runs.")
        .def_property_readonly("last_frame", &Grabber::lastFrame, "Frames delivered since the start.")
        .def_property_readonly("lost_frames", &Grabber::lostFrames,
                               "Frames the board produced but could not deliver since the start.")
        .def_property_readonly("buffer_count", &Grabber::bufferCount, "Frame buffers of the acquisition.")
        .def("wait_for_frame", &Grabber::wait, py::arg("n"), py::arg("timeout") = 5.0,
             "Waits until frame n has arrived; returns the newest frame number.")
        .def("_next", &Grabber::next, py::arg("n"), py::arg("timeout"));
}
