// CPythonObject: the host object that stands for a Python object, and the
// base class of every proxy of a Python object.
#pragma once

#include "python/python_ref.h"
#include "python/sandbox_guard.h"

#include <tesk/tesk.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <span>
#include <typeinfo>

namespace tesk::cpython {

// The class, built on first use.
Class_Generic cpython_object_class();

// Declares how the class's instances hold their Python object: made as the
// records that keep it in a word of their own (the instance factory), and
// finalised by dropping it. The host does not inherit finalisers, so every
// class derived from CPythonObject declares this as well; without it, its
// instances would keep their objects forever.
void declare_python_object_instances(class_builder_base& builder);

// The instance record of CPythonObject and of the classes that inherit its
// instance factory: the held object and the sandbox of a proxy in words of
// its own, beside the fields `_pyobj` and `_sandbox` that show them to host
// code. The words are read and written under the interpreter lock only,
// except by the finaliser, which runs when no other reference is left.
struct python_object_record final : internal::object_value_instance {
    using object_value_instance::object_value_instance;
    std::atomic<PyObject*> object{nullptr}; // one strong reference
    std::atomic<std::int8_t> sandbox{0};    // 0: made outside any sandbox

    // The record behind `value`, when `value` is one: a type check of the
    // object, cheaper than any lookup in its class. The type's identity is
    // its one type_info object: the records are made in this library only,
    // so their vtables name the same one (another copy elsewhere could only
    // make a record look like none, which the fields' path still serves).
    static python_object_record* of(Any const& value) noexcept {
        if (value.kind() != Kind::Instance) return nullptr;
        internal::object_value const& object = *value.get();
        if (&typeid(object) != &typeid(python_object_record)) return nullptr;
        // Instances are made mutable objects; the handle only sees them as const.
        return const_cast<python_object_record*>(static_cast<python_object_record const*>(&object));
    }
};

// Whether `value` is a CPythonObject (or of a class derived from it).
bool is_python_object(Any const& value);
// The Python object held by a CPythonObject, as a reference of the caller's
// own (the proxy's may be replaced by any Python code that runs meanwhile);
// null when it holds none. The caller holds the interpreter lock.
PyObjectPtr get_pyobj(Any const& value);
// Stores `object` (a new strong reference) and drops the one held before.
// The caller holds the interpreter lock.
void set_pyobj(Any const& value, PyObject* object);
// A new instance of `cls` (CPythonObject or derived) holding `object`. A
// proxy made while a sandboxed evaluation runs on this thread carries that
// sandbox: whatever it later runs in Python runs under it.
Any make_python_object(Class_Generic const& cls, PyObject* object);

// The Python side of one operation on a proxy: the interpreter lock, the
// proxy's Python object (a reference of our own) and, when the proxy carries
// a sandbox, that sandbox for the current thread, all for the lifetime of the
// scope. Every call into Python through a proxy goes through one.
class python_object_scope {
public:
    // Inline for the records, which every hot call through a proxy meets.
    explicit python_object_scope(Any const& proxy) {
        python_object_record const* record = python_object_record::of(proxy);
        if (!record) {
            open_without_record(proxy);
            return;
        }
        if (std::int8_t code = record->sandbox.load(std::memory_order_relaxed)) enter_sandbox(code);
        object_ = PyObjectPtr::borrow(record->object.load(std::memory_order_relaxed));
    }
    // The object is dropped here, under the lock the scope holds already.
    ~python_object_scope() { Py_XDECREF(object_.release()); }
    python_object_scope(python_object_scope const&) = delete;
    python_object_scope& operator=(python_object_scope const&) = delete;

    // Null when the proxy holds no object (or is no proxy).
    PyObject* object() const noexcept { return object_.get(); }
    explicit operator bool() const noexcept { return static_cast<bool>(object_); }

private:
    void enter_sandbox(std::int64_t code);
    void open_without_record(Any const& proxy);

    // Declared in this order so that the object is dropped inside the
    // sandbox and under the lock.
    gil_guard gil_;
    std::optional<sandbox_guard> sandbox_;
    PyObjectPtr object_;
};

// "The object is null.": what every operation on a proxy without an object gives.
Error null_object_error();

// A host argument of a call into Python as a new reference; null when it has
// no Python form, with `failure` set to the Python error it raised (taken, so
// nothing stays pending) or to "Unable to convert an argument: {}.". The
// caller holds the interpreter lock.
PyObjectPtr argument_to_python(Any const& value, Any& failure);

// Calls the Python method `name` of the held object with host arguments.
Any call_method(Any const& value, char const* name, std::span<Any const> args = {});

} // namespace tesk::cpython
