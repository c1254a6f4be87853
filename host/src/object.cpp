// object_value: counting, destruction with the class finaliser, own members.
#include "tesk/callable.h"
#include "tesk/class.h"

namespace tesk::internal {

namespace {
// Every object_value alive in the process. Relaxed: the count is a statistic
// read by leak checks once the work under test has finished; it orders nothing.
std::atomic<std::int64_t> g_live_objects{0};
} // namespace

object_value::object_value(Kind kind, object_value_class const* cls) noexcept : kind_(kind), class_(cls) {
    g_live_objects.fetch_add(1, std::memory_order_relaxed);
}

object_value::~object_value() {
    delete own_.load(std::memory_order_acquire);
    g_live_objects.fetch_sub(1, std::memory_order_relaxed);
}

std::int64_t live_object_count() noexcept { return g_live_objects.load(std::memory_order_relaxed); }

// The last reference is gone. When the class has a finaliser, the object is
// revived with one reference for the call; dropping that reference brings us
// back here with finalized_ set, and only then is the object deleted. A
// finaliser that keeps the object alive (stores it somewhere) delays the
// deletion to the last release of that new reference; it never runs twice.
void object_value::destroy() const noexcept {
    if (!finalized_) {
        finalized_ = true;
        if (class_ != nullptr && class_->finalizer.hasValue()) {
            refcount_.store(1, std::memory_order_relaxed);
            Any self = Any::adopt(this);
            try {
                Any const args[] = {self};
                I_Callable_Generic::unsafe(class_->finalizer).invoke(args);
            } catch (...) {
                // A finaliser has nowhere to report to; the object goes regardless.
            }
            return; // `self` releases the revived reference
        }
    }
    delete this;
}

own_members& object_value::own_or_create() const {
    own_members* current = own_.load(std::memory_order_acquire);
    if (current != nullptr) return *current;
    auto* fresh = new own_members();
    if (own_.compare_exchange_strong(current, fresh, std::memory_order_acq_rel, std::memory_order_acquire))
        return *fresh;
    delete fresh; // another thread won; `current` now holds its table
    return *current;
}

} // namespace tesk::internal
