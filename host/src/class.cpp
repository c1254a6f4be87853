// Class records, class instances, the Class and Type handles, the type
// registry and the class editors.
#include "builtin_classes.h"
#include "class_internal.h"

#include "tesk/builder.h"

#include <unordered_map>

namespace tesk {
namespace internal {

// ---- the generation of the class records --------------------------------------

namespace {
std::atomic<std::uint32_t> g_class_generation{1};
} // namespace

void class_records_changed() noexcept { g_class_generation.fetch_add(1, std::memory_order_acq_rel); }
std::uint32_t class_records_generation() noexcept { return g_class_generation.load(std::memory_order_acquire); }

// ---- object_value_class ------------------------------------------------------

namespace {
// Every class record ever made. Records are immortal: each keeps one
// reference of its own and stays listed here, so raw pointers to it stay
// valid and leak checkers see it as reachable. Guarded by its spinlock;
// never destroyed.
struct record_list {
    spinlock lock;
    std::vector<object_value_class const*> records;
};
record_list& all_records() {
    static auto* list = new record_list();
    return *list;
}
} // namespace

object_value_class::object_value_class(String n, std::uint64_t t)
    : object_value(Kind::Class, builtin_class(builtin::class_)), name(std::move(n)), qualname(name), traits(t) {
    retain();
    auto& list = all_records();
    std::lock_guard guard(list.lock);
    list.records.push_back(this);
}

object_value_class::~object_value_class() = default;

bool object_value_class::is_ancestor(object_value_class const* other) const noexcept {
    if (other == this || other == any_record()) return true;
    for (auto const* p : parents)
        if (p->is_ancestor(other)) return true;
    return false;
}

namespace {
void collect_fields(object_value_class const* cls, std::vector<field_info>& out) {
    for (auto const* p : cls->parents) collect_fields(p, out);
    std::lock_guard guard(cls->lock());
    for (auto const& f : cls->fields) {
        bool seen = false;
        for (auto const& o : out) seen = seen || o.name == f.name;
        if (!seen) out.push_back(f);
    }
}
} // namespace

namespace {

// The members a class resolves, nearest declaration first, for lock-free
// lookups. A snapshot is immutable once published in the record; a stale one
// is replaced, and kept (never freed) because readers may still hold it.
struct member_snapshot {
    std::uint32_t generation;
    std::unordered_map<String, Any, StringHash> methods;
    std::unordered_map<String, Property, StringHash> properties;
    std::vector<field_info> fields; // all_fields()
};

// Replaced snapshots; guarded by its spinlock, never destroyed.
struct retired_snapshots {
    spinlock lock;
    std::vector<member_snapshot const*> list;
};
void retire(member_snapshot const* s) {
    static auto* retired = new retired_snapshots();
    std::lock_guard guard(retired->lock);
    retired->list.push_back(s);
}

void take_members(member_snapshot& s, object_value_class const* c) {
    object_value_class const* owner = c->method_owner ? c->method_owner : c;
    {
        std::lock_guard guard(owner->lock());
        for (auto const& [k, v] : owner->methods.entries()) s.methods.try_emplace(k, v);
    }
    std::lock_guard guard(c->lock());
    for (auto const& [k, v] : c->properties.entries()) s.properties.try_emplace(k, v);
}

member_snapshot const& snapshot_of(object_value_class const* cls) {
    std::uint32_t generation = class_records_generation();
    auto const* current = static_cast<member_snapshot const*>(cls->member_cache.load(std::memory_order_acquire));
    if (current && current->generation == generation) return *current;
    auto* fresh = new member_snapshot{generation, {}, {}, {}};
    walk_chain(cls, [&](object_value_class const* c) {
        take_members(*fresh, c);
        return false;
    });
    take_members(*fresh, any_record());
    collect_fields(cls, fresh->fields);
    void const* expected = current;
    if (cls->member_cache.compare_exchange_strong(expected, fresh, std::memory_order_acq_rel)) {
        if (current) retire(current);
        return *fresh;
    }
    delete fresh; // another thread published first; ours was never seen
    return *static_cast<member_snapshot const*>(expected);
}

} // namespace

std::vector<field_info> object_value_class::all_fields() const { return snapshot_of(this).fields; }

int object_value_class::find_field(String const& field) const {
    auto const& all = snapshot_of(this).fields;
    for (std::size_t i = 0; i < all.size(); ++i)
        if (all[i].name == field) return static_cast<int>(i);
    return -1;
}

namespace {
// The number of field values an instance holds.
std::size_t field_count(object_value_class const* cls) { return snapshot_of(cls).fields.size(); }
} // namespace

Any object_value_class::resolve_method(String const& method) const {
    auto const& s = snapshot_of(this);
    auto it = s.methods.find(method);
    return it == s.methods.end() ? Any() : it->second;
}

Union<Property, None> object_value_class::resolve_property(String const& property) const {
    auto const& s = snapshot_of(this);
    auto it = s.properties.find(property);
    if (it == s.properties.end()) return {};
    return it->second;
}

Any object_value_class::find_property_getter(String const& property) const {
    auto p = resolve_property(property);
    if (!p) return Any();
    return p.value().getter();
}

Any object_value_class::find_property_setter(String const& property) const {
    auto p = resolve_property(property);
    if (!p) return Any();
    return p.value().setter();
}

// ---- object_value_instance ---------------------------------------------------

object_value_instance::object_value_instance(object_value_class const* cls)
    : object_value(Kind::Instance, cls), fields(field_count(cls)) {}

Any object_value_instance::create(object_value_class const* cls) {
    instance_factory make = cls->factory ? cls->factory : make_plain_instance;
    // Error values are read as error records: a class that has the error
    // trait but no factory of its own still makes them.
    if ((cls->traits & traits::error) != 0 && make == make_plain_instance) make = make_error_instance;
    return Any::adopt(make(cls));
}


} // namespace internal

using internal::object_value_class;

// ---- Class_Generic -----------------------------------------------------------

String Class_Generic::name() const { return record()->name; }
String Class_Generic::qualname() const { return record()->qualname; }
String Class_Generic::doc() const {
    std::lock_guard guard(record()->lock());
    return record()->doc;
}
std::uint64_t Class_Generic::traits() const { return record()->traits; }
Any Class_Generic::declaringContext() const { return record()->declaring_context; }

std::vector<Class_Generic> Class_Generic::parents() const {
    std::vector<Class_Generic> out;
    for (auto const* p : record()->parents) out.push_back(of(p));
    return out;
}

bool Class_Generic::is_ancestor(Class_Generic const& other) const {
    return other.hasValue() && record()->is_ancestor(other.record());
}

Union<Property, None> Class_Generic::definedProperty(String const& n) const { return record()->resolve_property(n); }

Union<I_Callable_Generic, None> Class_Generic::definedMethod(String const& n) const {
    return Union<I_Callable_Generic, None>(record()->resolve_method(n));
}

bool Class_Generic::definedField(String const& n) const { return record()->find_field(n) >= 0; }

namespace {
// Every member of the class chain, the nearest declaration of each name first.
template <class V, class Handle>
std::vector<std::pair<String, Handle>> defined_members(object_value_class const* cls,
                                                       ordered_map<V> object_value_class::*table) {
    ordered_map<Handle> seen;
    auto visit = [&](object_value_class const* c) {
        object_value_class const* owner = c;
        if constexpr (std::is_same_v<V, Any>) owner = c->method_owner ? c->method_owner : c; // methods only
        std::lock_guard guard(owner->lock());
        for (auto const& [k, v] : (owner->*table).entries())
            if (!seen.contains(k)) seen.set(k, Handle::unsafe(v));
        return false;
    };
    internal::walk_chain(cls, visit);
    visit(internal::any_record());
    return seen.entries();
}
} // namespace

std::vector<std::pair<String, Property>> Class_Generic::definedProperties() const {
    return defined_members<Property, Property>(record(), &object_value_class::properties);
}

std::vector<std::pair<String, I_Callable_Generic>> Class_Generic::definedMethods() const {
    return defined_members<Any, I_Callable_Generic>(record(), &object_value_class::methods);
}

std::vector<String> Class_Generic::fieldNames() const {
    std::vector<String> out;
    for (auto const& f : record()->all_fields()) out.push_back(f.name);
    return out;
}

Any Class_Generic::allocateInstance() const { return internal::object_value_instance::create(record()); }

Any Class_Generic::coerce(Any const& value) const {
    if (internal::raw_record(value)->is_ancestor(record())) return value;
    Any resolved = internal::unwrap(value);
    if (resolved.isError()) return resolved;
    if (!resolved.isSame(value) && internal::raw_record(resolved)->is_ancestor(record())) return resolved;
    if (record()->coercion) return record()->coercion(resolved);
    return result_error_cast_source(value, *this);
}

Any Class_Generic::operator()(std::span<Any const> args) const {
    if (record()->call_operator.hasValue()) return I_Callable_Generic::unsafe(record()->call_operator).invoke(args);
    Any init = record()->resolve_method(Any::$__init__);
    if (init.hasValue() && I_Callable_Generic::unsafe(init).isIndependent())
        return I_Callable_Generic::unsafe(init).invoke(args); // a static constructor gives the instance itself
    Any instance = allocateInstance();
    if (init.hasValue()) {
        Any r = internal::call_member(init, instance, args);
        if (r.isError()) return r;
    }
    return instance;
}

// ---- Type --------------------------------------------------------------------

Type Type::untyped() { return Class_Generic::of(internal::any_record()); }
Type Type::none() { return Class_Generic::of(internal::builtin_class(internal::builtin::none)); }

bool Type::isUntyped() const { return get() == nullptr || get() == internal::any_record(); }

bool Type::conformsTo(Type const& other) const {
    if (other.isUntyped()) return true;
    if (isUntyped()) return false;
    return Class_Generic::unsafe(*this).record()->is_ancestor(Class_Generic::unsafe(other).record());
}

Union<Class_Generic, None> Type::toClass() const {
    if (Class_Generic::test(*this)) return Union<Class_Generic, None>(*this);
    return {};
}

String Type::name() const {
    if (get() == nullptr) return String("Any");
    return Class_Generic::unsafe(*this).name();
}

// Our types are plain classes (a Union or Computed parameter is described by
// its first type already), so only the empty type needs a name.
Type unwrapped_type(Type const& type) { return type.get() == nullptr ? Type::untyped() : type; }

// ---- the type registry -------------------------------------------------------

namespace {
// name → class, for find_type. Holds both the qualified and the plain name of
// each registered class; the first registration of a plain name keeps it.
// Guarded by its spinlock; entries live for the process (classes are immortal).
struct type_registry {
    spinlock lock;
    std::unordered_map<String, Class_Generic, StringHash> by_name;

