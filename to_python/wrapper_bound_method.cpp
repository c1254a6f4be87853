// The bound method objects. Calling one invokes the host method with the
// receiver first and the converted arguments after it, all on the stack.
// Anything else asked of it (its __doc__, __annotations__, text, or crossing
// back to the host) goes to the bound host callable, made only then.
#include "to_python/wrapper_bound_method.h"

#include "python/python_once.h"
#include "python/slot_guard.h"
#include "to_python/host_call_arguments.h"
#include "to_python/python_to_host.h"
#include "to_python/slot_result.h"
#include "to_python/wrapper.h"

#include <atomic>
#include <cstdlib>
#include <new>
#include <utility>

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

// Freed records kept for the next bound method: `o.add(1, 2)` makes and
// drops one per call. Only touched with the interpreter lock held. The
// records are plain heap memory, not Python's allocator, so that one kept
// past the interpreter's end is still valid memory.
constexpr int free_list_capacity = 16;
PyTeskBoundMethod* free_list[free_list_capacity];
int free_count = 0;

void bound_method_dealloc(PyObject* object) noexcept {
    gil_guard gil; // the host values may be the last references
    PyTeskBoundMethod* r = record_of(object);
    r->~PyTeskBoundMethod();
    if (free_count < free_list_capacity) free_list[free_count++] = r;
    else std::free(r);
}

PyTeskBoundMethod* allocate_record() {
    if (free_count > 0) return free_list[--free_count];
    return static_cast<PyTeskBoundMethod*>(std::malloc(sizeof(PyTeskBoundMethod)));
}

// Called through tp_call, not vectorcall: CPython's vectorcall refuses a
// keyword dictionary with keys that are no strings before the callee runs,
// where the host drops them.
PyObject* bound_method_call(PyObject* object, PyObject* args, PyObject* kwargs) noexcept {
    gil_guard gil;
    return guarded_slot<PyObject*>(nullptr, [&]() -> PyObject* {
        if (kwargs && PyDict_GET_SIZE(kwargs) > 0) {
            PyObjectPtr wrapper = as_wrapper(object);
            return wrapper ? PyObject_Call(wrapper.get(), args, kwargs) : nullptr;
        }
        PyTeskBoundMethod* r = record_of(object);
        return call_with_python_arguments([&](std::span<Any const> all) { return r->method.invoke(all); }, args,
                                          &r->self);
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

PyObject* new_bound_method(I_Callable_Generic method, Any const& self) {
    PyTypeObject* t = type();
    if (!t) return PyErr_Format(PyExc_RuntimeError, "The bound method type is not available.");
    PyTeskBoundMethod* r = allocate_record();
    if (!r) return PyErr_NoMemory();
    PyObject* object = PyObject_Init(reinterpret_cast<PyObject*>(r), t);
    new (&r->method) I_Callable_Generic(std::move(method));
    new (&r->self) Any(self);
    return object;
}

std::optional<Any> bound_method_value(PyObject* object) {
    PyTypeObject* t = bound_method_type.load(std::memory_order_acquire);
    if (!object || !t || Py_TYPE(object) != t) return std::nullopt;
    return bound_callable(object);
}

} // namespace tesk::cpython
