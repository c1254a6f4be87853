// Python objects to host values.
//
// The tests below run in a fixed order, and the first that applies decides:
// a bool is an int and a bytes object is a sequence, so the order is what
// makes each Python value arrive as the host value that fits it best. The
// commonest exact built-in types are answered before the ordered tests; they
// cannot match any test ahead of their own, so the result is the same.
#include "from_python/from_python.h"

#include "python/python_classes.h"
#include "python/python_integers.h"
#include "from_python/date_time.h"
#include "from_python/errors.h"
#include "from_python/instance_test.h"
#include "from_python/numbers.h"
#include "from_python/proxy_makers.h"
#include "from_python/python_object.h"
#include "from_python/python_type_class.h"
#include "from_python/text.h"
#include "to_python/host_errors.h"
#include "to_python/wrapper.h"
#include "to_python/wrapper_bound_method.h"
#include "to_python/python_to_host.h"

namespace tesk::cpython {

namespace {

// Whatever has no host value of its own, most specific proxy first.
Any proxy_from_python(PyObject* object) {
    if (PyDict_Check(object)) return make_proxy(proxy_kind::mapping, object);
    if (PySequence_Check(object)) return make_proxy(proxy_kind::sequence, object);
    // Not frozenset: that one is only iterable.
    if (PySet_Check(object)) return make_proxy(proxy_kind::set, object);
    if (PyObjectPtr iterator = PyObjectPtr::steal(PyObject_GetIter(object)))
        return make_proxy(proxy_kind::iterable, object);
    PyErr_Clear(); // not iterable
    return object_proxy(object);
}

Any convert_in_order(PyObject* object) {
    if (object == Py_NotImplemented) return Undefined();
    if (Any const* held = is_wrapper(object)) return *held; // the very host object
    if (auto method = bound_method_value(object)) return *method;
    if (PyBool_Check(object)) return Boolean(object == Py_True);
    if (PyByteArray_Check(object)) return bytearray_from_python(object);
    if (PyBytes_Check(object)) return bytes_from_python(object);
    if (is_instance(object, decimal_class())) return decimal_from_python(object);
    if (PyFloat_Check(object)) return float_from_python(object);
    // A complex number has no host form, and truncating it is no answer: it
    // stays the Python object (a proxy), printed as itself.
    if (PyComplex_Check(object)) return proxy_from_python(object);
    if (PyNumber_Check(object)) return number_from_python(object);
    // An object that cannot say whether it is an exception (its __class__
    // raises) is taken for one: it becomes an Error rather than a proxy.
    if (is_instance(object, PyExc_Exception, on_failure::match)) return error_from_exception(object);
    if (PyType_Check(object)) return host_class_for_python_type(object);
    if (PyCallable_Check(object)) return make_proxy(proxy_kind::callable, object);
    if (PyUnicode_Check(object)) return string_from_python(object);
    if (std::optional<Any> value = date_time_from_python(object)) return *value;
    return proxy_from_python(object);
}

Any convert(PyObject* object) {
    PyTypeObject* type = Py_TYPE(object);
    if (type == &PyLong_Type) return integer_from_python(object);
    if (type == &PyUnicode_Type) return string_from_python(object);
    if (type == &PyFloat_Type) return float_from_python(object);
    if (type == &PyBool_Type) return Boolean(object == Py_True);
    // The built-in containers skip the instance checks against the decimal
    // and date classes, each of which looks up `__class__` on a miss.
    if (type == &PyTuple_Type || type == &PyList_Type) return make_proxy(proxy_kind::sequence, object);
    if (type == &PyDict_Type) return make_proxy(proxy_kind::mapping, object);
    if (type == &PySet_Type) return make_proxy(proxy_kind::set, object);
    return convert_in_order(object);
}

// For the wrappers below this layer: a host proxy goes back to Python as
// the object it holds, and a host class made for a Python type as that type.
bool held_python_object(Any const& value, PyObject*& held) {
    if (PyObject* type = python_type_of_class(value)) {
        held = Py_NewRef(type);
        return true;
    }
    if (!is_python_object(value)) return false;
    held = get_pyobj(value).release();
    return true;
}

// A value handed to the host: the conversion, or false with a Python
// exception raised. Integers and text fail with Python's own exception
// (OverflowError, UnicodeEncodeError), kept pending rather than turned into
// an Error; any other failure raises the Error it gave. An exception object
// or a wrapped host Error is a value, not a failure.
bool convert_value(PyObject* object, Any& out) {
    if (object && Py_IS_TYPE(object, &PyLong_Type)) {
        std::int64_t v = 0;
        if (!python_integer_value(object, v)) return false;
        out = Integer(v);
        return true;
    }
    if (object && Py_IS_TYPE(object, &PyUnicode_Type)) {
        Py_ssize_t size = 0;
        if (PyUnicode_AsUTF8AndSize(object, &size) == nullptr) return false;
    }
    out = from_python_locked(object);
    if (!out.isError() || is_wrapper(object) || PyExceptionInstance_Check(object)) return true;
    raise_host_error(out.error());
    return false;
}

struct registration {
    registration() noexcept { set_python_to_host({&from_python, &held_python_object, &convert_value}); }
} const registered;

} // namespace

// None and ints are read without the lock: neither ever changes.
Any from_python(PyObject* object) {
    if (!object || object == Py_None) return Any();
    if (std::int64_t v; compact_python_integer(object, v)) return Integer(v);
    gil_guard gil;
    return convert(object);
}

Any from_python_other_locked(PyObject* object) {
    if (!object || object == Py_None) return Any();
    return convert(object);
}

} // namespace tesk::cpython
