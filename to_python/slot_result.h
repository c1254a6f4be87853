// Handing a host result back to Python from a slot function.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

#include <span>
#include <string>

namespace tesk::cpython {

// The host result of an operation as the slot's Python result: a deferred
// result is resolved first, an Error is raised as its Python exception, and a
// value that has no Python form raises RuntimeError (a slot must not return
// null without an exception). The caller holds the interpreter lock.
PyObject* slot_result(Any const& result);

// The same for an item read out of a host container: an integer read in
// place becomes a Python int directly (what converting it as a value gives).
PyObject* slot_result(ItemRead const& item);

// The status of a slot that returns an int: 0, or -1 with the Error of a
// (resolved) failed result raised.
int slot_status(Any const& result);

// Raises `exception` with host text as its message; gives null for the slot.
std::nullptr_t raise_text(PyObject* exception, String const& text);

// Host text as a Python str for messages and display: bytes that are not
// valid UTF-8 are replaced rather than failing.
PyObject* display_text_to_python(String const& text);

// Calls a member callable of `self`: an independent one without the receiver,
// any other with `self` first. The arguments are moved into the call (no
// count changed for them; the caller's handles are left empty), and the
// argument list needs no allocation.
Any call_with_receiver(I_Callable_Generic const& method, Any const& self, std::span<Any> args);

} // namespace tesk::cpython
