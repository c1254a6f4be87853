// The Python types of wrapper objects.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

namespace tesk::cpython {

// The base wrapper type ">TeskObject", built on first request and kept for the
// process (borrowed). Null only when the type could not be readied. The caller
// holds the interpreter lock.
PyTypeObject* base_wrapper_type() noexcept;

// The type that wraps values of the given raw class. Borrowed; the caller
// holds the interpreter lock.
PyTypeObject* wrapper_type_for_class(Class_Generic const& cls) noexcept;

// Whether `type` is a wrapper type: by identity, never by name, so a foreign
// type that happens to carry the same name does not pass.
bool is_wrapper_type(PyTypeObject* type) noexcept;

} // namespace tesk::cpython
