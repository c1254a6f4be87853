// Member lookup: methods, properties and fields of a value by name, the
// object's own members, and the class-level overrides of the generic
// operations.
//
// Lookup order: the class override (a proxy class redirects the whole
// operation), the object's own members, the class hook, the class and its
// parents depth first, then the universal members of "Any". A class flagged
// "declared_methods_first" lets its own members and the methods its chain
// declares answer before its "__method__" override.
#include "class_internal.h"

#include "tesk/containers.h"

#include <array>

namespace tesk {
namespace internal {

// ---- universal names and the override cache --------------------------------

namespace {

// The universal methods that a class may override to take over a generic
// operation. Made from literals, not from the key objects, because lookups
// may run while static objects are still being constructed.
constexpr std::array<char const*, universal_count> universal_literals = {
    "__method__",      "__property__",    "__propertyValue__", "__setPropertyValue__",
    "__ownProperties__", "__ownMethods__", "__insertProperty__", "__insertMethod__",
    "__display__",     "__compare__",     "__hash__",          "__ownProperty__",
    "__ownMethod__",   "__removeProperty__", "__removeMethod__", "__isSame__",
};
enum universal : int {
    u_method, u_property, u_property_value, u_set_property_value, u_own_properties, u_own_methods,
    u_insert_property, u_insert_method,
};

} // namespace

std::array<String, universal_count> const& universal_names() {
    static auto const* names = [] {
        auto* n = new std::array<String, universal_count>();
        for (std::size_t i = 0; i < n->size(); ++i) (*n)[i] = String(universal_literals[i]);
        return n;
    }();
    return *names;
}

namespace {

String const& universal_name(universal u) { return universal_names()[static_cast<std::size_t>(u)]; }

int universal_index(String const& name) {
    auto const& names = universal_names();
    std::uint64_t h = name.hash();
    for (std::size_t i = 0; i < names.size(); ++i)
        if (names[i].hash() == h && names[i] == name) return static_cast<int>(i);
    return -1;
}

// The callable that the chain of `cls` (below "Any") declares for `name`,
// or none. Only inside a read_section.
Any chain_method(member_snapshot const& members, String const& name) {
    auto it = members.methods.find(name);
    return it != members.methods.end() && it->second.below_root ? it->second.callable : Any();
}

Any override_for(Any const& v, universal u) {
    read_section section;
    member_snapshot const& members = members_of(raw_record(v));
    if ((members.override_mask & (1u << u)) == 0) return Any();
    return chain_method(members, universal_name(u));
}

// One hook of `cls` (nullptr when it has none); the table that
// holds it may be retired, the hook stays alive as long as it is held.
template <class Hook>
std::shared_ptr<Hook const> hook_of(object_value_class const* cls, std::shared_ptr<Hook const> class_table::*member) {
    read_section section;
    auto const& hook = table_of(cls).*member;
    return hook ? hook : nullptr;
}

// A snapshot of one of the object's own tables (an empty one when it has none).
template <class V> bool find_own(Any const& v, ordered_map<V> own_members::*table, String const& name, V& out) {
    if (!v.get()) return false;
    own_members const* own = v.get()->own();
    if (!own) return false;
    std::lock_guard guard(v.get()->lock());
    if (V const* found = (own->*table).find(name)) {
        out = *found;
        return true;
    }
    return false;
}

template <class Handle, class V>
std::vector<std::pair<String, Handle>> own_entries(Any const& v, ordered_map<V> own_members::*table) {
    std::vector<std::pair<String, Handle>> out;
    if (!v.get() || !v.get()->own()) return out;
    std::lock_guard guard(v.get()->lock());
    for (auto const& [k, item] : (v.get()->own()->*table).entries()) out.emplace_back(k, Handle::unsafe(item));
    return out;
}

// The entries of a map that an "__ownMethods__"/"__ownProperties__" override gives.
template <class Handle> std::vector<std::pair<String, Handle>> entries_of_result(Any const& result) {
    std::vector<std::pair<String, Handle>> out;
    auto map = HashMap::cast(result);
    if (!map) return out;
    for (auto const& [k, item] : map.value().items())
        if (String::test(k) && Handle::test(item)) out.emplace_back(String::unsafe(k), Handle::unsafe(item));
    return out;
}

template <class V> Any insert_own(Any const& object, ordered_map<V> own_members::*table, String const& name, V item) {
    if (!object.get()) return Error(String("Unable to insert the member '{}' into None.").arg(name));
    own_members& own = object.get()->own_or_create();
    std::optional<V> displaced; // released after the lock: its finaliser may need the interpreter lock
    std::lock_guard guard(object.get()->lock());
    displaced = (own.*table).exchange(name, std::move(item));
    return Any();
}

} // namespace

Any class_override(Any const& v, String const& name) {
    read_section section;
    member_snapshot const& members = members_of(raw_record(v));
    int index = universal_index(name);
    if (index >= 0 && (members.override_mask & (1u << index)) == 0) return Any();
    return chain_method(members, name);
}

Any call_member(Any const& callable, Any const& self, std::span<Any const> args) {
    I_Callable_Generic c = I_Callable_Generic::unsafe(callable);
    if (c.isIndependent()) return c.invoke(args);
    constexpr std::size_t inline_count = 8;
    if (args.size() < inline_count) {
        std::array<Any, inline_count> all;
        all[0] = self;
        for (std::size_t i = 0; i < args.size(); ++i) all[i + 1] = args[i];
        return c.invoke(std::span<Any const>(all.data(), args.size() + 1));
    }
    std::vector<Any> all;
    all.reserve(args.size() + 1);
    all.push_back(self);
    all.insert(all.end(), args.begin(), args.end());
    return c.invoke(all);
}

} // namespace internal

using namespace internal;

// ---- methods -----------------------------------------------------------------

Union<I_Callable_Generic, None> raw_method_of(Any const& v, String const& name) {
    Any found;
    if (find_own(v, &own_members::methods, name, found)) return Union<I_Callable_Generic, None>(found);
    return Union<I_Callable_Generic, None>(raw_record(v)->resolve_method(name));
}

Union<I_Callable_Generic, None> method_of(Any const& v, String const& name) {
    object_value_class const* cls = raw_record(v);
    read_section section; // the snapshot and the table stay valid until the lookup ends
    member_snapshot const* members = &members_of(cls);
    if ((members->override_mask & (1u << u_method)) != 0) [[unlikely]] {
        if (members->declared_methods_first) {
            Any found;
            if (find_own(v, &own_members::methods, name, found)) return Union<I_Callable_Generic, None>(found);
            auto it = members->methods.find(name);
            if (it != members->methods.end() && it->second.below_root)
                return Union<I_Callable_Generic, None>(it->second.callable);
        }
        Any const args[] = {name};
        Any r = call_member(chain_method(*members, universal_name(u_method)), v, args);
        return I_Callable_Generic::test(r) ? Union<I_Callable_Generic, None>(r) : Union<I_Callable_Generic, None>();
    }
    Any found;
    if (find_own(v, &own_members::methods, name, found)) return Union<I_Callable_Generic, None>(found);
    if (auto const& hook = table_of(cls).method_hook) [[unlikely]] {
        Any r = (*hook)(v, name);
        if (I_Callable_Generic::test(r)) return Union<I_Callable_Generic, None>(r);
        members = &members_of(cls); // the hook may have edited the class
    }
    auto it = members->methods.find(name);
    if (it == members->methods.end()) return {};
    return Union<I_Callable_Generic, None>(it->second.callable);
}

namespace internal {
cached_member member_for_cache(object_value_class const* cls, String const& name) {
    cached_member out;
    out.epoch = class_epoch(); // before the tables, as a class version
    Any method;
    {
        read_section section;
        member_snapshot const& members = members_of(cls);
        if ((members.override_mask & ((1u << u_method) | (1u << u_property))) != 0) return out;
        if (table_of(cls).method_hook) return out;
        if (auto it = members.methods.find(name); it != members.methods.end()) method = it->second.callable;
    }
    using kind_t = cached_member::kind_t;
    if (int field = cls->find_field(name); field >= 0) {
        out.kind = kind_t::field;
        out.field = field;
    } else if (auto property = cls->resolve_property(name)) {
        out.kind = kind_t::property;
        out.member = property.value();
    } else if (method.hasValue()) {
        out.kind = kind_t::method;
        out.member = std::move(method);
    }
    return out;
}
} // namespace internal

std::vector<std::pair<String, I_Callable_Generic>> own_methods_of(Any const& v) {
    if (Any o = override_for(v, u_own_methods); o.hasValue())
        return entries_of_result<I_Callable_Generic>(call_member(o, v, {}));
    return own_entries<I_Callable_Generic>(v, &own_members::methods);
}

Any insert_method(Any const& object, String const& name, I_Callable_Generic const& method) {
    if (Any o = override_for(object, u_insert_method); o.hasValue()) {
        Any const args[] = {name, method};
        return call_member(o, object, args);
    }
    return insert_own<Any>(object, &own_members::methods, name, method);
}

// ---- properties --------------------------------------------------------------

Union<Property, None> raw_property_of(Any const& v, String const& name) {
    Property found = Property::unsafe(Any());
    if (find_own(v, &own_members::properties, name, found)) return found;
    return raw_record(v)->resolve_property(name);
}

Union<Property, None> property_of(Any const& v, String const& name) {
    if (Any o = override_for(v, u_property); o.hasValue()) {
        Any const args[] = {name};
        Any r = call_member(o, v, args);
        return Property::test(r) ? Union<Property, None>(r) : Union<Property, None>();
    }
    return raw_property_of(v, name);
}

std::vector<std::pair<String, Property>> own_properties_of(Any const& v) {
    if (Any o = override_for(v, u_own_properties); o.hasValue())
        return entries_of_result<Property>(call_member(o, v, {}));
    return own_entries<Property>(v, &own_members::properties);
}

Any insert_property(Any const& object, String const& name, Property const& property) {
    if (Any o = override_for(object, u_insert_property); o.hasValue()) {
        Any const args[] = {name, property};
        return call_member(o, object, args);
    }
    return insert_own<Property>(object, &own_members::properties, name, property);
}

Any insert_property_value(Any const& object, String const& name, Any const& value) {
    return insert_property(object, name, Property(I_Callable_Generic::unsafe(make_constant_callable(value))));
}

namespace {
Error property_missing(String const& name, Any const& v) {
    return Error(String("The property is missing: {}, target object: {}.").arg(name, v));
}
} // namespace

Any Any::propertyValue(String const& name) const {
    if (Any o = override_for(*this, u_property_value); o.hasValue()) {
        Any const args[] = {name};
        return call_member(o, *this, args);
    }
    Property p = Property::unsafe(Any());
    if (find_own(*this, &own_members::properties, name, p)) return p.get(*this);
    object_value_class const* cls = raw_record(*this);
    if (auto hook = hook_of(cls, &class_table::property_read)) return (*hook)(*this, name);
    if (auto found = cls->resolve_property(name)) return found.value().get(*this);
    return property_missing(name, *this);
}

Any Any::setPropertyValue(String const& name, Any const& value) const {
    if (Any o = override_for(*this, u_set_property_value); o.hasValue()) {
        Any const args[] = {name, value};
        return call_member(o, *this, args);
    }
    Property p = Property::unsafe(Any());
    if (find_own(*this, &own_members::properties, name, p)) return p.set(*this, value);
    object_value_class const* cls = raw_record(*this);
    if (auto hook = hook_of(cls, &class_table::property_write)) return (*hook)(*this, name, value);
    if (auto found = cls->resolve_property(name)) return found.value().set(*this, value);
    return property_missing(name, *this);
}

// ---- fields ------------------------------------------------------------------

namespace {
// The index of the field `name` in an instance, or an Error.
Any field_slot(Any const& v, String const& name, int& index) {
    index = v.kind() == Kind::Instance ? v.get()->class_value()->find_field(name) : -1;
    if (index < 0) return Error(String("The field is missing: {}, target object: {}.").arg(name, v));
    return Any();
}
} // namespace

Any Any::fieldValue(String const& name) const {
    int index;
    if (Any e = field_slot(*this, name, index); e.isError()) return e;
    auto const* instance = static_cast<object_value_instance const*>(get());
    std::lock_guard guard(instance->lock());
    return static_cast<std::size_t>(index) < instance->fields.size() ? instance->fields[index] : Any();
}

Any Any::setFieldValue(String const& name, Any const& value) const {
    int index;
    if (Any e = field_slot(*this, name, index); e.isError()) return e;
    Any stored = value;
    Any type;
    {
        read_section section; // the field's type alone, not a copy of every field
        type = members_of(get()->class_value()).fields[static_cast<std::size_t>(index)].type;
    }
    if (value.hasValue() && Class_Generic::test(type) && !Type::unsafe(type).isUntyped()) {
        stored = Class_Generic::unsafe(type).coerce(value);
        if (stored.isError()) return stored;
    }
    auto& instance = const_cast<object_value_instance&>(static_cast<object_value_instance const&>(*get()));
    Any previous;
    {
        std::lock_guard guard(instance.lock());
        // Fields declared after the instance was made get their slot on first write.
        if (instance.fields.size() <= static_cast<std::size_t>(index)) instance.fields.resize(index + 1);
        previous = std::exchange(instance.fields[index], std::move(stored));
    }
    return Any(); // `previous` is released here, outside the lock
}

// ---- calls through members ---------------------------------------------------

Any Any::boundMethod(String const& name) const {
    auto m = method_of(*this, name);
    if (!m) return Any();
    if (m.value().isIndependent()) return m;
    return m.value().bindInstance(*this);
}

Any Any::callMethod(String const& name, std::span<Any const> args) const {
    auto m = method_of(*this, name);
    if (!m) return error_method_not_found(name, *this);
    return call_member(m, *this, args);
}

} // namespace tesk
