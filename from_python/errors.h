// Python exceptions as host errors (the other way: to_python/host_errors.h).
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

namespace tesk::cpython {

// Takes the pending Python exception (clearing it) and gives its host error;
// none when nothing is pending or it does not convert to an Error.
Union<Error, None> fetch_python_error();
// The same, with `fallback` when nothing converts; nothing stays pending.
Error take_python_error(Error const& fallback);
// Why a host value has no Python form: the exception its conversion raised
// (taken), else "Unable to convert an argument: {}.". Nothing stays pending.
Error argument_conversion_error(Any const& argument);
// An exception that is no Exception (SystemExit, KeyboardInterrupt,
// GeneratorExit) as a host error of the class made for its type, with the
// message "SystemExit: 3" (the type name alone when str() is empty); a
// SystemExit carries its code as the error's value.
Error base_exception_error(PyObject* exception);
// An exception instance as a host error value.
Any error_from_exception(PyObject* exception);
// The host error class that stands for a Python exception type.
Class_Generic host_error_class_for(PyObject* exceptionType);

} // namespace tesk::cpython
