// Compiling Python source text into a CPythonFunction.
#pragma once

#include "proxies/function.h"

namespace tesk::cpython {

// A function from its source: a lambda expression, a `def` (the function it
// defines, found by the name on its first line), or a bare function body,
// which becomes `def func(*args):` with the body indented under it. The code
// sees the host's top-level modules as globals. A syntax error or an
// exception raised while the text runs gives Python's error; a `def` whose
// name is not bound to a callable afterwards gives "Unable to find the
// function: NAME.". Starts the interpreter when it does not run yet.
Union<CPythonFunction, Error> function_from_source(String const& source);

// The name that a `def` text defines on its first line ("area" for
// "def  area (r):"); empty for any other text.
String defined_function_name(String const& source);

} // namespace tesk::cpython
