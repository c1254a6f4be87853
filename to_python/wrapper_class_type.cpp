// The per-class wrapper types. Each derives from the base wrapper type (and
// takes its number table from it), carries the container tables that the
// class's trait bits select, and lists the class's public methods and
// properties, so that help() and dir() of the type show them. Instance
// attribute lookup never uses these tables: it asks the host.
#include "to_python/wrapper_class_type.h"

#include "to_python/signature_text.h"
#include "to_python/wrapper_abc.h"
#include "to_python/wrapper_slots.h"
#include "to_python/wrapper_type.h"
#include "to_python/wrapper_type_block.h"

#include <deque>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace tesk::cpython {

namespace {

// What a type is built from, read from the class first: plain text only, so
// that no host value is held while the type is made and published.
struct member_text {
    std::string name;
    std::string doc;
    bool writable = false;
};
struct class_description {
    std::string name;
    std::string doc;
    std::uint64_t traits = 0;
    std::vector<member_text> methods;
    std::vector<member_text> properties;
};

// A per-class type with the storage its tables point into. Never freed.
struct class_type_block {
    PyTypeObject* type = nullptr;
    std::deque<std::string> texts; // stable addresses
    std::vector<PyMethodDef> methods;
    std::vector<PyGetSetDef> properties;

    char const* keep(std::string text) { return texts.emplace_back(std::move(text)).c_str(); }
};

// class record → its type. Guarded by its spinlock, taken with the
// interpreter lock held and never while a host value is released; entries are
// added, never removed, and the types live for the process. Every block ever
// built is listed too (one that lost a race included), so that nothing a type
// points into is ever unreachable.
struct class_type_cache {
    spinlock lock;
    std::unordered_map<internal::object_value_class const*, PyTypeObject*> types;
    std::vector<class_type_block*> blocks;
};
class_type_cache& cache() {
    static auto* c = new class_type_cache();
    return *c;
}

bool is_public(String const& name) { return !name.isEmpty() && name.asChars().front() != '_'; }

std::string type_name_of(Class_Generic const& cls) {
    std::string name = "tesk~" + cls.qualname().toUtf8();
    // A dot would make Python split the name into module and type.
    for (char& c : name)
        if (c == '.') c = '`';
    return name;
}

class_description describe(Class_Generic const& cls) {
    class_description d{type_name_of(cls), cls.doc().toUtf8(), cls.traits(), {}, {}};
    for (auto const& [name, method] : cls.declaredMethods()) {
        if (!is_public(name)) continue;
        // Shown as called on an instance: without the receiver.
        I_Callable_Generic callable = method;
        if (!callable.isIndependent()) callable = callable.bindInstance(Any());
        d.methods.push_back({name.toUtf8(), signature_text(callable) + "\n\n-", false});
    }
    for (auto const& [name, property] : cls.declaredProperties()) {
        if (!is_public(name)) continue;
        d.properties.push_back({name.toUtf8(), property.doc().toUtf8(), property.setter().hasValue()});
    }
    return d;
}

// Listed for introspection only; calls go through the host's lookup.
PyObject* method_stub(PyObject*, PyObject*) noexcept { return nullptr; }

class_type_block* build_class_type(class_description const& d) {
    auto* block = new class_type_block();
    for (member_text const& m : d.methods)
        block->methods.push_back({block->keep(m.name), method_stub, METH_VARARGS, block->keep(m.doc)});
    block->methods.push_back({nullptr, nullptr, 0, nullptr});
    for (member_text const& p : d.properties) {
        char const* name = block->keep(p.name);
        // The closure is the property's name: the descriptor looks it up by name.
        block->properties.push_back({name, property_get, p.writable ? property_set : nullptr, block->keep(p.doc),
                                     const_cast<char*>(name)});
    }
    block->properties.push_back({nullptr, nullptr, nullptr, nullptr, nullptr});

    PyTypeObject* type = new_wrapper_type_block(block->keep(d.name), block->keep(d.doc));
    type->tp_base = base_wrapper_type();
    type->tp_call = wrapper_call;
    type->tp_as_sequence = sequence_methods_concat();
    if (d.traits & (traits::map | traits::map_like)) {
        type->tp_as_sequence = sequence_methods_contains();
        type->tp_as_mapping = mapping_methods();
    }
    if (d.traits & traits::sequence) {
        type->tp_as_sequence = sequence_methods_full();
        type->tp_as_mapping = mapping_methods();
    }
    type->tp_methods = block->methods.data();
    type->tp_getset = block->properties.data();
    block->type = type->tp_base ? ready_or_null(type) : nullptr;
    return block;
}

PyTypeObject* cached(Class_Generic const& cls) {
    class_type_cache& c = cache();
    std::lock_guard guard(c.lock);
    auto found = c.types.find(cls.record());
    return found == c.types.end() ? nullptr : found->second;
}

} // namespace

bool belongs_to_module(Class_Generic const& cls) {
    internal::object_value_class const* record = cls.record();
    if (record->declaring_context_value().hasValue()) return true;
    if (auto generic = Class_Generic::cast(record->generic_definition());
        generic && generic.value().record()->declaring_context_value().hasValue())
        return true;
    return record->is_ancestor(Module::getClass().record());
}

PyTypeObject* class_wrapper_type(Class_Generic const& cls) noexcept {
    if (PyTypeObject* type = cached(cls)) return type;
    // Built outside the cache lock: reading the class may release host
    // values, and readying a type runs Python. The interpreter lock is held
    // throughout, so only a thread that ran while Python let it go can have
    // published a type meanwhile; the first one published is the class's type.
    class_type_block* built = nullptr;
    try {
        built = build_class_type(describe(cls));
    } catch (...) {
        return nullptr;
    }
    register_container_type(built->type, container_protocol_of(cls));
    class_type_cache& c = cache();
    std::lock_guard guard(c.lock);
    c.blocks.push_back(built);
    if (!built->type) return nullptr;
    return c.types.emplace(cls.record(), built->type).first->second;
}

} // namespace tesk::cpython
