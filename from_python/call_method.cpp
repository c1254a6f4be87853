// Calling a method of the Python object that a CPythonObject holds.
#include "from_python/errors.h"
#include "from_python/from_python.h"
#include "from_python/python_object.h"
#include "to_python/to_python.h"

namespace tesk::cpython {

namespace {

// The pending Python error as a host Error; an exception that is no Error
// (SystemExit, say) still fails the call.
Any pending_error() { return take_python_error(Error::unknown()); }

} // namespace

Any call_method(Any const& value, char const* name, std::span<Any const> args) {
    gil_guard gil;
    // Owned: the attribute lookup runs Python code, which may replace the
    // object that the proxy holds.
    PyObjectPtr object = get_pyobj(value);
    if (!object) return Error(String("The object is null."));

    PyObjectPtr method = PyObjectPtr::steal(PyObject_GetAttrString(object.get(), name));
    if (!method) PyErr_Clear();
    if (!method || !PyCallable_Check(method.get())) return error_method_not_found(String(name), value);

    PyObjectPtr arguments = PyObjectPtr::steal(PyTuple_New(static_cast<Py_ssize_t>(args.size())));
    if (!arguments) return pending_error();
    for (std::size_t i = 0; i < args.size(); ++i) {
        PyObject* item = to_python(args[i]);
        if (!item) {
            if (PyErr_Occurred()) return pending_error();
            return Error(String("Unable to convert an argument: {}.").arg(args[i]));
        }
        PyTuple_SET_ITEM(arguments.get(), static_cast<Py_ssize_t>(i), item); // steals
    }

    PyObjectPtr result = PyObjectPtr::steal(PyObject_Call(method.get(), arguments.get(), nullptr));
    if (!result) return pending_error();
    return from_python(result.get());
}

} // namespace tesk::cpython
