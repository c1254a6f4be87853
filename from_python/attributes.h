// Reading plain attributes of Python objects.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

#include <cstdint>
#include <optional>

namespace tesk::cpython {

// An integer attribute; nothing when it is missing, None, not an integer or
// out of the range. Every failure is cleared. The caller holds the lock.
std::optional<std::int64_t> integer_attribute(PyObject* object, char const* name);
std::optional<std::int32_t> int32_attribute(PyObject* object, char const* name);

// A str attribute as host text; nothing when it is missing or not a str.
// Every failure is cleared. The caller holds the lock.
std::optional<String> text_attribute(PyObject* object, PyObject* name);

// Whether the attribute is a str equal to `expected`; any failure is "no"
// and is cleared.
bool has_text_attribute(PyObject* object, char const* name, char const* expected);

} // namespace tesk::cpython
