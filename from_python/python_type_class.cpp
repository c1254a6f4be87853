// Python classes as host classes.
//
// The host class of a Python type mirrors what the class itself defines at
// the moment it is first asked for: its public methods (as host callables
// over the Python functions), its data attributes (as fixed-value
// properties, or properties without a value for objects that only a proxy
// could hold), its nested classes, its doc and its bases with their members.
// The class is built in private and published once. Calling it calls the
// Python type. Each Python type gets exactly one host class, kept for the
// process.
#include "from_python/python_type_class.h"

#include "from_python/builtin_type_classes.h"
#include "from_python/from_python.h"
#include "from_python/proxy_makers.h"
#include "from_python/python_object.h"

#include <mutex>
#include <unordered_map>

namespace tesk::cpython {

namespace {

// A class record that remembers the Python type it mirrors. Records live for
// the process, and so does the type's reference.
class object_value_python_type final : public internal::object_value_class {
public:
    object_value_python_type(String name, PyObject* type)
        : object_value_class(std::move(name)), type_(PyObjectPtr::borrow(type).release()) {}
    PyObject* type() const noexcept { return type_; }

private:
    PyObject* const type_;
};

// Python types to their host classes. Taken under the interpreter lock, and
// never while a class is being built (building runs Python code).
struct type_class_cache {
    spinlock lock;
    std::unordered_map<PyObject*, Class_Generic> classes;
};

type_class_cache& cache() {
    static auto* const instance = new type_class_cache; // never destroyed: its classes live for the process
    return *instance;
}

// The classes this thread is building, so that a class that refers to itself
// (a nested attribute bound to the class) gets the class being built instead
// of building it again.
thread_local std::unordered_map<PyObject*, Class_Generic> classes_in_construction;

class construction_scope {
public:
    construction_scope(PyObject* type, Class_Generic const& cls) : type_(type) {
        classes_in_construction.emplace(type, cls);
    }
    ~construction_scope() { classes_in_construction.erase(type_); }
    construction_scope(construction_scope const&) = delete;
    construction_scope& operator=(construction_scope const&) = delete;

private:
    PyObject* type_;
};

// The host text of each doc string met while mirroring, so that the many
// attributes that share one (every int attribute has int's) share one host
// String too. The doc objects are kept (never released, as process-wide
// caches are), so that an address is never reused for another text.
// Guarded by the interpreter lock alone.
std::unordered_map<PyObject*, String>& doc_texts() {
    static auto* const texts = new std::unordered_map<PyObject*, String>;
    return *texts;
}

} // namespace

String doc_text(PyObject* object) {
    PyObjectPtr doc = PyObjectPtr::steal(PyObject_GetAttrString(object, "__doc__"));
    if (!doc) {
        PyErr_Clear();
        return String();
    }
    if (!PyUnicode_CheckExact(doc.get())) return String();
    auto& texts = doc_texts();
    if (auto found = texts.find(doc.get()); found != texts.end()) return found->second;
    Any text = from_python(doc.get());
    if (!String::test(text)) return String();
    return texts.emplace(doc.release(), String::unsafe(text)).first->second;
}

namespace {

// The class's name without its module: "collections.OrderedDict" gives "OrderedDict".
String class_name_of(PyObject* type) {
    std::string_view name = reinterpret_cast<PyTypeObject*>(type)->tp_name;
    if (auto dot = name.rfind('.'); dot != std::string_view::npos) name.remove_prefix(dot + 1);
    return String(name);
}

// Calling the host class calls the Python type; the instance comes back as
// any Python value does.
I_Callable_Generic constructor_of(PyObject* type) {
    // Shared by every mirrored class (signatures are immutable values).
    static Signature const* const any_arguments = new Signature(Type::untyped(), {}, {}, true);
    return I_Callable_Generic::unsafe(internal::make_function_callable(
        [type](std::span<Any const> args) -> Any {
            gil_guard gil;
            Any function = make_proxy(proxy_kind::callable, type);
            if (!I_Callable_Generic::test(function)) return Any();
            return I_Callable_Generic::unsafe(function).invoke(args);
        },
        *any_arguments, class_name_of(type)));
}

// The notes of an exception instance ("__notes__"), each after a line feed.
String notes_text(Any const& instance) {
    auto notes = property_of(instance, String("__notes__"));
    if (!notes) return String();
    Any value = internal::result_unwrap_lazy(notes.value().get(instance));
    if (!I_Iterable_Generic::test(value)) return String();
    Any iterator = internal::result_unwrap_lazy(I_Iterable_Generic::unsafe(value).iter());
    if (!I_Iterator_Generic::test(iterator)) return String();
    string_builder text;
    for (Any note = I_Iterator_Generic::unsafe(iterator).next(); !note.isError();
         note = I_Iterator_Generic::unsafe(iterator).next())
        text << '\n' << (String::test(note) ? String::unsafe(note) : display(note));
    return text.toString();
}

Property fixed_property(String const& name, Any const& value, String const& doc) {
    property_builder_base builder(name);
    builder.assign_getter_value(value).assign_doc(doc);
    return builder.build();
}

// One entry of the class's own namespace.
void mirror_entry(class_draft& draft, String const& name, PyObject* value) {
    if (PyType_Check(value)) {
        Any nested = host_class_for_python_type(value);
        if (!nested.isError()) draft.add_property(name, fixed_property(name, nested, doc_text(value)));
        return;
    }
    if (!PyCallable_Check(value)) {
        String const doc = doc_text(value);
        Any converted = from_python(value);
        if (!is_python_object(converted) && !converted.isError()) {
            draft.add_property(name, fixed_property(name, converted, doc));
        } else {
            // An object that only a proxy could hold: the property names it
            // without a value of its own.
            property_builder_base builder(name);
            draft.add_property(name, builder.assign_doc(doc).build());
        }
        return;
    }
    Any function = make_proxy(proxy_kind::callable, value);
    if (!I_Callable_Generic::test(function)) return;
    // A function of the class takes the instance: the host passes it.
    if (PyFunction_Check(value) && is_python_object(function)) I_Callable_Generic::unsafe(function).setIndependent(false);
    draft.add_method(name, I_Callable_Generic::unsafe(function));
}

void mirror_namespace(class_draft& draft, PyObject* type) {
    PyObjectPtr dict = PyObjectPtr::steal(PyType_GetDict(reinterpret_cast<PyTypeObject*>(type)));
    if (!dict || !PyDict_Check(dict.get())) {
        PyErr_Clear();
        return;
    }
    // A copy: converting the values runs Python code, which may change the class.
    PyObjectPtr entries = PyObjectPtr::steal(PyDict_Items(dict.get()));
    if (!entries) {
        PyErr_Clear();
        return;
    }
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(entries.get()); ++i) {
        PyObject* entry = PyList_GET_ITEM(entries.get(), i);
        Any key = from_python(PyTuple_GET_ITEM(entry, 0));
        if (!String::test(key)) continue;
        String const name = String::unsafe(key);
        if (name.isEmpty() || name.startsWith("_")) continue;
        mirror_entry(draft, name, PyTuple_GET_ITEM(entry, 1));
    }
    PyErr_Clear();
}

// Own members come first: a base's member of the same name does not replace one.
void mirror_bases(class_draft& draft, PyObject* type) {
    PyObjectPtr bases = PyObjectPtr::steal(PyObject_GetAttrString(type, "__bases__"));
    if (!bases || !PyTuple_Check(bases.get())) {
        PyErr_Clear();
        return;
    }
    for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(bases.get()); ++i) {
        Any converted = from_python(PyTuple_GET_ITEM(bases.get(), i));
        if (!Class_Generic::test(converted)) continue;
        Class_Generic base = Class_Generic::unsafe(converted);
        for (auto const& [name, method] : base.declaredMethods()) draft.add_method(name, method, false);
        for (auto const& [name, property] : base.declaredProperties()) draft.add_property(name, property, false);
        draft.add_parent(base);
    }
}

