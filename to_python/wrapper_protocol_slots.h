// The sequence, mapping and number slots of the wrapper types. Each forwards
// to a host method or property of the value held by its first operand, and
// tests on every call that the value offers it.
#pragma once

#include "python/python_ref.h"

namespace tesk::cpython {

// Operators: a first operand that is no wrapper gives NotImplemented; a
// missing host method raises NotImplementedError.
PyObject* tesk_sequence_concat(PyObject* self, PyObject* other) noexcept;
PyObject* tesk_sequence_extend(PyObject* self, PyObject* other) noexcept;
PyObject* tesk_sequence_repeat(PyObject* self, Py_ssize_t count) noexcept;
PyObject* tesk_sequence_inplace_repeat(PyObject* self, Py_ssize_t count) noexcept;
PyObject* tesk_number_subtract(PyObject* self, PyObject* other) noexcept;
PyObject* tesk_number_inplace_subtract(PyObject* self, PyObject* other) noexcept;
PyObject* tesk_number_divide(PyObject* self, PyObject* other) noexcept;
PyObject* tesk_number_inplace_divide(PyObject* self, PyObject* other) noexcept;
PyObject* tesk_number_and(PyObject* self, PyObject* other) noexcept;
PyObject* tesk_number_or(PyObject* self, PyObject* other) noexcept;
PyObject* tesk_number_xor(PyObject* self, PyObject* other) noexcept;
PyObject* tesk_number_not(PyObject* self) noexcept;

// Containers: len(), w[i], w[i] = v, del w[i], x in w, w[k] and w[a:b:c].
Py_ssize_t tesk_length(PyObject* self) noexcept;
PyObject* tesk_sequence_item(PyObject* self, Py_ssize_t index) noexcept;
int tesk_sequence_assign_item(PyObject* self, Py_ssize_t index, PyObject* item) noexcept;
int tesk_contains(PyObject* self, PyObject* item) noexcept;
PyObject* tesk_subscript(PyObject* self, PyObject* key) noexcept;
int tesk_assign_subscript(PyObject* self, PyObject* key, PyObject* value) noexcept;

} // namespace tesk::cpython
