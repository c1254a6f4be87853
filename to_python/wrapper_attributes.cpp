// Attribute access on wrapper objects. Plain names go to the host: fields,
// properties, methods, and for classes their static members. Names that start
// with "_" answer Python's introspection (__doc__, __annotations__, __dir__,
// ...) from the host's descriptions, and otherwise fall to Python's generic
// lookup, which finds the type's own attributes.
#include "to_python/wrapper_slots.h"

#include "python/slot_guard.h"
#include "to_python/python_to_host.h"
#include "to_python/attribute_name.h"
#include "to_python/signature_text.h"
#include "to_python/slot_result.h"
#include "to_python/to_python.h"
#include "to_python/wrapper.h"
#include "to_python/wrapper_abc.h"
#include "to_python/wrapper_bound_method.h"
#include "to_python/wrapper_record.h"
#include "to_python/wrapper_type.h"

#include <array>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string_view>
#include <unordered_set>
#include <utility>

namespace tesk::cpython {

namespace {

using namespace std::string_view_literals;

PyObject* text_to_python(std::string const& text) {
    return PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "replace");
}

// ---- special names -----------------------------------------------------------

PyObject* doc_of(Any const& value) {
    std::string text;
    if (I_Callable_Generic::test(value)) text = signature_text(I_Callable_Generic::unsafe(value)) + "\n\n";
    String doc = I_HasDoc::test(value) ? I_HasDoc::unsafe(value).doc() : class_of(value).doc();
    return text_to_python(text + doc.toUtf8());
}

// The parameters (and the result, as "return") whose types are host classes,
// each with the Python type that wraps that class.
PyObject* annotations_of(I_Callable_Generic const& callable) {
    PyObjectPtr dict = PyObjectPtr::steal(PyDict_New());
    if (!dict) return nullptr;
    auto signature = callable.signature();
    if (!signature.is<Signature>()) return dict.release();
    auto annotate = [&](char const* name, Type const& type) {
        // An untyped one says nothing worth annotating.
        Type unwrapped = unwrapped_type(type);
        auto cls = unwrapped.isUntyped() ? Union<Class_Generic, None>() : unwrapped.toClass();
        if (!cls) return true;
        PyTypeObject* wrapperType = wrapper_type_for_class(cls.value());
        return !wrapperType || PyDict_SetItemString(dict.get(), name, reinterpret_cast<PyObject*>(wrapperType)) == 0;
    };
    for (Parameter const& p : signature.as<Signature>().parameters())
        if (!annotate(p.name().c_str(), p.type())) return nullptr;
    if (!annotate("return", signature.as<Signature>().resultType())) return nullptr;
    return dict.release();
}

// clone/deepClone as a callable, or None when the value offers none that
// gives a clone back.
PyObject* clone_method(Any const& value, member_key const& name) {
    auto method = method_of(value, name);
    if (!method || !method.value().resultType().conformsTo(I_Cloneable::getClass())) return Py_NewRef(Py_None);
    return slot_result(value.boundMethod(name));
}

// The name of the module that declares a class (or the generic class it instantiates).
std::optional<String> module_name_of(Class_Generic const& cls) {
    Any definition = cls.record()->generic_definition();
    Class_Generic declared = Class_Generic::test(definition) ? Class_Generic::unsafe(definition) : cls;
    auto module = Module::cast(declared.declaringContext());
    if (!module) return std::nullopt;
    return module.value().name();
}

// The names of the value's members as a Python list: fields, methods and
// properties of its class, then its own methods and properties (and a
// module's functions); each name once.
PyObject* member_names(Any const& value) {
    PyObjectPtr names = PyObjectPtr::steal(PyList_New(0));
    if (!names) return nullptr;
    std::unordered_set<String, StringHash> seen;
    bool failed = false;
    auto add = [&](String const& name) {
        if (failed || !seen.insert(name).second) return;
        PyObjectPtr text = PyObjectPtr::steal(display_text_to_python(name));
        failed = !text || PyList_Append(names.get(), text.get()) < 0;
    };
    Class_Generic cls = class_of(value);
    for (String const& name : cls.fieldNames()) add(name);
    for (auto const& [name, method] : cls.definedMethods()) add(name);
    for (auto const& [name, property] : cls.definedProperties()) add(name);
    for (auto const& [name, method] : own_methods_of(value)) add(name);
    for (auto const& [name, property] : own_properties_of(value)) add(name);
    // A module's functions answer lookups without being members of its class.
    if (auto module = Module::cast(value))
        for (auto const& [name, callable] : module.value().callables()) add(name);
    return failed ? nullptr : names.release();
}

// The value of a special name, or null with nothing raised when the value
// lacks what the name needs (then Python's generic lookup decides).
PyObject* special_attribute(Any const& value, std::string_view name) {
    bool callable = I_Callable_Generic::test(value);
    if (name == "__doc__"sv) return doc_of(value);
    if (name == "__annotations__"sv) return callable ? annotations_of(I_Callable_Generic::unsafe(value)) : nullptr;
    if (name == "__copy__"sv)
        return I_Cloneable::test(value) ? clone_method(value, I_Cloneable::$clone) : nullptr;
    if (name == "__deepcopy__"sv)
        return I_Cloneable::test(value) ? clone_method(value, I_Cloneable::$deepClone) : nullptr;
    if (name == "__module__"sv) {
        if (!Class_Generic::test(value)) return nullptr;
        auto module = module_name_of(Class_Generic::unsafe(value));
        return module ? text_to_python(module->toUtf8()) : nullptr;
    }
    if (name == "__name__"sv) return I_HasName::test(value) ? text_to_python(I_HasName::unsafe(value).name().toUtf8()) : nullptr;
    if (name == "__code__"sv) return I_HasCode::test(value) ? text_to_python(I_HasCode::unsafe(value).code().toUtf8()) : nullptr;
    if (name == "__bytes__"sv) {
        Any bytes = ByteArray::getClass().coerce(value);
        return ByteArray::test(bytes) ? to_python(bytes) : nullptr;
    }
    if (name == "__bool__"sv) return Py_NewRef(Boolean::from(value).value() ? Py_True : Py_False);
    if (name == "__dir__"sv) return member_names(value);
    if (name == "__host__"sv) return new_plain_wrapper(value);
    if (name == "__text_signature__"sv)
        return callable ? text_to_python(signature_text(I_Callable_Generic::unsafe(value))) : nullptr;
    return nullptr;
}

// ---- plain names -------------------------------------------------------------

// A method the class itself declares (not its parents).
Any own_class_method(Class_Generic const& cls, String const& name) {
    for (auto const& [declared, method] : cls.declaredMethods())
        if (declared == name) return method;
    return Any();
}

// Static members of a class object: its own independent methods, then its own
// properties whose getter needs no instance (read), then any member the class
// defines (a property's getter and a method, not called).
std::optional<Any> class_member(Class_Generic const& cls, String const& name) {
    if (Any method = own_class_method(cls, name); I_Callable_Generic::test(method)) {
        I_Callable_Generic callable = I_Callable_Generic::unsafe(method);
        if (callable.isIndependent()) return method;
    }
    if (auto property = cls.definedProperty(name)) {
        if (property.value().getter().isIndependent()) return property.value().getter()({});
        return Any(property.value().getter());
    }
    if (auto method = cls.definedMethod(name)) return Any(method.value());
    return std::nullopt;
}

PyObject* no_such_attribute(Any const& value, String const& name) {
    return PyErr_Format(PyExc_AttributeError, "'%s' object has no attribute '%s'",
                        class_of(value).qualname().c_str(), name.c_str());
}

PyObject* plain_attribute(Any const& value, String const& name) {
    if (Computed_Generic::test(value)) {
        if (auto property = raw_property_of(value, name)) return slot_result(property.value().get(value));
        if (auto method = raw_method_of(value, name)) return slot_result(method.value().bindInstance(value));
    }
    if (value.isError()) return slot_result(value); // raises it
    if (value.kind() == Kind::Instance && value.get()->class_value()->find_field(name) >= 0)
        return slot_result(value.fieldValue(name));
    if (auto property = property_of(value, name)) return slot_result(property.value().get(value));
    if (auto method = method_of(value, name)) {
        if (method.value().isIndependent()) return slot_result(method.value());
        return new_bound_method(method.value(), value);
    }
    if (Class_Generic::test(value)) {
        if (auto member = class_member(Class_Generic::unsafe(value), name)) return slot_result(*member);
    }
    Any field = value.fieldValue(name);
    if (field.isError()) return no_such_attribute(value, name);
    return slot_result(field);
}

// ---- the member cache --------------------------------------------------------

// What the class of a receiver resolves for a plain name, direct-mapped by
// the name object's and the class record's addresses, so that a repeated
// `o.add` or `o.x` does one lookup. An entry keeps its name alive (the
// address stands for the same text) and holds while the class epoch has not
// moved (no class edited or destroyed since). Read and written only with the
// interpreter lock held, which is its lock. Never destroyed: nothing touches
// Python at exit.
struct member_cache_entry {
    PyObject* name = nullptr;
    internal::object_value_class const* cls = nullptr;
    internal::cached_member member;
};
constexpr std::size_t member_cache_size = 512;

member_cache_entry& member_cache_slot(PyObject* name, internal::object_value_class const* cls) {
    static auto* entries = new std::array<member_cache_entry, member_cache_size>();
    auto hash = (reinterpret_cast<std::uintptr_t>(name) >> 4) ^ (reinterpret_cast<std::uintptr_t>(cls) >> 6);
    return (*entries)[hash % member_cache_size];
}

// Whether the members of `value` come from its class alone: an instance
// with no members of its own (and no error, which raises instead).
bool reads_class_members(Any const& value) noexcept {
    return value.kind() == Kind::Instance && value.get()->own() == nullptr && !value.isError();
}

// The cached answer of the class of `value` for `name`; none when the name
// is special (it starts with "_") or the class decides nothing by itself.
// Null with an exception when the name has no text.
internal::cached_member const* class_member_of(Any const& value, PyObject* name) {
    auto const* cls = value.get()->class_value();
    member_cache_entry& entry = member_cache_slot(name, cls);
    if (entry.name == name && entry.cls == cls && entry.member.epoch == internal::class_epoch()) return &entry.member;
    auto text = attribute_name(name);
    if (!text) return nullptr;
    internal::cached_member fresh;
    if (!text->startsWith("_")) fresh = internal::member_for_cache(cls, *text);
    else fresh.epoch = internal::class_epoch();
    PyObject* replaced = entry.name;
    entry.name = Py_NewRef(name);
    entry.cls = cls;
    entry.member = std::move(fresh);
    Py_XDECREF(replaced);
    return &entry.member;
}

// A plain attribute of `value` from the member cache; nothing when the
// cache cannot answer (then the full lookup does).
std::optional<PyObject*> cached_attribute(Any const& value, PyObject* name) {
    if (!reads_class_members(value)) return std::nullopt;
    internal::cached_member const* found = class_member_of(value, name);
    if (!found) return nullptr;
    using kind_t = internal::cached_member::kind_t;
    // Copies: running the member may run Python code that replaces the entry.
    switch (found->kind) {
    case kind_t::property: {
        Property property = Property::unsafe(found->member);
        return slot_result(property.get(value));
    }
    case kind_t::method: {
        I_Callable_Generic method = I_Callable_Generic::unsafe(found->member);
        if (method.isIndependent()) return slot_result(method);
        return new_bound_method(std::move(method), value);
    }
    default: return std::nullopt;
    }
}

// ---- writing -----------------------------------------------------------------

int set_attribute(Any const& value, PyObject* pythonName, String const& name, PyObject* newValue) {
    // Deleting an attribute assigns none.
    Any converted;
    if (!python_to_host_value(newValue, converted)) return -1;
    if (auto property = property_of(value, name)) {
        if (property.value().setter().hasValue()) {
            Any result = internal::result_unwrap_lazy(property.value().set(value, converted));
            if (!result.isError()) return 0;
            PyErr_Format(PyExc_RuntimeError, "%U: %s.", pythonName, result.error().message().c_str());
            return -1;
        }
        if (class_of(value).definedProperty(name)) {
            PyErr_Format(PyExc_RuntimeError, "Read-only attribute: %U.", pythonName);
            return -1;
        }
    }
    Any result = class_of(value).definedField(name) ? value.setFieldValue(name, converted)
                                                    : insert_property_value(value, name, converted);
    result = internal::result_unwrap_lazy(result);
    if (!result.isError()) return 0;
    PyErr_Format(PyExc_RuntimeError, "%U: %s", pythonName, result.error().message().c_str());
    return -1;
}

// The property name a descriptor was made with; null with AttributeError when
// it has none.
char const* descriptor_name(void* closure) {
    auto const* name = static_cast<char const*>(closure);
    if (name && *name) return name;
    PyErr_SetString(PyExc_AttributeError, "Invalid Tesk property name.");
    return nullptr;
}

} // namespace

