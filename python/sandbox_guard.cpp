// The scope of a sandboxed evaluation.
#include "python/sandbox_guard.h"

#include "python/interpreter_start.h"

namespace tesk::cpython {

// Callers check the start's outcome first (the sandboxed evaluations do);
// here it only makes sure the lock below has an interpreter to take.
sandbox_guard::interpreter_started::interpreter_started() noexcept { (void)ensure_interpreter(); }

sandbox_guard::sandbox_guard() noexcept : sandbox_guard(configured_sandbox_level.load()) {}

sandbox_guard::sandbox_guard(sandbox_level level) noexcept
    : savedActive_(sandbox_active), savedLevel_(active_sandbox_level) {
    // A nested guard never loosens what an enclosing one set.
    bool const strict = (savedActive_ && savedLevel_ == sandbox_level::strict) || level == sandbox_level::strict;
    // Process-wide: while any guard is alive, no thread writes byte code.
    byteCodeOff_.emplace();
    // The functions are replaced before the flag goes up, so that the
    // imports this needs are not sandboxed themselves.
    if (strict) {
        strict_.emplace();
        restore_.emplace();
    }
    active_sandbox_level = strict ? sandbox_level::strict : sandbox_level::standard;
    sandbox_active = true;
}

sandbox_guard::~sandbox_guard() {
    // Undone while the sandbox is still on: finalisers that the undoing
    // releases run under it.
    restore_.reset();
    strict_.reset();
    byteCodeOff_.reset();
    sandbox_active = savedActive_;
    active_sandbox_level = savedLevel_;
}

} // namespace tesk::cpython
