// The Python objects that hold host values.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

namespace tesk::cpython {

// A new wrapper object holding a copy of `value`; null with a Python
// exception when allocation fails. Takes the interpreter lock itself.
PyObject* new_wrapper(Any const& value);

// A wrapper of `value` whose every plain attribute name is the host's member,
// for the names that a container's Python protocol takes (`m.__host__.keys`).
// Null with a Python exception on failure.
PyObject* new_plain_wrapper(Any const& value);

// The host value held by `object` when it is a wrapper, else null.
Any const* is_wrapper(PyObject* object) noexcept;

} // namespace tesk::cpython
