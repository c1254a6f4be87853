// The scope of a sandboxed evaluation.
#pragma once

#include "python/byte_code_writes.h"
#include "python/python_ref.h"
#include "python/sandbox_state.h"
#include "python/sandbox_replacements.h"
#include "python/strict_state_restore.h"

#include <optional>

namespace tesk::cpython {

// While alive, the sandbox is on for the current thread and no thread writes
// byte-code files. Starts the interpreter when it does not run yet and holds
// the interpreter lock for its whole life. Guards nest: each restores the
// flag, the level and sys.dont_write_bytecode that it found, on every path.
// The level is the configured one, or strict when an enclosing guard is
// strict (a nested guard never loosens the sandbox).
class sandbox_guard {
public:
    // At the level the host configured.
    sandbox_guard() noexcept;
    // At a level carried by a value that a sandboxed evaluation made.
    explicit sandbox_guard(sandbox_level level) noexcept;
    ~sandbox_guard();
    sandbox_guard(sandbox_guard const&) = delete;
    sandbox_guard& operator=(sandbox_guard const&) = delete;

private:
    struct interpreter_started {
        interpreter_started() noexcept;
    };
    interpreter_started started_; // before the lock: the lock needs a running interpreter
    gil_guard gil_;
    bool savedActive_;
    sandbox_level savedLevel_;
    std::optional<byte_code_writes_off> byteCodeOff_;
    std::optional<strict_replacements_scope> strict_;
    std::optional<strict_state_restore> restore_; // after strict_: what that imports is not undone
};

} // namespace tesk::cpython
