// CPythonProxyMapping: a Python dict (or subclass) as a host mutable map. Every
// operation goes to the live dict, so either side sees the other's changes.
#pragma once

#include <tesk/tesk.h>

namespace tesk::cpython {

// The class, built on first use.
Class_Generic cpython_proxy_mapping_class();

} // namespace tesk::cpython
