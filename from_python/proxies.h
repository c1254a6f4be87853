// Python objects that have no host value of their own become host proxies.
//
// Each kind of object has its own entry so that the specific proxies (host
// classes for types, functions, mappings, sequences, sets, iterables) can
// take over one by one; until they exist, each gives a CPythonObject.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

namespace tesk::cpython {

// The caller holds the interpreter lock; `object` is borrowed.
Any class_from_python_type(PyObject* type);
Any function_from_python_callable(PyObject* callable);
Any mapping_proxy(PyObject* mapping);
Any sequence_proxy(PyObject* sequence);
Any set_proxy(PyObject* set);
Any iterable_proxy(PyObject* iterable);
Any object_proxy(PyObject* object);

} // namespace tesk::cpython
