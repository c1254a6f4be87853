// Internal: helpers shared by the class records, member lookup and callables.
#pragma once

#include "class_table.h"

#include <array>
#include <unordered_map>

namespace tesk::internal {

inline object_value_class const* any_record() noexcept { return builtin_class(builtin::any); }

// The class record of the object itself (none gives "None").
inline object_value_class const* raw_record(Any const& v) noexcept {
    return v.get() ? v.get()->class_value() : builtin_class(builtin::none);
}

// Visits `cls` and its parents depth first in declared order, leaving out
// "Any" (the implicit root, visited by callers that want it last). Stops at
// the first visit that returns true and tells whether one did. Only inside a
// read_section.
template <class F> bool walk_chain(object_value_class const* cls, F&& visit) {
    if (cls == any_record()) return false;
    if (visit(cls)) return true;
    for (auto const* p : table_of(cls).parents)
        if (walk_chain(p, visit)) return true;
    return false;
}

// The universal methods that a class may override to take over a generic
// operation (member_lookup.cpp).
inline constexpr std::size_t universal_count = 16;
std::array<String, universal_count> const& universal_names();

// The members a class resolves, nearest declaration first, for lock-free
// lookups. Immutable once published in the record; tagged with the version
// of the class it was built for.
struct member_snapshot {
    member_snapshot();
    ~member_snapshot();
    member_snapshot(member_snapshot const&) = delete;
    member_snapshot& operator=(member_snapshot const&) = delete;

    struct method {
        Any callable;
        bool below_root; // declared by the class chain, not by "Any"
    };
    std::uint64_t version = 0;
    // The class's own table when the snapshot was made: a reader that has
    // seen a newer table of the class (an edit of the class itself) never
    // takes an older snapshot, even before the edit has moved the version.
    class_table const* own_table = nullptr;
    std::unordered_map<String, method, StringHash> methods;
    std::unordered_map<String, Property, StringHash> properties;
    std::vector<field_info> fields; // all_fields()
    std::uint32_t override_mask = 0; // bit i: the chain overrides universal name i
    bool declared_methods_first = false; // a class of the chain has the flag (class_table.h)
};

// The snapshot of `cls`, rebuilt when stale; only inside a read_section, and
// valid until it ends.
member_snapshot const& members_of(object_value_class const* cls);

// Moves class_epoch(): after an edit's swap, and when a record is destroyed.
void move_class_epoch() noexcept;

// Every class record made so far.
std::vector<object_value_class const*> all_class_records();

// A copy of one part of the current table of `cls`.
template <class F> auto read_table(object_value_class const* cls, F&& read) {
    read_section section;
    return read(table_of(cls));
}

// Adds `parent` to a table that is being filled or copied, with the traits
// it passes down (all but "interface") and, when the table has none yet, its
// instance factory. False (nothing added) for "Any", the root of every
// class, and for a parent that one already listed has among its ancestors.
bool link_parent(class_table& table, object_value_class const* parent);
// Records that `parent` is some class's parent, so that its edits mark the
// classes below it stale; every place that lists a parent calls it.
void note_parent(object_value_class const* parent);
// The plain instance factory for a class that is no interface and has none.
void give_default_factory(class_table& table);

// Counts a table made visible to other threads (class_publication_count).
void count_publication() noexcept;

// Calls a member callable for `self`: an independent callable gets the
// arguments alone, any other one the receiver first.
Any call_member(Any const& callable, Any const& self, std::span<Any const> args);

} // namespace tesk::internal
