// Python-facing functions must not let a C++ exception reach the interpreter.
#pragma once

#include "python/python_ref.h"

#include <exception>
#include <utility>

namespace tesk::cpython {

// Sets RuntimeError from the C++ exception being handled. Call inside a catch
// block, with the interpreter lock held.
inline void raise_current_exception() noexcept {
    try {
        throw;
    } catch (std::exception const& e) {
        PyErr_SetString(PyExc_RuntimeError, e.what());
    } catch (...) {
        PyErr_SetString(PyExc_RuntimeError, "Unknown C++ exception.");
    }
}

// Runs the body of a slot (or any function Python calls) and turns a stray
// C++ exception into RuntimeError with `failure` as the result.
template <class R, class F> R guarded_slot(R failure, F&& body) noexcept {
    try {
        return std::forward<F>(body)();
    } catch (...) {
        raise_current_exception();
        return failure;
    }
}

} // namespace tesk::cpython
