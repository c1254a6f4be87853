// The built-in containers' operations beyond their handles, and their
// iterator. Items that leave a container are released after its lock is.
#include "container_operations.h"

#include "class_internal.h"
#include "container_objects.h"

#include <algorithm>

namespace tesk::internal {

namespace {

using list_record = object_value_list;
using tuple_record = object_value_tuple;

Error index_error(std::int64_t index) { return Error(String("Index out of range: {}.").arg(index)); }

// [start, stop) clipped to [0, size].
std::pair<std::size_t, std::size_t> clip(std::int64_t start, std::int64_t stop, std::size_t size) {
    auto bound = [size](std::int64_t i) {
        return static_cast<std::size_t>(std::clamp<std::int64_t>(i, 0, static_cast<std::int64_t>(size)));
    };
    std::size_t b = bound(start), e = bound(stop);
    return {b, std::max(b, e)};
}

// A copy of the items of a List or the span of a Tuple, for read-only scans.
std::vector<Any> items_of(Any const& seq) {
    if (List::test(seq)) return List::unsafe(seq).copyItems();
    auto items = Tuple::unsafe(seq).items();
    return {items.begin(), items.end()};
}

} // namespace


std::size_t sequence_length(Any const& seq) {
    return List::test(seq) ? List::unsafe(seq).size() : Tuple::unsafe(seq).size();
}

Any sequence_at(Any const& seq, std::int64_t index) {
    if (List::test(seq)) return List::unsafe(seq).at(index);
    Tuple t = Tuple::unsafe(seq);
    if (index < 0 || static_cast<std::uint64_t>(index) >= t.size()) return index_error(index);
    return t[static_cast<std::size_t>(index)];
}

Any sequence_at_or(Any const& seq, std::int64_t index, Any const& fallback) {
    Any item = sequence_at(seq, index);
    return item.isError() ? fallback : item;
}

std::int64_t sequence_index_of(Any const& seq, Any const& value, std::int64_t from) {
    // Compared unlocked: an item's comparison may run a class override.
    std::vector<Any> items = items_of(seq);
    for (std::size_t i = static_cast<std::size_t>(std::max<std::int64_t>(from, 0)); i < items.size(); ++i)
        if (equals(items[i], value)) return static_cast<std::int64_t>(i);
    return -1;
}

Any sequence_sliced(Any const& seq, std::int64_t start, std::int64_t stop) {
    std::vector<Any> items = items_of(seq);
    auto [b, e] = clip(start, stop, items.size());
    std::vector<Any> part(items.begin() + static_cast<std::ptrdiff_t>(b), items.begin() + static_cast<std::ptrdiff_t>(e));
    if (Tuple::test(seq)) return Tuple(std::move(part));
    List out(List::unsafe(seq).elementType());
    record_of<list_record>(out).items = std::move(part);
    return out;
}

Any list_set(List const& list, std::int64_t index, Any const& value) {
    auto& r = record_of<list_record>(list);
    Any replaced = value;
    {
        std::lock_guard guard(r.lock());
        if (index >= 0 && static_cast<std::uint64_t>(index) < r.items.size()) {
            r.items[static_cast<std::size_t>(index)].swap(replaced);
            return Any();
        }
    }
    return index_error(index);
}

Any list_insert(List const& list, std::int64_t index, Any const& value) {
    auto& r = record_of<list_record>(list);
    {
        std::lock_guard guard(r.lock());
        if (index >= 0 && static_cast<std::uint64_t>(index) <= r.items.size()) {
            r.items.insert(r.items.begin() + index, value);
            return Any();
        }
    }
    return index_error(index);
}

Any list_remove_at(List const& list, std::int64_t index, std::int64_t count) {
    auto& r = record_of<list_record>(list);
    std::vector<Any> removed;
    {
        std::lock_guard guard(r.lock());
        if (index < 0 || count < 0 || static_cast<std::uint64_t>(index) >= r.items.size())
            return index_error(index);
        auto first = r.items.begin() + index;
        auto last = first + std::min<std::int64_t>(count, static_cast<std::int64_t>(r.items.end() - first));
        removed.assign(std::make_move_iterator(first), std::make_move_iterator(last));
        r.items.erase(first, last);
    }
    return Any();
}

bool list_remove_one(List const& list, Any const& value) {
    auto& r = record_of<list_record>(list);
    for (;;) {
        // Compared unlocked; the item is removed only if it is still the one
        // found at that position.
        std::int64_t at = sequence_index_of(list, value, 0);
        if (at < 0) return false;
        Any found = list.at(at);
        Any removed;
        std::lock_guard guard(r.lock());
        if (static_cast<std::size_t>(at) < r.items.size() && r.items[at].isSame(found)) {
            removed = std::move(r.items[at]);
            r.items.erase(r.items.begin() + at);
            return true;
        }
    }
}

Any list_pop(List const& list) {
    auto& r = record_of<list_record>(list);
    std::lock_guard guard(r.lock());
    if (r.items.empty()) return Error(String("Pop from an empty list."));
    Any last = std::move(r.items.back());
    r.items.pop_back();
    return last; // the caller gets the reference; nothing is released here
}

Any list_extend(List const& list, Any const& iterable) {
    if (is_native_sequence(iterable)) {
        std::vector<Any> items = items_of(iterable);
        auto& r = record_of<list_record>(list);
        std::lock_guard guard(r.lock());
        r.items.insert(r.items.end(), items.begin(), items.end());
        return Any();
    }
    return for_each_item(iterable, [&](Any const& item) {
        list.append(item);
        return Any();
    });
}

void list_clear(List const& list) {
    auto& r = record_of<list_record>(list);
    std::vector<Any> removed;
    std::lock_guard guard(r.lock());
    removed.swap(r.items);
}

Any map_get_or(HashMap const& map, Any const& key, Any const& fallback) {
    auto found = map.find(key);
    return map.contains(key) ? Any(found) : fallback;
}

Any map_remove(HashMap const& map, Any const& key) {
    auto& r = record_of<object_value_hash_map>(map);
    Any old_key, old_value;
    bool removed = locate(r, r.table, key, hash_of(key), [&](std::ptrdiff_t at) {
        if (at < 0) return false;
        r.table.erase(at, old_key, old_value);
        return true;
    });
    if (!removed) return Error(String("Key not found: {}.").arg(key));
    return old_value;
}

namespace {
template <class Pick> List map_column(HashMap const& map, Pick pick) {
    List out;
    auto& items = record_of<list_record>(out).items;
    for (auto& kv : map.items()) items.push_back(pick(kv));
    return out;
}
} // namespace

List map_keys(HashMap const& map) {
    return map_column(map, [](std::pair<Any, Any>& kv) { return std::move(kv.first); });
}
List map_values(HashMap const& map) {
    return map_column(map, [](std::pair<Any, Any>& kv) { return std::move(kv.second); });
}

void map_clear(HashMap const& map) { table_clear<object_value_hash_map>(map); }

Any set_extend(HashSet const& set, Any const& iterable) {
    return for_each_item(iterable, [&](Any const& item) -> Any {
        auto r = set.insert(item);
        return r.isError() ? Any(r) : Any();
    });
}

void set_clear(HashSet const& set) { table_clear<object_value_hash_set>(set); }

bool native_contains(Any const& container, Any const& value) {
    if (HashMap::test(container)) return HashMap::unsafe(container).contains(value);
    if (HashSet::test(container)) return HashSet::unsafe(container).contains(value);
    return sequence_index_of(container, value, 0) >= 0;
}

// ---- the iterator ----------------------------------------------------------

namespace {

// Walks a List live (by position, so items appended meanwhile are seen), a
// Tuple, or a snapshot of a map's keys or a set's items.
struct object_value_iterator final : object_value_instance {
    object_value_iterator(Any s, std::vector<Any> snap)
        : object_value_instance(builtin_class(builtin::list_iterator)), source(std::move(s)),
          snapshot(std::move(snap)) {}
    Any source; // a List or Tuple, or none when the snapshot is walked
    std::vector<Any> snapshot;
    std::atomic<std::size_t> position{0};
};

} // namespace

Any make_iterator(Any const& container) {
    if (is_native_sequence(container)) return Any::adopt(new object_value_iterator(container, {}));
    std::vector<Any> snapshot;
    if (HashMap::test(container))
        for (auto& kv : HashMap::unsafe(container).items()) snapshot.push_back(std::move(kv.first));
    else if (HashSet::test(container))
        snapshot = HashSet::unsafe(container).items();
    else
        return Error(String("The value is not iterable: {}.").arg(container));
    return Any::adopt(new object_value_iterator(Any(), std::move(snapshot)));
}

// The built-in classes are made once for the process: the iterator's record
// is looked up once, not on every step of a loop (but not kept while the
// built-in classes are still being made, when it may not exist yet).
object_value_class const* iterator_class() noexcept {
    static std::atomic<object_value_class const*> known{nullptr};
    object_value_class const* cls = known.load(std::memory_order_relaxed);
    if (cls) return cls;
    cls = builtin_class(builtin::list_iterator);
    known.store(cls, std::memory_order_relaxed);
    return cls;
}


namespace {

// Stores `stored` into `item` as ItemRead asks: an integer that fits 64
// signed bits as its value, touching no count. Called under the owner's lock
// with an empty `item`, so that nothing is released there.
void read_in_place(Any const& stored, ItemRead& item) noexcept {
    item.isInteger = signed_in_place(stored, item.integer);
    if (!item.isInteger) item.value = stored;
}

void clear(ItemRead& item) noexcept {
    item.value.reset();
    item.isInteger = false;
}

// Hands the next item of a native iterator to `take` (with the source
// list's lock held for a List); false at the end. An iterator over a List
// moves under that list's lock, which orders its advances: a plain load and
// store of the position, no atomic increment.
template <class Take> bool advance_native(Any const& iterator, Take&& take) {
    auto& it = record_of<object_value_iterator>(iterator);
    if (List::test(it.source)) {
        auto& list = record_of<list_record>(it.source);
        std::lock_guard guard(list.lock());
        std::size_t const at = it.position.load(std::memory_order_relaxed);
        if (at >= list.items.size()) return false; // stays at the end: later appends are seen
        take(list.items[at]);
        it.position.store(at + 1, std::memory_order_relaxed);
        return true;
    }
    std::size_t const at = it.position.fetch_add(1, std::memory_order_relaxed);
    if (Tuple::test(it.source)) {
        auto const& tuple = record_of<tuple_record>(it.source).items;
        if (at < tuple.size()) {
            take(tuple[at]);
            return true;
        }
    } else if (at < it.snapshot.size()) {
        take(it.snapshot[at]);
        return true;
    }
    it.position.store(at, std::memory_order_relaxed); // stays at the end
    return false;
}

} // namespace

bool iterator_advance(Any const& iterator, Any& item) {
    item.reset(); // released here, not under the list's lock
    return advance_native(iterator, [&](Any const& stored) { item = stored; });
}

Any iterator_next(Any const& iterator) {
    if (!is_native_iterator(iterator)) return Error(String("Not an iterator: {}.").arg(iterator));
    Any item;
    if (iterator_advance(iterator, item)) return item;
    return StopIteration();
}

} // namespace tesk::internal

