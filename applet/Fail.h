// The one way the applet reports a failure: its error number (pelagon_errors.h)
// thrown as a plain int, the type every catch in the dispatch and the exports
// expects. Taking an int means an enumerator can never be thrown as its own
// type and slip past them to a C caller.
#pragma once

namespace pelagon {

[[noreturn]] inline void fail(int code) {
    throw code;
}

}  // namespace pelagon
