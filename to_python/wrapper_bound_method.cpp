// The bound method objects. Calling one invokes the host method with the
// receiver first and the converted arguments after it, all on the stack.
// Anything else asked of it (its __doc__, __annotations__, text, or crossing
// back to the host) goes to the bound host callable, made only then.
#include "to_python/wrapper_bound_method.h"

#include "python/python_once.h"
#include "python/slot_guard.h"
#include "to_python/python_to_host.h"
#include "to_python/slot_result.h"
#include "to_python/wrapper.h"

#include <array>
#include <atomic>
#include <new>
#include <vector>

namespace tesk::cpython {

namespace {

struct PyTeskBoundMethod {
    PyObject_HEAD
    I_Callable_Generic method;
    Any self;
};

PyTeskBoundMethod* record_of(PyObject* object) { return reinterpret_cast<PyTeskBoundMethod*>(object); }

Any bound_callable(PyObject* object) {
    PyTeskBoundMethod* r = record_of(object);
    return r->method.bindInstance(r->self);
}

// The bound host callable as an ordinary wrapper, which answers everything
// but the call.
PyObjectPtr as_wrapper(PyObject* object) { return PyObjectPtr::steal(new_wrapper(bound_callable(object))); }

void bound_method_dealloc(PyObject* object) noexcept {
    gil_guard gil; // the host values may be the last references
    record_of(object)->~PyTeskBoundMethod();
    PyObject_Free(object);
}

// Arguments up to this many stay on the stack, with the receiver.
constexpr Py_ssize_t inline_arguments = 8;

PyObject* bound_method_call(PyObject* object, PyObject* args, PyObject* kwargs) noexcept {
    gil_guard gil;
    return guarded_slot<PyObject*>(nullptr, [&]() -> PyObject* {
        if (kwargs && PyDict_GET_SIZE(kwargs) > 0) {
            PyObjectPtr wrapper = as_wrapper(object);
            return wrapper ? PyObject_Call(wrapper.get(), args, kwargs) : nullptr;
        }
        PyTeskBoundMethod* r = record_of(object);
        Py_ssize_t n = PyTuple_GET_SIZE(args);
        // False, with the exception raised, when an argument has no host form:
        // then the host method is not called.
        auto convert_into = [&](Any* out) {
            out[0] = r->self;
            for (Py_ssize_t i = 0; i < n; ++i)
                if (!python_to_host_value(PyTuple_GET_ITEM(args, i), out[i + 1])) return false;
            return true;
        };
        auto count = static_cast<std::size_t>(n + 1);
        if (n < inline_arguments) {
            std::array<Any, inline_arguments> all;
            if (!convert_into(all.data())) return nullptr;
            return slot_result(r->method.invoke({all.data(), count}));
        }
        std::vector<Any> all(count);
        if (!convert_into(all.data())) return nullptr;
        return slot_result(r->method.invoke(all));
    });
}

PyObject* bound_method_getattro(PyObject* object, PyObject* name) noexcept {
    return guarded_slot<PyObject*>(nullptr, [&]() -> PyObject* {
        PyObjectPtr wrapper = as_wrapper(object);
        return wrapper ? PyObject_GetAttr(wrapper.get(), name) : nullptr;
    });
}

PyObject* bound_method_repr(PyObject* object) noexcept {
    return guarded_slot<PyObject*>(nullptr, [&]() -> PyObject* {
        PyObjectPtr wrapper = as_wrapper(object);
        return wrapper ? PyObject_Repr(wrapper.get()) : nullptr;
    });
}

python_once type_once;
std::atomic<PyTypeObject*> bound_method_type{nullptr};

PyTypeObject* build_type() {
    auto* type = new PyTypeObject(); // never freed, like the wrapper types
    Py_SET_TYPE(reinterpret_cast<PyObject*>(type), &PyType_Type);
    Py_SET_REFCNT(reinterpret_cast<PyObject*>(type), 2);
    type->tp_name = ">TeskBoundMethod";
    type->tp_doc = "A method of a Tesk object, bound to it";
    type->tp_basicsize = sizeof(PyTeskBoundMethod);
    type->tp_flags = 0; // no subclasses, not tracked by the collector (holds no Python reference)
    type->tp_dealloc = bound_method_dealloc;
    type->tp_call = bound_method_call;
    type->tp_getattro = bound_method_getattro;
    type->tp_repr = bound_method_repr;
    if (PyType_Ready(type) < 0) {
        PyErr_Clear();
        return nullptr;
    }
    return type;
}

PyTypeObject* type() {
    type_once.run([] { bound_method_type.store(build_type(), std::memory_order_release); });
    return bound_method_type.load(std::memory_order_acquire);
}

} // namespace

PyObject* new_bound_method(I_Callable_Generic const& method, Any const& self) {
    PyTypeObject* t = type();
    if (!t) return PyErr_Format(PyExc_RuntimeError, "The bound method type is not available.");
    PyObject* object = _PyObject_New(t);
    if (!object) return nullptr;
    new (&record_of(object)->method) I_Callable_Generic(method);
    new (&record_of(object)->self) Any(self);
    return object;
}

std::optional<Any> bound_method_value(PyObject* object) {
    PyTypeObject* t = bound_method_type.load(std::memory_order_acquire);
    if (!object || !t || Py_TYPE(object) != t) return std::nullopt;
    return bound_callable(object);
}

} // namespace tesk::cpython
