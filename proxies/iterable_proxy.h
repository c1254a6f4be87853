// CPythonProxyIterable: any other Python iterable (a frozenset, a generator, a
// dict view) as a host iterable; the base of the set proxy.
#pragma once

#include <tesk/tesk.h>

namespace tesk::cpython {

// The class, built on first use.
Class_Generic cpython_proxy_iterable_class();

} // namespace tesk::cpython
