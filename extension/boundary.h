// Crossing the boundary between the host and Python without letting a C++
// exception escape into either side.
#pragma once

#include <Python.h>

#include <tesk/tesk.h>

#include <exception>

namespace tesk::cpython {

// For functions that CPython calls (methods, importer functions, hooks): runs
// `body` and turns a stray C++ exception into a Python RuntimeError, giving
// `failure` (null, -1, ...) as the result then. An exception must not unwind
// through CPython's C frames, so every such function is noexcept and goes
// through here.
template <class R, class F> R python_entry(R failure, F&& body) noexcept {
    try {
        return body();
    } catch (std::exception const& e) {
        PyErr_SetString(PyExc_RuntimeError, e.what());
    } catch (...) {
        PyErr_SetString(PyExc_RuntimeError, "Unknown C++ exception.");
    }
    return failure;
}

// For functions that the host calls: errors are values on the host side, so a
// stray C++ exception becomes the result's Error.
template <class F> Any host_entry(F&& body) noexcept {
    try {
        return body();
    } catch (...) {
        try {
            return Error::fromCurrentException();
        } catch (...) {
            return Any();
        }
    }
}

} // namespace tesk::cpython
