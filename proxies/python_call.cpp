#include "proxies/python_call.h"

#include "from_python/errors.h"
#include "proxies/forwarding.h"
#include "to_python/to_python.h"

#include <array>
#include <vector>

namespace tesk::cpython {
namespace {

// The Python forms of a call's arguments, laid out as vectorcall wants them:
// one free slot in front, which the callee may borrow to prepend a receiver
// without copying (PY_VECTORCALL_ARGUMENTS_OFFSET). Owns one reference to
// each, dropped when it goes; it lives inside a call, under the interpreter
// lock, so it drops them without taking the lock again. Calls with a few
// arguments, the common case, allocate nothing.
class vectorcall_arguments {
public:
    explicit vectorcall_arguments(std::size_t count) : count_(count) {
        if (count > inline_count) spilled_.resize(count + 1);
    }
    ~vectorcall_arguments() {
        PyObject** items = slots() + 1;
        for (std::size_t i = 0; i < converted_; ++i) Py_DECREF(items[i]);
    }
    vectorcall_arguments(vectorcall_arguments const&) = delete;
    vectorcall_arguments& operator=(vectorcall_arguments const&) = delete;

    // Converts the arguments in order; the first that has no Python form
    // stops it, with its error in `failure`.
    bool convert(std::span<Any const> args, Any& failure) {
        PyObject** items = slots() + 1;
        for (; converted_ < count_; ++converted_) {
            PyObject* item = to_python_locked(args[converted_]);
            if (!item) {
                failure = argument_conversion_error(args[converted_]);
                return false;
            }
            items[converted_] = item;
        }
        return true;
    }

    PyObjectPtr call(PyObject* callable) {
        PyObject* const* args = slots() + 1;
        std::size_t const nargsf = count_ | PY_VECTORCALL_ARGUMENTS_OFFSET;
        // A Python function's own entry point, without the thread-state
        // lookup and the result check that PyObject_Vectorcall adds: the
        // interpreter's functions always give a result or raise.
        if (PyFunction_Check(callable))
            if (vectorcallfunc entry = PyVectorcall_Function(callable))
                return PyObjectPtr::steal(entry(callable, args, nargsf, nullptr));
        return PyObjectPtr::steal(PyObject_Vectorcall(callable, args, nargsf, nullptr));
    }

private:
    static constexpr std::size_t inline_count = 6;

    PyObject** slots() { return spilled_.empty() ? inline_.data() : spilled_.data(); }

    std::size_t count_;
    std::size_t converted_ = 0; // the references owned: the first slots after the free one
    std::array<PyObject*, inline_count + 1> inline_;
    std::vector<PyObject*> spilled_;
};

} // namespace

Any call_with_host_arguments(PyObject* callable, std::span<Any const> args) {
    vectorcall_arguments arguments(args.size());
    if (Any failure; !arguments.convert(args, failure)) return failure;
    return python_result(arguments.call(callable));
}

} // namespace tesk::cpython
