// object_value: counting, destruction with the class finaliser, own members.
#include "tesk/callable.h"
#include "tesk/class.h"

#include <mutex>
#include <vector>

namespace tesk::internal {

namespace {

// Counts of objects made minus objects destroyed, one per thread, so that
// making and destroying a value costs no locked instruction. A counter is
// written only by its own thread (relaxed load and store compile to plain
// moves) and read by live_object_count(), which sums them all; an object made
// on one thread and destroyed on another is counted up on the first and down
// on the second, so only the sum means anything. Counters are never freed:
// objects may still be destroyed during thread or process exit, after a
// thread_local with a destructor would be gone.
struct thread_counter {
    std::atomic<std::int64_t> value{0};
};

struct counter_registry {
    std::mutex lock;
    std::vector<thread_counter*> counters;
};

counter_registry& registry() {
    static auto* instance = new counter_registry(); // immortal, like the counters
    return *instance;
}

thread_counter& this_thread_counter() {
    // The initial-exec model reads the slot straight from the thread pointer,
    // without a call into the dynamic loader on every object.
    [[gnu::tls_model("initial-exec")]] thread_local thread_counter* counter = nullptr;
    if (counter == nullptr) {
        auto* fresh = new thread_counter();
        auto& r = registry();
        std::lock_guard guard(r.lock);
        r.counters.push_back(fresh);
        counter = fresh;
    }
    return *counter;
}

void count_objects(std::int64_t delta) noexcept {
    auto& c = this_thread_counter();
    c.value.store(c.value.load(std::memory_order_relaxed) + delta, std::memory_order_relaxed);
}

} // namespace

object_value::object_value(Kind kind, object_value_class const* cls) noexcept : kind_(kind), class_(cls) {
    count_objects(1);
}

object_value::~object_value() {
    delete own_.load(std::memory_order_acquire);
    count_objects(-1);
}

std::int64_t live_object_count() noexcept {
    auto& r = registry();
    std::lock_guard guard(r.lock);
    std::int64_t sum = 0;
    for (thread_counter const* c : r.counters) sum += c->value.load(std::memory_order_relaxed);
    return sum;
}

// The last reference is gone. When the class has a finaliser, the object is
// revived with one reference for the call; dropping that reference brings us
// back here with finalized_ set, and only then is the object deleted. A
// finaliser that keeps the object alive (stores it somewhere) delays the
// deletion to the last release of that new reference; it never runs twice.
void object_value::destroy() const noexcept {
    if (!finalized_) {
        finalized_ = true;
        if (class_ != nullptr && class_->has_finalizer()) {
            refcount_.store(1, std::memory_order_relaxed);
            Any self = Any::adopt(this);
            try {
                Any const args[] = {self};
                if (Any finalizer = class_->finalizer(); finalizer.hasValue())
                    I_Callable_Generic::unsafe(finalizer).invoke(args);
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
