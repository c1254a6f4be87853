// The audit hook: the sandbox's rules. Outside a sandboxed evaluation it lets
// everything pass; inside one (python/sandbox_state.h) it refuses opening a
// file for writing and the listed events, and at the strict level a further
// set of events, writable file mappings and the import of modules that offer
// routes Python does not audit.
#include "extension/audit_hook.h"

#include "python/sandbox_state.h"

#include <fcntl.h>

#include <string_view>
#include <unordered_set>

namespace tesk::cpython {
namespace {

using event_set = std::unordered_set<std::string_view>;

// os.open flags that write, create or truncate: the platform's own values.
constexpr long writing_open_flags = O_WRONLY | O_RDWR | O_APPEND | O_CREAT | O_TRUNC | O_EXCL;

// The events refused at every level. Names are matched whole; "os.exec",
// "os.spawn", "os.startfile/2" and "sqlite3.connect/handle" are event names
// as Python spells them.
event_set const& blocked_events() {
    // Built once, on the first sandboxed event; never changed afterwards.
    static event_set const events{
        // file system
        "os.remove", "os.rename", "os.mkdir", "os.rmdir", "os.chmod", "os.chown", "os.replace", "os.truncate",
        "os.symlink", "os.link", "os.chdir", "os.chflags", "os.setxattr", "os.removexattr", "os.utime",
        "shutil.rmtree", "shutil.move", "shutil.copyfile", "shutil.copytree", "shutil.copymode", "shutil.copystat",
        "shutil.chown", "shutil.make_archive", "shutil.unpack_archive", "tempfile.mkstemp", "tempfile.mkdtemp",
        // processes and signals
        "subprocess.Popen", "os.system", "os.exec", "os.spawn", "os.posix_spawn", "os.fork", "os.forkpty",
        "os.startfile", "os.startfile/2", "pty.spawn", "os.kill", "os.killpg", "signal.pthread_kill",
        // environment
        "os.putenv", "os.unsetenv",
        // network
        "socket.__new__", "socket.connect", "socket.bind", "socket.sendmsg", "socket.sendto", "socket.sethostname",
        "socket.getaddrinfo", "socket.gethostbyaddr", "socket.gethostbyname", "socket.gethostname",
        "socket.getnameinfo", "socket.getservbyname", "socket.getservbyport", "http.client.connect",
        "http.client.send", "ftplib.connect", "ftplib.sendcmd", "imaplib.open", "imaplib.send", "poplib.connect",
        "poplib.putline", "smtplib.connect", "smtplib.send", "urllib.Request", "webbrowser.open",
        // databases
        "sqlite3.connect", "sqlite3.connect/handle", "sqlite3.enable_load_extension", "sqlite3.load_extension",
        // native code
        "ctypes.dlopen", "ctypes.dlsym", "ctypes.call_function",
        // locks and limits
        "fcntl.fcntl", "fcntl.flock", "fcntl.ioctl", "fcntl.lockf", "msvcrt.locking", "resource.prlimit",
        "resource.setrlimit",
        // threads, library search path, hooks
        "_thread.start_new_thread", "os.add_dll_directory", "sys.addaudithook"};
    return events;
}

// Refused at the strict level on top of blocked_events.
event_set const& strict_blocked_events() {
    static event_set const events{
        // threading.Thread starts here on 3.13, not in _thread.start_new_thread
        "_thread.start_joinable_thread",
        // code that runs later, outside the guard, or sees the caller's frames
        // (threading.settrace_all_threads raises sys.settrace once per thread)
        "sys.settrace", "sys.setprofile", "sys.monitoring.register_callback", "sys._getframe",
        "sys._current_frames", "sys._current_exceptions",
        // hand-made byte code
        "code.__new__",
        // every object of the process, the replaced functions' originals among them
        "gc.get_objects", "gc.get_referrers", "gc.get_referents"};
    return events;
}

// Refused at the strict level when they are not imported yet (Python raises
// "import" only for a module that sys.modules does not hold): each offers a
// route that raises no audit event of its own.
event_set const& strict_blocked_modules() {
    static event_set const modules{"_posixsubprocess", "_ctypes",    "ctypes",       "_tkinter",
                                   "readline",         "_posixshmem", "_interpreters", "_testcapi",
                                   "_testinternalcapi"};
    return modules;
}

int refuse(char const* message) noexcept {
    PyErr_SetString(PyExc_PermissionError, message);
    return -1;
}

// The "open" event gives (path, mode, flags): mode is the text of the
// built-in open, or None for os.open, whose flags are then read instead.
// Arguments that cannot be read let the call through.
bool opens_for_writing(PyObject* arguments) noexcept {
    Py_ssize_t const count = PyTuple_Size(arguments);
    if (count < 2) return false;
    PyObject* mode = PyTuple_GetItem(arguments, 1);
    if (mode == Py_None && count >= 3) {
        PyObject* flags = PyTuple_GetItem(arguments, 2);
        if (!PyLong_Check(flags)) return false;
        long const value = PyLong_AsLong(flags);
        if (value == -1 && PyErr_Occurred()) {
            PyErr_Clear();
            return false;
        }
        return value == -1 || (value & writing_open_flags) != 0;
    }
    if (!PyUnicode_Check(mode)) return false;
    Py_ssize_t size = 0;
    char const* text = PyUnicode_AsUTF8AndSize(mode, &size);
    if (text == nullptr) {
        PyErr_Clear();
        return false;
    }
    return std::string_view(text, static_cast<std::size_t>(size)).find_first_of("wax+") != std::string_view::npos;
}

// mmap.__new__ gives (fileno, length, access, offset). A mapping of a file
// with the default or the write access can change the file; an anonymous
// one (fileno -1) or a copy-on-write one cannot. The default access may map
// read-only through `prot`, which the event does not show: refused anyway.
bool maps_file_for_writing(PyObject* arguments) noexcept {
    if (PyTuple_Size(arguments) < 3) return false;
    long const fileno = PyLong_AsLong(PyTuple_GetItem(arguments, 0));
    long const access = PyLong_AsLong(PyTuple_GetItem(arguments, 2));
    if (PyErr_Occurred()) {
        PyErr_Clear();
        return true;
    }
    constexpr long access_default = 0;
    constexpr long access_write = 2;
    return fileno != -1 && (access == access_default || access == access_write);
}

// The module name of an "import" event; empty when it is not text.
std::string_view imported_module(PyObject* arguments) noexcept {
    if (PyTuple_Size(arguments) < 1) return {};
    PyObject* name = PyTuple_GetItem(arguments, 0);
    if (!PyUnicode_Check(name)) return {};
    Py_ssize_t size = 0;
    char const* text = PyUnicode_AsUTF8AndSize(name, &size);
    if (text == nullptr) {
        PyErr_Clear();
        return {};
    }
    return std::string_view(text, static_cast<std::size_t>(size));
}

bool refused_by_strict_level(std::string_view event, PyObject* arguments) noexcept {
    if (strict_blocked_events().contains(event)) return true;
    // Every ctypes event (raw memory, addresses, buffers, calls): a ctypes
    // the host loaded before is reachable without an import.
    if (event.starts_with("ctypes.")) return true;
    if (event == "mmap.__new__") return maps_file_for_writing(arguments);
    if (event == "import") return strict_blocked_modules().contains(imported_module(arguments));
    return false;
}

} // namespace

int audit_hook(char const* event, PyObject* arguments, void* /*userData*/) noexcept {
    if (!sandbox_active) return 0;
    std::string_view const name = event;
    if (name == "open" && opens_for_writing(arguments)) return refuse(write_blocked_message);
    try {
        if (blocked_events().contains(name)) return refuse(operation_blocked_message);
        if (active_sandbox_level == sandbox_level::strict && refused_by_strict_level(name, arguments))
            return refuse(operation_blocked_message);
    } catch (...) {
        // Only the first use builds the sets; when even that fails (out of
        // memory), refusing is the safe answer.
        return refuse(operation_blocked_message);
    }
    return 0;
}

} // namespace tesk::cpython
