// CPythonObject: the host class whose instances stand for Python objects.
//
// An instance keeps the address of its Python object in the field `_pyobj`
// (an Integer that owns one strong reference) and, when it was made inside a
// sandboxed evaluation, that sandbox's level in `_sandbox`. Both are read and
// written under the instance's own lock.
//
// The class makes its instances as python_object_records (its instance
// factory, inherited by the classes derived from it): beside the fields, the
// record keeps the object and the sandbox in words of its own, which every
// call through a proxy reads without the instance lock or a field lookup.
// The words are written only by set_pyobj and the finaliser, both of which
// write the fields as well, so the two always agree; host code that writes
// `_pyobj` by hand changes what the field shows, not what the proxy holds.
// Instances made by another factory (a class derived from a second base that
// has one) keep the object in the fields alone.
#include "from_python/python_object.h"

#include "from_python/field_positions.h"
#include "from_python/python_object_members.h"

#include <atomic>
#include <mutex>

namespace tesk::cpython {

namespace {

const meta_field_untyped pyobj_field{"$_pyobj"};
const meta_field_untyped sandbox_field{"$_sandbox"};

// An integer field's value, read in place (a handle would be a copy, two
// atomic count changes made under the instance lock on every call); 0 when
// it holds no integer, which both fields read as "nothing".
std::int64_t integer_in(Any const& field) {
    std::int64_t value = 0;
    return internal::signed_in_place(field, value) ? value : 0;
}

// What `_sandbox` holds: nothing (0) for a proxy made outside any sandbox.
std::int64_t sandbox_code(sandbox_level level) { return level == sandbox_level::strict ? 2 : 1; }
std::optional<sandbox_level> sandbox_of_code(std::int64_t code) {
    switch (code) {
    case 1: return sandbox_level::standard;
    case 2: return sandbox_level::strict;
    default: return std::nullopt;
    }
}

// Published once the class exists; until then no instance can exist either,
// so "is it a CPythonObject?" needs no class build.
std::atomic<internal::object_value_class const*> class_record{nullptr};

internal::object_value* make_record(internal::object_value_class const* cls) {
    return new python_object_record(cls);
}

void finalise(Any const& instance);

void fill_class(class_builder_base& builder) {
    builder.bases({I_RuntimeOnly::getClass()})
        .doc(String("Proxy wrapper around of 'PyObject'."))
        .entry(entry_tag::option, {Integer(10)})
        // Our __method__ searches the class chain first anyway; the host may
        // do that search itself and skip the call for declared methods.
        .entry(entry_tag::flag, {String(declared_methods_first_flag)});
    declare_python_object_instances(builder);
    add_python_object_members(builder);
    builder.entry(entry_tag::fields, {field_builder_base(pyobj_field).type(Integer::getClass()).entry(),
                                      field_builder_base(sandbox_field).type(Integer::getClass()).entry()});
}

class_accessor cpython_object_accessor{"CPythonObject", &fill_class};

// Deferred values and weak references stand for what they resolve to. A
// deferred value is computed once, and a thread that asks meanwhile waits for
// it; the computation may need the interpreter lock, so the wait is made
// without it.
bool needs_resolving(Any const& value) {
    Kind k = value.kind();
    return k == Kind::Weak || k == Kind::Computed || k == Kind::External;
}

Any resolved(Any const& value) {
    Kind k = value.kind();
    if (k == Kind::Weak) return internal::unwrap(value);
    if (k == Kind::Computed || k == Kind::External) {
        gil_release unlocked;
        return internal::unwrap(value);
    }
    return value;
}

// The instance record and the indices of its two fields, when `value` is a
// CPythonObject (or derived).
struct pyobj_slot {
    internal::object_value_instance* instance = nullptr;
    std::size_t object = 0;
    std::size_t sandbox = 0;
    explicit operator bool() const noexcept { return instance != nullptr; }
};

// Where the proxy classes keep the two fields: found once per class, as every
// call through a proxy needs them.
field_positions_cache proxy_fields;

std::optional<field_positions> proxy_field_positions(internal::object_value_class const* cls) {
    if (std::optional<field_positions> known = proxy_fields.find(cls)) return known;
    std::uint64_t const generation = internal::class_publication_count(); // before the lookup
    auto const* base = class_record.load(std::memory_order_acquire);
    if (!base || !cls->is_ancestor(base)) return std::nullopt;
    // Inherited fields come first, and the proxy classes add none of their
    // own, so the two usually sit where the base put them; a class with
    // several field-holding parents may have moved them.
    int object = cls->find_field(pyobj_field);
    int sandbox = cls->find_field(sandbox_field);
    if (object < 0 || sandbox < 0) return std::nullopt;
    field_positions const found{static_cast<std::size_t>(object), static_cast<std::size_t>(sandbox)};
    proxy_fields.remember(cls, generation, found);
    return found;
}

pyobj_slot slot_of(Any const& value) {
    if (value.kind() != Kind::Instance || !class_record.load(std::memory_order_acquire)) return {};
    internal::object_value_class const* cls = value.get()->class_value();
    std::optional<field_positions> positions = cls ? proxy_field_positions(cls) : std::nullopt;
    if (!positions) return {};
    // Instances are made mutable objects; the handle only sees them as const.
    auto* instance = const_cast<internal::object_value_instance*>(
        static_cast<internal::object_value_instance const*>(value.get()));
    return {instance, positions->first, positions->second};
}

std::optional<sandbox_level> sandbox_of(Any const& field) { return sandbox_of_code(integer_in(field)); }

PyObject* address_of(Any const& field) {
    return reinterpret_cast<PyObject*>(static_cast<std::intptr_t>(integer_in(field)));
}

Any field_of(PyObject* object) {
    if (!object) return Any();
    return Integer(static_cast<std::int64_t>(reinterpret_cast<std::intptr_t>(object)));
}

// What a proxy holds, read in one go (the sandbox as its code: plain words
// are cheaper to hand out of the locked section).
struct held_state {
    PyObjectPtr object;
    std::int64_t sandbox = 0;
};

// The caller holds the interpreter lock: the reference is taken under the
// instance lock, so that a concurrent set_pyobj cannot drop the object between
// the read and the increment (taking the spinlock under the interpreter lock
// is the allowed order).
held_state read_held(Any const& value) {
    Any resolvedValue; // only when it needs resolving: a copy costs two atomic operations
    Any const& target = needs_resolving(value) ? (resolvedValue = resolved(value)) : value;
    if (python_object_record const* record = python_object_record::of(target))
        return {PyObjectPtr::borrow(record->object.load(std::memory_order_relaxed)),
                record->sandbox.load(std::memory_order_relaxed)};
    pyobj_slot slot = slot_of(target);
    if (!slot) return {};
    held_state held;
    std::lock_guard<spinlock> lock(slot.instance->lock());
    auto const& fields = slot.instance->fields;
    if (slot.object < fields.size()) held.object = PyObjectPtr::borrow(address_of(fields[slot.object]));
    if (slot.sandbox < fields.size()) held.sandbox = integer_in(fields[slot.sandbox]);
    return held;
}

// Replaces a field's value and gives the one held before.
Any exchange_field(pyobj_slot const& slot, std::size_t index, Any value) {
    std::lock_guard<spinlock> lock(slot.instance->lock());
    auto& fields = slot.instance->fields;
    if (index >= fields.size()) return value; // nowhere to keep it
    std::swap(fields[index], value);
    return value;
}

void finalise(Any const& instance) {
    // Taken out rather than read, so the reference is dropped exactly once.
    PyObject* object = nullptr;
    std::optional<sandbox_level> sandbox;
    if (python_object_record* record = python_object_record::of(instance)) {
        // The words own the reference; the fields only show it, and go with
        // the instance.
        object = record->object.exchange(nullptr, std::memory_order_relaxed);
        sandbox = sandbox_of_code(record->sandbox.exchange(0, std::memory_order_relaxed));
    } else if (pyobj_slot slot = slot_of(instance)) {
        object = address_of(exchange_field(slot, slot.object, Any()));
        sandbox = sandbox_of(exchange_field(slot, slot.sandbox, Any()));
    }
    if (!object) return;
    gil_guard gil;
    // The last reference may run the object's __del__: under the sandbox the
    // object was made in.
    std::optional<sandbox_guard> guard;
    if (sandbox) guard.emplace(*sandbox);
    PyObjectPtr::steal(object).reset();
}

} // namespace

void declare_python_object_instances(class_builder_base& builder) {
    constexpr auto use_records = [](Class_Generic const& cls) { set_instance_factory_unsafe(cls, &make_record); };
    builder.entry(entry_tag::instance_callback, {make_closure(&finalise)})
        .entry(entry_tag::class_callback, {make_closure(+use_records)});
}

Class_Generic cpython_object_class() {
    Class_Generic cls = cpython_object_accessor();
    if (!class_record.load(std::memory_order_acquire) && cls.record())
        class_record.store(cls.record(), std::memory_order_release);
    return cls;
}

bool is_python_object(Any const& value) {
    if (python_object_record::of(value)) return true;
    return static_cast<bool>(slot_of(resolved(value)));
}

PyObjectPtr get_pyobj(Any const& value) { return read_held(value).object; }

void set_pyobj(Any const& value, PyObject* object) {
    // Owned before anything else: resolving the value may give up the
    // interpreter lock, and the caller's reference is only borrowed.
    PyObjectPtr owned = PyObjectPtr::borrow(object);
    Any target = resolved(value);
    pyobj_slot slot = slot_of(target);
    if (!slot) return;
    if (python_object_record* record = python_object_record::of(target)) {
        // The word owns the reference; the field shows the address.
        (void)exchange_field(slot, slot.object, field_of(owned.get()));
        PyObjectPtr::steal(record->object.exchange(owned.release(), std::memory_order_relaxed)).reset();
        return;
    }
    Any previous = exchange_field(slot, slot.object, field_of(owned.release()));
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
    if (sandbox_active) {
        std::int64_t const code = sandbox_code(active_sandbox_level);
        if (pyobj_slot slot = slot_of(instance)) (void)exchange_field(slot, slot.sandbox, Integer(code));
        if (python_object_record* record = python_object_record::of(instance))
            record->sandbox.store(static_cast<std::int8_t>(code), std::memory_order_relaxed);
    }
    set_pyobj(instance, object);
    return instance;
}

void python_object_scope::enter_sandbox(std::int64_t code) {
    if (std::optional<sandbox_level> level = sandbox_of_code(code)) sandbox_.emplace(*level);
}

void python_object_scope::open_without_record(Any const& proxy) {
    held_state held = read_held(proxy);
    enter_sandbox(held.sandbox);
    object_ = std::move(held.object);
}

Error null_object_error() { return Error(String("The object is null.")); }

} // namespace tesk::cpython
