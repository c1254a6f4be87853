// Host values to Python objects.
#pragma once

#include "python/python_integers.h"
#include "python/python_ref.h"

#include <tesk/tesk.h>

namespace tesk::cpython {

// How deep host tuples may nest for a conversion (each level costs stack);
// a deeper one raises RecursionError.
inline constexpr int conversion_depth_limit = 200;

// A new reference, or null: either a Python exception was raised (a host
// Error becomes one) or the value has no Python form (no exception then).
// Takes the interpreter lock itself.
PyObject* to_python(Any const& value);

// What to_python_locked does for everything but a small integer.
PyObject* to_python_other_locked(Any const& value);

// The same as to_python, for a caller that holds the interpreter lock
// already (calls through a proxy convert every argument: each guard costs a
// thread-local lookup in libpython). Inline for the small integers that
// Python shares.
inline PyObject* to_python_locked(Any const& value) {
    if (std::int64_t v = 0; internal::signed_in_place(value, v))
        if (PyObject* shared = shared_python_integer(v)) return shared;
    return to_python_other_locked(value);
}

// The same, owned.
inline PyObjectPtr to_python_ref(Any const& value) { return PyObjectPtr::steal(to_python(value)); }

} // namespace tesk::cpython
