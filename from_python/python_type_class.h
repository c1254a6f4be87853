// Python classes as host classes: exactly one host class per Python type,
// made on first request and kept for the process.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

namespace tesk::cpython {

// The host class for the Python type `type` (borrowed): the host's own class
// for a built-in value type, else a class that mirrors the Python class (its
// name, doc, public methods, data attributes, nested classes and bases; an
// exception class derives from Error). Calling that class calls the Python
// type. "Not a type." for anything else. The caller holds the interpreter lock.
Any host_class_for_python_type(PyObject* type);

// The "__doc__" text of an object; empty when it is missing or no text. One
// host String per Python doc string (the attributes that share one share
// the text). The caller holds the interpreter lock.
String doc_text(PyObject* object);

// The Python type a host class was made for (borrowed; such classes live for
// the process), or null for any other class.
PyObject* python_type_of_class(Any const& cls);

} // namespace tesk::cpython
