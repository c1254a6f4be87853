#include "python/interpreter_start.h"

#include <atomic>

namespace tesk::cpython {
namespace {
std::atomic<interpreter_start_function> registered_start{nullptr};
} // namespace

void set_interpreter_start(interpreter_start_function start) noexcept {
    registered_start.store(start, std::memory_order_release);
}

Any ensure_interpreter() {
    interpreter_start_function start = registered_start.load(std::memory_order_acquire);
    if (start == nullptr) return Error(String("The Python interpreter cannot start: no start-up is registered."));
    return start();
}

} // namespace tesk::cpython
