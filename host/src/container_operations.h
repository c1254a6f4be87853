// Internal: the operations of the built-in containers that the public
// handles do not offer themselves. The built-in classes' methods bind them,
// and the interface handles take them as their fast path, so that a caller
// gets the same answer either way.
#pragma once

#include "tesk/containers.h"

#include <functional>

namespace tesk::internal {

// List or Tuple. Inline, as the other tests of the interfaces' fast paths:
// every interface call makes them.
inline bool is_native_sequence(Any const& v) noexcept { return List::test(v) || Tuple::test(v); }
Any sequence_at(Any const& seq, std::int64_t index);                   // item or Error
Any sequence_at_or(Any const& seq, std::int64_t index, Any const& fallback);
std::int64_t sequence_index_of(Any const& seq, Any const& value, std::int64_t from); // -1 when absent
Any sequence_sliced(Any const& seq, std::int64_t start, std::int64_t stop); // same kind as `seq`
std::size_t sequence_length(Any const& seq);

Any list_set(List const& list, std::int64_t index, Any const& value);      // none or Error
Any list_insert(List const& list, std::int64_t index, Any const& value);   // none or Error
Any list_remove_at(List const& list, std::int64_t index, std::int64_t count); // none or Error
bool list_remove_one(List const& list, Any const& value);
Any list_pop(List const& list);                                           // the last item or Error
Any list_extend(List const& list, Any const& iterable);                   // none or Error
void list_clear(List const& list);

Any map_get_or(HashMap const& map, Any const& key, Any const& fallback);
Any map_remove(HashMap const& map, Any const& key); // the removed value or Error
List map_keys(HashMap const& map);
List map_values(HashMap const& map);
void map_clear(HashMap const& map);

Any set_extend(HashSet const& set, Any const& iterable); // none or Error
void set_clear(HashSet const& set);

// Whether `container` holds `value` (for a map: as a key).
bool native_contains(Any const& container, Any const& value);
// An iterator over a built-in container (a map gives its keys), or an Error.
Any make_iterator(Any const& container);
// The class of the built-in containers' iterators, looked up once.
object_value_class const* iterator_class() noexcept;
inline bool is_native_iterator(Any const& v) noexcept {
    return v.kind() == Kind::Instance && v.get()->class_value() == iterator_class();
}
Any iterator_next(Any const& iterator); // the next item or StopIteration
// The next item of a native iterator into `item`; false at the end.
bool iterator_advance(Any const& iterator, Any& item);

// Calls `visit` with each item of any iterable value; stops at the first
// Error (from the iteration or from `visit`) and returns it, else none.
Any for_each_item(Any const& iterable, std::function<Any(Any const&)> const& visit);

} // namespace tesk::internal
