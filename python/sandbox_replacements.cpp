// The strict level's replaced functions.
#include "python/sandbox_replacements.h"

#include "python/python_ref.h"
#include "python/sandbox_state.h"
#include "python/slot_guard.h"

#if !defined(_WIN32)
#include <fcntl.h>
#endif

#include <algorithm>
#include <array>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

namespace tesk::cpython {
namespace {

// What a replacement refuses under the strict level.
enum class rule {
    always,          // every call
    inherited_write, // a write to a descriptor the host had open (the first argument)
};

// One replaced function: where it lives, under which other module it is
// copied, and what it refuses.
struct replaced_function {
    char const* home;  // the built-in module that defines it
    char const* alias; // a module that holds a copy of it (null: none)
    char const* name;
    rule refusal;
    PyMethodDef definition{};
    PyObject* original = nullptr; // kept for the process, like the wrapper
    PyObject* wrapper = nullptr;
};

// Filled on the first strict scope and never changed after; touched only
// with the interpreter lock held.
std::array<replaced_function, 16> replaced{{
    {"posix", "os", "write", rule::inherited_write},
    {"posix", "os", "writev", rule::inherited_write},
    {"posix", "os", "pwrite", rule::inherited_write},
    {"posix", "os", "pwritev", rule::inherited_write},
    {"posix", "os", "sendfile", rule::inherited_write},
    {"posix", "os", "mkfifo", rule::always},
    {"posix", "os", "mknod", rule::always},
    {"posix", "os", "_exit", rule::always},
    {"posix", "os", "abort", rule::always},
    {"_signal", "signal", "signal", rule::always},
    {"_signal", "signal", "alarm", rule::always},
    {"_signal", "signal", "setitimer", rule::always},
    {"_signal", "signal", "raise_signal", rule::always},
    {"_signal", "signal", "set_wakeup_fd", rule::always},
    {"atexit", nullptr, "register", rule::always},
    {"_thread", nullptr, "interrupt_main", rule::always},
}};
// Not in the table because they raise audit events of their own: os.kill,
// os.killpg, signal.pthread_kill (refused at every level).

// How many strict scopes are alive, on all threads. Guarded by the
// interpreter lock.
int active_scopes = 0;

// This thread's record of the host's descriptors: nullopt when none is
// taken; an empty record from a failed listing refuses every write.
struct descriptor_record {
    bool complete = false;
    std::vector<int> descriptors; // sorted
};
thread_local std::optional<descriptor_record> inherited;

// Listed from /proc/self/fd; where that does not exist, the record is
// incomplete and every write through the replaced functions is refused.
descriptor_record open_descriptors() {
    descriptor_record record;
    std::error_code error;
    for (std::filesystem::directory_iterator entry("/proc/self/fd", error), end; !error && entry != end;
         entry.increment(error)) {
        try {
            record.descriptors.push_back(std::stoi(entry->path().filename().string()));
        } catch (...) {
            // not a descriptor number: skipped
        }
    }
#if !defined(_WIN32)
    // The listing's own descriptor is listed too, and closed by now.
    std::erase_if(record.descriptors, [](int fd) { return fcntl(fd, F_GETFD) == -1; });
#endif
    record.complete = !error && !record.descriptors.empty();
    std::sort(record.descriptors.begin(), record.descriptors.end());
    return record;
}

bool is_inherited(PyObject* const* args, Py_ssize_t count) {
    if (!inherited) return false;
    if (count < 1 || !PyLong_Check(args[0])) return true;
    int overflow = 0;
    long const fd = PyLong_AsLongAndOverflow(args[0], &overflow);
    if (fd == -1 && PyErr_Occurred()) {
        PyErr_Clear();
        return true;
    }
    if (!inherited->complete) return true;
    return overflow == 0 && std::binary_search(inherited->descriptors.begin(), inherited->descriptors.end(), fd);
}

// Every replacement: its self is its index in `replaced`.
PyObject* call_replaced(PyObject* self, PyObject* const* args, Py_ssize_t nargsf, PyObject* kwnames) noexcept {
    return guarded_slot<PyObject*>(nullptr, [&]() -> PyObject* {
        replaced_function const& function = replaced.at(PyLong_AsSize_t(self));
        if (strict_sandbox_active()) {
            bool const refuse = function.refusal == rule::always ||
                                is_inherited(args, PyVectorcall_NARGS(static_cast<size_t>(nargsf)));
            if (refuse) {
                PyErr_SetString(PyExc_PermissionError, operation_blocked_message);
                return nullptr;
            }
        }
        return PyObject_Vectorcall(function.original, args, static_cast<size_t>(nargsf), kwnames);
    });
}

// Looks the originals up and builds the wrappers, once; a function the
// platform lacks (os.mkfifo on Windows) gets none.
void prepare_once() {
    static bool prepared = false;
    if (prepared) return;
    prepared = true;
    for (std::size_t i = 0; i < replaced.size(); ++i) {
        replaced_function& function = replaced[i];
        PyObjectPtr module = PyObjectPtr::steal(PyImport_ImportModule(function.home));
        PyObjectPtr original =
            PyObjectPtr::steal(module ? PyObject_GetAttrString(module.get(), function.name) : nullptr);
        function.definition = {function.name,
                               reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(&call_replaced)),
                               METH_FASTCALL | METH_KEYWORDS, nullptr};
        PyObjectPtr index = PyObjectPtr::steal(PyLong_FromSize_t(i));
        PyObjectPtr wrapper = PyObjectPtr::steal(
            original && index ? PyCMethod_New(&function.definition, index.get(), nullptr, nullptr) : nullptr);
        PyErr_Clear();
        if (!wrapper) continue;
        function.original = original.release();
        function.wrapper = wrapper.release();
    }
}

// In the loaded modules that hold `function` as `from`, puts `to` instead.
void swap_in_modules(replaced_function const& function, PyObject* from, PyObject* to) {
    for (char const* moduleName : {function.home, function.alias}) {
        if (moduleName == nullptr) continue;
        PyObjectPtr name = PyObjectPtr::steal(PyUnicode_FromString(moduleName));
        PyObjectPtr module = PyObjectPtr::steal(name ? PyImport_GetModule(name.get()) : nullptr);
        PyObject* dict = module && PyModule_Check(module.get()) ? PyModule_GetDict(module.get()) : nullptr;
        PyObject* current = dict ? PyDict_GetItemString(dict, function.name) : nullptr;
        if (current == from) (void)PyDict_SetItemString(dict, function.name, to);
        PyErr_Clear();
    }
}

void swap_all(bool install) {
    for (replaced_function const& function : replaced) {
        if (function.wrapper == nullptr) continue;
        if (install) swap_in_modules(function, function.original, function.wrapper);
        else swap_in_modules(function, function.wrapper, function.original);
    }
}

} // namespace

strict_replacements_scope::strict_replacements_scope() noexcept {
    // What the code already had pending stays as it was.
    PyObject* pending = PyErr_GetRaisedException();
    try {
        if (active_scopes++ == 0) {
            prepare_once();
            swap_all(true);
        }
        if (!inherited) {
            inherited = open_descriptors();
            recordedDescriptors_ = true;
        }
    } catch (...) {
        // Out of memory while listing descriptors: every write is refused.
        if (!inherited) inherited.emplace();
        recordedDescriptors_ = true;
    }
    PyErr_SetRaisedException(pending);
}

strict_replacements_scope::~strict_replacements_scope() {
    PyObject* pending = PyErr_GetRaisedException();
    if (--active_scopes == 0) swap_all(false);
    if (recordedDescriptors_) inherited.reset();
    PyErr_SetRaisedException(pending);
}

} // namespace tesk::cpython
