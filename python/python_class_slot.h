// A Python class looked up once per process from a module attribute.
#pragma once

#include "python/python_once.h"

namespace tesk::cpython {

// Holds, e.g., datetime.date for the conversions. The class is imported on
// first need and kept for the process as a raw reference that is never
// released (nothing touches Python at exit). A failed import or lookup is
// cleared and leaves the slot empty for good: the conversions that need the
// class are then off, rather than retried (and failing) on every value.
class python_class_slot {
public:
    constexpr python_class_slot(char const* module, char const* attribute) noexcept
        : module_(module), attribute_(attribute) {}

    // Borrowed; null when the class is not available. The caller holds the
    // interpreter lock; the first call may give it up for a moment (see python_once).
    PyObject* get() noexcept {
        once_.run([this] {
            PyObjectPtr module = PyObjectPtr::steal(PyImport_ImportModule(module_));
            PyObject* cls = module ? PyObject_GetAttrString(module.get(), attribute_) : nullptr;
            if (!cls) PyErr_Clear();
            class_.store(cls, std::memory_order_release);
        });
        return class_.load(std::memory_order_acquire);
    }

private:
    char const* module_;
    char const* attribute_;
    python_once once_;
    std::atomic<PyObject*> class_{nullptr};
};

} // namespace tesk::cpython
