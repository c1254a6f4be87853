// Class records, class instances, the Class and Type handles, the type
// registry and the class editors.
#include "builtin_classes.h"
#include "class_internal.h"

#include "tesk/builder.h"

#include <unordered_map>

namespace tesk {
namespace internal {

// ---- class tables and member snapshots ----------------------------------------

namespace {
// Tables and snapshots alive, for live_class_table_count().
std::atomic<std::int64_t> g_live_tables{0};
} // namespace

class_table::class_table() { g_live_tables.fetch_add(1, std::memory_order_relaxed); }
class_table::class_table(class_table const& o)
    : qualname(o.qualname), doc(o.doc), traits(o.traits), parents(o.parents), declaring_context(o.declaring_context),
      generic_definition(o.generic_definition), fields(o.fields), methods(o.methods), properties(o.properties),
      call_operator(o.call_operator), coercion(o.coercion), method_hook(o.method_hook),
      property_read(o.property_read), property_write(o.property_write), invoke(o.invoke), native(o.native),
      finalizer(o.finalizer),
      setup_callback(o.setup_callback), method_owner(o.method_owner), factory(o.factory), examples(o.examples),
      option(o.option), declared_methods_first(o.declared_methods_first) {
    g_live_tables.fetch_add(1, std::memory_order_relaxed);
}
class_table::~class_table() { g_live_tables.fetch_sub(1, std::memory_order_relaxed); }

member_snapshot::member_snapshot() { g_live_tables.fetch_add(1, std::memory_order_relaxed); }
member_snapshot::~member_snapshot() { g_live_tables.fetch_sub(1, std::memory_order_relaxed); }

std::int64_t live_class_table_count() noexcept { return g_live_tables.load(std::memory_order_relaxed); }

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

std::vector<object_value_class const*> all_class_records() {
    auto& list = all_records();
    std::lock_guard guard(list.lock);
    return list.records;
}

namespace {
class_table* first_table(String const& name, std::uint64_t traits) {
    auto* t = new class_table();
    t->qualname = name;
    t->traits = traits;
    return t;
}
} // namespace

object_value_class::object_value_class(String n, std::uint64_t t)
    : object_value(Kind::Class, builtin_class(builtin::class_)), name_(std::move(n)), table_(first_table(name_, t)),
      traits_(t) {
    retain();
    auto& list = all_records();
    std::lock_guard guard(list.lock);
    list.records.push_back(this);
}

object_value_class::~object_value_class() {
    move_class_epoch();
    delete table_.load();
    delete static_cast<member_snapshot const*>(member_cache_.load());
}


String object_value_class::qualname() const {
    return read_table(this, [](class_table const& t) { return t.qualname; });
}
String object_value_class::doc() const {
    return read_table(this, [](class_table const& t) { return t.doc; });
}
std::vector<object_value_class const*> object_value_class::parents() const {
    return read_table(this, [](class_table const& t) { return t.parents; });
}
Any object_value_class::declaring_context_value() const {
    return read_table(this, [](class_table const& t) { return t.declaring_context; });
}
Any object_value_class::generic_definition() const {
    return read_table(this, [](class_table const& t) { return t.generic_definition; });
}
Any object_value_class::call_operator() const {
    return read_table(this, [](class_table const& t) { return t.call_operator; });
}
Any object_value_class::finalizer() const {
    return read_table(this, [](class_table const& t) { return t.finalizer; });
}
Any object_value_class::setup_callback() const {
    return read_table(this, [](class_table const& t) { return t.setup_callback; });
}
std::vector<std::pair<String, String>> object_value_class::examples() const {
    return read_table(this, [](class_table const& t) { return t.examples; });
}
std::int64_t object_value_class::option() const {
    return read_table(this, [](class_table const& t) { return t.option; });
}

namespace {
bool reaches(object_value_class const* cls, object_value_class const* other) noexcept {
    if (other == cls || other == any_record()) return true;
    for (auto const* p : table_of(cls).parents)
        if (reaches(p, other)) return true;
    return false;
}
} // namespace

bool object_value_class::is_ancestor(object_value_class const* other) const noexcept {
    if (other == this || other == any_record()) return true;
    read_section section;
    return reaches(this, other);
}

namespace {

void collect_fields(object_value_class const* cls, std::vector<field_info>& out) {
    class_table const& t = table_of(cls);
    for (auto const* p : t.parents) collect_fields(p, out);
    for (auto const& f : t.fields) {
        bool seen = false;
        for (auto const& o : out) seen = seen || o.name == f.name;
        if (!seen) out.push_back(f);
    }
}

void take_members(member_snapshot& s, object_value_class const* c, bool below_root) {
    class_table const& t = table_of(c);
    class_table const& owner = t.method_owner ? table_of(t.method_owner) : t;
    for (auto const& [k, v] : owner.methods.entries()) s.methods.try_emplace(k, member_snapshot::method{v, below_root});
    for (auto const& [k, v] : t.properties.entries()) s.properties.try_emplace(k, v);
}

member_snapshot* build_snapshot(object_value_class const* cls, std::uint64_t version, class_table const* own_table) {
    auto* fresh = new member_snapshot();
    fresh->version = version;
    fresh->own_table = own_table;
    walk_chain(cls, [&](object_value_class const* c) {
        take_members(*fresh, c, true);
        fresh->declared_methods_first |= table_of(c).declared_methods_first;
        return false;
    });
    take_members(*fresh, any_record(), false);
    collect_fields(cls, fresh->fields);
    auto const& names = universal_names();
    for (std::size_t i = 0; i < names.size(); ++i) {
        auto it = fresh->methods.find(names[i]);
        if (it != fresh->methods.end() && it->second.below_root) fresh->override_mask |= 1u << i;
    }
    return fresh;
}

} // namespace

namespace {
std::atomic<std::uint64_t> g_class_epoch{1};
} // namespace

std::uint64_t class_epoch() noexcept { return g_class_epoch.load(std::memory_order_seq_cst); }
void move_class_epoch() noexcept { g_class_epoch.fetch_add(1, std::memory_order_seq_cst); }

member_snapshot const& members_of(object_value_class const* cls) {
    auto& cache = class_record_access::member_cache(cls);
    // The version first, then the tables (see class_table.h).
    std::uint64_t version = class_record_access::version(cls).load(std::memory_order_seq_cst);
    class_table const* own_table = &table_of(cls);
    auto const* current = static_cast<member_snapshot const*>(cache.load(std::memory_order_acquire));
    if (current && current->version == version && current->own_table == own_table) [[likely]]
        return *current;
    member_snapshot* fresh = build_snapshot(cls, version, own_table);
    void const* expected = current;
    if (cache.compare_exchange_strong(expected, fresh, std::memory_order_acq_rel)) {
        if (current) retire(current);
        return *fresh;
    }
    // Another thread published first. Ours was never seen, but it is retired
    // all the same: lookups never release values themselves.
    retire(static_cast<member_snapshot const*>(fresh));
    return *static_cast<member_snapshot const*>(expected);
}

std::vector<field_info> object_value_class::all_fields() const {
    read_section section;
    return members_of(this).fields;
}

int object_value_class::find_field(String const& field) const {
    read_section section;
    auto const& all = members_of(this).fields;
    for (std::size_t i = 0; i < all.size(); ++i)
        if (all[i].name == field) return static_cast<int>(i);
    return -1;
}

namespace {
// The number of field values an instance holds.
std::size_t field_count(object_value_class const* cls) {
    read_section section;
    return members_of(cls).fields.size();
}
} // namespace

Any object_value_class::resolve_method(String const& method) const {
    read_section section;
    auto const& s = members_of(this);
    auto it = s.methods.find(method);
    return it == s.methods.end() ? Any() : it->second.callable;
}

Union<Property, None> object_value_class::resolve_property(String const& property) const {
    read_section section;
    auto const& s = members_of(this);
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
    instance_factory make = read_table(cls, [](class_table const& t) { return t.factory; });
    if (!make) make = make_plain_instance;
    // Error values are read as error records: a class that has the error
    // trait makes them whatever factory it inherited from another parent.
    if ((cls->traits() & traits::error) != 0) make = make_error_instance;
    return Any::adopt(make(cls));
}


} // namespace internal

using internal::object_value_class;

// ---- Class_Generic -----------------------------------------------------------

String Class_Generic::name() const { return record()->name(); }
String Class_Generic::qualname() const { return record()->qualname(); }
String Class_Generic::doc() const { return record()->doc(); }
std::uint64_t Class_Generic::traits() const { return record()->traits(); }
Any Class_Generic::declaringContext() const { return record()->declaring_context_value(); }

std::vector<Class_Generic> Class_Generic::parents() const {
    std::vector<Class_Generic> out;
    for (auto const* p : record()->parents()) out.push_back(of(p));
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
                                                       ordered_map<V> internal::class_table::*table) {
    ordered_map<Handle> seen;
    auto visit = [&](object_value_class const* c) {
        internal::class_table const* owner = &internal::table_of(c);
        if constexpr (std::is_same_v<V, Any>) // methods only
            if (owner->method_owner) owner = &internal::table_of(owner->method_owner);
        for (auto const& [k, v] : (owner->*table).entries())
            if (!seen.contains(k)) seen.set(k, Handle::unsafe(v));
        return false;
    };
    internal::read_section section;
    internal::walk_chain(cls, visit);
    visit(internal::any_record());
    return seen.entries();
}
} // namespace

