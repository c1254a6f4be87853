// The Python classes that both conversion directions use, each looked up once
// per process.
#pragma once

#include "python/python_ref.h"

namespace tesk::cpython {

// datetime.date, datetime.time, datetime.datetime and decimal.Decimal.
// Borrowed and kept for the process; null when the class is not available
// (its module did not import), for good. The caller holds the interpreter
// lock; the first call may give it up for a moment (see python_once).
PyObject* date_class() noexcept;
PyObject* time_class() noexcept;
PyObject* datetime_class() noexcept;
PyObject* decimal_class() noexcept;

} // namespace tesk::cpython
