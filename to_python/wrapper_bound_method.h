// Methods of host objects read from Python: `obj.method` gives a light object
// that holds the method and its receiver, so that `obj.method(1, 2)` calls the
// host without first making a bound host callable.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

#include <optional>

namespace tesk::cpython {

// A new reference to a bound method of `self`; null with MemoryError set
// when allocation fails. The caller holds the interpreter lock. The method
// is taken by value, so that a caller done with its copy moves it in.
PyObject* new_bound_method(I_Callable_Generic method, Any const& self);

// The host callable that a bound method object stands for (the method bound
// to its receiver); nothing when `object` is no bound method.
std::optional<Any> bound_method_value(PyObject* object);

} // namespace tesk::cpython
