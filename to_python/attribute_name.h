// Attribute names from Python as host text, without a new String per lookup.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

#include <optional>

namespace tesk::cpython {

// The host text of a Python str used as an attribute name; nothing, with
// Python's error set, when it cannot be encoded. The caller holds the
// interpreter lock. Names that Python code uses are nearly always the same
// interned objects, so recent ones are kept.
std::optional<String> attribute_name(PyObject* name);

} // namespace tesk::cpython
