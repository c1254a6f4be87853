// Moving the source positions of compiled code.
#pragma once

#include "python/python_ref.h"

namespace tesk::cpython {

// How the text that was compiled differs from the caller's text: it starts
// with `headerLines` lines of its own, and every later line starts with
// `indent` added bytes.
struct text_offsets {
    int headerLines = 0;
    int indent = 0;
};

// A copy of `code` (and of every code object nested in its constants) whose
// positions are those of the caller's text: line L of the compiled text
// becomes line L - headerLines, its columns move left by `indent`, and the
// header's own positions become line 1. Null with a Python exception set
// when the code's location table has a form this does not know.
PyObjectPtr relocate_code(PyObject* code, text_offsets offsets);

} // namespace tesk::cpython
