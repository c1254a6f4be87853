// Host errors raised in Python (the other way: from_python/errors.h).
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

namespace tesk::cpython {

// Raises `error` in Python; an exception raised this way converts back to
// the very same Error object.
void raise_host_error(Error const& error);
// The Python exception type for a host error class (borrowed; types live for the process).
PyObject* python_exception_type_for(Class_Generic const& errorClass);
// The host error class for which `exceptionType` was made, when it was.
Union<Class_Generic, None> error_class_of_exception_type(PyObject* exceptionType);

} // namespace tesk::cpython
