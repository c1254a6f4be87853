// The slot functions of the wrapper types.
#pragma once

#include "python/python_ref.h"

namespace tesk::cpython {

// Lifetime, text, hash and comparison.
void wrapper_dealloc(PyObject* self) noexcept;
PyObject* wrapper_repr(PyObject* self) noexcept;
PyObject* wrapper_str(PyObject* self) noexcept;
Py_hash_t wrapper_hash(PyObject* self) noexcept;
PyObject* wrapper_richcompare(PyObject* self, PyObject* other, int op) noexcept;

// Calling: forwards to the host callable.
PyObject* wrapper_call(PyObject* self, PyObject* args, PyObject* kwargs) noexcept;

} // namespace tesk::cpython
