// HashSet: an insertion-ordered set of immutable values.
#include "container_objects.h"

namespace tesk {

namespace internal {
object_value_hash_set::object_value_hash_set(Any type) noexcept
    : object_value(Kind::HashSet, builtin_class(builtin::hash_set)), element_type(std::move(type)) {}
} // namespace internal

using set_record = internal::object_value_hash_set;

HashSet::HashSet() : HashSet(Type::unsafe(Any())) {}

HashSet::HashSet(Type const& elementType)
    : I_MutableSet_Generic(internal::unchecked, Any::adopt(new set_record(elementType))) {}

Result<Boolean> HashSet::insert(Any const& value) const {
    if (!internal::is_hashable(value)) return internal::unhashable_key(value);
    auto& set = internal::record_of<set_record>(*this);
    std::uint64_t hash = hash_of(value);
    return Boolean(internal::locate(set, set.table, value, hash, [&](std::ptrdiff_t at) {
        if (at >= 0) return false;
        set.table.insert(value, Any(), hash);
        return true;
    }));
}

bool HashSet::contains(Any const& value) const { return internal::table_contains<set_record>(*this, value); }

bool HashSet::remove(Any const& value) const { return internal::table_remove<set_record>(*this, value); }

std::size_t HashSet::size() const { return internal::table_size<set_record>(*this); }

std::vector<Any> HashSet::items() const {
    auto& set = internal::record_of<set_record>(*this);
    std::vector<Any> out;
    std::lock_guard guard(set.lock());
    out.reserve(set.table.size());
    for (auto const& e : set.table.entries())
        if (!e.erased) out.push_back(e.key);
    return out;
}

} // namespace tesk
