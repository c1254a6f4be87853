// Calling a wrapper object calls the host callable it holds.
#include "python/slot_guard.h"
#include "to_python/host_call_arguments.h"
#include "to_python/python_to_host.h"
#include "to_python/slot_result.h"
#include "to_python/to_python.h"
#include "to_python/wrapper_record.h"
#include "to_python/wrapper_slots.h"

#include <optional>

namespace tesk::cpython {

namespace {

// The keyword arguments whose names are non-empty text, as a host map; null
// with the exception raised when a value has no host form.
std::optional<HashMap> named_arguments(PyObject* kwargs) {
    HashMap named(String::getClass(), Type::untyped());
    Py_ssize_t pos = 0;
    PyObject* key = nullptr;
    PyObject* value = nullptr;
    while (PyDict_Next(kwargs, &pos, &key, &value)) {
        Any name = python_to_host(key);
        if (!String::test(name) || String::unsafe(name).isEmpty()) continue;
        Any converted;
        if (!python_to_host_value(value, converted)) return std::nullopt;
        (void)named.set(name, converted);
    }
    return named;
}

bool has_keywords(PyObject* kwargs) { return kwargs && PyDict_GET_SIZE(kwargs) > 0; }

// Calling a class constructs an instance, from positional arguments.
PyObject* construct(Class_Generic const& cls, PyObject* args, PyObject* kwargs) {
    if (has_keywords(kwargs))
        return raise_text(PyExc_TypeError, String("{} takes no keyword arguments.").arg(cls.qualname()));
    return call_with_python_arguments([&](std::span<Any const> a) { return cls(a); }, args);
}

} // namespace

PyObject* wrapper_call(PyObject* self, PyObject* args, PyObject* kwargs) noexcept {
    // Taken again here so that the call stays safe when host code calls back
    // into Python from another thread state during the call.
    gil_guard gil;
    return guarded_slot<PyObject*>(nullptr, [&]() -> PyObject* {
        Any const& value = *held_value(self);
        if (value.isError()) return to_python(value); // raises it
        if (Class_Generic::test(value)) return construct(Class_Generic::unsafe(value), args, kwargs);
        if (!I_Callable_Generic::test(value))
            return raise_text(PyExc_RuntimeError, String("Non-callable object: {}").arg(value));
        auto callable = I_Callable_Generic::unsafe(value);
        // Named arguments, when there are any, are the whole call: the host
        // maps them onto parameters and positional ones would be ambiguous.
        if (has_keywords(kwargs)) {
            std::optional<HashMap> named = named_arguments(kwargs);
            if (!named) return nullptr;
            if (named->size() != 0) return slot_result(callable.callWithNamed(*named));
        }
        return call_with_python_arguments([&](std::span<Any const> a) { return callable.invoke(a); }, args);
    });
}

} // namespace tesk::cpython
