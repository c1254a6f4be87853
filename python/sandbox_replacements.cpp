// The strict level's replaced functions.
#include "python/sandbox_replacements.h"

#include "python/python_ref.h"
#include "python/sandbox_state.h"
#include "python/slot_guard.h"

#if !defined(_WIN32)
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace tesk::cpython {
namespace {

// What a replacement refuses under the strict level.
enum class rule {
    always,             // every call
    host_descriptor,    // a descriptor argument that is the host's, or a copy of one
    host_number,        // a descriptor argument with the number of one of the host's (a copy of
                        // one may go: closing it or changing its flags leaves the host's alone)
    host_range,         // a range of descriptors (two arguments) that holds one of the host's
    code_objects,       // unmarshalling code objects (marshal refuses them itself when told)
    outside_search_path, // an extension module whose file is not under the host's sys.path
    locale_change        // a second argument that is given and not None (a query passes)
};

// One replaced function: where it lives and what it refuses.
struct replaced_function {
    char const* module; // dotted: "sys.monitoring" is the attribute of sys
    char const* name;
    rule refusal;
    int argument = 0; // the descriptor's position for host_descriptor
    PyMethodDef* definition = nullptr;
    PyCFunction original = nullptr;
};

// Filled on the first strict scope and never changed after; touched only
// with the interpreter lock held. Not here because they raise audit events
// of their own: os.kill, os.killpg, signal.pthread_kill (refused at every
// level), sys._current_frames.
replaced_function replaced[] = {
    // writes and changes through the host's descriptors
    {"posix", "write", rule::host_descriptor},
    {"posix", "writev", rule::host_descriptor},
    {"posix", "pwrite", rule::host_descriptor},
    {"posix", "pwritev", rule::host_descriptor},
    {"posix", "sendfile", rule::host_descriptor},
    {"posix", "copy_file_range", rule::host_descriptor, 1},
    {"posix", "splice", rule::host_descriptor, 1},
    {"posix", "posix_fallocate", rule::host_descriptor},
    {"posix", "eventfd_write", rule::host_descriptor},
    {"posix", "set_blocking", rule::host_descriptor},
    {"posix", "set_inheritable", rule::host_number},
    {"posix", "lseek", rule::host_descriptor},
    {"posix", "close", rule::host_number},
    {"posix", "dup2", rule::host_number, 1},
    {"posix", "closerange", rule::host_range},
    {"posix", "login_tty", rule::always},
    {"posix", "tcsetpgrp", rule::always},
    // files made without an audited call
    {"posix", "mkfifo", rule::always},
    {"posix", "mknod", rule::always},
    // ending the process, or changing who or where it is
    {"posix", "_exit", rule::always},
    {"posix", "abort", rule::always},
    {"posix", "setuid", rule::always},
    {"posix", "setgid", rule::always},
    {"posix", "seteuid", rule::always},
    {"posix", "setegid", rule::always},
    {"posix", "setreuid", rule::always},
    {"posix", "setregid", rule::always},
    {"posix", "setresuid", rule::always},
    {"posix", "setresgid", rule::always},
    {"posix", "setgroups", rule::always},
    {"posix", "initgroups", rule::always},
    {"posix", "umask", rule::always},
    {"posix", "chroot", rule::always},
    {"posix", "setsid", rule::always},
    {"posix", "setpgid", rule::always},
    {"posix", "setpgrp", rule::always},
    {"posix", "sched_setaffinity", rule::always},
    {"posix", "sched_setscheduler", rule::always},
    {"posix", "sched_setparam", rule::always},
    {"posix", "nice", rule::always},
    {"posix", "setpriority", rule::always},
    {"posix", "unshare", rule::always},
    {"posix", "setns", rule::always},
    // the host's children (the code cannot start any)
    {"posix", "wait", rule::always},
    {"posix", "waitpid", rule::always},
    {"posix", "wait3", rule::always},
    {"posix", "wait4", rule::always},
    {"posix", "waitid", rule::always},
    // code run later
    {"posix", "register_at_fork", rule::always},
    {"atexit", "register", rule::always},
    {"atexit", "unregister", rule::always},
    {"atexit", "_clear", rule::always},
    {"atexit", "_run_exitfuncs", rule::always},
    {"_codecs", "register", rule::always},
    {"_codecs", "unregister", rule::always},
    {"_codecs", "register_error", rule::always},
    // signals
    {"_signal", "signal", rule::always},
    {"_signal", "alarm", rule::always},
    {"_signal", "setitimer", rule::always},
    {"_signal", "raise_signal", rule::always},
    {"_signal", "set_wakeup_fd", rule::always},
    {"_signal", "pthread_sigmask", rule::always},
    {"_signal", "siginterrupt", rule::always},
    {"_signal", "pidfd_send_signal", rule::always},
    {"_signal", "sigwait", rule::always},
    {"_signal", "sigwaitinfo", rule::always},
    {"_signal", "sigtimedwait", rule::always},
    {"_thread", "interrupt_main", rule::always},
    {"_thread", "stack_size", rule::always},
    // the faulthandler writes to descriptors, ends the process or crashes it
    {"faulthandler", "enable", rule::always},
    {"faulthandler", "disable", rule::always},
    {"faulthandler", "dump_traceback", rule::always},
    {"faulthandler", "dump_traceback_later", rule::always},
    {"faulthandler", "cancel_dump_traceback_later", rule::always},
    {"faulthandler", "register", rule::always},
    {"faulthandler", "unregister", rule::always},
    {"faulthandler", "_sigsegv", rule::always},
    {"faulthandler", "_sigabrt", rule::always},
    {"faulthandler", "_sigfpe", rule::always},
    {"faulthandler", "_stack_overflow", rule::always},
    {"faulthandler", "_read_null", rule::always},
    {"faulthandler", "_fatal_error_c_thread", rule::always},
    // the interpreter's process-wide configuration
    {"sys", "setswitchinterval", rule::always},
    {"sys", "set_asyncgen_hooks", rule::always},
    {"sys", "set_coroutine_origin_tracking_depth", rule::always},
    {"sys", "setdlopenflags", rule::always},
    {"sys", "set_int_max_str_digits", rule::always},
    {"sys", "activate_stack_trampoline", rule::always},
    {"sys", "deactivate_stack_trampoline", rule::always},
    {"sys.monitoring", "use_tool_id", rule::always},
    {"sys.monitoring", "set_events", rule::always},
    {"sys.monitoring", "set_local_events", rule::always},
    {"gc", "set_threshold", rule::always},
    {"gc", "freeze", rule::always},
    {"_locale", "setlocale", rule::locale_change},
    // unaudited native routes
    {"_socket", "socketpair", rule::always},
    {"_posixsubprocess", "fork_exec", rule::always},
    {"marshal", "loads", rule::code_objects},
    {"marshal", "load", rule::code_objects},
    {"_imp", "create_dynamic", rule::outside_search_path},
};
constexpr std::size_t replaced_count = std::size(replaced);

// What the host had when this thread's outermost strict scope began: its
// descriptors, the files they refer to, and its search path.
struct host_record {
    bool complete = false;
    std::vector<int> descriptors;                                  // sorted
    std::vector<std::pair<unsigned long, unsigned long>> files;    // (device, inode), sorted
    std::vector<std::string> searchPath;                           // resolved directories
};
thread_local std::optional<host_record> host;

std::optional<std::pair<unsigned long, unsigned long>> file_of(int fd) {
#if defined(_WIN32)
    (void)fd;
    return std::nullopt;
#else
    struct stat status{};
    if (fstat(fd, &status) != 0) return std::nullopt;
    return std::pair<unsigned long, unsigned long>(status.st_dev, status.st_ino);
#endif
}

std::optional<std::string> resolved(std::string const& path) {
#if defined(_WIN32)
    return path;
#else
    char buffer[PATH_MAX];
    if (realpath(path.c_str(), buffer) == nullptr) return std::nullopt;
    return std::string(buffer);
#endif
}

// Listed from /proc/self/fd; where that does not exist, the record is
// incomplete and every descriptor counts as the host's.
void record_descriptors(host_record& record) {
    std::error_code error;
    for (std::filesystem::directory_iterator entry("/proc/self/fd", error), end; !error && entry != end;
         entry.increment(error)) {
        try {
            record.descriptors.push_back(std::stoi(entry->path().filename().string()));
        } catch (...) {
            // not a descriptor number: skipped
        }
    }
    // The listing's own descriptor is listed too, and closed by now.
    std::erase_if(record.descriptors, [](int fd) { return !file_of(fd).has_value(); });
    for (int fd : record.descriptors)
        if (auto file = file_of(fd)) record.files.push_back(*file);
    record.complete = !error && !record.descriptors.empty();
    std::sort(record.descriptors.begin(), record.descriptors.end());
    std::sort(record.files.begin(), record.files.end());
}

// The text entries of sys.path that name directories, resolved.
void record_search_path(host_record& record) {
    PyObject* path = PySys_GetObject("path"); // borrowed
    if (path == nullptr || !PyList_Check(path)) return;
    PyObjectPtr entries = PyObjectPtr::steal(PyList_GetSlice(path, 0, PyList_GET_SIZE(path)));
    for (Py_ssize_t i = 0; entries && i < PyList_GET_SIZE(entries.get()); ++i) {
        PyObject* entry = PyList_GET_ITEM(entries.get(), i);
        char const* text = PyUnicode_Check(entry) ? PyUnicode_AsUTF8(entry) : nullptr;
        if (text == nullptr) continue;
        std::string const directory = *text ? text : ".";
        std::error_code error;
        if (auto real = resolved(directory); real && std::filesystem::is_directory(*real, error))
            record.searchPath.push_back(*real);
    }
    PyErr_Clear();
}

bool is_host_descriptor(long fd) {
    if (!host || !host->complete) return true;
    if (std::binary_search(host->descriptors.begin(), host->descriptors.end(), fd)) return true;
    if (fd < 0 || fd > INT_MAX) return false;
    auto file = file_of(static_cast<int>(fd));
    return file && std::binary_search(host->files.begin(), host->files.end(), *file);
}

// A descriptor argument as a number; none when it is not an int.
std::optional<long> descriptor_value(PyObject* argument) {
    if (argument == nullptr || !PyLong_Check(argument)) return std::nullopt;
    int overflow = 0;
    long const fd = PyLong_AsLongAndOverflow(argument, &overflow);
    if ((fd == -1 && PyErr_Occurred()) || overflow != 0) {
        PyErr_Clear();
        return std::nullopt;
    }
    return fd;
}

// Whether the extension that the import system `found` (its `origin` is the
// file) lies under the host's search path.
bool is_under_search_path(PyObject* found) {
    if (!host) return false;
    PyObjectPtr origin = PyObjectPtr::steal(found ? PyObject_GetAttrString(found, "origin") : nullptr);
    char const* text = origin && PyUnicode_Check(origin.get()) ? PyUnicode_AsUTF8(origin.get()) : nullptr;
    PyErr_Clear();
    if (text == nullptr) return false;
    auto real = resolved(text);
    if (!real) return false;
    return std::any_of(host->searchPath.begin(), host->searchPath.end(), [&](std::string const& directory) {
        return real->size() > directory.size() && real->compare(0, directory.size(), directory) == 0 &&
               ((*real)[directory.size()] == '/' || directory == "/");
    });
}

// The positional arguments of one call, whatever its calling convention.
struct call_arguments {
    PyObject* const* items = nullptr;
    Py_ssize_t count = 0;
    bool keywords = false;

    PyObject* at(int index) const { return index < count ? items[index] : nullptr; }
};

// Whether `function` refuses this call (with the strict level on).
bool refuses(replaced_function const& function, call_arguments const& arguments) {
    switch (function.refusal) {
    case rule::always:
        return true;
    case rule::host_descriptor: {
        // A descriptor given by keyword, or not as a number, is refused.
        auto fd = descriptor_value(arguments.at(function.argument));
        return !fd || is_host_descriptor(*fd);
    }
    case rule::host_number: {
        auto fd = descriptor_value(arguments.at(function.argument));
        return !fd || !host || !host->complete ||
               std::binary_search(host->descriptors.begin(), host->descriptors.end(), *fd);
    }
    case rule::locale_change:
        return arguments.keywords || (arguments.at(1) != nullptr && arguments.at(1) != Py_None);
    case rule::host_range: {
        auto low = descriptor_value(arguments.at(0));
        auto high = descriptor_value(arguments.at(1));
        if (!low || !high || !host || !host->complete) return true;
        return std::any_of(host->descriptors.begin(), host->descriptors.end(),
                           [&](int fd) { return fd >= *low && fd < *high; });
    }
    case rule::outside_search_path:
        return !is_under_search_path(arguments.at(0));
    case rule::code_objects:
        return false; // handled by the call itself
    }
    return true;
}

PyObject* refuse() {
    PyErr_SetString(PyExc_PermissionError, operation_blocked_message);
    return nullptr;
}

// marshal.loads and marshal.load told allow_code=False; marshal's refusal
// becomes the sandbox's.
PyObject* call_without_code(replaced_function const& function, PyObject* self, PyObject* const* args,
                            Py_ssize_t nargsf, PyObject* kwnames) {
    Py_ssize_t const positional = PyVectorcall_NARGS(static_cast<size_t>(nargsf));
    Py_ssize_t const keywords = kwnames ? PyTuple_GET_SIZE(kwnames) : 0;
    std::vector<PyObject*> values(args, args + positional + keywords);
    PyObjectPtr allowCode = PyObjectPtr::steal(PyUnicode_FromString("allow_code"));
    if (!allowCode) return nullptr;
    PyObjectPtr names;
    Py_ssize_t found = -1;
    for (Py_ssize_t i = 0; i < keywords; ++i)
        if (PyUnicode_Compare(PyTuple_GET_ITEM(kwnames, i), allowCode.get()) == 0) found = i;
    if (found >= 0) {
        values[static_cast<std::size_t>(positional + found)] = Py_False;
        names = PyObjectPtr::borrow(kwnames);
    } else {
        values.push_back(Py_False);
        names = PyObjectPtr::steal(PyTuple_New(keywords + 1));
        if (!names) return nullptr;
        for (Py_ssize_t i = 0; i < keywords; ++i)
            PyTuple_SET_ITEM(names.get(), i, Py_NewRef(PyTuple_GET_ITEM(kwnames, i)));
        PyTuple_SET_ITEM(names.get(), keywords, allowCode.release());
    }
    auto const call = reinterpret_cast<PyCFunctionFastWithKeywords>(reinterpret_cast<void (*)()>(function.original));
    PyObject* result = call(self, values.data(), positional, names.get());
    if (result == nullptr && PyErr_ExceptionMatches(PyExc_ValueError)) {
        PyErr_Clear();
        return refuse();
    }
    return result;
}

template <typename Function>
Function original_as(replaced_function const& function) {
    return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(function.original));
}

// The replacements, one set per entry: Python calls a C function without
// telling it which definition it came from, so each entry has its own.
template <std::size_t Index>
struct replacement {
    static replaced_function const& entry() { return replaced[Index]; }
    static bool refused(call_arguments const& arguments) {
        return strict_sandbox_active() && refuses(entry(), arguments);
    }

    static PyObject* fastcall(PyObject* self, PyObject* const* args, Py_ssize_t nargs) noexcept {
        return guarded_slot<PyObject*>(nullptr, [&]() -> PyObject* {
            if (refused({args, nargs})) return refuse();
            return original_as<PyCFunctionFast>(entry())(self, args, nargs);
        });
    }
    static PyObject* fastcall_keywords(PyObject* self, PyObject* const* args, Py_ssize_t nargsf,
                                       PyObject* kwnames) noexcept {
        return guarded_slot<PyObject*>(nullptr, [&]() -> PyObject* {
            if (strict_sandbox_active() && entry().refusal == rule::code_objects)
                return call_without_code(entry(), self, args, nargsf, kwnames);
            bool const keywords = kwnames != nullptr && PyTuple_GET_SIZE(kwnames) > 0;
            if (refused({args, PyVectorcall_NARGS(static_cast<size_t>(nargsf)), keywords})) return refuse();
            return original_as<PyCFunctionFastWithKeywords>(entry())(self, args, nargsf, kwnames);
        });
    }
    static PyObject* varargs(PyObject* self, PyObject* args) noexcept {
        return guarded_slot<PyObject*>(nullptr, [&]() -> PyObject* {
            if (refused({&PyTuple_GET_ITEM(args, 0), PyTuple_GET_SIZE(args)})) return refuse();
            return original_as<PyCFunction>(entry())(self, args);
        });
    }
    static PyObject* varargs_keywords(PyObject* self, PyObject* args, PyObject* kwargs) noexcept {
        return guarded_slot<PyObject*>(nullptr, [&]() -> PyObject* {
            bool const keywords = kwargs != nullptr && PyDict_GET_SIZE(kwargs) > 0;
            if (refused({&PyTuple_GET_ITEM(args, 0), PyTuple_GET_SIZE(args), keywords})) return refuse();
            return original_as<PyCFunctionWithKeywords>(entry())(self, args, kwargs);
        });
    }
    // METH_O and METH_NOARGS (whose argument is null).
    static PyObject* single(PyObject* self, PyObject* arg) noexcept {
        return guarded_slot<PyObject*>(nullptr, [&]() -> PyObject* {
            if (refused({&arg, arg ? 1 : 0})) return refuse();
            return original_as<PyCFunction>(entry())(self, arg);
        });
    }

    // The replacement for the definition's calling convention.
    static PyCFunction for_flags(int flags) {
        auto const cast = [](auto function) {
            return reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(function));
        };
        switch (flags & (METH_VARARGS | METH_KEYWORDS | METH_FASTCALL | METH_O | METH_NOARGS)) {
        case METH_FASTCALL: return cast(&fastcall);
        case METH_FASTCALL | METH_KEYWORDS: return cast(&fastcall_keywords);
        case METH_VARARGS: return cast(&varargs);
        case METH_VARARGS | METH_KEYWORDS: return cast(&varargs_keywords);
        case METH_O:
        case METH_NOARGS: return cast(&single);
        default: return nullptr;
        }
    }
};

