// The XML description after any sequence of sets: the description is asked
// for its size, then built into a buffer of exactly that size, and must be a
// well-formed document that fills it up to its terminator.
#include <libxml/parser.h>

#include "FuzzCalls.h"

namespace {

constexpr int kSetsPerInput = 8;

// Mostly port 0, which has the parameters; sometimes any port.
int port(FuzzedDataProvider& in) {
    switch (in.ConsumeIntegralInRange(0, 7)) {
        case 0:
            return in.ConsumeIntegral<int>();
        case 1:
            return 1;
        default:
            return 0;
    }
}

void checkDescription(FuzzApplet& applet, int p) {
    size_t size = 0;
    if (applet.Fg_getParameterInfoXML(applet.fg, p, nullptr, &size) != 0) return;
    if (size == 0) __builtin_trap();
    std::unique_ptr<char[]> text(new char[size]);
    size_t filled = size;
    if (applet.Fg_getParameterInfoXML(applet.fg, p, text.get(), &filled) != 0) __builtin_trap();
    const size_t length = strnlen(text.get(), size);
    if (length + 1 != size) __builtin_trap();
    xmlDocPtr doc = xmlReadMemory(text.get(), static_cast<int>(length), "description.xml", nullptr,
                                  XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
    if (!doc) __builtin_trap();
    xmlFreeDoc(doc);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzApplet& applet = FuzzApplet::get();
    FuzzedDataProvider in(data, size);
    const int p = port(in);
    for (int i = 0; i < kSetsPerInput && in.remaining_bytes() > 0; ++i) fuzzCall(applet, in, true);
    checkDescription(applet, p);
    applet.forgetWrites();
    return 0;
}
