// Whether the sandbox is on, read by the audit hook and set by the sandbox
// guard. Kept in the bottom layer so that both sides reach it.
#pragma once

#include <atomic>

namespace tesk::cpython {

// The two refusal messages, raised as PermissionError.
constexpr char const* write_blocked_message = "write blocked: read-only sandbox";
constexpr char const* operation_blocked_message = "operation blocked in sandbox";

// True on a thread exactly while a sandbox guard is alive on it. Per thread,
// so that a sandboxed evaluation does not restrict one on another thread (and
// a thread started from sandboxed code runs without it).
inline thread_local bool sandbox_active = false;

// How much the sandbox refuses. `standard` is the documented set; `strict`
// adds threads, tracing, frame and code objects, writable mappings, ctypes,
// changes through the host's descriptors, ending, signalling or
// reconfiguring the process, deferred code and the modules that offer
// unaudited routes, and undoes what the evaluation changes in the
// process-wide Python state.
enum class sandbox_level { standard, strict };

// Process-wide, chosen by the host (tesk.cpython.cpython_set_sandbox_level);
// read when a guard is entered, so a change applies to later evaluations.
inline std::atomic<sandbox_level> configured_sandbox_level{sandbox_level::standard};

// The level of the guard alive on this thread (meaningful while
// sandbox_active is true).
inline thread_local sandbox_level active_sandbox_level = sandbox_level::standard;

// Whether the current thread runs under the strict level right now.
inline bool strict_sandbox_active() noexcept {
    return sandbox_active && active_sandbox_level == sandbox_level::strict;
}

} // namespace tesk::cpython