Class_Generic build_class(PyObject* type) {
    class_draft draft(new object_value_python_type(class_name_of(type), type));
    construction_scope building(type, draft.cls());
    draft.set_call_operator(constructor_of(type));
    if (PyType_HasFeature(reinterpret_cast<PyTypeObject*>(type), Py_TPFLAGS_BASE_EXC_SUBCLASS)) {
        draft.add_parent(Error::getClass());
        property_builder_base message(Error::$$message);
        message.getter(make_closure(&notes_text));
        draft.add_property(Error::$$message, message.build());
    }
    mirror_namespace(draft, type);
    draft.set_doc(doc_text(type));
    mirror_bases(draft, type);
    return draft.publish();
}

} // namespace

Any host_class_for_python_type(PyObject* type) {
    if (!type || !PyType_Check(type)) return Error(String("Not a type."));
    gil_guard gil;
    if (auto builtin = builtin_type_class(type)) return builtin.value();
    type_class_cache& c = cache();
    {
        std::lock_guard<spinlock> guard(c.lock);
        if (auto found = c.classes.find(type); found != c.classes.end()) return found->second;
    }
    if (auto found = classes_in_construction.find(type); found != classes_in_construction.end())
        return found->second;
    Class_Generic built = build_class(type);
    // Another thread may have built one meanwhile: the first one in wins, so
    // that the type has exactly one host class.
    std::lock_guard<spinlock> guard(c.lock);
    return c.classes.emplace(type, built).first->second;
}

PyObject* python_type_of_class(Any const& cls) {
    if (cls.kind() != Kind::Class) return nullptr;
    auto const* record = dynamic_cast<object_value_python_type const*>(cls.get());
    return record ? record->type() : nullptr;
}

} // namespace tesk::cpython
