// CPythonProxySequence: a Python sequence (list, tuple, range, a class with
// the sequence protocol) as a host mutable sequence, without a copy. Indices
// go to Python as they are: negative ones count from the end, and Python's
// own IndexError reports one out of range.
#pragma once

#include <tesk/tesk.h>

namespace tesk::cpython {

// The class, built on first use.
Class_Generic cpython_proxy_sequence_class();

} // namespace tesk::cpython
