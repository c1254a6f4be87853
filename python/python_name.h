// Python strings made once, for the names that hot paths look up.
#pragma once

#include "python/python_ref.h"

#include <atomic>

namespace tesk::cpython {

// An interned Python string for a fixed text, made on first use and kept for
// the process (never released: nothing touches Python at exit). The caller
// holds the interpreter lock, which also orders the first use.
class python_name {
public:
    constexpr explicit python_name(char const* text) noexcept : text_(text) {}
    python_name(python_name const&) = delete;
    python_name& operator=(python_name const&) = delete;

    // Borrowed; null with a Python exception set when it cannot be made.
    PyObject* get() noexcept {
        PyObject* name = name_.load(std::memory_order_acquire);
        if (name == nullptr) {
            name = PyUnicode_InternFromString(text_);
            name_.store(name, std::memory_order_release);
        }
        return name;
    }

private:
    char const* text_;
    std::atomic<PyObject*> name_{nullptr};
};

// The module called `name` from sys.modules, imported when it is not there
// yet; null with a Python exception set when it cannot be imported.
inline PyObjectPtr loaded_module(python_name& name) {
    PyObject* text = name.get();
    if (text == nullptr) return {};
    PyObjectPtr module = PyObjectPtr::steal(PyImport_GetModule(text));
    if (!module && !PyErr_Occurred()) module = PyObjectPtr::steal(PyImport_Import(text));
    return module;
}

} // namespace tesk::cpython
