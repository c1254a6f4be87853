// Finding Python objects by name and rendering values as Python source.
#pragma once

#include <tesk/tesk.h>

namespace tesk::cpython {

// The Python object that a dotted name stands for.
Result<Any> resolve_python_name(String const& name);
// A value as Python source text.
Result<String> python_value_to_code(Any const& value);

} // namespace tesk::cpython
