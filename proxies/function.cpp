// The host class CPythonFunction and its members.
//
// The host calls an instance through I_Callable_Generic::invoke, which the
// class's invoke hook takes straight to Python (vectorcall with the converted
// arguments), without the list of arguments and the lookup of "call" by name
// that a callable instance costs otherwise. "call" itself does the same, for
// callers that look it up.
#include "proxies/function.h"

#include "python/python_name.h"
#include "from_python/attributes.h"
#include "from_python/errors.h"
#include "from_python/from_python.h"
#include "from_python/proxy_makers.h"
#include "from_python/python_object.h"
#include "from_python/python_object_members.h"
#include "to_python/to_python.h"
#include "proxies/forwarding.h"
#include "proxies/function_signature.h"
#include "proxies/function_source.h"
#include "proxies/python_call.h"

#include <atomic>

namespace tesk::cpython {
namespace {

meta_method_untyped const call_key{"call"};
meta_property_untyped const signature_key{"$$signature"};
meta_property_untyped const result_type_key{"$$resultType"};
meta_property_untyped const required_count_key{"$$requiredParameterCount"};
meta_property_untyped const parameter_count_key{"$$parameterCount"};
meta_property_untyped const variadic_key{"$$hasVariadicParameters"};
meta_property_untyped const defaults_key{"$$defaults"};

python_name name_attribute{"__name__"};
python_name doc_attribute{"__doc__"};
python_name defaults_attribute{"__defaults__"};

// Published once the class exists; until then no instance can exist either.
std::atomic<internal::object_value_class const*> class_record{nullptr};

// The items of a host sequence, or the error of reading them.
Any items_of(I_Sequence_Generic const& sequence, std::vector<Any>& items) {
    if (List::test(sequence)) {
        items = List::unsafe(sequence).copyItems();
        return Any();
    }
    Any length = internal::result_unwrap_lazy(sequence.length());
    if (!Integer::test(length)) return length.isError() ? length : result_error_cast_source(length, Integer::getClass());
    std::int64_t const count = Integer::unsafe(length).value();
    for (std::int64_t i = 0; i < count; ++i) {
        Any item = sequence.at(i);
        if (item.isError()) return item;
        items.push_back(std::move(item));
    }
    return Any();
}

// The members take the receiver untyped: the class is still being built
// when they are bound, so it cannot be named as a parameter type yet. The
// receiver is always an instance (the host dispatches on its class), and a
// proxy without an object answers as an empty function.

// What calling an instance does. A proxy without a Python object calls
// nothing and gives none.
Any invoke_function(Any const& self, std::span<Any const> args) {
    python_object_scope scope(self);
    if (!scope) return Any();
    return call_with_host_arguments(scope.object(), args);
}

Any call(Any const& self, I_Sequence<Any> const& args) {
    std::vector<Any> items;
    if (Any failure = items_of(args, items); failure.isError()) return failure;
    return invoke_function(self, items);
}

// Two proxies are the same function when they hold the same Python object.
Boolean same_function(Any const& self, Any const& other) {
    if (!CPythonFunction::test(other)) return Boolean(false);
    gil_guard gil;
    PyObjectPtr mine = get_pyobj(self);
    return Boolean(mine && mine.get() == get_pyobj(other).get());
}

// A str attribute of the held object; empty when there is none.
String text_of_attribute(Any const& self, python_name& attribute) {
    python_object_scope scope(self);
    if (!scope) return String();
    return text_attribute(scope.object(), attribute.get()).value_or(String());
}

String doc(Any const& self) { return text_of_attribute(self, doc_attribute); }
String name_of(Any const& self) { return CPythonFunction::unsafe(self).name(); }
List defaults_of(Any const& self) { return CPythonFunction::unsafe(self).defaults(); }
Result<None> set_defaults(Any const& self, I_Sequence<Any> const& values) {
    return CPythonFunction::unsafe(self).setDefaults(values);
}

Result<Signature> signature(Any const& self) { return function_signature(CPythonFunction::unsafe(self)); }
Type result_type(Any const& self) { return function_result_type(CPythonFunction::unsafe(self)); }

// A figure of the signature; that of no parameters when it cannot be made.
template <class T> T signature_figure(Any const& self, T (Signature::*figure)() const) {
    Result<Signature> made = function_signature(CPythonFunction::unsafe(self));
    return made.is<Signature>() ? (made.as<Signature>().*figure)() : T();
}
int parameter_count(Any const& self) { return signature_figure(self, &Signature::parameterCount); }
int required_parameter_count(Any const& self) {
    return signature_figure(self, &Signature::requiredParameterCount);
}
bool has_variadic_parameters(Any const& self) {
    return signature_figure(self, &Signature::hasVariadicParameters);
}

void set_up_class(Class_Generic const& cls) { set_invoke_hook_unsafe(cls, &invoke_function); }

property_builder_base read_only(meta_property_untyped const& key, I_Callable_Generic const& getter,
                                char const* description = "") {
    property_builder_base property(key);
    property.getter(getter).assign_doc(String(description));
    return property;
}

void fill_class(class_builder_base& builder) {
    Class_Generic const base = cpython_object_class();
    builder.bases({I_HasDoc::getClass(), I_HasName::getClass(), I_Callable<Untyped>::getClass(), base})
        .module(String("tesk.cpython"))
        .doc(String("Invokable wrapper around of a Python function."))
        .entry(entry_tag::option, {Integer(10)})
        .entry(entry_tag::class_callback, {make_closure(&set_up_class)});
    declare_python_object_instances(builder);

    builder.method(method_builder_base(Any::$__isSame__).assign_func(make_closure(&same_function)).signature("self, other").build());
    builder.entry(entry_tag::interface_methods,
                  {I_Callable_Generic::getClass(),
                   method_builder_base(call_key).assign_func(make_closure(&call)).signature("self, args").build()});
    builder.entry(entry_tag::interface_properties,
                  {I_HasDoc::getClass(),
                   read_only(I_HasDoc::$$doc, make_closure(&doc), "Returns description of a function.").entry()});
    builder.entry(entry_tag::interface_properties,
                  {I_HasName::getClass(), read_only(I_HasName::$$name, make_closure(&name_of)).entry()});
    builder.entry(entry_tag::interface_properties,
                  {I_Callable_Generic::getClass(), read_only(signature_key, make_closure(&signature)).entry(),
                   read_only(result_type_key, make_closure(&result_type)).entry(),
                   read_only(required_count_key, make_closure(&required_parameter_count)).entry(),
                   read_only(parameter_count_key, make_closure(&parameter_count)).entry(),
                   read_only(variadic_key, make_closure(&has_variadic_parameters)).entry()});

    property_builder_base defaults(defaults_key);
    defaults.getter(make_closure(&defaults_of))
        .setter(make_closure(&set_defaults))
        .assign_doc(String("Default values for arguments, can be overriden."));
    builder.property(defaults);

    builder.entry(entry_tag::fields,
                  {field_builder_base(signature_field).type(Signature::getClass()).assign_doc("Cached signature.").entry(),
                   field_builder_base(result_type_field).type(Type::getClass()).assign_doc("Cached result type.").entry()});
}

class_accessor function_accessor{"CPythonFunction", &fill_class};

Any function_proxy(PyObject* object) {
    Any made = new_proxy(cpython_function_class(), object);
    // The Python object carries everything it needs (a bound method its
    // receiver): the host passes no receiver.
    if (!made.isError()) I_Callable_Generic::unsafe(made).setIndependent(true);
    return made;
}

Any compile_function(String const& source) { return function_from_source(source); }

struct registration {
    registration() noexcept {
        set_proxy_maker(proxy_kind::callable, &function_proxy);
        set_function_compiler(&compile_function);
    }
} const registered;

} // namespace

Class_Generic cpython_function_class() {
    Class_Generic cls = function_accessor();
    if (!class_record.load(std::memory_order_acquire) && cls.record())
        class_record.store(cls.record(), std::memory_order_release);
    return cls;
}

Union<CPythonFunction, Error> function_from_object(PyObject* object) {
    if (object == nullptr || !PyCallable_Check(object)) return Error(String("The source object isn't a function."));
    return function_proxy(object);
}

} // namespace tesk::cpython

