// Python objects to host values.
#pragma once

#include "python/python_integers.h"
#include "python/python_ref.h"

#include <tesk/tesk.h>

namespace tesk::cpython {

// `object` is borrowed and may be null (giving none). A failed conversion
// gives an Any holding an Error. Takes the interpreter lock itself.
Any from_python(PyObject* object);

// What from_python_locked does for everything but a small int.
Any from_python_other_locked(PyObject* object);

// The same as from_python, for a caller that holds the interpreter lock
// already. Inline for the small ints that most results of calls are.
inline Any from_python_locked(PyObject* object) {
    if (std::int64_t v; object && compact_python_integer(object, v)) return Integer(v);
    return from_python_other_locked(object);
}

} // namespace tesk::cpython
