// What a strict evaluation changes in the process-wide Python state is undone
// when it ends, so that a later evaluation runs none of its code.
#pragma once

namespace tesk::cpython {

// Alive for the duration of one strict guard; the interpreter lock is held
// from construction to destruction.
//
// When the first strict scope of the process begins, the state is recorded:
// sys.modules, the namespace of every loaded module but __main__ (builtins
// and sys among them: sys.stdout, the hooks, sys.pycache_prefix), the lists, dictionaries
// and sets those namespaces hold (sys.meta_path, sys.path_hooks, sys.path,
// sys.path_importer_cache, gc.callbacks, warnings.filters, threading's
// atexit list ...), os.environ and weakref.finalize's registry. When the
// last one ends, what differs is put back: names added are removed, names
// replaced or removed get their old value, modules imported meanwhile leave
// sys.modules (a later import runs them afresh). Changes that unsandboxed
// code on another thread makes meanwhile are undone with them. Dictionaries
// are watched rather than copied: each changed key keeps its value from
// before its first change.
//
// While strict scopes are alive, imports compile sources instead of reading
// cached byte code (marshal refuses code objects at the strict level), and
// ctypes, when the host loaded it, is out of sys.modules, so that importing
// it is refused.
class strict_state_restore {
public:
    strict_state_restore() noexcept;
    ~strict_state_restore();
    strict_state_restore(strict_state_restore const&) = delete;
    strict_state_restore& operator=(strict_state_restore const&) = delete;
};

} // namespace tesk::cpython
