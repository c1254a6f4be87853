// The per-thread count of held spinlocks, for the lock-order checks of
// checked builds (see spinlock in object.h).
#include "tesk/object.h"

#include <cstdio>
#include <cstdlib>

namespace tesk::internal {

namespace {
[[gnu::tls_model("initial-exec")]] thread_local int held_spinlocks = 0;
} // namespace

void spinlock_acquired() noexcept { ++held_spinlocks; }
void spinlock_released() noexcept { --held_spinlocks; }
int spinlock_depth() noexcept { return held_spinlocks; }

void lock_check_failed(char const* what, char const* file, int line) noexcept {
    std::fprintf(stderr, "%s:%d: lock rule broken: %s\n", file, line, what);
    std::abort();
}

} // namespace tesk::internal
