// The heap records behind List, Tuple, HashMap and HashSet, for the files that
// implement them and for the built-in classes' methods and iterators.
//
// Locking: every read or write of a mutable container's items holds the
// container's lock (object_value::lock()). Under that lock nothing calls out
// to other host code: hashes are computed before it is taken, keys whose
// equality might run a class override are compared after it is released, and
// values that leave a container are released after it is released (a last
// release runs a finaliser).
#pragma once

#include "value_objects.h"

#include "tesk/containers.h"

#include <mutex>
#include <vector>

namespace tesk::internal {

// Releases `values` (emptying it) without recursion: a container whose last
// release releases containers, nested a million deep, must not need a
// million stack frames. The outermost call on a thread releases everything
// that the nested ones hand it, one value at a time.
void release_without_recursion(std::vector<Any>& values) noexcept;

struct object_value_list final : object_value {
    explicit object_value_list(Any element_type) noexcept;
    ~object_value_list() override;
    std::vector<Any> items; // guarded by lock()
    Any element_type;       // a Type, or none for untyped elements; fixed at creation
};

struct object_value_tuple final : object_value {
    explicit object_value_tuple(std::vector<Any> items) noexcept;
    ~object_value_tuple() override;
    std::vector<Any> const items;
};

// Whether two keys with equal hashes are equal, when that can be decided
// without calling out (built-in plain values); nothing otherwise.
std::optional<bool> plain_key_equality(Any const& a, Any const& b);

// An insertion-ordered hash table: entries in insertion order, and an open
// addressing index (linear probing) of entry positions. Erased entries stay
// in place, marked, until the next rebuild compacts them away. Every member
// is called with the owner's lock held and never calls out.
class ordered_table {
public:
    struct entry {
        Any key;
        Any value;
        std::uint64_t hash = 0;
        bool erased = false;
    };
    // A key whose equality with the looked-up key must be decided unlocked.
    struct candidate {
        std::ptrdiff_t index;
        Any key;
    };

    // The position of the entry equal to `key`, or -1. Entries of equal hash
    // that plain_key_equality cannot decide are added to `undecided`.
    std::ptrdiff_t probe(Any const& key, std::uint64_t hash, std::vector<candidate>& undecided) const;
    // Appends a new entry (the key must be absent); gives its position.
    std::ptrdiff_t insert(Any key, Any value, std::uint64_t hash);
    // Marks the entry erased and hands its key and value to the caller, who
    // releases them once unlocked.
    void erase(std::ptrdiff_t index, Any& key, Any& value);
    // Empties the table and hands over the entries.
    std::vector<entry> take_all() noexcept;
    ~ordered_table();

    entry& at(std::ptrdiff_t index) noexcept { return entries_[static_cast<std::size_t>(index)]; }
    entry const& at(std::ptrdiff_t index) const noexcept { return entries_[static_cast<std::size_t>(index)]; }
    // All entries in insertion order, erased ones included (skip them).
    std::vector<entry> const& entries() const noexcept { return entries_; }
    std::size_t size() const noexcept { return live_; }
    // Changes whenever entries are added, erased or moved.
    std::uint64_t version() const noexcept { return version_; }

private:
    static constexpr std::int32_t empty_slot = -1;
    static constexpr std::int32_t erased_slot = -2;

    std::size_t home(std::uint64_t hash) const noexcept;
    void rebuild(std::size_t slot_count);

    std::vector<entry> entries_;
    std::vector<std::int32_t> slots_; // power-of-two size; an entry position, empty_slot or erased_slot
    unsigned shift_ = 64;             // 64 - log2(slots_.size())
    std::size_t live_ = 0;
    std::uint64_t version_ = 0;
};

struct object_value_hash_map final : object_value {
    object_value_hash_map(Any keys_type, Any values_type) noexcept;
    ordered_table table; // guarded by lock()
    Any keys_type;       // Types, or none for untyped; fixed at creation
    Any values_type;
};

struct object_value_hash_set final : object_value {
    explicit object_value_hash_set(Any element_type) noexcept;
    ordered_table table; // guarded by lock(); values unused
    Any element_type;
};

// "Unhashable key: {}." for a key (or set value) that may change.
Error unhashable_key(Any const& key);

// Finds `key` (whose hash is `hash`) in `table`, owned by `owner`, and runs
// act(position) with the owner's lock held; the position is -1 when the key
// is absent. Keys that need a full comparison are compared unlocked; if the
// table changed meanwhile, the search starts over.
template <class Act>
auto locate(object_value const& owner, ordered_table& table, Any const& key, std::uint64_t hash, Act&& act) {
    for (;;) {
        std::vector<ordered_table::candidate> undecided;
        std::uint64_t version;
        {
            std::lock_guard guard(owner.lock());
            std::ptrdiff_t found = table.probe(key, hash, undecided);
            if (found >= 0 || undecided.empty()) return act(found);
            version = table.version();
        }
        std::ptrdiff_t match = -1;
        for (auto const& c : undecided) {
            if (equals(key, c.key)) {
                match = c.index;
                break;
            }
        }
        std::lock_guard guard(owner.lock());
        if (table.version() == version) return act(match);
    }
}

// Casts a record pointer out of a handle known to be of that kind.
template <class Record> Record& record_of(Any const& v) noexcept {
    return *const_cast<Record*>(static_cast<Record const*>(v.get()));
}

// The table operations that maps and sets share; Record is the map or set
// record. Values taken out of the table are released after the lock is given
// back: dropping one may run a finaliser that touches other objects.
template <class Record> bool table_contains(Any const& container, Any const& key) {
    auto& r = record_of<Record>(container);
    return locate(r, r.table, key, hash_of(key), [](std::ptrdiff_t at) { return at >= 0; });
}

template <class Record> bool table_remove(Any const& container, Any const& key) {
    auto& r = record_of<Record>(container);
    Any old_key, old_value; // declared before the lock inside locate: released once unlocked
    return locate(r, r.table, key, hash_of(key), [&](std::ptrdiff_t at) {
        if (at < 0) return false;
        r.table.erase(at, old_key, old_value);
        return true;
    });
}

template <class Record> std::size_t table_size(Any const& container) {
    auto& r = record_of<Record>(container);
    std::lock_guard guard(r.lock());
    return r.table.size();
}

template <class Record> void table_clear(Any const& container) {
    auto& r = record_of<Record>(container);
    std::vector<ordered_table::entry> removed; // outlives `guard`
    std::lock_guard guard(r.lock());
    removed = r.table.take_all();
}

} // namespace tesk::internal