    type_registry() {
        for (std::size_t i = 0; i < static_cast<std::size_t>(internal::builtin::count_); ++i)
            add(Class_Generic::of(internal::builtin_class(static_cast<internal::builtin>(i))));
    }
    void add(Class_Generic const& cls) {
        std::lock_guard guard(lock);
        by_name.insert_or_assign(cls.qualname(), cls);
        by_name.try_emplace(cls.name(), cls);
    }
};
type_registry& registry() {
    static type_registry* r = new type_registry(); // never destroyed: used until the process ends
    return *r;
}
} // namespace

Union<Type, None> find_type(String const& n) {
    auto& r = registry();
    std::lock_guard guard(r.lock);
    auto it = r.by_name.find(n);
    if (it == r.by_name.end()) return {};
    return Union<Type, None>(it->second);
}

void register_type(Class_Generic const& cls) {
    if (cls.hasValue()) registry().add(cls);
}

// ---- class_of ----------------------------------------------------------------

Class_Generic raw_class_of(Any const& v) { return Class_Generic::of(internal::raw_record(v)); }

Class_Generic class_of(Any const& v) {
    Kind k = v.kind();
    if (k == Kind::Computed || k == Kind::Weak || k == Kind::External) return raw_class_of(internal::unwrap(v));
    return raw_class_of(v);
}

// ---- editing class records ---------------------------------------------------

void add_class_method_unsafe(Class_Generic const& cls, String const& n, I_Callable_Generic const& method) {
    auto& record = internal::mutable_record(cls.record());
    {
        std::lock_guard guard(record.lock());
        record.methods.set(n, method);
    }
    internal::class_records_changed();
}

void add_class_property_unsafe(Class_Generic const& cls, String const& n, Property const& property) {
    auto& record = internal::mutable_record(cls.record());
    {
        std::lock_guard guard(record.lock());
        record.properties.set(n, property);
    }
    internal::class_records_changed();
}

void add_parent_unsafe(Class_Generic const& cls, Class_Generic const& parent) {
    auto& record = internal::mutable_record(cls.record());
    if (parent.record() == internal::any_record() || parent.record()->is_ancestor(cls.record()))
        return; // "Any" is everyone's root; a cycle would make lookups endless
    record.parents.push_back(parent.record());
    record.traits |= parent.record()->traits & ~traits::interface;
    if (!record.factory && !record.is_interface()) record.factory = parent.record()->factory;
    internal::class_records_changed();
}

void set_doc_unsafe(Class_Generic const& cls, String const& doc) {
    auto& record = internal::mutable_record(cls.record());
    std::lock_guard guard(record.lock());
    record.doc = doc;
}

} // namespace tesk
