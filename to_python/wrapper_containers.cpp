// The container slots of the wrapper types: len(), indexing and slicing, item
// assignment and deletion, and `in`, forwarded to the host's container
// methods of the held value (a host list, map or set, or any value whose
// class offers the same methods).
#include "to_python/wrapper_protocol_slots.h"

#include "python/python_integers.h"
#include "python/slot_guard.h"
#include "to_python/python_to_host.h"
#include "to_python/slot_result.h"
#include "to_python/lookup_errors.h"
#include "to_python/to_python.h"
#include "to_python/wrapper.h"

namespace tesk::cpython {

namespace {

char const not_a_sequence[] = "Object is not a Tesk sequence.";

// Calls the member `name` of `value`; a missing member is the host's
// method-not-found error.
Any call_named(Any const& value, member_key const& name, std::initializer_list<Any> args) {
    return value.callMethod(name, {args.begin(), args.size()});
}

// Whether `index` lies outside the sequence (as far as its length says).
bool out_of_range(Any const& sequence, std::int64_t index) {
    Any length = internal::result_unwrap_lazy(sequence.propertyValue(I_Sequence_Generic::$$__len__));
    return Integer::test(length) && (index < 0 || index >= Integer::unsafe(length).value());
}

// The result of reading or writing the item at `index`: a failure at an index
// outside the sequence is IndexError (with the host's message), any other
// failure the host's error.
PyObject* item_result(Any const& sequence, std::int64_t index, Any const& result) {
    Any value = internal::result_unwrap_lazy(result);
    if (value.isError() && out_of_range(sequence, index)) return raise_index_error(value.error().message());
    return slot_result(value);
}

int item_status(Any const& sequence, std::int64_t index, Any const& result) {
    PyObjectPtr const done = PyObjectPtr::steal(item_result(sequence, index, result));
    return done ? 0 : -1;
}

// w[a:b:c] of a host sequence: a step of 1 is the host's own slice, any other
// step collects the items one by one into a host list.
PyObject* slice_of(I_Sequence_Generic const& sequence, PyObject* slice) {
    Any length = internal::result_unwrap_lazy(sequence.length());
    if (!Integer::test(length)) return slot_result(length); // raises the Error
    Py_ssize_t start = 0, stop = 0, step = 0;
    if (PySlice_Unpack(slice, &start, &stop, &step) < 0) return nullptr;
    Py_ssize_t count = PySlice_AdjustIndices(static_cast<Py_ssize_t>(Integer::unsafe(length).value()), &start,
                                             &stop, step);
    if (step == 1) return slot_result(sequence.sliced(start, stop));
    List items(sequence.elementsType());
    for (Py_ssize_t i = 0, at = start; i < count; ++i, at += step) {
        Any item = internal::result_unwrap_lazy(sequence.at(at));
        if (item.isError()) return slot_result(item);
        items.append(item);
    }
    return to_python(items);
}

// Whether xs[i] is a host List or Tuple indexed by an int inside it, read
// under one lock with no host value made for the index; `result` is then
// the item (null with the conversion's exception). Any other container, key
// or index takes the general path.
bool builtin_item(Any const& held, PyObject* key, PyObject*& result) {
    // An exact int of one digit, read in place: a bool or an int subclass
    // converts as the general path says, and an index of 2**30 or more is
    // answered there too, the same way but slower.
    std::int64_t index = 0;
    ItemRead item;
    if (!compact_python_integer(key, index) || !I_Sequence_Generic::readBuiltin(held, index, item)) return false;
    result = slot_result(item);
    return true;
}

PyObject* subscript(PyObject* self, PyObject* key) {
    Any const* held = is_wrapper(self);
    if (!held) return raise_key_error(python_to_host(key));
    if (PyObject* item = nullptr; builtin_item(*held, key, item)) return item;
    Any value = internal::unwrap(*held);
    if (value.isError()) return slot_result(value);
    if (I_Map_Generic::test(value)) {
        Any hostKey;
        if (!python_to_host_value(key, hostKey)) return nullptr;
        if (!I_Immutable::test(hostKey)) return raise_key_error(hostKey);
        Any found = internal::result_unwrap_lazy(I_Map_Generic::unsafe(value).get(hostKey));
        // A missing key is Python's KeyError, not the host's message.
        if (found.isError()) return raise_key_error(hostKey);
        return slot_result(found);
    }
    if (I_Sequence_Generic::test(value)) {
        I_Sequence_Generic sequence = I_Sequence_Generic::unsafe(value);
        if (Py_IS_TYPE(key, &PySlice_Type)) return slice_of(sequence, key);
        Any index = python_to_host(key);
        if (!Integer::test(index)) return raise_key_error(index);
        // Negative indices go to the host as they are.
        std::int64_t const at = Integer::unsafe(index).value();
        return item_result(value, at, sequence.at(at));
    }
    return raise_key_error(python_to_host(key));
}

int assign_subscript(PyObject* self, PyObject* key, PyObject* item) {
    Any hostKey, hostItem;
    if (!python_to_host_value(key, hostKey) || (item && !python_to_host_value(item, hostItem))) return -1;
    Any const* held = is_wrapper(self);
    if (!held) {
        raise_key_error(hostKey);
        return -1;
    }
    Any value = internal::unwrap(*held);
    bool const isMap = I_Map_Generic::test(value);
    Any result = item ? call_named(value, I_MutableSequence_Generic::$set, {hostKey, hostItem})
                      : call_named(value, isMap ? I_MutableMap_Generic::$remove : I_MutableSequence_Generic::$removeAt,
                                   {hostKey});
    if (!isMap && Integer::test(hostKey)) return item_status(value, Integer::unsafe(hostKey).value(), result);
    result = internal::result_unwrap_lazy(result);
    if (isMap && !item && result.isError()) {
        raise_key_error(hostKey); // del m[k] of a missing key
        return -1;
    }
    return slot_status(result);
}

} // namespace

Py_ssize_t tesk_length(PyObject* self) noexcept {
    return guarded_slot<Py_ssize_t>(-1, [&]() -> Py_ssize_t {
        Any const* held = is_wrapper(self);
        if (!held) {
            PyErr_SetString(PyExc_TypeError, not_a_sequence);
            return -1;
        }
        Any length = internal::result_unwrap_lazy(held->propertyValue(I_Sequence_Generic::$$__len__));
        if (length.isError()) return slot_status(length);
        if (!Integer::test(length)) {
            PyErr_SetString(PyExc_TypeError, not_a_sequence);
            return -1;
        }
        return static_cast<Py_ssize_t>(Integer::unsafe(length).value());
    });
}

PyObject* tesk_sequence_item(PyObject* self, Py_ssize_t index) noexcept {
    return guarded_slot<PyObject*>(nullptr, [&]() -> PyObject* {
        Any const* held = is_wrapper(self);
        if (!held) return raise_text(PyExc_TypeError, String(not_a_sequence));
        auto const at = static_cast<std::int64_t>(index);
        if (ItemRead item; I_Sequence_Generic::readBuiltin(*held, at, item)) return slot_result(item);
        Any value = internal::unwrap(*held);
        if (value.isError()) return slot_result(value);
        return item_result(value, at, call_named(value, I_Sequence_Generic::$at, {Integer(at)}));
    });
}

int tesk_sequence_assign_item(PyObject* self, Py_ssize_t index, PyObject* item) noexcept {
    return guarded_slot<int>(-1, [&]() -> int {
        Any const* held = is_wrapper(self);
        if (!held) {
            PyErr_SetString(PyExc_TypeError, not_a_sequence);
            return -1;
        }
        Any value = internal::unwrap(*held);
        auto const at = static_cast<std::int64_t>(index);
        Any hostItem;
        if (item && !python_to_host_value(item, hostItem)) return -1;
        if (item) return item_status(value, at, call_named(value, I_MutableSequence_Generic::$set, {Integer(at), hostItem}));
        return item_status(value, at, call_named(value, I_MutableSequence_Generic::$removeAt, {Integer(at)}));
    });
}

int tesk_contains(PyObject* self, PyObject* item) noexcept {
    return guarded_slot<int>(-1, [&]() -> int {
        Any const* held = is_wrapper(self);
        if (!held) return 0;
        Any value = internal::unwrap(*held);
        Any hostItem;
        if (!python_to_host_value(item, hostItem)) return -1;
        Any found = internal::result_unwrap_lazy(call_named(value, I_Iterable_Generic::$contains, {hostItem}));
        if (found.isError()) return slot_status(found);
        return Boolean::from(found).value() ? 1 : 0;
    });
}

PyObject* tesk_subscript(PyObject* self, PyObject* key) noexcept {
    return guarded_slot<PyObject*>(nullptr, [&] { return subscript(self, key); });
}

int tesk_assign_subscript(PyObject* self, PyObject* key, PyObject* value) noexcept {
    return guarded_slot<int>(-1, [&] { return assign_subscript(self, key, value); });
}

} // namespace tesk::cpython
