// CPythonObject: the host object that stands for a Python object, and the
// base class of every proxy of a Python object.
#pragma once

#include "python/python_ref.h"
#include "python/sandbox_guard.h"

#include <tesk/tesk.h>

#include <optional>
#include <span>

namespace tesk::cpython {

// The class, built on first use.
Class_Generic cpython_object_class();

// Declares the finaliser that drops the held Python object. The host does not
// inherit finalisers, so every class derived from CPythonObject declares it
// as well; without it, its instances would keep their objects forever.
void declare_python_object_finaliser(class_builder_base& builder);

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
    explicit python_object_scope(Any const& proxy);
    // The object is dropped here, under the lock the scope holds already.
    ~python_object_scope() { Py_XDECREF(object_.release()); }
    python_object_scope(python_object_scope const&) = delete;
    python_object_scope& operator=(python_object_scope const&) = delete;

    // Null when the proxy holds no object (or is no proxy).
    PyObject* object() const noexcept { return object_.get(); }
    explicit operator bool() const noexcept { return static_cast<bool>(object_); }

private:
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