namespace tesk {

bool I_Iterator_Generic::advance(Any const& iterator, ItemRead& item) {
    internal::clear(item);
    if (internal::is_native_iterator(iterator))
        return internal::advance_native(iterator, [&](Any const& stored) { internal::read_in_place(stored, item); });
    if (!test(iterator)) return false;
    return unsafe(iterator).advance(item.value);
}

bool I_Sequence_Generic::readBuiltin(Any const& sequence, std::int64_t index, ItemRead& item) {
    internal::clear(item);
    if (index < 0) return false;
    auto const at = static_cast<std::uint64_t>(index);
    if (Tuple::test(sequence)) {
        auto const& tuple = internal::record_of<internal::tuple_record>(sequence).items;
        if (at >= tuple.size()) return false;
        internal::read_in_place(tuple[at], item);
        return true;
    }
    if (!List::test(sequence)) return false;
    auto& list = internal::record_of<internal::list_record>(sequence);
    std::lock_guard guard(list.lock());
    if (at >= list.items.size()) return false;
    internal::read_in_place(list.items[at], item);
    return true;
}

} // namespace tesk

namespace tesk::internal {

Any for_each_item(Any const& iterable, std::function<Any(Any const&)> const& visit) {
    if (is_native_sequence(iterable)) {
        for (Any const& item : items_of(iterable))
            if (Any r = visit(item); r.isError()) return r;
        return Any();
    }
    if (!I_Iterable_Generic::test(iterable)) return Error(String("The value is not iterable: {}.").arg(iterable));
    Any it = I_Iterable_Generic::unsafe(iterable).iter();
    it = result_unwrap_lazy(it);
    if (it.isError()) return it;
    for (;;) {
        Any item = result_unwrap_lazy(I_Iterator_Generic::unsafe(it).next());
        if (StopIteration::test(item)) return Any();
        if (item.isError()) return item;
        if (Any r = visit(item); r.isError()) return r;
    }
}

} // namespace tesk::internal
