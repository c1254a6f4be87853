// Filling Python dictionaries with host values.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

namespace tesk::cpython {

// dict[key] = the Python form of `value`. A value that has no Python form,
// or whose conversion raised (a host Error), is left out and its exception
// dropped; gives whether the item was stored. The caller holds the lock.
bool set_converted_item(PyObject* dict, String const& key, Any const& value);

// What Python code finds by name among the host modules.
enum class host_module_names {
    modules,              // each top-level module that is not internal to the host
    modules_and_inlined,  // and the classes and callables of the modules marked "inlined"
};
// A new dict of those names; null with a Python exception set. Takes the
// interpreter lock itself.
PyObjectPtr host_modules_by_name(host_module_names names);

} // namespace tesk::cpython
