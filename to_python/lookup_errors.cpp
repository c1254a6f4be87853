#include "to_python/lookup_errors.h"

#include "python/python_once.h"
#include "to_python/slot_result.h"

namespace tesk::cpython {
namespace {

// A type deriving from `lookup` and RuntimeError, made once and kept for the
// process; the lookup error itself when it cannot be made.
class lookup_error_type {
public:
    constexpr lookup_error_type(char const* name, PyObject* const* lookup) noexcept : name_(name), lookup_(lookup) {}
    PyObject* get() noexcept {
        once_.run([this] {
            PyObjectPtr bases = PyObjectPtr::steal(PyTuple_Pack(2, *lookup_, PyExc_RuntimeError));
            type_ = bases ? PyErr_NewException(name_, bases.get(), nullptr) : nullptr;
            if (!type_) PyErr_Clear();
        });
        return type_ ? type_ : *lookup_;
    }

private:
    char const* name_;
    PyObject* const* lookup_;
    python_once once_;
    PyObject* type_ = nullptr; // written once under once_, read after it
};

lookup_error_type index_error{"tesk.IndexError", &PyExc_IndexError};
lookup_error_type key_error{"tesk.KeyError", &PyExc_KeyError};

} // namespace

std::nullptr_t raise_index_error(String const& message) { return raise_text(index_error.get(), message); }

std::nullptr_t raise_key_error(Any const& key) { return raise_text(key_error.get(), display(key)); }

} // namespace tesk::cpython
