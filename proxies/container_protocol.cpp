#include "proxies/container_protocol.h"

#include "from_python/errors.h"
#include "proxies/forwarding.h"

namespace tesk::cpython {

bool has_length(PyObject* object) noexcept {
    PyTypeObject* type = Py_TYPE(object);
    return (type->tp_as_sequence && type->tp_as_sequence->sq_length) ||
           (type->tp_as_mapping && type->tp_as_mapping->mp_length);
}

bool has_contains(PyObject* object) noexcept {
    PyTypeObject* type = Py_TYPE(object);
    return type->tp_as_sequence && type->tp_as_sequence->sq_contains;
}

bool has_subscript(PyObject* object) noexcept {
    PyTypeObject* type = Py_TYPE(object);
    return (type->tp_as_mapping && type->tp_as_mapping->mp_subscript) ||
           (type->tp_as_sequence && type->tp_as_sequence->sq_item);
}

Result<Integer> proxy_length(Any const& proxy) {
    return forwarded_as<Integer>(with_python_object(proxy, [&](PyObject* object) -> Any {
        if (!has_length(object)) return error_method_not_found(String("__len__"), proxy);
        Py_ssize_t length = PyObject_Size(object);
        if (length < 0) return take_python_error(Error::unknown());
        return Integer(static_cast<std::int64_t>(length));
    }));
}

Result<Boolean> proxy_contains(Any const& proxy, Any const& value) {
    return forwarded_as<Boolean>(with_python_object(proxy, [&](PyObject* object) -> Any {
        // PySequence_Contains would iterate an object without __contains__
        // (a generator, once only); a call by name would not.
        if (!has_contains(object)) return error_method_not_found(String("__contains__"), proxy);
        Any failure;
        PyObjectPtr item = argument_to_python(value, failure);
        if (!item) return failure;
        int found = PySequence_Contains(object, item.get());
        if (found < 0) return take_python_error(Error::unknown());
        return Boolean(found == 1);
    }));
}

Result<None> proxy_clear(Any const& proxy) { return forward_dropping_value(proxy, "clear"); }

} // namespace tesk::cpython
