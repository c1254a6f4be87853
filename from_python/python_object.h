// CPythonObject: the host object that stands for a Python object.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

#include <span>

namespace tesk::cpython {

// The class, built on first use.
Class_Generic cpython_object_class();

// Whether `value` is a CPythonObject (or of a class derived from it).
bool is_python_object(Any const& value);
// The Python object held by a CPythonObject, as a reference of the caller's
// own (the proxy's may be replaced by any Python code that runs meanwhile);
// null when it holds none. The caller holds the interpreter lock.
PyObjectPtr get_pyobj(Any const& value);
// Stores `object` (a new strong reference) and drops the one held before.
// The caller holds the interpreter lock.
void set_pyobj(Any const& value, PyObject* object);
// A new instance of `cls` (CPythonObject or derived) holding `object`.
Any make_python_object(Class_Generic const& cls, PyObject* object);

// Calls the Python method `name` of the held object with host arguments.
Any call_method(Any const& value, char const* name, std::span<Any const> args = {});

} // namespace tesk::cpython
