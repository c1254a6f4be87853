// What the container proxies share: the members every one of them has
// (length, membership, clearing) and the way their hot members call Python.
//
// The hot members call the C API function that Python itself runs for the
// operation (`len(o)`, `v in o`, `o[i]`) instead of looking the special
// method up by name and building an argument tuple. Where the object lacks
// the special method, they give the error a call by name would give ("The
// method is missing: {}, target object: {}.").
#pragma once

#include "from_python/python_object.h"

#include <tesk/tesk.h>

namespace tesk::cpython {

// Runs `call(object)` on the proxy's Python object, inside the proxy's scope
// (see python_object_scope); a proxy without an object gives "The object is
// null.". References that `call` takes are dropped inside the scope.
template <class F> Any with_python_object(Any const& proxy, F&& call) {
    python_object_scope scope(proxy);
    if (!scope) return null_object_error();
    return call(scope.object());
}

// Whether the object's type has the special method, as its slot.
bool has_length(PyObject* object) noexcept;       // __len__
bool has_contains(PyObject* object) noexcept;     // __contains__
bool has_subscript(PyObject* object) noexcept;    // __getitem__

// `len(object)`.
Result<Integer> proxy_length(Any const& proxy);
// `value in object`; never falls back to iterating.
Result<Boolean> proxy_contains(Any const& proxy, Any const& value);
// `object.clear()`.
Result<None> proxy_clear(Any const& proxy);

} // namespace tesk::cpython
