#include "language/stack_budget.h"

#include <cstdint>
#include <optional>

#if defined(__linux__)
#include <pthread.h>
#endif

namespace tesk::cpython {
namespace {

// Stack bytes one counted level of C recursion may take. CPython's own limit
// (10 000 levels for 8 MiB) assumes about 800; sanitizers make frames several
// times larger.
#if defined(__SANITIZE_ADDRESS__)
constexpr std::size_t bytes_per_level = 4 * 800;
#else
constexpr std::size_t bytes_per_level = 800;
#endif

// The lowest address of this thread's stack, or 0 when the platform does not
// say. Asked once per thread: for the main thread the answer costs a read of
// the process's memory map.
std::uintptr_t stack_bottom() noexcept {
#if defined(__linux__)
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) return 0;
    void* lowest = nullptr;
    std::size_t size = 0;
    int const read = pthread_attr_getstack(&attributes, &lowest, &size);
    pthread_attr_destroy(&attributes);
    return read == 0 ? reinterpret_cast<std::uintptr_t>(lowest) : 0;
#else
    return 0;
#endif
}

// The bytes left below the current frame on this thread's stack (which grows
// downwards), when the platform says where the stack ends.
std::optional<std::size_t> stack_bytes_left() noexcept {
    thread_local std::uintptr_t const bottom = stack_bottom();
    char here = 0;
    auto const current = reinterpret_cast<std::uintptr_t>(&here);
    if (bottom == 0 || current <= bottom) return std::nullopt;
    return static_cast<std::size_t>(current - bottom);
}

} // namespace

c_stack_budget::c_stack_budget() noexcept {
    std::optional<std::size_t> left = stack_bytes_left();
    if (!left) return;
    thread_ = PyThreadState_Get();
    std::size_t const usable = *left > stack_reserve_bytes ? *left - stack_reserve_bytes : 0;
    auto const affordable = static_cast<long long>(usable / bytes_per_level);
    if (affordable >= thread_->c_recursion_remaining) return;
    withheld_ = thread_->c_recursion_remaining - static_cast<int>(affordable);
    thread_->c_recursion_remaining -= withheld_;
}

c_stack_budget::~c_stack_budget() {
    if (thread_ != nullptr) thread_->c_recursion_remaining += withheld_;
}

} // namespace tesk::cpython
