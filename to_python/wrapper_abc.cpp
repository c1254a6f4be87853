#include "to_python/wrapper_abc.h"

#include <array>
#include <string_view>

namespace tesk::cpython {
namespace {

using namespace std::string_view_literals;

bool derives_from(Class_Generic const& cls, internal::builtin id) noexcept {
    return cls.record()->is_ancestor(internal::builtin_class(id));
}

// The abstract class of each protocol and the mixin methods the wrapper type
// takes from it. The rest of each protocol is the wrapper's own slots and
// the host's members (append, pop, clear...).
struct protocol_table {
    char const* abstractClass;
    unsigned long flag; // Py_TPFLAGS_SEQUENCE or _MAPPING: match statements, and the mapping names (below)
    std::array<char const*, 8> mixins; // ends at the first null
};

protocol_table table_of(container_protocol protocol) noexcept {
    switch (protocol) {
    case container_protocol::sequence: return {"Sequence", Py_TPFLAGS_SEQUENCE, {"index", "count", "__reversed__"}};
    case container_protocol::mutable_sequence:
        return {"MutableSequence", Py_TPFLAGS_SEQUENCE, {"index", "count", "__reversed__", "remove", "reverse"}};
    case container_protocol::mapping: return {"Mapping", Py_TPFLAGS_MAPPING, {"keys", "items", "values", "get"}};
    case container_protocol::mutable_mapping:
        return {"MutableMapping", Py_TPFLAGS_MAPPING, {"keys", "items", "values", "get", "pop", "popitem", "setdefault", "update"}};
    case container_protocol::set: return {"Set", 0, {"isdisjoint"}};
    case container_protocol::iterator: return {"Iterator", 0, {}};
    case container_protocol::none: break;
    }
    return {nullptr, 0, {}};
}

bool register_with(PyTypeObject* type, protocol_table const& table) {
    PyObjectPtr module = PyObjectPtr::steal(PyImport_ImportModule("collections.abc"));
    PyObjectPtr abstract = module ? PyObjectPtr::steal(PyObject_GetAttrString(module.get(), table.abstractClass))
                                  : PyObjectPtr();
    if (!abstract) return false;
    PyObject* dict = type->tp_dict;
    for (char const* name : table.mixins) {
        if (name == nullptr) break;
        PyObjectPtr mixin = PyObjectPtr::steal(PyObject_GetAttrString(abstract.get(), name));
        if (!mixin || PyDict_SetItemString(dict, name, mixin.get()) < 0) return false;
    }
    // Registering sets the flag only on mutable types, and a readied
    // wrapper type counts as immutable.
    type->tp_flags |= table.flag;
    PyType_Modified(type);
    PyObjectPtr registered =
        PyObjectPtr::steal(PyObject_CallMethod(abstract.get(), "register", "O", reinterpret_cast<PyObject*>(type)));
    return static_cast<bool>(registered);
}

} // namespace

container_protocol container_protocol_of(Class_Generic const& cls) noexcept {
    using internal::builtin;
    std::uint64_t const bits = cls.record()->traits();
    if (bits & traits::callable) return container_protocol::none;
    bool const map = (bits & traits::map) != 0;
    bool const sequence = (bits & traits::sequence) != 0;
    if (map && sequence) return container_protocol::none;
    if (map)
        return derives_from(cls, builtin::hash_map) || derives_from(cls, builtin::i_mutable_map)
                   ? container_protocol::mutable_mapping
                   : container_protocol::mapping;
    if (sequence)
        return derives_from(cls, builtin::list) || derives_from(cls, builtin::i_mutable_sequence)
                   ? container_protocol::mutable_sequence
                   : container_protocol::sequence;
    if (derives_from(cls, builtin::hash_set) || derives_from(cls, builtin::i_set)) return container_protocol::set;
    if (derives_from(cls, builtin::list_iterator) || derives_from(cls, builtin::i_iterator))
        return container_protocol::iterator;
    return container_protocol::none;
}

void register_container_type(PyTypeObject* type, container_protocol protocol) noexcept {
    protocol_table const table = table_of(protocol);
    if (!type || !table.abstractClass) return;
    if (!register_with(type, table)) PyErr_Clear();
}

bool is_mapping_protocol_name(std::string_view name) noexcept {
    static constexpr std::array names{"keys"sv, "items"sv, "values"sv, "get"sv};
    for (std::string_view n : names)
        if (n == name) return true;
    return false;
}

} // namespace tesk::cpython
