// Errors across the boundary: Python exceptions to host errors and back.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

namespace tesk::cpython {

// Takes the pending Python exception (clearing it) and gives its host error;
// none when nothing is pending or it does not convert to an Error.
Union<Error, None> fetch_python_error();
// The same, with `fallback` when nothing converts; nothing stays pending.
Error take_python_error(Error const& fallback);
// After a failed evaluation: the pending exception as an Error, or an
// EvaluationError with corrected positions; Error::unknown() when nothing is pending.
// A corrected line past `lastLine` (when it is above 0) is reported as
// `lastLine`: Python places some errors just after the end of the code (an
// unfinished block). Runtime errors take their line from the innermost
// traceback entry of code compiled under the file name `codeFile`.
Error evaluation_error_from_python(int lineCorrection, int columnCorrection, int lastLine = 0,
                                   char const* codeFile = "<string>");
// An exception instance as a host error value.
Any error_from_exception(PyObject* exception);
// The host error class that stands for a Python exception type.
Class_Generic host_error_class_for(PyObject* exceptionType);
// Raises `error` in Python; an exception raised this way converts back to
// the very same Error object.
void raise_host_error(Error const& error);
// The Python exception type for a host error class (borrowed; types live for the process).
PyObject* python_exception_type_for(Class_Generic const& errorClass);

} // namespace tesk::cpython
