// What the host-to-Python side needs of the other direction: wrappers turn
// Python arguments and assigned values into host values, and a host proxy
// of a Python object goes back to Python as the object it holds. Both live
// in the layer above (from_python/), which registers them while the library
// loads, so that this layer does not depend on it.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

namespace tesk::cpython {

struct python_to_host_functions {
    // A Python object (borrowed, may be null) as a host value; a failure is an
    // Any holding an Error. Takes the interpreter lock itself.
    Any (*convert)(PyObject* object) = nullptr;
    // When `value` is a host proxy of a Python object (or the host class made
    // for a Python type): true, with `held` set to a new reference to that
    // object (null when it holds none). The caller holds the interpreter lock.
    bool (*held_object)(Any const& value, PyObject*& held) = nullptr;
    // The conversion of a value handed to the host (see python_to_host_value).
    // The caller holds the interpreter lock.
    bool (*convert_value)(PyObject* object, Any& out) = nullptr;
};

// Called once, while the library loads.
void set_python_to_host(python_to_host_functions const& functions) noexcept;

// The registered conversion; before the registration, every object converts
// to an Error.
Any python_to_host(PyObject* object);

// For a Python value handed to the host (an argument, a key, an assigned
// value): true with `out` set, or false with the conversion's Python
// exception raised (OverflowError for an integer out of range,
// UnicodeEncodeError for a lone surrogate) when the object has no host
// form, so that the host is never handed the failure as if it were a value.
// An exception object or a wrapped host Error is a value, not a failure.
bool python_to_host_value(PyObject* object, Any& out);

// The registered proxy test; before the registration, nothing is a proxy.
bool python_object_held_by(Any const& value, PyObject*& held);

} // namespace tesk::cpython
