// Running Python source text with the builtin `exec`.
#pragma once

#include "python/python_ref.h"

#include <string_view>

namespace tesk::cpython {

// Runs `source` with Python's exec in the given dictionaries. The result of
// exec (None), or null with the Python exception set. The text is passed
// with its size, so a NUL inside it reaches Python, which reports it,
// instead of silently cutting the code short. The caller holds the
// interpreter lock.
PyObjectPtr exec_code(std::string_view source, PyObject* globals, PyObject* locals);

} // namespace tesk::cpython
