// CPythonProxySet: a Python set (or subclass) as a host mutable set; an
// iterable proxy too, so the host iterates it and asks for membership.
#pragma once

#include <tesk/tesk.h>

namespace tesk::cpython {

// The class, built on first use.
Class_Generic cpython_proxy_set_class();

} // namespace tesk::cpython
