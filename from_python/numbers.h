// Python numbers to host numbers.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

namespace tesk::cpython {

// Each takes the interpreter lock from its caller and leaves no Python error
// pending: a failure is returned as an Error.

// A decimal.Decimal, by its text (so "1.10" stays "1.10").
Any decimal_from_python(PyObject* decimal);
// A float (or subtype): whole values in the int64 range become Integer.
Any float_from_python(PyObject* number);
// Any other number, truncated to a signed 64-bit Integer.
Any number_from_python(PyObject* number);
// An int (or subtype) that needs no __index__/__int__ call.
Any integer_from_python(PyObject* integer);

} // namespace tesk::cpython
