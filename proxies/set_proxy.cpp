#include "proxies/set_proxy.h"

#include "python/python_name.h"
#include "from_python/errors.h"
#include "from_python/proxy_makers.h"
#include "proxies/container_protocol.h"
#include "proxies/forwarding.h"
#include "proxies/iterable_proxy.h"
#include "proxies/proxy_class.h"

namespace tesk::cpython {
namespace {

python_name remove_name{"remove"};

// Whether the set grew: `add` says nothing, so the length is read before and
// after it.
Result<Boolean> insert(Any const& self, Any const& value) {
    Any before = internal::result_unwrap_lazy(proxy_length(self));
    if (before.isError()) return Result<Boolean>(before);
    Result<None> added = forward_dropping_value(self, "add", {value});
    if (added.isError()) return Result<Boolean>(added);
    Any after = internal::result_unwrap_lazy(proxy_length(self));
    if (after.isError()) return Result<Boolean>(after);
    return Boolean(Integer::unsafe(after).value() > Integer::unsafe(before).value());
}

// Whether an element was removed. Whatever `remove` raises (KeyError for an
// absent element, TypeError for an unhashable one) just means "no".
Result<Boolean> remove(Any const& self, Any const& value) {
    python_object_scope scope(self);
    if (!scope) return Boolean();
    PyObject* name = remove_name.get();
    PyObjectPtr method = name ? PyObjectPtr::steal(PyObject_GetAttr(scope.object(), name)) : PyObjectPtr();
    if (!method || !PyCallable_Check(method.get())) {
        PyErr_Clear();
        return Error(String("The method is missing in {}.").arg(self));
    }
    Any failure;
    PyObjectPtr item = argument_to_python(value, failure);
    if (!item) return Result<Boolean>(failure);
    PyObjectPtr removed = PyObjectPtr::steal(PyObject_CallOneArg(method.get(), item.get()));
    if (removed) return Boolean(true);
    PyErr_Clear();
    return Boolean(false);
}

// Adds the elements of a host iterable in its own order; the first failure
// ends it, and what was added before stays.
Result<None> extend(Any const& self, I_Iterable_Generic const& values) {
    Result<I_Iterator_Generic> started = values.iter();
    Any iterator = internal::result_unwrap_lazy(started);
    if (iterator.isError()) return Result<None>(iterator);
    if (!I_Iterator_Generic::test(iterator)) return result_error_cast_source(iterator, I_Iterator_Generic::getClass());
    for (;;) {
        Any value = I_Iterator_Generic::unsafe(iterator).next();
        if (StopIteration::test(value)) return {};
        if (value.isError()) return Result<None>(value);
        if (Result<None> added = forward_dropping_value(self, "add", {value}); added.isError()) return added;
    }
}

void fill_class(class_builder_base& builder) {
    Class_Generic const mutableSet = I_MutableSet_Generic::getClass();
    declare_proxy_class(builder, mutableSet, cpython_proxy_iterable_class());
    builder.entry(entry_tag::interface_methods,
                  {mutableSet, proxy_method(I_MutableSet_Generic::$remove, make_closure(&remove), "self, value"),
                   proxy_method(I_MutableSet_Generic::$insert, make_closure(&insert), "self, value"),
                   proxy_method(I_MutableSet_Generic::$extend, make_closure(&extend), "self, values"),
                   proxy_method(I_MutableSet_Generic::$clear, make_closure(&proxy_clear), "self")});
    builder.entry(entry_tag::interface_properties,
                  {I_Set_Generic::getClass(), proxy_property(I_Set_Generic::$$__len__, make_closure(&proxy_length))});
}

Any make_set_proxy(PyObject* object) { return new_proxy(cpython_proxy_set_class(), object); }

struct registration {
    registration() noexcept { set_proxy_maker(proxy_kind::set, &make_set_proxy); }
} const registered;

} // namespace

Class_Generic cpython_proxy_set_class() {
    static class_accessor const accessor("CPythonProxySet", &fill_class);
    return accessor();
}

} // namespace tesk::cpython
