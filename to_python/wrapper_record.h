// The record of a wrapper object: a Python object that owns a host value.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

namespace tesk::cpython {

// No instance dictionary, no weak-reference list and no garbage-collector
// header: a wrapper only forwards to the host, which keeps all the state.
struct PyTeskObject {
    PyObject_HEAD
    Any* value; // a heap copy of the wrapped value, owned; set at creation, never replaced
};

// The value held by `self`, which must be a wrapper (the slots of the wrapper
// types are only ever called with one). Null only for a record that never
// received a value.
inline Any const* held_value(PyObject* self) noexcept {
    return reinterpret_cast<PyTeskObject*>(self)->value;
}

} // namespace tesk::cpython
