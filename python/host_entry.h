// Host-facing functions must not let a C++ exception reach the host.
#pragma once

#include <tesk/tesk.h>

namespace tesk::cpython {

// Runs the body of a function that the host calls. Errors are values on the
// host side, so a stray C++ exception becomes the result's Error.
template <class F> Any host_entry(F&& body) noexcept {
    try {
        return body();
    } catch (...) {
        try {
            return Error::fromCurrentException();
        } catch (...) {
            // Not even an Error could be made (out of memory): nothing to report with.
            return Any();
        }
    }
}

} // namespace tesk::cpython
