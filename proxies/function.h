// CPythonFunction: a Python callable as a host callable.
//
// Every Python callable that reaches the host (a function, a lambda, a bound
// method, an object with __call__) becomes one. The host calls it as any of
// its own callables; its name, doc and signature come from the Python side,
// with parameter and result types worked out from the annotations.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

namespace tesk {

// The handle of a CPythonFunction instance.
class CPythonFunction : public I_Callable_Generic {
    TESK_HANDLE(CPythonFunction, I_Callable_Generic)
public:
    static bool test(Any const& v) noexcept;

    // The function's __name__; empty when it has none.
    String name() const;
    // The function's __defaults__, converted; empty when it has none.
    List defaults() const;
    // Replaces __defaults__ with the Python forms of `values`. A value that
    // has no Python form gives its error, and the defaults stay as they were.
    // A signature read before keeps the defaults it was made with.
    Result<None> setDefaults(I_Sequence<Any> const& values) const;
};

} // namespace tesk

namespace tesk::cpython {

// The class, built on first use.
Class_Generic cpython_function_class();

// A new CPythonFunction holding `object` (borrowed), or "The source object
// isn't a function." when it is not callable. The caller holds the
// interpreter lock.
Union<CPythonFunction, Error> function_from_object(PyObject* object);

} // namespace tesk::cpython
