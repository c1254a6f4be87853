// The wrapper types: the base type, the four shared variants, and the choice
// of a type for a host class.
#include "to_python/wrapper_type.h"

#include "python/python_once.h"
#include "to_python/wrapper_abc.h"
#include "to_python/wrapper_class_type.h"
#include "to_python/wrapper_record.h"
#include "to_python/wrapper_slots.h"
#include "to_python/wrapper_type_block.h"

#include <atomic>

namespace tesk::cpython {

namespace {

// The methods of the base type, which every per-class type inherits: dir()
// looks __dir__ up on the type, not through the wrapper's attribute lookup.
PyMethodDef base_methods[] = {
    {"__dir__", wrapper_dir, METH_NOARGS, "The names of the host object's members."},
    {nullptr, nullptr, 0, nullptr},
};

// A type made once per process, on first request.
class shared_type {
public:
    using builder = PyTypeObject* (*)();
    explicit constexpr shared_type(builder build) noexcept : build_(build) {}
    PyTypeObject* get() noexcept {
        once_.run([this] { type_.store(build_(), std::memory_order_release); });
        return type_.load(std::memory_order_acquire);
    }
private:
    builder build_;
    python_once once_;
    std::atomic<PyTypeObject*> type_{nullptr};
};

// The shared variants are not callable; their tables say which container
// operators their instances offer, and the protocol which abstract class of
// collections.abc they are registered with (once, here).
PyTypeObject* variant_type(PySequenceMethods* sequence, PyMappingMethods* mapping,
                           container_protocol protocol = container_protocol::none) {
    PyTypeObject* type = new_wrapper_type_block(wrapper_type_name, wrapper_type_doc);
    type->tp_as_sequence = sequence;
    type->tp_as_mapping = mapping;
    type->tp_as_number = number_methods();
    type = ready_or_null(type);
    register_container_type(type, protocol);
    return type;
}

shared_type base_type{[] {
    PyTypeObject* type = new_wrapper_type_block(wrapper_type_name, wrapper_type_doc);
    type->tp_call = wrapper_call;
    type->tp_as_sequence = sequence_methods_concat();
    type->tp_as_number = number_methods();
    type->tp_methods = base_methods;
    return ready_or_null(type);
}};
shared_type map_and_sequence_type{[] { return variant_type(sequence_methods_full(), mapping_methods()); }};
shared_type map_type{[] {
    return variant_type(sequence_methods_contains(), mapping_methods(), container_protocol::mapping);
}};
shared_type mutable_map_type{[] {
    return variant_type(sequence_methods_contains(), mapping_methods(), container_protocol::mutable_mapping);
}};
shared_type sequence_type{[] {
    return variant_type(sequence_methods_full(), mapping_methods(), container_protocol::sequence);
}};
shared_type mutable_sequence_type{[] {
    return variant_type(sequence_methods_full(), mapping_methods(), container_protocol::mutable_sequence);
}};
shared_type set_type{[] {
    return variant_type(sequence_methods_sized(), nullptr, container_protocol::set);
}};
shared_type iterator_type{[] {
    return variant_type(sequence_methods_concat(), nullptr, container_protocol::iterator);
}};
shared_type plain_type{[] { return variant_type(sequence_methods_concat(), nullptr); }};

} // namespace

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
    type->tp_getattro = wrapper_getattro;
    type->tp_setattro = wrapper_setattro;
    type->tp_iter = wrapper_iter;
    type->tp_iternext = wrapper_iternext;
    return type;
}

PyTypeObject* ready_or_null(PyTypeObject* type) noexcept {
    if (PyType_Ready(type) < 0) {
        PyErr_Clear();
        return nullptr;
    }
    return type;
}

PyTypeObject* base_wrapper_type() noexcept { return base_type.get(); }

PyTypeObject* plain_wrapper_type() noexcept { return plain_type.get(); }

PyTypeObject* wrapper_type_for_class(Class_Generic const& cls) noexcept {
    if (belongs_to_module(cls)) return class_wrapper_type(cls);
    std::uint64_t bits = cls.record()->traits();
    // Classes are callable too: calling one constructs an instance.
    bool isClassOfClasses = cls.record() == internal::builtin_class(internal::builtin::class_);
    if ((bits & traits::callable) || isClassOfClasses) return base_type.get();
    if ((bits & traits::map) && (bits & traits::sequence)) return map_and_sequence_type.get();
    switch (container_protocol_of(cls)) {
    case container_protocol::mapping: return map_type.get();
    case container_protocol::mutable_mapping: return mutable_map_type.get();
    case container_protocol::sequence: return sequence_type.get();
    case container_protocol::mutable_sequence: return mutable_sequence_type.get();
    case container_protocol::set: return set_type.get();
    case container_protocol::iterator: return iterator_type.get();
    case container_protocol::none: break;
    }
    if (bits & traits::map) return map_type.get();
    return plain_type.get();
}

bool is_wrapper_type(PyTypeObject* type) noexcept {
    // Every wrapper type, and no other type, frees its objects with our
    // dealloc: an identity test that covers the per-class types as well.
    return type->tp_dealloc == wrapper_dealloc;
}

} // namespace tesk::cpython