std::vector<std::pair<String, Property>> Class_Generic::definedProperties() const {
    return defined_members<Property, Property>(record(), &internal::class_table::properties);
}

std::vector<std::pair<String, I_Callable_Generic>> Class_Generic::definedMethods() const {
    return defined_members<Any, I_Callable_Generic>(record(), &internal::class_table::methods);
}

std::vector<std::pair<String, Property>> Class_Generic::declaredProperties() const {
    return internal::read_table(record(), [](internal::class_table const& t) {
        std::vector<std::pair<String, Property>> out;
        for (auto const& [k, v] : t.properties.entries()) out.emplace_back(k, v);
        return out;
    });
}

std::vector<std::pair<String, I_Callable_Generic>> Class_Generic::declaredMethods() const {
    internal::read_section section;
    internal::class_table const* owner = &internal::table_of(record());
    if (owner->method_owner) owner = &internal::table_of(owner->method_owner);
    std::vector<std::pair<String, I_Callable_Generic>> out;
    for (auto const& [k, v] : owner->methods.entries())
        if (I_Callable_Generic::test(v)) out.emplace_back(k, I_Callable_Generic::unsafe(v));
    return out;
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
    auto coercion = internal::read_table(record(), [](internal::class_table const& t) { return t.coercion; });
    if (coercion) return (*coercion)(resolved);
    return result_error_cast_source(value, *this);
}

Any Class_Generic::operator()(std::span<Any const> args) const {
    if (Any call = record()->call_operator(); call.hasValue()) return I_Callable_Generic::unsafe(call).invoke(args);
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


} // namespace tesk
