// The interface handles: a value implements an interface when its class has
// the interface among its ancestors. Built-in containers answer natively;
// any other value answers through its members of the same names, so a
// Python-backed proxy behaves like a host container for the caller.
#include "class_internal.h"
#include "container_objects.h"
#include "container_operations.h"


namespace tesk {

namespace {

using internal::builtin;

bool implements(Any const& v, builtin iface) noexcept {
    return internal::raw_record(v)->is_ancestor(internal::builtin_class(iface));
}

// The native answers of the class of `v` (set_native_operations_unsafe),
// when they may stand for its members: `v` is an instance of the class that
// declared them and has no members of its own, which would be found first.
[[gnu::always_inline]] inline internal::native_operations const* native_of(Any const& v) noexcept {
    if (v.kind() != Kind::Instance) return nullptr;
    internal::native_operations const* ops = v.get()->class_value()->native();
    return ops && !v.get()->own() ? ops : nullptr;
}

// Calls the method `name` of `v` with the given arguments.
Any call(Any const& v, String const& name, std::initializer_list<Any> args) {
    return v.callMethod(name, std::span<Any const>(args.begin(), args.size()));
}

// A property value of `v` as T: the value, a deferred one, or an Error.
template <class T> Result<T> typed_property(Any const& v, String const& name) {
    Any r = v.propertyValue(name);
    if (r.isError() || T::test(r) || r.isComputed()) return Result<T>(r);
    return result_error_cast_source(r, T::getClass());
}

String text_property(Any const& v, String const& name) {
    auto s = String::cast(internal::result_unwrap_lazy(v.propertyValue(name)));
    return s ? s.value() : String();
}

Type type_property(Any const& v, String const& name) {
    Any t = internal::result_unwrap_lazy(v.propertyValue(name));
    return Type::test(t) ? Type::unsafe(t) : Type::untyped();
}

Type or_untyped(Any const& type) { return type.hasValue() ? Type::unsafe(type) : Type::untyped(); }

Result<Integer> length_of(Any const& v, String const& name) {
    if (internal::is_native_sequence(v)) return Integer(static_cast<std::int64_t>(internal::sequence_length(v)));
    if (HashMap::test(v)) return Integer(static_cast<std::int64_t>(HashMap::unsafe(v).size()));
    if (HashSet::test(v)) return Integer(static_cast<std::int64_t>(HashSet::unsafe(v).size()));
    return typed_property<Integer>(v, name);
}

bool is_native_container(Any const& v) noexcept {
    return internal::is_native_sequence(v) || HashMap::test(v) || HashSet::test(v);
}

// A native "none or Error" result as Result<None>.
Result<None> none_or_error(Any const& r) { return r.isError() ? Result<None>(r) : Result<None>(); }

} // namespace

// ---- markers -----------------------------------------------------------------

bool I_Immutable::test(Any const& v) noexcept { return (internal::raw_record(v)->traits() & traits::immutable) != 0; }
bool I_HasName::test(Any const& v) noexcept { return implements(v, builtin::i_has_name); }
bool I_HasDoc::test(Any const& v) noexcept { return implements(v, builtin::i_has_doc); }
bool I_HasCode::test(Any const& v) noexcept { return implements(v, builtin::i_has_code); }
bool I_Cloneable::test(Any const& v) noexcept { return implements(v, builtin::i_cloneable); }
bool I_RuntimeOnly::test(Any const& v) noexcept { return implements(v, builtin::i_runtime_only); }

String I_HasName::name() const { return text_property(*this, $$name); }
String I_HasDoc::doc() const { return text_property(*this, $$doc); }
String I_HasCode::code() const { return text_property(*this, $$code); }

// ---- iteration -----------------------------------------------------------------

bool I_Iterable_Generic::test(Any const& v) noexcept {
    return is_native_container(v) || implements(v, builtin::i_iterable);
}

Result<I_Iterator_Generic> I_Iterable_Generic::iter() const {
    if (is_native_container(*this)) return Result<I_Iterator_Generic>(internal::make_iterator(*this));
    return Result<I_Iterator_Generic>(call(*this, $iter, {}));
}

Result<Boolean> I_Iterable_Generic::contains(Any const& value) const {
    if (is_native_container(*this)) return Boolean(internal::native_contains(*this, value));
    return Result<Boolean>(call(*this, $contains, {value}));
}

Type I_Iterable_Generic::elementsType() const {
    if (List::test(*this)) return List::unsafe(*this).elementType();
    if (is_native_container(*this)) return Type::untyped();
    return type_property(*this, $$elementsType);
}

bool I_Iterator_Generic::test(Any const& v) noexcept { return implements(v, builtin::i_iterator); }

Any I_Iterator_Generic::next() const {
    if (internal::is_native_iterator(*this)) return internal::iterator_next(*this);
    if (auto const* ops = native_of(*this); ops && ops->next) return ops->next(*this);
    return call(*this, $next, {});
}

bool I_Iterator_Generic::advance(Any& item) const {
    if (internal::is_native_iterator(*this)) return internal::iterator_advance(*this, item);
    item = internal::result_unwrap_lazy(next());
    return !StopIteration::test(item);
}

// ---- sequences -----------------------------------------------------------------

bool I_Sequence_Generic::test(Any const& v) noexcept {
    return (internal::raw_record(v)->traits() & traits::sequence) != 0;
}

Result<Integer> I_Sequence_Generic::length() const { return length_of(*this, $$__len__); }

Any I_Sequence_Generic::at(std::int64_t index) const {
    if (internal::is_native_sequence(*this)) return internal::sequence_at(*this, index);
    if (auto const* ops = native_of(*this); ops && ops->at) return ops->at(*this, index);
    return call(*this, $at, {Integer(index)});
}

Any I_Sequence_Generic::atOr(std::int64_t index, Any const& fallback) const {
    if (internal::is_native_sequence(*this)) return internal::sequence_at_or(*this, index, fallback);
    if (auto const* ops = native_of(*this); ops && ops->at_or) return ops->at_or(*this, index, fallback);
    return call(*this, $atOr, {Integer(index), fallback});
}

Result<Integer> I_Sequence_Generic::indexOf(Any const& value, std::int64_t from) const {
    if (internal::is_native_sequence(*this)) return Integer(internal::sequence_index_of(*this, value, from));
    return Result<Integer>(call(*this, $indexOf, {value, Integer(from)}));
}

Any I_Sequence_Generic::sliced(std::int64_t start, std::int64_t stop) const {
    if (internal::is_native_sequence(*this)) return internal::sequence_sliced(*this, start, stop);
    return call(*this, $sliced, {Integer(start), Integer(stop)});
}

bool I_MutableSequence_Generic::test(Any const& v) noexcept {
    return List::test(v) || implements(v, builtin::i_mutable_sequence);
}

Result<None> I_MutableSequence_Generic::set(std::int64_t index, Any const& value) const {
    if (List::test(*this)) return none_or_error(internal::list_set(List::unsafe(*this), index, value));
    return none_or_error(call(*this, $set, {Integer(index), value}));
}

Result<None> I_MutableSequence_Generic::removeAt(std::int64_t index, std::int64_t count) const {
    if (List::test(*this)) return none_or_error(internal::list_remove_at(List::unsafe(*this), index, count));
    return none_or_error(call(*this, $removeAt, {Integer(index), Integer(count)}));
}

Result<None> I_MutableSequence_Generic::append(Any const& value) const {
    if (List::test(*this)) {
        List::unsafe(*this).append(value);
        return {};
    }
    return none_or_error(call(*this, $append, {value}));
}

Result<None> I_MutableSequence_Generic::appendAt(std::int64_t index, Any const& value) const {
    if (List::test(*this)) return none_or_error(internal::list_insert(List::unsafe(*this), index, value));
    return none_or_error(call(*this, $appendAt, {Integer(index), value}));
}

Result<None> I_MutableSequence_Generic::extend(Any const& iterable) const {
    if (List::test(*this)) return none_or_error(internal::list_extend(List::unsafe(*this), iterable));
    return none_or_error(call(*this, $extend, {iterable}));
}

Result<None> I_MutableSequence_Generic::clear() const {
    if (List::test(*this)) {
        internal::list_clear(List::unsafe(*this));
        return {};
    }
    return none_or_error(call(*this, $clear, {}));
}

// ---- maps ------------------------------------------------------------------------

bool I_Map_Generic::test(Any const& v) noexcept { return (internal::raw_record(v)->traits() & traits::map) != 0; }

Any I_Map_Generic::get(Any const& key) const {
    if (HashMap::test(*this)) {
        HashMap m = HashMap::unsafe(*this);
        if (!m.contains(key)) return Error(String("Key not found: {}.").arg(key));
        return m.find(key);
    }
    if (auto const* ops = native_of(*this); ops && ops->get) return ops->get(*this, key);
    return call(*this, $get, {key});
}

Any I_Map_Generic::getOr(Any const& key, Any const& fallback) const {
    if (HashMap::test(*this)) return internal::map_get_or(HashMap::unsafe(*this), key, fallback);
    Any r = internal::result_unwrap_lazy(get(key));
    return r.isError() ? fallback : r;
}

Result<Boolean> I_Map_Generic::contains(Any const& key) const {
    if (HashMap::test(*this)) return Boolean(HashMap::unsafe(*this).contains(key));
    return Result<Boolean>(call(*this, I_Iterable_Generic::$contains, {key}));
}

Any I_Map_Generic::keys() const {
    if (HashMap::test(*this)) return internal::map_keys(HashMap::unsafe(*this));
    return propertyValue($$keys);
}

Any I_Map_Generic::values() const {
    if (HashMap::test(*this)) return internal::map_values(HashMap::unsafe(*this));
    return propertyValue($$values);
}

Result<Integer> I_Map_Generic::length() const { return length_of(*this, $$__len__); }

Type I_Map_Generic::keysType() const {
    if (HashMap::test(*this)) return or_untyped(internal::record_of<internal::object_value_hash_map>(*this).keys_type);
    return type_property(*this, $$keysType);
}

Type I_Map_Generic::valuesType() const {
    if (HashMap::test(*this))
        return or_untyped(internal::record_of<internal::object_value_hash_map>(*this).values_type);
    return type_property(*this, $$valuesType);
}

bool I_MutableMap_Generic::test(Any const& v) noexcept {
    return HashMap::test(v) || implements(v, builtin::i_mutable_map);
}

Result<None> I_MutableMap_Generic::set(Any const& key, Any const& value) const {
    if (HashMap::test(*this)) return HashMap::unsafe(*this).set(key, value);
    return none_or_error(call(*this, $set, {key, value}));
}

Result<None> I_MutableMap_Generic::setChecked(Any const& key, Any const& value) const {
    auto refuse = [](Any const& v, Type const& t) {
        return !t.isUntyped() && v.hasValue() && !Type(class_of(v)).conformsTo(t);
    };
    if (Type kt = keysType(); refuse(key, kt)) return result_error_cast_source(key, Class_Generic::unsafe(kt));
    if (Type vt = valuesType(); refuse(value, vt)) return result_error_cast_source(value, Class_Generic::unsafe(vt));
    return set(key, value);
}

Any I_MutableMap_Generic::remove(Any const& key) const {
    if (HashMap::test(*this)) return internal::map_remove(HashMap::unsafe(*this), key);
    return call(*this, $remove, {key});
}

Result<None> I_MutableMap_Generic::clear() const {
    if (HashMap::test(*this)) {
        internal::map_clear(HashMap::unsafe(*this));
        return {};
    }
    return none_or_error(call(*this, $clear, {}));
}

// ---- sets ------------------------------------------------------------------------

bool I_Set_Generic::test(Any const& v) noexcept { return HashSet::test(v) || implements(v, builtin::i_set); }

Result<Integer> I_Set_Generic::length() const { return length_of(*this, $$__len__); }

bool I_MutableSet_Generic::test(Any const& v) noexcept {
    return HashSet::test(v) || implements(v, builtin::i_mutable_set);
}

Result<Boolean> I_MutableSet_Generic::insert(Any const& value) const {
    if (HashSet::test(*this)) return HashSet::unsafe(*this).insert(value);
    return Result<Boolean>(call(*this, $insert, {value}));
}

Result<Boolean> I_MutableSet_Generic::remove(Any const& value) const {
    if (HashSet::test(*this)) return Boolean(HashSet::unsafe(*this).remove(value));
    return Result<Boolean>(call(*this, $remove, {value}));
}

} // namespace tesk
