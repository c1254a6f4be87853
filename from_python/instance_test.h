// isinstance() for the conversions, which must never leave an error pending.
#pragma once

#include "python/python_ref.h"

namespace tesk::cpython {

// How an isinstance() that raises counts: the conversion rules say so test
// by test (an exception check counts it as a match, the others as no match).
enum class on_failure : bool { no_match, match };

// PyObject_IsInstance with its failure cleared and counted as `failure` says.
// A null class (one that is not available) is no match. The caller holds the lock.
inline bool is_instance(PyObject* object, PyObject* cls, on_failure failure = on_failure::no_match) {
    if (!cls) return false;
    int r = PyObject_IsInstance(object, cls);
    if (r >= 0) return r > 0;
    PyErr_Clear();
    return failure == on_failure::match;
}

} // namespace tesk::cpython
