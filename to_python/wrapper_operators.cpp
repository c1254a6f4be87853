// The operator slots of the wrapper types: +, *, -, /, &, |, ^, ~ and the
// in-place forms, each forwarded to a host meta-method of the held value.
#include "to_python/wrapper_protocol_slots.h"

#include "python/slot_guard.h"
#include "to_python/python_to_host.h"
#include "to_python/slot_result.h"
#include "to_python/to_python.h"
#include "to_python/wrapper.h"

namespace tesk::cpython {

namespace {

// One operator: the host method it calls, a second name tried when the value
// lacks the first, and the NotImplementedError text ("{}" is the value).
struct operator_method {
    member_key const& method;
    char const* fallback;
    char const* missing;
};

// Calls the operator's method with the value first and the operand after it
// (none for a unary operator), moved into the call.
PyObject* apply(operator_method const& op, PyObject* self, std::span<Any> operand) {
    Any const* held = is_wrapper(self);
    if (!held) return Py_NewRef(Py_NotImplemented); // Python tries the other operand
    // Most values stand for themselves: no copy for them.
    Kind kind = held->kind();
    bool indirect = kind == Kind::Computed || kind == Kind::Weak || kind == Kind::External;
    Any unwrapped = indirect ? internal::unwrap(*held) : Any();
    Any const& value = indirect ? unwrapped : *held;
    if (value.isError()) return slot_result(value); // raises it
    auto method = method_of(value, op.method);
    if (!method && op.fallback) method = method_of(value, String(op.fallback));
    if (!method) return raise_text(PyExc_NotImplementedError, String(op.missing).arg(value));
    return slot_result(call_with_receiver(method.value(), value, operand));
}

PyObject* binary(operator_method const& op, PyObject* self, PyObject* other) noexcept {
    return guarded_slot<PyObject*>(nullptr, [&]() -> PyObject* {
        Any operand;
        if (!python_to_host_value(other, operand)) return nullptr;
        return apply(op, self, {&operand, 1});
    });
}

PyObject* repeat(operator_method const& op, PyObject* self, Py_ssize_t count) noexcept {
    return guarded_slot<PyObject*>(nullptr, [&] {
        Any operand = Integer(static_cast<std::int64_t>(count));
        return apply(op, self, {&operand, 1});
    });
}

} // namespace

PyObject* tesk_sequence_concat(PyObject* self, PyObject* other) noexcept {
    static operator_method const op{Any::$__add__, "concat", "[tesk_sequence_concat] None method 'concat' in: {}"};
    return binary(op, self, other);
}

PyObject* tesk_sequence_extend(PyObject* self, PyObject* other) noexcept {
    static operator_method const op{Any::$__iadd__, "extend", "[tesk_sequence_extend] None method 'extend' in: {}."};
    return binary(op, self, other);
}

PyObject* tesk_sequence_repeat(PyObject* self, Py_ssize_t count) noexcept {
    static operator_method const op{Any::$__mul__, "repeat", "[tesk_sequence_repeat] None method 'repeat' in: {}."};
    return repeat(op, self, count);
}

PyObject* tesk_sequence_inplace_repeat(PyObject* self, Py_ssize_t count) noexcept {
    static operator_method const op{Any::$__imul__, nullptr,
                                    "[tesk_sequence_inplace_repeat] None method '__imul__' in: {}."};
    return repeat(op, self, count);
}

PyObject* tesk_number_subtract(PyObject* self, PyObject* other) noexcept {
    static operator_method const op{Any::$__sub__, nullptr, "[tesk_number_subtract] None method '__sub__' in: {}"};
    return binary(op, self, other);
}

PyObject* tesk_number_inplace_subtract(PyObject* self, PyObject* other) noexcept {
    static operator_method const op{Any::$__isub__, nullptr,
                                    "[tesk_number_inplace_subtract] None method '__isub__' in: {}"};
    return binary(op, self, other);
}

PyObject* tesk_number_divide(PyObject* self, PyObject* other) noexcept {
    static operator_method const op{Any::$__div__, nullptr, "[tesk_number_divide] None method '__div__' in: {}."};
    return binary(op, self, other);
}

PyObject* tesk_number_inplace_divide(PyObject* self, PyObject* other) noexcept {
    static operator_method const op{Any::$__idiv__, nullptr, "[tesk_number_divide] None method '__idiv__' in: {}."};
    return binary(op, self, other);
}

PyObject* tesk_number_and(PyObject* self, PyObject* other) noexcept {
    static operator_method const op{Any::$__and__, nullptr, "[tesk_number_and] None method in: {}"};
    return binary(op, self, other);
}

PyObject* tesk_number_or(PyObject* self, PyObject* other) noexcept {
    static operator_method const op{Any::$__or__, nullptr, "[tesk_number_or] None method in: {}"};
    return binary(op, self, other);
}

PyObject* tesk_number_xor(PyObject* self, PyObject* other) noexcept {
    static operator_method const op{Any::$__xor__, nullptr, "[tesk_number_xor] None method in: {}"};
    return binary(op, self, other);
}

PyObject* tesk_number_not(PyObject* self) noexcept {
    static operator_method const op{Any::$__not__, nullptr, "[tesk_number_not] None method '__not__' in: {}"};
    return guarded_slot<PyObject*>(nullptr, [&] { return apply(op, self, {}); });
}

} // namespace tesk::cpython
