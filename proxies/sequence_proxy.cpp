#include "proxies/sequence_proxy.h"

#include "python/python_name.h"
#include "from_python/errors.h"
#include "from_python/from_python.h"
#include "from_python/proxy_makers.h"
#include "proxies/container_protocol.h"
#include "proxies/forwarding.h"
#include "proxies/iterator_proxy.h"
#include "proxies/proxy_class.h"

namespace tesk::cpython {
namespace {

python_name index_name{"index"};

// `object[index]`, a new reference or null with the Python error pending.
PyObjectPtr item_at(PyObject* object, std::int64_t index) {
    // For a list or tuple this is what their __getitem__ does, negative
    // indices included, without making an int; a class of the user's own
    // gets the index exactly as given.
    if (PyList_CheckExact(object) || PyTuple_CheckExact(object))
        return PyObjectPtr::steal(PySequence_GetItem(object, static_cast<Py_ssize_t>(index)));
    PyObjectPtr key = PyObjectPtr::steal(PyLong_FromLongLong(index));
    if (!key) return {};
    return PyObjectPtr::steal(PyObject_GetItem(object, key.get()));
}

Result<Any> at(Any const& self, std::int64_t index) {
    return Result<Any>(with_python_object(self, [&](PyObject* object) -> Any {
        if (!PyList_CheckExact(object) && !PyTuple_CheckExact(object) && !has_subscript(object))
            return error_method_not_found(String("__getitem__"), self);
        return python_result(item_at(object, index));
    }));
}

// The element, or `fallback` on any failure (the Python error is taken).
Any at_or(Any const& self, std::int64_t index, Any const& fallback) {
    Any item = internal::result_unwrap_lazy(at(self, index));
    return item.isError() ? fallback : item;
}

// The position of the first element equal to `value` at or after `from`;
// -1 when there is none, or `value` has no Python form.
Result<Integer> index_of(Any const& self, Any const& value, int from) {
    return Result<Integer>(with_python_object(self, [&](PyObject* object) -> Any {
        Any failure;
        PyObjectPtr item = argument_to_python(value, failure);
        PyObjectPtr start = PyObjectPtr::steal(PyLong_FromLong(from));
        PyObject* name = index_name.get();
        PyObjectPtr found = item && start && name ? PyObjectPtr::steal(PyObject_CallMethodObjArgs(
                                                        object, name, item.get(), start.get(), nullptr))
                                                  : PyObjectPtr();
        if (!found) {
            PyErr_Clear();
            return Integer(-1);
        }
        Any position = from_python(found.get());
        return Integer::test(position) ? position : Integer(-1);
    }));
}

Result<None> set(Any const& self, std::int64_t index, Any const& value) {
    return forward_dropping_value(self, "__setitem__", {Integer(index), value});
}

Result<None> append(Any const& self, Any const& value) { return forward_dropping_value(self, "append", {value}); }

// Python's insert: an index past either end puts the value at that end.
Result<None> append_at(Any const& self, Integer const& index, Any const& value) {
    return forward_dropping_value(self, "insert", {index, value});
}

Result<None> extend(Any const& self, I_Iterable_Generic const& values) {
    return forward_dropping_value(self, "extend", {values});
}

Result<Any> pop(Any const& self, Integer const& index) {
    Any const args[] = {index};
    return Result<Any>(call_method(self, "pop", args));
}

// `count` elements from `index` on, each deleted at the same index; the first
// failure ends it, and the deletions made before it stay.
Result<None> remove_at(Any const& self, std::int64_t index, std::int64_t count) {
    for (std::int64_t i = 0; i < count; ++i) {
        Result<None> removed = forward_dropping_value(self, "__delitem__", {Integer(index)});
        if (removed.is<Error>()) return removed;
    }
    return {};
}

// Whether the first element equal to `value` was there to remove. Counted
// first, so that an absent value raises nothing.
Result<Boolean> remove_one(Any const& self, Any const& value) {
    Any const args[] = {value};
    Any count = internal::result_unwrap_lazy(call_method(self, "count", args));
    if (count.isError()) return Result<Boolean>(count);
    if (!Integer::test(count) || Integer::unsafe(count).value() <= 0) return Boolean(false);
    Result<None> removed = forward_dropping_value(self, "remove", {value});
    if (removed.is<Error>()) return Result<Boolean>(removed.as<Error>());
    return Boolean(true);
}

constexpr internal::native_operations native_answers{
    .at = [](Any const& self, std::int64_t index) -> Any { return at(self, index); },
    .at_or = &at_or,
};

void fill_class(class_builder_base& builder) {
    Class_Generic const mutableSequence = I_MutableSequence_Generic::getClass();
    declare_proxy_class(builder, mutableSequence, cpython_object_class());
    answer_natively<native_answers>(builder);
    builder.entry(entry_tag::interface_methods,
                  {mutableSequence,
                   proxy_method(I_MutableSequence_Generic::$set, make_closure(&set), "self, index, value"),
                   proxy_method(I_MutableSequence_Generic::$removeAt, make_closure(&remove_at), "self, index, count",
                                {Integer(1)}),
                   proxy_method(I_MutableSequence_Generic::$removeOne, make_closure(&remove_one), "self, value"),
                   proxy_method(I_MutableSequence_Generic::$pop, make_closure(&pop), "self, index"),
                   proxy_method(I_MutableSequence_Generic::$extend, make_closure(&extend), "self, values"),
                   proxy_method(I_MutableSequence_Generic::$clear, make_closure(&proxy_clear), "self"),
                   proxy_method(I_MutableSequence_Generic::$appendAt, make_closure(&append_at), "self, index, value"),
                   proxy_method(I_MutableSequence_Generic::$append, make_closure(&append), "self, value")});
    builder.entry(entry_tag::interface_methods,
                  {I_Sequence_Generic::getClass(),
                   proxy_method(I_Sequence_Generic::$indexOf, make_closure(&index_of), "self, value, from",
                                {Integer(0)}),
                   proxy_method(I_Iterable_Generic::$iter, make_closure(&proxy_iter), "self"),
                   proxy_method(I_Iterable_Generic::$contains, make_closure(&proxy_contains), "self, value"),
                   proxy_method(I_Sequence_Generic::$atOr, make_closure(&at_or), "self, index, default"),
                   proxy_method(I_Sequence_Generic::$at, make_closure(&at), "self, index")});
    builder.entry(entry_tag::interface_properties,
                  {I_Sequence_Generic::getClass(),
                   proxy_property(I_Sequence_Generic::$$__len__, make_closure(&proxy_length))});
}

Any make_sequence_proxy(PyObject* object) { return new_proxy(cpython_proxy_sequence_class(), object); }

struct registration {
    registration() noexcept { set_proxy_maker(proxy_kind::sequence, &make_sequence_proxy); }
} const registered;

} // namespace

Class_Generic cpython_proxy_sequence_class() {
    static class_accessor const accessor("CPythonProxySequence", &fill_class);
    return accessor();
}

} // namespace tesk::cpython
