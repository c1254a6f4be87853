// HashMap: an insertion-ordered map with immutable keys.
#include "container_objects.h"

namespace tesk {

namespace internal {
object_value_hash_map::object_value_hash_map(Any k, Any v) noexcept
    : object_value(Kind::HashMap, builtin_class(builtin::hash_map)), keys_type(std::move(k)), values_type(std::move(v)) {}

Error unhashable_key(Any const& key) { return Error(String("Unhashable key: {}.").arg(key)); }
} // namespace internal

using map_record = internal::object_value_hash_map;

HashMap::HashMap() : HashMap(Type::unsafe(Any()), Type::unsafe(Any())) {}

HashMap::HashMap(Type const& keysType, Type const& valuesType)
    : I_MutableMap_Generic(internal::unchecked, Any::adopt(new map_record(keysType, valuesType))) {}

Result<None> HashMap::set(Any const& key, Any const& value) const {
    if (!internal::is_hashable(key)) return internal::unhashable_key(key);
    auto& map = internal::record_of<map_record>(*this);
    std::uint64_t hash = hash_of(key);
    Any replaced = value; // receives the old value, released once unlocked
    internal::locate(map, map.table, key, hash, [&](std::ptrdiff_t at) {
        if (at >= 0)
            map.table.at(at).value.swap(replaced);
        else
            map.table.insert(key, std::move(replaced), hash);
    });
    return None();
}

Union<Any, None> HashMap::find(Any const& key) const {
    auto& map = internal::record_of<map_record>(*this);
    return internal::locate(map, map.table, key, hash_of(key),
                            [&](std::ptrdiff_t at) { return at >= 0 ? map.table.at(at).value : Any(); });
}

bool HashMap::contains(Any const& key) const { return internal::table_contains<map_record>(*this, key); }

bool HashMap::remove(Any const& key) const { return internal::table_remove<map_record>(*this, key); }

std::size_t HashMap::size() const { return internal::table_size<map_record>(*this); }

std::vector<std::pair<Any, Any>> HashMap::items() const {
    auto& map = internal::record_of<map_record>(*this);
    std::vector<std::pair<Any, Any>> out;
    std::lock_guard guard(map.lock());
    out.reserve(map.table.size());
    for (auto const& e : map.table.entries())
        if (!e.erased) out.emplace_back(e.key, e.value);
    return out;
}

} // namespace tesk
