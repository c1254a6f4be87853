// CPythonModule: an imported Python module seen as a host module.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

namespace tesk::cpython {

// The class, built on first use.
Class_Generic cpython_module_class();

// A new, unregistered host module named `name` over the Python module
// `module` (borrowed): its public classes and callables, each also a
// read-only property of the module, and its doc. A snapshot: names the Python
// module gains later do not appear. A class without a declaring context gets
// this module as its own. The caller holds the interpreter lock.
Module python_module(String const& name, PyObject* module);

} // namespace tesk::cpython
