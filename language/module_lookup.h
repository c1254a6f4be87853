// Finding Python objects by name, rendering values as Python source, and
// exporting Python modules as host modules.
#pragma once

#include <tesk/tesk.h>

namespace tesk::cpython {

// The Python object that a dotted name stands for.
Result<Any> resolve_python_name(String const& name);
// A value as Python source text.
Result<String> python_value_to_code(Any const& value);
// Makes every importable Python module a host module (once per process).
Result<None> import_all_modules();

} // namespace tesk::cpython
