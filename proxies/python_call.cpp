#include "proxies/python_call.h"

#include "from_python/errors.h"
#include "from_python/from_python.h"
#include "to_python/to_python.h"

#include <array>
#include <vector>

namespace tesk::cpython {
namespace {

// The Python forms of a call's arguments, owned, laid out as vectorcall
// wants them: one free slot in front, which the callee may borrow to prepend
// a receiver without copying (PY_VECTORCALL_ARGUMENTS_OFFSET). Calls with a
// few arguments, the common case, allocate nothing.
class vectorcall_arguments {
public:
    explicit vectorcall_arguments(std::size_t count) : count_(count) {
        if (count > inline_count) {
            spilled_owned_.resize(count);
            spilled_slots_.resize(count + 1);
        }
    }

    // Converts the arguments in order; the first that has no Python form
    // stops it and gives its error.
    Union<None, Error> convert(std::span<Any const> args) {
        PyObject** slots = this->slots();
        for (std::size_t i = 0; i < count_; ++i) {
            PyObjectPtr& owned = spilled_owned_.empty() ? inline_owned_[i] : spilled_owned_[i];
            owned = to_python_ref(args[i]);
            if (!owned) return argument_conversion_error(args[i]);
            slots[i + 1] = owned.get();
        }
        return {};
    }

    PyObjectPtr call(PyObject* callable) {
        return PyObjectPtr::steal(
            PyObject_Vectorcall(callable, slots() + 1, count_ | PY_VECTORCALL_ARGUMENTS_OFFSET, nullptr));
    }

private:
    static constexpr std::size_t inline_count = 6;

    PyObject** slots() { return spilled_slots_.empty() ? inline_slots_.data() : spilled_slots_.data(); }

    std::size_t count_;
    std::array<PyObjectPtr, inline_count> inline_owned_;
    std::array<PyObject*, inline_count + 1> inline_slots_{};
    std::vector<PyObjectPtr> spilled_owned_;
    std::vector<PyObject*> spilled_slots_;
};

} // namespace

Any call_with_host_arguments(PyObject* callable, std::span<Any const> args) {
    vectorcall_arguments arguments(args.size());
    if (Union<None, Error> failure = arguments.convert(args); failure.isError()) return failure;
    PyObjectPtr result = arguments.call(callable);
    // An exception that is no Error (SystemExit, say) still fails the call.
    if (!result) return take_python_error(Error::unknown());
    return from_python(result.get());
}

} // namespace tesk::cpython
