// Calling a method of the Python object that a CPythonObject holds.
#include "from_python/errors.h"
#include "from_python/from_python.h"
#include "from_python/python_object.h"
#include "to_python/to_python.h"

namespace tesk::cpython {

PyObjectPtr argument_to_python(Any const& value, Any& failure) {
    PyObjectPtr converted = PyObjectPtr::steal(to_python_locked(value));
    if (converted) return converted;
    failure = argument_conversion_error(value);
    return {};
}

Any call_method(Any const& value, char const* name, std::span<Any const> args) {
    python_object_scope scope(value);
    if (!scope) return null_object_error();

    PyObjectPtr method = PyObjectPtr::steal(PyObject_GetAttrString(scope.object(), name));
    if (!method) PyErr_Clear();
    if (!method || !PyCallable_Check(method.get())) return error_method_not_found(String(name), value);

    PyObjectPtr arguments = PyObjectPtr::steal(PyTuple_New(static_cast<Py_ssize_t>(args.size())));
    if (!arguments) return take_python_error(Error::unknown());
    for (std::size_t i = 0; i < args.size(); ++i) {
        Any failure;
        PyObjectPtr item = argument_to_python(args[i], failure);
        if (!item) return failure;
        PyTuple_SET_ITEM(arguments.get(), static_cast<Py_ssize_t>(i), item.release()); // steals
    }

    PyObjectPtr result = PyObjectPtr::steal(PyObject_Call(method.get(), arguments.get(), nullptr));
    // An exception that is no Error (SystemExit, say) still fails the call.
    if (!result) return take_python_error(Error::unknown());
    return from_python(result.get());
}

} // namespace tesk::cpython
