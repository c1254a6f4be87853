// Creating and recognising wrapper objects.
#include "to_python/wrapper.h"

#include "to_python/wrapper_record.h"
#include "to_python/wrapper_type.h"

#include <new>

namespace tesk::cpython {

namespace {
PyObject* new_wrapper_of_type(Any const& value, PyTypeObject* type) {
    if (!type) {
        PyErr_SetString(PyExc_RuntimeError, "The wrapper type of Tesk objects is not available.");
        return nullptr;
    }
    PyTeskObject* self = PyObject_New(PyTeskObject, type);
    if (!self) return nullptr; // MemoryError is set; no host copy was made
    self->value = new (std::nothrow) Any(value);
    if (!self->value) {
        // The record never received a value; its dealloc copes with that.
        Py_DecRef(reinterpret_cast<PyObject*>(self));
        return PyErr_NoMemory();
    }
    return reinterpret_cast<PyObject*>(self);
}
} // namespace

PyObject* new_wrapper(Any const& value) {
    gil_guard gil;
    return new_wrapper_of_type(value, wrapper_type_for_class(raw_class_of(value)));
}

PyObject* new_plain_wrapper(Any const& value) {
    gil_guard gil;
    return new_wrapper_of_type(value, plain_wrapper_type());
}

Any const* is_wrapper(PyObject* object) noexcept {
    if (!object || !is_wrapper_type(Py_TYPE(object))) return nullptr;
    return held_value(object);
}

} // namespace tesk::cpython
