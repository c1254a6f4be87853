// Filling Python dictionaries with host values.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

namespace tesk::cpython {

// dict[key] = the Python form of `value`. A value that has no Python form,
// or whose conversion raised (a host Error), is left out and its exception
// dropped; gives whether the item was stored. The caller holds the lock.
bool set_converted_item(PyObject* dict, String const& key, Any const& value);

} // namespace tesk::cpython
