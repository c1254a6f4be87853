// The audit hook through which sandboxed evaluations are restricted.
#pragma once

#include <Python.h>

namespace tesk::cpython {

// Installed once, before the interpreter starts (hooks added later cannot
// see the start-up's own events, and Python offers no removal). 0 lets the
// audited operation go on; -1 with a Python exception set refuses it.
int audit_hook(char const* event, PyObject* arguments, void* userData) noexcept;

} // namespace tesk::cpython
