// Python objects to host values.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

namespace tesk::cpython {

// `object` is borrowed and may be null (giving none). A failed conversion
// gives an Any holding an Error. Takes the interpreter lock itself.
Any from_python(PyObject* object);
// The same, for a caller that holds the interpreter lock already.
Any from_python_locked(PyObject* object);

} // namespace tesk::cpython
