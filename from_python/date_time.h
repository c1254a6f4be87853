// Python dates and times to host values.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

#include <optional>

namespace tesk::cpython {

// Read through the attributes (year, month, day; hour, minute, second,
// microsecond, fold; utcoffset(), tzname()), so any object shaped like a
// date or time reads. Nothing when an attribute is missing, not an int or out
// of the 32-bit range; every failure is cleared.
std::optional<Date> read_date(PyObject* object);
// An offset is kept only when it is zero or more whole seconds (the host
// stores it unsigned), with the zone name from tzname() and the fold bit;
// otherwise the time is naive and the fold is not kept.
std::optional<Time> read_time(PyObject* object);

// A datetime, time or date instance (tested in that order, as a datetime is
// also a date) as the host value; nothing when `object` is none of them or
// does not read. The caller holds the interpreter lock.
std::optional<Any> date_time_from_python(PyObject* object);

} // namespace tesk::cpython
