// What the proxies of Python objects share: a forwarded method's result as
// the host type a member promises, a direct call's result as a host value,
// and new proxy instances.
#pragma once

#include "from_python/errors.h"
#include "from_python/from_python.h"
#include "python/python_ref.h"

#include <tesk/tesk.h>

#include <initializer_list>

namespace tesk::cpython {

// A forwarded result as T: the value, or an error or deferred result passed
// on unchanged; anything else gives the host's cast error.
template <class T> Result<T> forwarded_as(Any const& result) {
    if (result.isError() || result.isComputed() || T::test(result)) return Result<T>(result);
    return result_error_cast_source(result, T::getClass());
}

// A forwarded call whose value is dropped: its error, or none.
inline Result<None> forwarded_none(Any const& result) {
    Any resolved = internal::result_unwrap_lazy(result);
    return resolved.isError() ? Result<None>(resolved) : Result<None>();
}

// Calls the Python method `name` of the proxy's object (see call_method) and
// keeps only its error.
Result<None> forward_dropping_value(Any const& proxy, char const* name, std::initializer_list<Any> args = {});

// The result of a direct call into Python (a new reference or null, dropped
// here) as a host value: the converted object, or the pending Python error,
// taken. The caller holds the interpreter lock.
inline Any python_result(PyObjectPtr&& result) {
    // An exception that is no Error (SystemExit, say) still fails the call.
    if (!result) return take_python_error(Error::unknown());
    Any converted = from_python_locked(result.get());
    result.reset_locked();
    return converted;
}

// A new instance of the proxy class `cls` holding `object` (borrowed). The
// caller holds the interpreter lock.
Any new_proxy(Class_Generic const& cls, PyObject* object);

} // namespace tesk::cpython