PyObject* wrapper_getattro(PyObject* self, PyObject* name) noexcept {
    return guarded_slot<PyObject*>(nullptr, [&]() -> PyObject* {
        Any const& value = *held_value(self);
        PyTypeObject* type = Py_TYPE(self);
        bool const mapping = PyType_HasFeature(type, Py_TPFLAGS_MAPPING);
        // A mapping type answers some names from Python first (below).
        if (!mapping) {
            if (auto cached = cached_attribute(value, name)) return *cached;
        }
        auto text = attribute_name(name);
        if (!text) return nullptr;
        if (!text->startsWith("_")) {
            // The methods of Python's mapping protocol (dict(m), m.items())
            // are Python's on a host map; its own keys, values and get stay
            // reachable through m.__host__.
            if (mapping && is_mapping_protocol_name(text->asChars())) return PyObject_GenericGetAttr(self, name);
            PyObject* found = plain_attribute(value, *text);
            // A name the host lacks may be a protocol method the type took
            // from collections.abc (xs.index, m.setdefault, s.isdisjoint).
            if (!found && PyErr_ExceptionMatches(PyExc_AttributeError) && _PyType_Lookup(type, name)) {
                PyErr_Clear();
                return PyObject_GenericGetAttr(self, name);
            }
            return found;
        }
        if (PyObject* special = special_attribute(value, text->asChars())) return special;
        if (PyErr_Occurred()) return nullptr;
        return PyObject_GenericGetAttr(self, name);
    });
}

