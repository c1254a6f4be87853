#include "proxies/python_call.h"

#include "from_python/errors.h"
#include "proxies/forwarding.h"
#include "to_python/to_python.h"

#include <vector>

namespace tesk::cpython {
namespace {

// The references to the converted arguments, dropped on every way out; it
// lives inside a call, under the interpreter lock, so it drops them without
// taking the lock again.
struct converted_arguments {
    PyObject** items;
    std::size_t count = 0;
    ~converted_arguments() {
        for (std::size_t i = 0; i < count; ++i) Py_DECREF(items[i]);
    }
};

// A Python function's own entry point, without the thread-state lookup and
// the result check that PyObject_Vectorcall adds: the interpreter's
// functions always give a result or raise.
PyObject* vectorcall(PyObject* callable, PyObject* const* args, std::size_t nargsf) {
    if (PyFunction_Check(callable))
        if (vectorcallfunc entry = PyVectorcall_Function(callable)) return entry(callable, args, nargsf, nullptr);
    return PyObject_Vectorcall(callable, args, nargsf, nullptr);
}

// Converts the arguments into `slots` after its first, which stays free for
// the callee to prepend a receiver without copying
// (PY_VECTORCALL_ARGUMENTS_OFFSET), and makes the call. The first argument
// without a Python form stops it and gives its error.
Any call_through(PyObject* callable, std::span<Any const> args, PyObject** slots) {
    converted_arguments converted{slots + 1};
    for (; converted.count < args.size(); ++converted.count) {
        PyObject* item = to_python_locked(args[converted.count]);
        if (!item) return argument_conversion_error(args[converted.count]);
        converted.items[converted.count] = item;
    }
    return python_result(
        PyObjectPtr::steal(vectorcall(callable, converted.items, args.size() | PY_VECTORCALL_ARGUMENTS_OFFSET)));
}

} // namespace

Any call_with_host_arguments(PyObject* callable, std::span<Any const> args) {
    // Calls with a few arguments, the common case, allocate nothing.
    constexpr std::size_t inline_count = 6;
    if (args.size() <= inline_count) {
        PyObject* slots[inline_count + 1];
        return call_through(callable, args, slots);
    }
    std::vector<PyObject*> slots(args.size() + 1);
    return call_through(callable, args, slots.data());
}

} // namespace tesk::cpython
