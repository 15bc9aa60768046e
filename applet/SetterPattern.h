// The common shape of a parameter setter: validate, keep the old cache value
// and store the new one, write the registers and update dependants. An int
// error after caching restores the old value; every int error is rethrown
// only when the caller asked for it (the dispatch does, start-up defaults and
// configuration loading do not). Registers already written stay written.
#pragma once

#include "Fail.h"

namespace pelagon {

template <typename T, typename Validate, typename Apply>
void runSetter(T& cache, const T& value, bool throwOnError, Validate validate, Apply apply) {
    try {
        validate();
        const T old = cache;
        cache = value;
        try {
            apply();
        } catch (int) {
            cache = old;
            throw;
        }
    } catch (int) {
        if (throwOnError) throw;
    }
}

}  // namespace pelagon
