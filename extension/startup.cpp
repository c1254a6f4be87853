// The one-time start of the embedded interpreter.
#include "extension/startup.h"

#include "extension/audit_hook.h"
#include "extension/module_importer.h"
#include "extension/platform.h"
#include "extension/python_executable.h"
#include "python/python_ref.h"
#include "extension/sys_path.h"
#include "language/language.h"

namespace tesk::cpython {
namespace {

// Set while this thread runs the start-up: code that the start-up calls may
// itself pass through ensure_interpreter (a search path converted to Python,
// a class built), and must not wait for the start-up it is part of.
thread_local bool starting = false;

void start_own_interpreter() {
    // The hook goes in first: hooks added after the start miss its events,
    // and Python offers no way to add one later that sees everything.
    if (auto add_audit_hook = platform::find_add_audit_hook()) add_audit_hook(&audit_hook, nullptr);
    // No signal handlers: the host owns the process's signals.
    Py_InitializeEx(0);
    publish_python_executable();
    // The paths queued while no interpreter ran, in the order they came.
    for (String const& path : take_pending_sys_paths()) (void)cpython_add_sys_path(path);
    // From here on every entry takes the lock with PyGILState_Ensure, this
    // thread included; its thread state is found again by that call.
    (void)PyEval_SaveThread();
    gil_guard gil;
    setup_python_module();
}

struct starting_scope {
    starting_scope() noexcept { starting = true; }
    ~starting_scope() { starting = false; }
    starting_scope(starting_scope const&) = delete;
    starting_scope& operator=(starting_scope const&) = delete;
};

bool start_interpreter() {
    starting_scope scope;
    // An interpreter that something else in the process started is used as
    // it is: no second start, no hook, no queued paths, no language modules.
    if (!Py_IsInitialized()) start_own_interpreter();
    try {
        (void)cpython_language_class();
    } catch (...) {
        // The class is built on its first use instead; the importer below
        // does not depend on it.
    }
    install_module_importer();
    return true;
}

} // namespace

void ensure_interpreter() {
    if (starting) return;
    // A function-local static: runs once, and threads that arrive meanwhile
    // wait for it to finish.
    static bool const started = start_interpreter();
    (void)started;
}

} // namespace tesk::cpython
