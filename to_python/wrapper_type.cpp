// The wrapper types. For now every host value is wrapped with the one base
// type; the per-class types and the container variants derive from it or
// share its name and slots.
#include "to_python/wrapper_type.h"

#include "python/python_once.h"
#include "to_python/wrapper_record.h"
#include "to_python/wrapper_slots.h"

#include <atomic>

namespace tesk::cpython {

namespace {

// One name string for every wrapper type; the types are told apart by identity.
char const wrapper_type_name[] = ">TeskObject";
char const wrapper_type_doc[] = "Wrapper around of a Tesk object";

python_once base_type_once;
std::atomic<PyTypeObject*> base_type{nullptr};

// A zero-filled type block with the slots every wrapper type shares. Type
// blocks are never freed: wrappers of them may live as long as the process,
// so the block starts with one reference more than Python will ever drop.
PyTypeObject* new_wrapper_type_block(char const* name, char const* doc) {
    auto* type = new PyTypeObject(); // value-initialised: every slot null
    Py_SET_TYPE(reinterpret_cast<PyObject*>(type), &PyType_Type);
    Py_SET_REFCNT(reinterpret_cast<PyObject*>(type), 2);
    type->tp_name = name;
    type->tp_doc = doc;
    type->tp_basicsize = sizeof(PyTeskObject);
    type->tp_itemsize = 0;
    // No flags: Python code cannot subclass a wrapper type, and wrappers are
    // not tracked by the garbage collector (they hold no Python references).
    type->tp_flags = 0;
    type->tp_dealloc = wrapper_dealloc;
    type->tp_repr = wrapper_repr;
    type->tp_str = wrapper_str;
    type->tp_hash = wrapper_hash;
    type->tp_richcompare = wrapper_richcompare;
    return type;
}

PyTypeObject* build_base_type() {
    PyTypeObject* type = new_wrapper_type_block(wrapper_type_name, wrapper_type_doc);
    type->tp_call = wrapper_call;
    if (PyType_Ready(type) < 0) {
        // Leave no error behind: callers report the missing type themselves.
        PyErr_Clear();
        return nullptr;
    }
    return type;
}

} // namespace

PyTypeObject* base_wrapper_type() noexcept {
    base_type_once.run([] { base_type.store(build_base_type(), std::memory_order_release); });
    return base_type.load(std::memory_order_acquire);
}

PyTypeObject* wrapper_type_for_class(Class_Generic const&) noexcept {
    return base_wrapper_type();
}

bool is_wrapper_type(PyTypeObject* type) noexcept {
    // Until the base type exists, no wrapper can exist either.
    PyTypeObject* base = base_type.load(std::memory_order_acquire);
    return base != nullptr && (type == base || type->tp_base == base);
}

} // namespace tesk::cpython
