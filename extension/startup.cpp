// The one-time start of the embedded interpreter.
//
// The interpreter starts from a PyConfig, so that every failure comes back
// as a PyStatus instead of CPython's fatal-error path, which would end the
// host process: a bad PYTHONHOME, an unusable standard stream, a broken
// `encodings` on the search path all become an Error.
#include "extension/startup.h"

#include "extension/audit_hook.h"
#include "extension/module_importer.h"
#include "extension/platform.h"
#include "extension/python_executable.h"
#include "python/python_ref.h"
#include "extension/sys_path.h"
#include "language/language.h"

#include <atomic>
#include <mutex>

namespace tesk::cpython {
namespace {

// Set while this thread runs the start-up: code that the start-up calls may
// itself pass through ensure_interpreter (a search path converted to Python,
// a class built), and must not wait for the start-up it is part of.
thread_local bool starting = false;

struct starting_scope {
    starting_scope() noexcept { starting = true; }
    ~starting_scope() { starting = false; }
    starting_scope(starting_scope const&) = delete;
    starting_scope& operator=(starting_scope const&) = delete;
};

enum class start_state : int { not_started, started, failed };

// The outcome of the start. `state` is published last (release), so a
// thread that reads `failed` also sees `failure`; `start_mutex` is held by
// the thread running the start and awaited by the others.
std::atomic<start_state> state{start_state::not_started};
std::mutex start_mutex;
Any* failure = nullptr; // never destroyed: read by entries until the process ends

Error start_error(PyStatus const& status) {
    String message = status.func != nullptr ? String("{}: {}").arg(String(status.func)).arg(String(status.err_msg))
                                            : String(status.err_msg != nullptr ? status.err_msg : "unknown failure");
    if (PyStatus_IsExit(status)) message = String("Python exited with status {}").arg(Integer(status.exitcode));
    return Error(String("Python could not start: {}").arg(message));
}

// CPython's settings for an embedded interpreter: no signal handlers (the
// host owns the process's signals), no command line to parse, the host's C
// standard streams left as they are, and UTF-8 mode in the C and POSIX
// locales, as python3 has it. The environment (PYTHONHOME, PYTHONPATH,
// PYTHONUTF8 ...) is honoured.
Any initialize_from_config() {
    PyPreConfig preconfig;
    PyPreConfig_InitPythonConfig(&preconfig);
    // The host's locale is not changed; UTF-8 mode is chosen from it (-1).
    preconfig.coerce_c_locale = 0;
    preconfig.coerce_c_locale_warn = 0;
    PyStatus status = Py_PreInitialize(&preconfig);
    if (PyStatus_Exception(status)) return start_error(status);

    PyConfig config;
    PyConfig_InitPythonConfig(&config);
    config.install_signal_handlers = 0;
    config.parse_argv = 0;
    config.configure_c_stdio = 0;
    // The python3.X of the embedded installation, not whichever python3 the
    // path search finds: the start-up derives its prefixes from it.
    if (std::string program = python_executable(); !program.empty()) {
        status = PyConfig_SetBytesString(&config, &config.executable, program.c_str());
        if (!PyStatus_Exception(status))
            status = PyConfig_SetBytesString(&config, &config.base_executable, program.c_str());
        if (PyStatus_Exception(status)) {
            PyConfig_Clear(&config);
            return start_error(status);
        }
    }
    status = Py_InitializeFromConfig(&config);
    PyConfig_Clear(&config);
    if (PyStatus_Exception(status)) return start_error(status);
    return None();
}

Any start_own_interpreter() {
    // The hook goes in first: hooks added after the start miss its events,
    // and Python offers no way to add one later that sees everything.
    if (auto add_audit_hook = platform::find_add_audit_hook()) add_audit_hook(&audit_hook, nullptr);
    if (Any failed = initialize_from_config(); failed.isError()) return failed;
    publish_python_executable();
    // The paths queued while no interpreter ran, in the order they came.
    for (String const& path : take_pending_sys_paths()) (void)cpython_add_sys_path(path);
    // From here on every entry takes the lock with PyGILState_Ensure, this
    // thread included; its thread state is found again by that call.
    (void)PyEval_SaveThread();
    gil_guard gil;
    setup_python_module();
    return None();
}

Any start_interpreter() {
    starting_scope scope;
    // An interpreter that something else in the process started is used as
    // it is: no second start, no hook, no queued paths, no language modules.
    if (!Py_IsInitialized()) {
        if (Any failed = start_own_interpreter(); failed.isError()) return failed;
    }
    try {
        (void)cpython_language_class();
    } catch (...) {
        // The class is built on its first use instead; the importer below
        // does not depend on it.
    }
    install_module_importer();
    return None();
}

Any outcome() {
    switch (state.load(std::memory_order_acquire)) {
    case start_state::started:
        return None();
    case start_state::failed:
        return *failure;
    case start_state::not_started:
        break;
    }
    return Any();
}

} // namespace

namespace {

// The one start, run under start_mutex; registered below as the process's
// interpreter start.
Any start_once() {
    if (starting) return None();
    if (state.load(std::memory_order_acquire) != start_state::not_started) return outcome();
    // The thread that runs the start needs the interpreter lock; a caller
    // that holds it (an interpreter started elsewhere) lets it go while it waits.
    PyThreadState* const saved = PyThreadState_GetUnchecked() != nullptr ? PyEval_SaveThread() : nullptr;
    {
        std::lock_guard<std::mutex> lock(start_mutex);
        if (state.load(std::memory_order_acquire) == start_state::not_started) {
            Any started;
            try {
                started = start_interpreter();
            } catch (...) {
                started = Error::fromCurrentException();
            }
            if (started.isError()) {
                failure = new Any(started);
                state.store(start_state::failed, std::memory_order_release);
            } else {
                state.store(start_state::started, std::memory_order_release);
            }
        }
    }
    if (saved != nullptr) PyEval_RestoreThread(saved);
    return outcome();
}

// Registered while the library loads, before any entry can need it.
[[maybe_unused]] bool const start_registered = (set_interpreter_start(&start_once), true);

} // namespace

} // namespace tesk::cpython