template <std::size_t... Indexes>
constexpr auto replacement_table(std::index_sequence<Indexes...>) {
    return std::array<PyCFunction (*)(int), sizeof...(Indexes)>{&replacement<Indexes>::for_flags...};
}

// The built-in function `name` of `module` (dotted: attributes after the
// first part); null when the platform lacks it.
PyObjectPtr find_function(std::string_view module, char const* name) {
    std::size_t const dot = module.find('.');
    PyObjectPtr found = PyObjectPtr::steal(PyImport_ImportModule(std::string(module.substr(0, dot)).c_str()));
    while (found && dot != std::string_view::npos) {
        std::size_t const next = module.find('.', dot + 1);
        std::string const part(module.substr(dot + 1, next - dot - 1));
        found = PyObjectPtr::steal(PyObject_GetAttrString(found.get(), part.c_str()));
        if (next == std::string_view::npos) break;
    }
    found = PyObjectPtr::steal(found ? PyObject_GetAttrString(found.get(), name) : nullptr);
    PyErr_Clear();
    return found && PyCFunction_Check(found.get()) ? found : PyObjectPtr();
}

// Puts each replacement in its definition, once for the process.
void replace_once() {
    static bool replacedAlready = false;
    if (replacedAlready) return;
    replacedAlready = true;
    constexpr auto replacements = replacement_table(std::make_index_sequence<replaced_count>());
    for (std::size_t i = 0; i < replaced_count; ++i) {
        replaced_function& function = replaced[i];
        PyObjectPtr object = find_function(function.module, function.name);
        if (!object) continue;
        PyMethodDef* definition = reinterpret_cast<PyCFunctionObject*>(object.get())->m_ml;
        PyCFunction const stand_in = replacements[i](definition->ml_flags);
        if (stand_in == nullptr) continue;
        function.definition = definition;
        function.original = definition->ml_meth;
        definition->ml_meth = stand_in;
    }
}

} // namespace

strict_replacements_scope::strict_replacements_scope() noexcept {
    // What the code already had pending stays as it was.
    PyObject* pending = PyErr_GetRaisedException();
    try {
        replace_once();
        if (!host) {
            host.emplace();
            record_descriptors(*host);
            record_search_path(*host);
            recordedHostState_ = true;
        }
    } catch (...) {
        // Out of memory while recording: an incomplete record refuses every
        // descriptor and every extension module.
        host.emplace();
        recordedHostState_ = true;
    }
    PyErr_SetRaisedException(pending);
}

strict_replacements_scope::~strict_replacements_scope() {
    if (recordedHostState_) host.reset();
}

} // namespace tesk::cpython
