// The slot functions of the wrapper types. Python calls each with the
// interpreter lock held; none lets a C++ exception through.
#pragma once

#include "python/python_ref.h"

namespace tesk::cpython {

// Lifetime, text, hash and comparison.
void wrapper_dealloc(PyObject* self) noexcept;
PyObject* wrapper_repr(PyObject* self) noexcept;
PyObject* wrapper_str(PyObject* self) noexcept;
Py_hash_t wrapper_hash(PyObject* self) noexcept;
PyObject* wrapper_richcompare(PyObject* self, PyObject* other, int op) noexcept;

// Attributes: host fields, properties and methods by name, and the special
// names that introspection asks for.
PyObject* wrapper_getattro(PyObject* self, PyObject* name) noexcept;
int wrapper_setattro(PyObject* self, PyObject* name, PyObject* value) noexcept;
PyObject* wrapper_dir(PyObject* self, PyObject* unused) noexcept;
// The descriptors of the per-class types' properties; the closure is the
// property's name (UTF-8).
PyObject* property_get(PyObject* self, void* closure) noexcept;
int property_set(PyObject* self, PyObject* value, void* closure) noexcept;

// Calling: forwards to the host callable.
PyObject* wrapper_call(PyObject* self, PyObject* args, PyObject* kwargs) noexcept;

// Iteration: a host iterable gives a host iterator, which the wrapper drives.
PyObject* wrapper_iter(PyObject* self) noexcept;
PyObject* wrapper_iternext(PyObject* self) noexcept;

} // namespace tesk::cpython
