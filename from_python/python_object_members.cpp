// CPythonObject's members. Each overrides the universal method of the same
// name, so that the host's generic member operations (property_of,
// propertyValue, method_of, display, compare_objects ...) reach the Python
// object's attributes one by one, by name.
#include "from_python/python_object_members.h"

#include "python/python_once.h"
#include "from_python/errors.h"
#include "from_python/from_python.h"
#include "from_python/python_object.h"
#include "to_python/to_python.h"

#include <atomic>

namespace tesk::cpython {

namespace {

std::atomic<function_compiler> registered_compiler{nullptr};

// The pending Python exception as a host Error; one that is no Error
// (SystemExit, say) still fails the operation.
Error pending_error() { return take_python_error(Error::unknown()); }

// The Python attribute `name` of the held object, or null with the error
// pending. The caller holds a scope.
PyObjectPtr attribute(python_object_scope const& scope, String const& name) {
    return PyObjectPtr::steal(PyObject_GetAttrString(scope.object(), name.c_str()));
}

// A Python attribute as a host callable, or none. `independent`: a callable
// made for it carries its object already (a bound method), so the host must
// not pass the proxy as a receiver.
Union<I_Callable_Generic, None> python_method(Any const& self, String const& name, bool independent) {
    python_object_scope scope(self);
    if (!scope) return {};
    PyObjectPtr found = attribute(scope, name);
    if (!found) {
        PyErr_Clear();
        return {};
    }
    Any converted = from_python(found.get());
    if (!I_Callable_Generic::test(converted)) return {};
    // Only a proxy made just now is ours to mark; a host callable that came
    // back from Python is shared.
    if (independent && is_python_object(converted)) I_Callable_Generic::unsafe(converted).setIndependent(true);
    return Union<I_Callable_Generic, None>(converted);
}

// Calls a getter or setter that the class stores: with the proxy first,
// unless it is independent.
// Sets the Python attribute `name` of the scope's object to a host value.
Any set_python_attribute(python_object_scope const& scope, String const& name, Any const& value) {
    PyObjectPtr converted = to_python_ref(value);
    if (!converted) return argument_conversion_error(value);
    if (PyObject_SetAttrString(scope.object(), name.c_str(), converted.get()) < 0) return pending_error();
    return Any();
}

Any call_accessor(Any const& accessor, Any const& self, std::span<Any const> args) {
    I_Callable_Generic callable = I_Callable_Generic::unsafe(accessor);
    if (callable.isIndependent()) return callable.invoke(args);
    std::vector<Any> all{self};
    all.insert(all.end(), args.begin(), args.end());
    return callable.invoke(all);
}

// ---- properties --------------------------------------------------------------

Any property_value(Any const& self, String const& name) {
    if (Any getter = raw_class_of(self).record()->find_property_getter(name); getter.hasValue())
        return call_accessor(getter, self, {});
    python_object_scope scope(self);
    if (!scope) return null_object_error();
    PyObjectPtr value = attribute(scope, name);
    if (!value) return pending_error();
    return from_python(value.get());
}

Any set_property_value(Any const& self, String const& name, Any const& value) {
    internal::object_value_class const* cls = raw_class_of(self).record();
    if (Any setter = cls->find_property_setter(name); setter.hasValue())
        return call_accessor(setter, self, std::span<Any const>(&value, 1));
    if (cls->find_property_getter(name).hasValue())
        return Error(String("The property '{}' is read-only for '{}'.").arg(name, self));
    python_object_scope scope(self);
    if (!scope) return null_object_error();
    return set_python_attribute(scope, name, value);
}

// A callable part of a Python property (fget, fset) as a host callable that
// the host calls with the proxy: the Python function takes the object itself.
Union<I_Callable_Generic, None> property_accessor(PyObject* property, char const* part) {
    PyObjectPtr function = PyObjectPtr::steal(PyObject_GetAttrString(property, part));
    if (!function) {
        PyErr_Clear();
        return {};
    }
    if (function.get() == Py_None) return {};
    Any converted = from_python(function.get());
    if (!I_Callable_Generic::test(converted)) return {};
    if (is_python_object(converted)) I_Callable_Generic::unsafe(converted).setIndependent(false);
    return Union<I_Callable_Generic, None>(converted);
}

Union<Property, None> property(Any const& self, String const& name) {
    if (auto own = raw_property_of(self, name)) return own;
    python_object_scope scope(self);
    if (!scope) return {};
    // A Python property lives in the class: read through the instance it
    // would give its value, not itself.
    PyObjectPtr declared = PyObjectPtr::steal(PyObject_GetAttrString(
        reinterpret_cast<PyObject*>(Py_TYPE(scope.object())), name.c_str()));
    if (!declared) PyErr_Clear();
    if (declared && PyObject_TypeCheck(declared.get(), &PyProperty_Type)) {
        if (auto getter = property_accessor(declared.get(), "fget")) {
            auto setter = property_accessor(declared.get(), "fset");
            return Property(getter.value(), setter.has_value() ? Any(setter.value()) : Any(), String());
        }
    }
    PyObjectPtr value = attribute(scope, name);
    if (!value) {
        PyErr_Clear();
        return {};
    }
    // A snapshot: later changes of the attribute do not reach this Property.
    property_builder_base snapshot(name);
    snapshot.assign_getter_value(from_python(value.get()));
    return snapshot.build();
}

Any insert_property(Any const& self, String const& name, Property const& inserted) {
    // Only a fixed value has a Python form (a none value cannot be told from
    // a getter that computes one, and is refused with it).
    Any constant = internal::constant_callable_value(inserted.getter());
    python_object_scope scope(self);
    if (!scope) return null_object_error();
    if (constant.isNone())
        return Error(String(
            "Unable to insert non-value property to a python object, use 'raw_insert_property' instead."));
    return set_python_attribute(scope, name, constant);
}

// ---- methods -----------------------------------------------------------------

Union<I_Callable_Generic, None> method(Any const& self, String const& name) {
    if (auto own = raw_method_of(self, name)) return own;
    return python_method(self, name, false);
}

Any insert_method(Any const& self, String const& name, I_Callable_Generic const& inserted) {
    I_Callable_Generic callable = inserted;
    // Python calls the attribute without the object, so a method that
    // expects one gets it bound here.
    if (!callable.isIndependent()) {
        auto signature = callable.signature();
        if (signature.is<Signature>() && signature.as<Signature>().parameterCount() >= 1)
            callable = callable.bindInstance(self);
    }
    python_object_scope scope(self);
    if (!scope) return null_object_error();
    return set_python_attribute(scope, name, callable);
}

Boolean remove_nothing(Any const&, String const&) { return Boolean(false); }
HashMap no_own_members(Any const&) { return HashMap(); }

// ---- display and comparison --------------------------------------------------

Result<String> display_text(Any const& self) {
    Any text = call_method(self, "__str__");
    if (text.isError() || String::test(text) || text.isComputed()) return Result<String>(text);
    return result_error_cast_source(text, String::getClass());
}

Ordering by_identity(Any const& a, Any const& b) {
    auto ida = static_cast<std::int64_t>(object_id(a));
    auto idb = static_cast<std::int64_t>(object_id(b));
    return Ordering::fromSign(ida - idb);
}

// The comparison of last resort: a Python function compiled once, kept for
// the process (its Python object is never released).
PyObject* comparison_function() {
    static python_once once;
    static PyObject* function = nullptr;
    once.run([] {
        function_compiler compile = registered_compiler.load(std::memory_order_acquire);
        if (compile == nullptr) return;
        Any made = compile(String("def cmp(a, b):\n    if a > b:\n        return 1\n    else:\n        if a < b:\n"
                                  "            return -1\n    return 0"));
        function = get_pyobj(made).release();
    });
    return function;
}

// True only for the True object itself; the result is released.
bool is_true_result(PyObject* result) {
    PyObjectPtr owned = PyObjectPtr::steal(result);
    if (!owned) PyErr_Clear();
    return owned.get() == Py_True;
}

Any compare(Any const& self, Any const& other) {
    if (!is_python_object(other)) return Integer(by_identity(self, other).value());
    python_object_scope a(self);
    PyObjectPtr b = get_pyobj(other);
    if (!a || !b) return Integer(by_identity(self, other).value());
    if (a.object() == b.get()) return Integer(0);
    if (richcmpfunc rich = Py_TYPE(a.object())->tp_richcompare) {
        if (is_true_result(rich(a.object(), b.get(), Py_LT))) return Integer(-1);
        if (is_true_result(rich(a.object(), b.get(), Py_GT))) return Integer(1);
        if (is_true_result(rich(a.object(), b.get(), Py_EQ))) return Integer(0);
    }
    PyObject* helper = comparison_function();
    PyObjectPtr result =
        helper ? PyObjectPtr::steal(PyObject_CallFunctionObjArgs(helper, a.object(), b.get(), nullptr)) : PyObjectPtr();
    if (!result) {
        if (PyErr_Occurred()) return pending_error();
        return Error(String("Unable to call helper function."));
    }
    Any sign = from_python(result.get());
    if (!Integer::test(sign)) return sign.isError() ? sign : result_error_cast_source(sign, Integer::getClass());
    return Integer(Ordering::fromSign(Integer::unsafe(sign).value()).value());
}

// ---- the class set-up hook ---------------------------------------------------

Any method_hook(Any const& self, String const& name) {
    if (auto own = raw_method_of(self, name)) return own;
    return python_method(self, name, true);
}

Any read_hook(Any const& self, String const& name) { return property_value(self, name); }
Any write_hook(Any const& self, String const& name, Any const& value) { return set_property_value(self, name, value); }

void set_up_class(Class_Generic const& cls) {
    set_method_hook_unsafe(cls, &method_hook);
    set_property_hooks_unsafe(cls, &read_hook, &write_hook);
}

I_Callable_Generic member(meta_method_untyped const& key, I_Callable_Generic const& function, char const* parameters) {
    return method_builder_base(key).assign_func(function).signature(String(parameters)).build();
}

} // namespace

void set_function_compiler(function_compiler compile) noexcept {
    registered_compiler.store(compile, std::memory_order_release);
}

void add_python_object_members(class_builder_base& builder) {
    builder.entry(entry_tag::class_callback, {make_closure(&set_up_class)});
    builder.entry(entry_tag::method, {member(Any::$__setPropertyValue__, make_closure(&set_property_value), "self, name, value")});
    builder.entry(entry_tag::method, {member(Any::$__removeProperty__, make_closure(&remove_nothing), "self, name")});
    builder.entry(entry_tag::method, {member(Any::$__removeMethod__, make_closure(&remove_nothing), "self, name")});
    builder.entry(entry_tag::method, {member(Any::$__propertyValue__, make_closure(&property_value), "self, name")});
    builder.entry(entry_tag::method, {member(Any::$__property__, make_closure(&property), "self, name")});
    builder.entry(entry_tag::method, {member(Any::$__ownProperty__, make_closure(&property), "self, name")});
    builder.entry(entry_tag::method, {member(Any::$__ownProperties__, make_closure(&no_own_members), "self")});
    builder.entry(entry_tag::method, {member(Any::$__ownMethods__, make_closure(&no_own_members), "self")});
    builder.entry(entry_tag::method, {member(Any::$__ownMethod__, make_closure(&method), "self, name")});
    builder.entry(entry_tag::method, {member(Any::$__method__, make_closure(&method), "self, name")});
    builder.entry(entry_tag::method, {member(Any::$__insertProperty__, make_closure(&insert_property), "self, name, property")});
    builder.entry(entry_tag::method, {member(Any::$__insertMethod__, make_closure(&insert_method), "self, name, method")});
    builder.entry(entry_tag::method, {member(Any::$__display__, make_closure(&display_text), "self")});
    builder.entry(entry_tag::method, {member(Any::$__compare__, make_closure(&compare), "self, other")});
}

} // namespace tesk::cpython
