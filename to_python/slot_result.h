// Handing a host result back to Python from a slot function.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

namespace tesk::cpython {

// The host result of an operation as the slot's Python result: a deferred
// result is resolved first, an Error is raised as its Python exception, and a
// value that has no Python form raises RuntimeError (a slot must not return
// null without an exception). The caller holds the interpreter lock.
PyObject* slot_result(Any const& result);

// Host text as a Python str for messages and display: bytes that are not
// valid UTF-8 are replaced rather than failing.
PyObject* display_text_to_python(String const& text);

} // namespace tesk::cpython
