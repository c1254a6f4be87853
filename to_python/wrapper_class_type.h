// The per-class wrapper types: one Python type for each host class that
// belongs to a module, named after the class and listing its members.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

namespace tesk::cpython {

// A class belongs to a module when it is declared in one (itself or the
// generic class it instantiates), or when it is a module's class.
bool belongs_to_module(Class_Generic const& cls);

// The class's own type, built on first request (borrowed; never freed). The
// caller holds the interpreter lock. Null only when the type could not be readied.
PyTypeObject* class_wrapper_type(Class_Generic const& cls) noexcept;

} // namespace tesk::cpython
