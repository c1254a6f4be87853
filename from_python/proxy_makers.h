// Python objects that have no host value of their own become host proxies.
//
// The proxy classes (functions, mappings, sequences, sets, iterables) live in
// the layer above, which
// register a maker for their kind while the library loads. A kind without a
// maker gives a plain CPythonObject.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

namespace tesk::cpython {

enum class proxy_kind { callable, mapping, sequence, set, iterable, count_ };

// Makes the proxy of `object` (borrowed); the caller holds the interpreter lock.
using proxy_maker = Any (*)(PyObject* object);

// Called while the library loads.
void set_proxy_maker(proxy_kind kind, proxy_maker make) noexcept;

// The proxy of the given kind, or a CPythonObject when that kind has no maker.
Any make_proxy(proxy_kind kind, PyObject* object);

// A plain CPythonObject holding `object`.
Any object_proxy(PyObject* object);

} // namespace tesk::cpython
