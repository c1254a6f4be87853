// CPython counts C recursion (repr of nested lists, calls through C) against
// a fixed limit made for an 8 MiB stack. A host thread may have much less:
// while an evaluation runs, the limit of the calling thread is lowered to
// what its stack has room for, so deep recursion raises RecursionError
// instead of overflowing the stack.
#pragma once

#include "python/python_ref.h"

namespace tesk::cpython {

// The stack a host thread needs to evaluate anything at all: below this much
// room the limit is 0, and the first recursive C call fails.
inline constexpr std::size_t stack_reserve_bytes = 64 * 1024;

// Lowers the C recursion limit of the current thread state for its lifetime
// (never raises it) and gives the levels back at the end. The caller holds
// the interpreter lock for the whole lifetime.
class c_stack_budget {
public:
    c_stack_budget() noexcept;
    ~c_stack_budget();
    c_stack_budget(c_stack_budget const&) = delete;
    c_stack_budget& operator=(c_stack_budget const&) = delete;

private:
    PyThreadState* thread_ = nullptr;
    int withheld_ = 0; // levels taken from the thread's remaining count
};

} // namespace tesk::cpython
