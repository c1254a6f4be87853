// Annotations to host types.
//
// Annotations come in three shapes: objects that typing can take apart
// (list[int], typing.Mapping[str, int], int | None), classes, and text
// (from string annotations, or `from __future__ import annotations`, which
// inspect hands over unevaluated). The first two are reduced to a class;
// every shape ends at a name, looked up in the table below.
#include "proxies/annotation_type.h"

#include "python/python_class_slot.h"
#include "python/python_name.h"
#include "from_python/attributes.h"
#include "from_python/from_python.h"
#include "from_python/text.h"

#include <string_view>

namespace tesk::cpython {
namespace {

python_class_slot get_origin_function{"typing", "get_origin"};
python_class_slot get_args_function{"typing", "get_args"};
// What typing.get_origin gives for a union: int | None, and Optional[int].
python_class_slot union_type{"types", "UnionType"};
python_class_slot typing_union{"typing", "Union"};

python_name qualname_name{"__qualname__"};
python_name name_name{"__name__"};

// The text before the first `separator`, trimmed; all of it when there is none.
String before(String const& text, std::string_view separator) {
    std::size_t at = text.find(separator);
    return (at == String::npos ? text : text.sliced(0, at)).trimmed();
}

// The text after the last `separator`, trimmed; all of it when there is none.
String after_last(String const& text, std::string_view separator) {
    std::size_t at = text.rfind(separator);
    return (at == String::npos ? text : text.sliced(at + separator.size())).trimmed();
}

// A name as an annotation spells it: "list[int]" is a list, "int | None" an
// int, "collections.abc.Sequence" a Sequence.
Type host_type_for_name(String const& spelled) {
    String const name = after_last(before(before(spelled.trimmed(), "["), "|"), ".");
    struct row {
        std::string_view name;
        Type (*type)();
    };
    static constexpr row table[] = {
        {"Any", [] { return Type::untyped(); }},
        {"_empty", [] { return Type::untyped(); }},
        {"None", [] { return Type::none(); }},
        {"NoneType", [] { return Type::none(); }},
        {"bool", [] { return Type(Boolean::getClass()); }},
        {"bytearray", [] { return Type(ByteArray::getClass()); }},
        {"bytes", [] { return Type(ByteArray::getClass()); }},
        {"memoryview", [] { return Type(ByteArray::getClass()); }},
        {"dict", [] { return Type(HashMap::getClass()); }},
        {"Mapping", [] { return Type(HashMap::getClass()); }},
        {"MutableMapping", [] { return Type(HashMap::getClass()); }},
        {"float", [] { return Type(Float::getClass()); }},
        {"int", [] { return Type(Integer::getClass()); }},
        {"list", [] { return Type(List::getClass()); }},
        {"Sequence", [] { return Type(List::getClass()); }},
        {"MutableSequence", [] { return Type(List::getClass()); }},
        {"set", [] { return Type(HashSet::getClass()); }},
        {"Set", [] { return Type(HashSet::getClass()); }},
        {"MutableSet", [] { return Type(HashSet::getClass()); }},
        {"str", [] { return Type(String::getClass()); }},
        {"tuple", [] { return Type(Tuple::getClass()); }},
        {"Callable", [] { return Type(I_Callable_Generic::getClass()); }},
    };
    for (row const& r : table)
        if (name == r.name) return r.type();
    if (auto registered = find_type(name)) return registered.value();
    return Type::untyped();
}

// The name an annotation goes by: a string annotation's own text, else the
// object's qualified name, its name, or its str(); empty when all fail.
String annotation_name(PyObject* annotation) {
    if (PyUnicode_Check(annotation)) return text_or_empty(annotation);
    if (auto name = text_attribute(annotation, qualname_name.get())) return *name;
    if (auto name = text_attribute(annotation, name_name.get())) return *name;
    PyObjectPtr text = PyObjectPtr::steal(PyObject_Str(annotation));
    if (!text) {
        PyErr_Clear();
        return String();
    }
    return text_or_empty(text.get());
}

// Calls a typing helper with one argument; null (nothing pending) when the
// helper is missing or fails.
PyObjectPtr call_typing(python_class_slot& helper, PyObject* argument) {
    PyObject* function = helper.get();
    if (function == nullptr) return {};
    PyObjectPtr result = PyObjectPtr::steal(PyObject_CallOneArg(function, argument));
    if (!result) PyErr_Clear();
    return result;
}

bool is_union(PyObject* origin) { return origin == union_type.get() || origin == typing_union.get(); }

// The first member of a union annotation, borrowed from `args`.
PyObject* first_member(PyObjectPtr const& args) {
    return args && PyTuple_Check(args.get()) && PyTuple_GET_SIZE(args.get()) > 0 ? PyTuple_GET_ITEM(args.get(), 0)
                                                                                : nullptr;
}

// A class: by its name first, else as the host class it converts to.
Type host_type_for_class(PyObject* cls) {
    String const name = annotation_name(cls);
    Type named = host_type_for_name(name);
    if (!named.isUntyped() || name == "Any" || name == "_empty") return named;
    Any converted = from_python(cls);
    if (!Class_Generic::test(converted)) return named;
    Class_Generic const hostClass = Class_Generic::unsafe(converted);
    if (hostClass.name() == "_empty") return Type::untyped();
    if (hostClass.name() == "NoneType") return Type::none();
    return hostClass;
}

} // namespace

Type host_type_for_annotation(PyObject* annotation) {
    if (annotation == nullptr) return Type::untyped();
    if (annotation == Py_None) return Type::none();
    if (PyObjectPtr origin = call_typing(get_origin_function, annotation); origin && origin.get() != Py_None) {
        if (!is_union(origin.get())) return host_type_for_annotation(origin.get());
        PyObjectPtr members = call_typing(get_args_function, annotation);
        return host_type_for_annotation(first_member(members));
    }
    if (PyType_Check(annotation)) return host_type_for_class(annotation);
    return host_type_for_name(annotation_name(annotation));
}

} // namespace tesk::cpython
