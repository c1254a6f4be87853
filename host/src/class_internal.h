// Internal: helpers shared by the class records, member lookup and callables.
#pragma once

#include "tesk/class.h"

#include <mutex>

namespace tesk::internal {

inline object_value_class const* any_record() noexcept { return builtin_class(builtin::any); }

// The class record of the object itself (none gives "None").
inline object_value_class const* raw_record(Any const& v) noexcept {
    return v.get() ? v.get()->class_value() : builtin_class(builtin::none);
}

// Visits `cls` and its parents depth first in declared order, leaving out
// "Any" (the implicit root, visited by callers that want it last). Stops at
// the first visit that returns true and tells whether one did.
template <class F> bool walk_chain(object_value_class const* cls, F&& visit) {
    if (cls == any_record()) return false;
    if (visit(cls)) return true;
    for (auto const* p : cls->parents)
        if (walk_chain(p, visit)) return true;
    return false;
}

// A copy of a table entry, read under the record's lock (tables may be edited
// after publication by the `_unsafe` editors, which take the same lock).
template <class V> bool find_locked(object_value_class const* cls, ordered_map<V> const& table, String const& name,
                                    V& out) {
    std::lock_guard guard(cls->lock());
    if (V const* found = table.find(name)) {
        out = *found;
        return true;
    }
    return false;
}

// Marks every cached view of the class records (the override masks) stale.
void class_records_changed() noexcept;
// Starts at 1 and grows with every such edit.
std::uint32_t class_records_generation() noexcept;

// Calls a member callable for `self`: an independent callable gets the
// arguments alone, any other one the receiver first.
Any call_member(Any const& callable, Any const& self, std::span<Any const> args);

} // namespace tesk::internal
