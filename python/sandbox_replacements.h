// Routes that Python does not audit, closed at the strict sandbox level by
// replacing the functions that take them: os.write and its relatives (to
// descriptors the code did not open), os.mkfifo, os.mknod, os._exit,
// os.abort, the signal functions, atexit.register and _thread.interrupt_main.
#pragma once

#include <memory>
#include <vector>

namespace tesk::cpython {

// Alive for the duration of one strict guard; the interpreter lock is held
// from construction to destruction.
//
// The replacements stand in the modules (posix and os, _signal and signal,
// atexit, _thread) while at least one strict scope is alive on any thread.
// Each refuses only on a thread whose sandbox is strict and otherwise calls
// the original, so unsandboxed code on other threads is not affected; the
// originals are put back when the last scope ends.
//
// The descriptors open when this thread's outermost strict scope begins are
// the host's: writing to them is refused. Nested scopes keep that record.
class strict_replacements_scope {
public:
    strict_replacements_scope() noexcept;
    ~strict_replacements_scope();
    strict_replacements_scope(strict_replacements_scope const&) = delete;
    strict_replacements_scope& operator=(strict_replacements_scope const&) = delete;

private:
    bool recordedDescriptors_ = false;
};

} // namespace tesk::cpython
