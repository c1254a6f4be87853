// The Python types of wrapper objects.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

namespace tesk::cpython {

// The base wrapper type ">TeskObject": callable, built on first request and
// kept for the process (borrowed). The caller holds the interpreter lock.
PyTypeObject* base_wrapper_type() noexcept;

// The type of wrappers without container protocol methods, whose every plain
// attribute name is the host's (borrowed; see `__host__`).
PyTypeObject* plain_wrapper_type() noexcept;

// The type that wraps values of the given raw class (borrowed; types live for
// the process): a type of its own for a class that belongs to a module, else
// one of the shared types chosen by the class's trait bits. The caller holds
// the interpreter lock. Null only when no type could be readied.
PyTypeObject* wrapper_type_for_class(Class_Generic const& cls) noexcept;

// Whether `type` is a wrapper type. By identity, never by name: a foreign type
// that happens to carry the same name does not pass.
bool is_wrapper_type(PyTypeObject* type) noexcept;

} // namespace tesk::cpython
