// The host classes of Python's built-in value types.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

namespace tesk::cpython {

// The host class that stands for `type` when it is one of the built-in value
// types (bytes, bytearray, memoryview, int, str, float, bool, type, and the
// date, time, datetime and Decimal classes), by exact identity: a subclass is
// not one of them. The caller holds the interpreter lock.
Union<Class_Generic, None> builtin_type_class(PyObject* type);

} // namespace tesk::cpython