namespace tesk {

using namespace cpython;

bool CPythonFunction::test(Any const& v) noexcept {
    auto const* cls = class_record.load(std::memory_order_acquire);
    return cls != nullptr && v.kind() == Kind::Instance && v.get()->class_value()->is_ancestor(cls);
}

Class_Generic CPythonFunction::getClass() { return cpython_function_class(); }

String CPythonFunction::name() const { return text_of_attribute(*this, name_attribute); }

List CPythonFunction::defaults() const {
    List values;
    python_object_scope scope(*this);
    if (!scope) return values;
    PyObjectPtr held = PyObjectPtr::steal(PyObject_GetAttr(scope.object(), defaults_attribute.get()));
    if (!held) PyErr_Clear();
    if (!held || !PyTuple_Check(held.get())) return values;
    for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(held.get()); ++i) values.append(from_python(PyTuple_GET_ITEM(held.get(), i)));
    return values;
}

Result<None> CPythonFunction::setDefaults(I_Sequence<Any> const& values) const {
    std::vector<Any> items;
    if (Any failure = items_of(values, items); failure.isError()) return failure;
    python_object_scope scope(*this);
    if (!scope) return null_object_error();
    PyObjectPtr tuple = PyObjectPtr::steal(PyTuple_New(static_cast<Py_ssize_t>(items.size())));
    if (!tuple) return take_python_error(Error::unknown());
    for (std::size_t i = 0; i < items.size(); ++i) {
        PyObject* item = to_python(items[i]);
        if (!item) return argument_conversion_error(items[i]);
        PyTuple_SET_ITEM(tuple.get(), static_cast<Py_ssize_t>(i), item); // steals
    }
    if (PyObject_SetAttr(scope.object(), defaults_attribute.get(), tuple.get()) < 0)
        return take_python_error(Error::unknown());
    return None();
}

} // namespace tesk
