#include "from_python/attributes.h"

#include "from_python/text.h"

#include <limits>

namespace tesk::cpython {

std::optional<std::int64_t> integer_attribute(PyObject* object, char const* name) {
    PyObjectPtr value = PyObjectPtr::steal(PyObject_GetAttrString(object, name));
    if (!value || value.get() == Py_None) {
        PyErr_Clear();
        return std::nullopt;
    }
    long long number = PyLong_AsLongLong(value.get());
    if (number == -1 && PyErr_Occurred()) {
        PyErr_Clear();
        return std::nullopt;
    }
    return static_cast<std::int64_t>(number);
}

std::optional<std::int32_t> int32_attribute(PyObject* object, char const* name) {
    std::optional<std::int64_t> number = integer_attribute(object, name);
    // Narrowed only when it fits: 2**40 must not come out as 0.
    if (!number || *number < std::numeric_limits<std::int32_t>::min() ||
        *number > std::numeric_limits<std::int32_t>::max())
        return std::nullopt;
    return static_cast<std::int32_t>(*number);
}

std::optional<String> text_attribute(PyObject* object, PyObject* name) {
    PyObjectPtr value = PyObjectPtr::steal(PyObject_GetAttr(object, name));
    if (!value || !PyUnicode_Check(value.get())) {
        PyErr_Clear();
        return std::nullopt;
    }
    return text_or_empty(value.get());
}

bool has_text_attribute(PyObject* object, char const* name, char const* expected) {
    PyObjectPtr value = PyObjectPtr::steal(PyObject_GetAttrString(object, name));
    bool equal = value && PyUnicode_Check(value.get()) && PyUnicode_CompareWithASCIIString(value.get(), expected) == 0;
    PyErr_Clear();
    return equal;
}

} // namespace tesk::cpython
