// The members of CPythonObject: the universal methods that make every Python
// attribute a host property or method, its display text and its comparison.
#pragma once

#include <tesk/tesk.h>

namespace tesk::cpython {

// Adds the member overrides and the class set-up hook (the lookup hooks) to
// the class's entries.
void add_python_object_members(class_builder_base& builder);

// Compiles Python source into a host callable (CPythonFunction); registered
// by the layer that defines that class while the library loads. The
// comparison helper is built with it.
using function_compiler = Any (*)(String const& source);
void set_function_compiler(function_compiler compile) noexcept;

} // namespace tesk::cpython
