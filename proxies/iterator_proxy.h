// CPythonProxyIterator: a Python iterator as a host iterator. Its position is
// the Python iterator's own, shared with any Python code that holds it.
#pragma once

#include <tesk/tesk.h>

namespace tesk::cpython {

// The class, built on first use.
Class_Generic cpython_proxy_iterator_class();

// `iter` of every proxy whose host interface is iterable: a new iterator proxy
// over what `iter(object)` gives (a fresh iterator for a container, the object
// itself for a generator, so two of them share its position).
Result<Any> proxy_iter(Any const& proxy);

} // namespace tesk::cpython
