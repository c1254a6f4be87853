// Calling a Python callable with host arguments.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

#include <span>

namespace tesk::cpython {

// Calls `callable` with the Python forms of `args`, through vectorcall (no
// argument tuple), and gives the result as a host value. An argument without
// a Python form gives its conversion's error and nothing is called; an
// exception raised by the call gives its host Error. No Python error is left
// pending. The caller holds the interpreter lock.
Any call_with_host_arguments(PyObject* callable, std::span<Any const> args);

} // namespace tesk::cpython
