#include "proxies/mapping_proxy.h"

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

python_name keys_name{"keys"};
python_name values_name{"values"};

// The value of `key`, or `fallback` when the mapping has no such key; a
// missing key raises nothing in Python.
Result<Any> get(Any const& self, Any const& key, Any fallback) {
    return Result<Any>(with_python_object(self, [&](PyObject* object) -> Any {
        if (!has_contains(object)) return error_method_not_found(String("__contains__"), self);
        Any failure;
        PyObjectPtr pythonKey = argument_to_python(key, failure);
        if (!pythonKey) return failure;
        // A plain dict answers both questions in one lookup.
        if (PyDict_CheckExact(object)) {
            PyObject* value = nullptr;
            int found = PyDict_GetItemRef(object, pythonKey.get(), &value);
            PyObjectPtr owned = PyObjectPtr::steal(value);
            if (found < 0) return take_python_error(Error::unknown());
            return found == 0 ? fallback : from_python_locked(owned.get());
        }
        // `key in d`, then `d[key]`: a subclass's __missing__ is never asked.
        int found = PySequence_Contains(object, pythonKey.get());
        if (found < 0) return take_python_error(Error::unknown());
        if (found == 0) return fallback;
        return python_result(PyObjectPtr::steal(PyObject_GetItem(object, pythonKey.get())));
    }));
}

Result<None> set(Any const& self, Any const& key, Any const& value) {
    return forward_dropping_value(self, "__setitem__", {key, value});
}

// The removed value; a missing key is Python's KeyError.
Result<Any> remove(Any const& self, Any const& key) {
    Any const args[] = {key};
    return Result<Any>(call_method(self, "pop", args));
}

// What d.keys() or d.values() gives, collected into a new host list: a
// snapshot. A proxy without an object gives an empty list; an exception
// while iterating ends the list there.
Result<List> collected(Any const& self, python_name& method) {
    python_object_scope scope(self);
    List items;
    if (!scope) return items;
    PyObject* name = method.get();
    if (!name) return take_python_error(Error::unknown());
    PyObjectPtr view = PyObjectPtr::steal(PyObject_CallMethodNoArgs(scope.object(), name));
    if (!view) return take_python_error(Error::unknown());
    PyObjectPtr iterator = PyObjectPtr::steal(PyObject_GetIter(view.get()));
    if (!iterator) {
        PyErr_Clear();
        return items;
    }
    while (PyObjectPtr item = PyObjectPtr::steal(PyIter_Next(iterator.get()))) items.append(from_python(item.get()));
    PyErr_Clear();
    return items;
}

Result<List> keys(Any const& self) { return collected(self, keys_name); }
Result<List> values(Any const& self) { return collected(self, values_name); }

// `get` without a default: the member's default is none.
constexpr internal::native_operations native_answers{
    .get = [](Any const& self, Any const& key) -> Any { return get(self, key, Any()); },
};

void fill_class(class_builder_base& builder) {
    Class_Generic const mutableMap = I_MutableMap_Generic::getClass();
    declare_proxy_class(builder, mutableMap, cpython_object_class());
    answer_natively<native_answers>(builder);
    builder.entry(entry_tag::interface_methods,
                  {mutableMap, proxy_method(I_MutableMap_Generic::$set, make_closure(&set), "self, key, value"),
                   proxy_method(I_MutableMap_Generic::$remove, make_closure(&remove), "self, key"),
                   proxy_method(I_Map_Generic::$get, make_closure(&get), "self, key, default", {Any()}),
                   proxy_method(I_Iterable_Generic::$iter, make_closure(&proxy_iter), "self"),
                   proxy_method(I_Iterable_Generic::$contains, make_closure(&proxy_contains), "self, key"),
                   proxy_method(I_MutableMap_Generic::$clear, make_closure(&proxy_clear), "self")});
    builder.entry(entry_tag::interface_properties,
                  {I_Map_Generic::getClass(), proxy_property(I_Map_Generic::$$keys, make_closure(&keys)),
                   proxy_property(I_Map_Generic::$$values, make_closure(&values)),
                   constant_property(I_Map_Generic::$$keysType, Type::untyped()),
                   constant_property(I_Map_Generic::$$valuesType, Type::untyped()),
                   proxy_property(I_Map_Generic::$$__len__, make_closure(&proxy_length))});
}

Any make_mapping_proxy(PyObject* object) { return new_proxy(cpython_proxy_mapping_class(), object); }

struct registration {
    registration() noexcept { set_proxy_maker(proxy_kind::mapping, &make_mapping_proxy); }
} const registered;

} // namespace

Class_Generic cpython_proxy_mapping_class() {
    static class_accessor const accessor("CPythonProxyMapping", &fill_class);
    return accessor();
}

} // namespace tesk::cpython