int wrapper_setattro(PyObject* self, PyObject* name, PyObject* value) noexcept {
    return guarded_slot<int>(-1, [&]() -> int {
        auto text = attribute_name(name);
        if (!text) return -1;
        return set_attribute(*held_value(self), name, *text, value);
    });
}

PyObject* wrapper_dir(PyObject* self, PyObject*) noexcept {
    return guarded_slot<PyObject*>(nullptr, [&] { return member_names(*held_value(self)); });
}

PyObject* property_get(PyObject* self, void* closure) noexcept {
    return guarded_slot<PyObject*>(nullptr, [&]() -> PyObject* {
        char const* name = descriptor_name(closure);
        if (!name) return nullptr;
        Any const& value = *held_value(self);
        auto property = property_of(value, String(name));
        if (!property) return PyErr_Format(PyExc_AttributeError, "Attribute not found: %s.", name);
        return slot_result(property.value().get(value));
    });
}

int property_set(PyObject* self, PyObject* newValue, void* closure) noexcept {
    return guarded_slot<int>(-1, [&]() -> int {
        char const* name = descriptor_name(closure);
        if (!name) return -1;
        Any const& value = *held_value(self);
        auto property = property_of(value, String(name));
        if (!property || !property.value().setter().hasValue()) {
            PyErr_Format(PyExc_AttributeError, "Attribute not found: %s.", name);
            return -1;
        }
        Any converted;
        if (!python_to_host_value(newValue, converted)) return -1;
        Any result = internal::result_unwrap_lazy(property.value().set(value, converted));
        if (!result.isError()) return 0;
        PyErr_Format(PyExc_RuntimeError, "%s", result.error().message().c_str());
        return -1;
    });
}

} // namespace tesk::cpython
