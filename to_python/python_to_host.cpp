#include "to_python/python_to_host.h"


namespace tesk::cpython {
namespace {
// Written once at load, before any thread can convert, and only read after.
python_to_host_functions registered;
} // namespace

void set_python_to_host(python_to_host_functions const& functions) noexcept { registered = functions; }

Any python_to_host(PyObject* object) {
    if (registered.convert == nullptr) return Error(String("No conversion of Python values is registered."));
    return registered.convert(object);
}

bool python_to_host_value(PyObject* object, Any& out) {
    if (registered.convert_value == nullptr) {
        PyErr_SetString(PyExc_RuntimeError, "No conversion of Python values is registered.");
        return false;
    }
    return registered.convert_value(object, out);
}

bool python_object_held_by(Any const& value, PyObject*& held) {
    return registered.held_object != nullptr && registered.held_object(value, held);
}

} // namespace tesk::cpython
