// Routes that Python does not audit, closed at the strict sandbox level by
// replacing the C functions behind them: writes and other changes through
// descriptors the host had open, ending, signalling or reconfiguring the
// process, deferred code (atexit, fork handlers, codec search functions),
// the faulthandler, code objects from marshal and native extensions from
// outside the host's search path.
#pragma once

namespace tesk::cpython {

// Alive for the duration of one strict guard; the interpreter lock is held
// from construction to destruction.
//
// The first scope of the process replaces, in each function's method
// definition, the C function that Python calls, once and for good: every
// function object made from that definition (the module's own, a copy in
// another module, one made by a fresh import) calls the replacement. It
// refuses only on a thread whose sandbox is strict and otherwise calls the
// original, so unsandboxed code is not affected.
//
// What the host had open when this thread's outermost strict scope began is
// recorded: its descriptors (by number and by the file each one refers to,
// so a dup of one counts as the host's) and the directories of sys.path
// (extension modules load only from under them). Nested scopes keep that
// record.
class strict_replacements_scope {
public:
    strict_replacements_scope() noexcept;
    ~strict_replacements_scope();
    strict_replacements_scope(strict_replacements_scope const&) = delete;
    strict_replacements_scope& operator=(strict_replacements_scope const&) = delete;

private:
    bool recordedHostState_ = false;
};

} // namespace tesk::cpython
