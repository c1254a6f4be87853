// Releasing nested containers without recursion.
#include "container_objects.h"

namespace tesk::internal {
namespace {

// The values that the outermost release on this thread still has to
// release; null when no release of a container runs on this thread.
thread_local std::vector<Any>* t_pending = nullptr;

} // namespace

void release_without_recursion(std::vector<Any>& values) noexcept {
    if (t_pending != nullptr) {
        // Nested: hand the values to the outermost release instead of
        // releasing them from this frame.
        for (Any& value : values) t_pending->push_back(std::move(value));
        values.clear();
        return;
    }
    std::vector<Any> pending;
    t_pending = &pending;
    values.clear();
    while (!pending.empty()) {
        Any last = std::move(pending.back());
        pending.pop_back();
        // `last` is released here; a container it held hands over its values.
    }
    t_pending = nullptr;
}

object_value_list::~object_value_list() { release_without_recursion(items); }

// The items are const for the tuple's life, not for its destruction.
object_value_tuple::~object_value_tuple() { release_without_recursion(const_cast<std::vector<Any>&>(items)); }

ordered_table::~ordered_table() {
    std::vector<Any> values;
    values.reserve(entries_.size() * 2);
    for (entry& e : entries_) {
        values.push_back(std::move(e.key));
        values.push_back(std::move(e.value));
    }
    entries_.clear();
    release_without_recursion(values);
}

} // namespace tesk::internal
