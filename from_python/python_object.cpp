// CPythonObject: the host class whose instances stand for Python objects.
#include "from_python/python_object.h"

#include <atomic>
#include <mutex>

namespace tesk::cpython {

namespace {

// The field that holds the address of the Python object, as an Integer that
// owns one strong reference.
const meta_field_untyped pyobj_field{"$_pyobj"};

// Published once the class exists; until then no instance can exist either,
// so "is it a CPythonObject?" needs no class build.
std::atomic<internal::object_value_class const*> class_record{nullptr};
std::atomic<int> class_field_index{-1};

// The instance gives up its Python object when the host drops it.
void finalise(Any const& instance);

void fill_class(class_builder_base& builder) {
    builder.bases({I_RuntimeOnly::getClass()})
        .doc(String("Proxy wrapper around of 'PyObject'."))
        .entry(entry_tag::instance_callback, {make_closure(&finalise)})
        .entry(entry_tag::option, {Integer(10)})
        .entry(entry_tag::fields, {field_builder_base(pyobj_field).type(Integer::getClass()).entry()});
}

class_accessor cpython_object_accessor{"CPythonObject", &fill_class};

// Deferred values and weak references stand for what they resolve to. A
// deferred value is computed once, and a thread that asks meanwhile waits for
// it; the computation may need the interpreter lock, so the wait is made
// without it.
Any resolved(Any const& value) {
    Kind k = value.kind();
    if (k == Kind::Weak) return internal::unwrap(value);
    if (k == Kind::Computed || k == Kind::External) {
        gil_release unlocked;
        return internal::unwrap(value);
    }
    return value;
}

// The instance record and the index of its `_pyobj` field, when `value` is a
// CPythonObject (or derived).
struct pyobj_slot {
    internal::object_value_instance* instance = nullptr;
    std::size_t index = 0;
    explicit operator bool() const noexcept { return instance != nullptr; }
};

pyobj_slot slot_of(Any const& value) {
    auto const* base = class_record.load(std::memory_order_acquire);
    if (!base || value.kind() != Kind::Instance) return {};
    internal::object_value_class const* cls = value.get()->class_value();
    if (!cls || !cls->is_ancestor(base)) return {};
    // Derived classes usually keep the field where the base put it; a class
    // with several parents may not, so those look it up by name.
    int index = cls == base ? class_field_index.load(std::memory_order_relaxed) : cls->find_field(pyobj_field);
    if (index < 0) return {};
    // Instances are made mutable objects; the handle only sees them as const.
    auto* instance = const_cast<internal::object_value_instance*>(
        static_cast<internal::object_value_instance const*>(value.get()));
    return {instance, static_cast<std::size_t>(index)};
}

PyObject* address_of(Any const& field) {
    if (!Integer::test(field)) return nullptr;
    return reinterpret_cast<PyObject*>(static_cast<std::intptr_t>(Integer::unsafe(field).value()));
}

Any field_of(PyObject* object) {
    if (!object) return Any();
    return Integer(static_cast<std::int64_t>(reinterpret_cast<std::intptr_t>(object)));
}

// Replaces the field's value and gives the one held before.
Any exchange_field(pyobj_slot const& slot, Any value) {
    std::lock_guard<spinlock> lock(slot.instance->lock());
    if (slot.index >= slot.instance->fields.size()) return value; // nowhere to keep it
    std::swap(slot.instance->fields[slot.index], value);
    return value;
}

void finalise(Any const& instance) {
    pyobj_slot slot = slot_of(instance);
    if (!slot) return;
    // Taken out rather than read, so the reference is dropped exactly once.
    PyObject* object = address_of(exchange_field(slot, Any()));
    if (object) PyObjectPtr::steal(object).reset(); // takes the interpreter lock
}

} // namespace

Class_Generic cpython_object_class() {
    Class_Generic cls = cpython_object_accessor();
    if (!class_record.load(std::memory_order_acquire) && cls.record()) {
        class_field_index.store(cls.record()->find_field(pyobj_field), std::memory_order_relaxed);
        class_record.store(cls.record(), std::memory_order_release);
    }
    return cls;
}

bool is_python_object(Any const& value) {
    return static_cast<bool>(slot_of(resolved(value)));
}

PyObjectPtr get_pyobj(Any const& value) {
    Any target = resolved(value);
    pyobj_slot slot = slot_of(target);
    if (!slot) return {};
    // The reference is taken under the instance lock, so that a concurrent
    // set_pyobj cannot drop the object between the read and the increment
    // (counting needs no interpreter call: taking the spinlock under the
    // interpreter lock is the allowed order).
    std::lock_guard<spinlock> lock(slot.instance->lock());
    if (slot.index >= slot.instance->fields.size()) return {};
    return PyObjectPtr::borrow(address_of(slot.instance->fields[slot.index]));
}

void set_pyobj(Any const& value, PyObject* object) {
    // Owned before anything else: resolving the value may give up the
    // interpreter lock, and the caller's reference is only borrowed.
    PyObjectPtr owned = PyObjectPtr::borrow(object);
    Any target = resolved(value);
    pyobj_slot slot = slot_of(target);
    if (!slot) return;
    Any previous = exchange_field(slot, field_of(owned.release()));
    // The previous holder of the field (or, when the field was missing, our own
    // new reference) is dropped after the instance lock is released.
    PyObjectPtr::steal(address_of(previous)).reset();
}

Any make_python_object(Class_Generic const& cls, PyObject* object) {
    // `cls` is CPythonObject or derived from it, so the class was built and
    // its record published by cpython_object_class already.
    gil_guard gil;
    Any instance = cls.allocateInstance();
    if (instance.isError()) return instance;
    set_pyobj(instance, object);
    return instance;
}

} // namespace tesk::cpython
