// Undoing what strict evaluations change in the process-wide Python state.
#include "python/strict_state_restore.h"

#include "python/python_ref.h"

#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace tesk::cpython {
namespace {

// A list or set and a shallow copy of what it held; or a dictionary, watched,
// and what its keys held before their first change (a copy of the whole
// dictionary when it is cleared or filled at once).
struct saved_container {
    PyObjectPtr container;
    PyObjectPtr copy;        // lists and sets; dictionaries once cleared or filled at once
    PyObjectPtr previous;    // dictionaries: key -> old value, or `absent`
};

// Where imports look for cached byte code while strict scopes are alive: a
// path under a device file, which no directory can ever be.
constexpr char const* no_byte_code_cache = "/dev/null/brimora-strict";

// Process-wide; touched only with the interpreter lock held.
int active_scopes = 0;
std::vector<saved_container>* recorded = nullptr;
// The interpreter's settings that code may change for its own run.
int recordedRecursionLimit = 0;
int recordedCollectorEnabled = 1;
std::unordered_map<PyObject*, std::size_t>* watched = nullptr; // dictionary -> its entry in `recorded`
bool restoring = false;
int watcher = -1;

// Stands for a key that the dictionary did not hold.
PyObject* absent() {
    static PyObject* const marker = PyObject_New(PyObject, &PyBaseObject_Type);
    return marker;
}

// Called before a watched dictionary changes: keeps what the key held, the
// first time only.
int before_change(PyDict_WatchEvent event, PyObject* dict, PyObject* key, PyObject* /*newValue*/) noexcept {
    if (restoring || watched == nullptr || recorded == nullptr) return 0;
    auto found = watched->find(dict);
    if (found == watched->end()) return 0;
    saved_container& entry = (*recorded)[found->second];
    if (entry.copy) return 0;
    PyObject* pending = PyErr_GetRaisedException();
    switch (event) {
    case PyDict_EVENT_ADDED:
    case PyDict_EVENT_MODIFIED:
    case PyDict_EVENT_DELETED:
        if (key && PyDict_Contains(entry.previous.get(), key) == 0) {
            PyObject* old = PyDict_GetItemWithError(dict, key); // borrowed
            (void)PyDict_SetItem(entry.previous.get(), key, old ? old : absent());
        }
        break;
    case PyDict_EVENT_CLEARED:
    case PyDict_EVENT_CLONED: {
        // The whole state before, with the keys' first values put back.
        PyObjectPtr copy = PyObjectPtr::steal(PyDict_Copy(dict));
        Py_ssize_t position = 0;
        PyObject* k = nullptr;
        PyObject* old = nullptr;
        while (copy && PyDict_Next(entry.previous.get(), &position, &k, &old)) {
            if (old == absent()) (void)PyDict_DelItem(copy.get(), k);
            else (void)PyDict_SetItem(copy.get(), k, old);
        }
        entry.copy = std::move(copy);
        break;
    }
    default:
        break;
    }
    PyErr_Clear();
    PyErr_SetRaisedException(pending);
    return 0;
}

// Bookkeeping of the threads that run meanwhile (started by unsandboxed
// code; sandboxed code may start none): not undone.
bool is_thread_bookkeeping(std::string_view module, PyObject* name) {
    if (module != "threading" || !PyUnicode_Check(name)) return false;
    return PyUnicode_CompareWithASCIIString(name, "_active") == 0 ||
           PyUnicode_CompareWithASCIIString(name, "_limbo") == 0;
}

PyObjectPtr copy_of(PyObject* container) {
    if (PyList_CheckExact(container)) return PyObjectPtr::steal(PyList_GetSlice(container, 0, PY_SSIZE_T_MAX));
    if (PySet_CheckExact(container)) return PyObjectPtr::steal(PySet_New(container));
    return {};
}

class recorder {
public:
    explicit recorder(std::vector<saved_container>& into) : into_(into) {}

    void add(PyObject* container) {
        if (container == nullptr) return;
        if (!PyDict_CheckExact(container) && !PyList_CheckExact(container) && !PySet_CheckExact(container)) return;
        if (!seen_.insert(container).second) return;
        if (PyDict_CheckExact(container)) {
            PyObjectPtr previous = PyObjectPtr::steal(PyDict_New());
            if (!previous || PyDict_Watch(watcher, container) < 0) {
                PyErr_Clear();
                return;
            }
            watched->emplace(container, into_.size());
            into_.push_back({PyObjectPtr::borrow(container), PyObjectPtr(), std::move(previous)});
            return;
        }
        PyObjectPtr copy = copy_of(container);
        if (!copy) {
            PyErr_Clear();
            return;
        }
        into_.push_back({PyObjectPtr::borrow(container), std::move(copy), PyObjectPtr()});
    }

    // A module's namespace and the containers directly in it. __main__ is
    // the program's own namespace, where a session (brimora's REPL) keeps
    // what its entries made: left as the evaluations leave it.
    void add_module(PyObject* name, PyObject* module) {
        if (!PyModule_Check(module)) return;
        if (PyUnicode_Check(name) && PyUnicode_CompareWithASCIIString(name, "__main__") == 0) return;
        PyObject* dict = PyModule_GetDict(module); // borrowed
        add(dict);
        char const* moduleName = PyUnicode_Check(name) ? PyUnicode_AsUTF8(name) : nullptr;
        if (moduleName == nullptr) PyErr_Clear();
        std::string_view const module_text = moduleName ? moduleName : "";
        Py_ssize_t position = 0;
        PyObject* key = nullptr;
        PyObject* value = nullptr;
        while (PyDict_Next(dict, &position, &key, &value))
            if (!is_thread_bookkeeping(module_text, key)) add(value);
    }

    // `attribute` of `object`, itself a container or holding one in __dict__.
    void add_attribute(PyObject* object, char const* attribute) {
        PyObjectPtr value = PyObjectPtr::steal(object ? PyObject_GetAttrString(object, attribute) : nullptr);
        PyErr_Clear();
        if (value) add(value.get());
    }

private:
    std::vector<saved_container>& into_;
    std::unordered_set<PyObject*> seen_;
};

PyObject* loaded_module(char const* name) {
    PyObject* modules = PyImport_GetModuleDict(); // borrowed
    PyObject* found = PyDict_GetItemString(modules, name);
    PyErr_Clear();
    return found;
}

void record_state(std::vector<saved_container>& into) {
    recorder record(into);
    PyObject* modules = PyImport_GetModuleDict(); // borrowed
    record.add(modules);
    PyObjectPtr items = PyObjectPtr::steal(PyDict_Items(modules));
    for (Py_ssize_t i = 0; items && i < PyList_GET_SIZE(items.get()); ++i) {
        PyObject* item = PyList_GET_ITEM(items.get(), i);
        record.add_module(PyTuple_GET_ITEM(item, 0), PyTuple_GET_ITEM(item, 1));
    }
    // Held by objects, not by a namespace.
    if (PyObject* os = loaded_module("os")) {
        PyObjectPtr environ = PyObjectPtr::steal(PyObject_GetAttrString(os, "environ"));
        PyErr_Clear();
        record.add_attribute(environ.get(), "_data");
        record.add_attribute(environ.get(), "__dict__");
    }
    if (PyObject* weakref = loaded_module("weakref")) {
        PyObjectPtr finalize = PyObjectPtr::steal(PyObject_GetAttrString(weakref, "finalize"));
        PyErr_Clear();
        record.add_attribute(finalize.get(), "_registry");
    }
    PyErr_Clear();
}

// While strict scopes are alive: no cached byte code, and no ctypes that the
// host loaded before (its objects reach raw memory without audit events).
void close_routes() {
    PyObjectPtr cache = PyObjectPtr::steal(PyUnicode_FromString(no_byte_code_cache));
    if (cache) (void)PySys_SetObject("pycache_prefix", cache.get());
    PyObject* modules = PyImport_GetModuleDict(); // borrowed
    PyObjectPtr names = PyObjectPtr::steal(PyDict_Keys(modules));
    for (Py_ssize_t i = 0; names && i < PyList_GET_SIZE(names.get()); ++i) {
        PyObject* name = PyList_GET_ITEM(names.get(), i);
        char const* text = PyUnicode_Check(name) ? PyUnicode_AsUTF8(name) : nullptr;
        if (text == nullptr) continue;
        std::string_view const module = text;
        if (module == "ctypes" || module == "_ctypes" || module.starts_with("ctypes."))
            (void)PyDict_DelItem(modules, name);
    }
    PyErr_Clear();
}

// Puts back what `saved` held; what it takes out goes to `released`, so that
// nothing is freed (and no finaliser runs) half-way. True when it changed
// anything.
bool restore(saved_container const& saved, PyObject* released) {
    PyObject* container = saved.container.get();
    PyObject* copy = saved.copy.get();
    bool changed = false;
    if (PyDict_CheckExact(container) && copy == nullptr) {
        // Only the keys that changed.
        Py_ssize_t position = 0;
        PyObject* key = nullptr;
        PyObject* old = nullptr;
        while (PyDict_Next(saved.previous.get(), &position, &key, &old)) {
            PyObject* current = PyDict_GetItemWithError(container, key);
            if (current == old || (current == nullptr && old == absent())) continue;
            if (current) (void)PyList_Append(released, current);
            if (old == absent()) (void)PyDict_DelItem(container, key);
            else (void)PyDict_SetItem(container, key, old);
            changed = true;
        }
        PyErr_Clear();
        return changed;
    }
    if (PyList_CheckExact(container)) {
        Py_ssize_t const size = PyList_GET_SIZE(copy);
        bool same = PyList_GET_SIZE(container) == size;
        for (Py_ssize_t i = 0; same && i < size; ++i) same = PyList_GET_ITEM(container, i) == PyList_GET_ITEM(copy, i);
        if (same) return false;
        PyObjectPtr old = PyObjectPtr::steal(PyList_GetSlice(container, 0, PY_SSIZE_T_MAX));
        if (old) (void)PyList_Append(released, old.get());
        (void)PyList_SetSlice(container, 0, PY_SSIZE_T_MAX, copy);
        return true;
    }
    if (PyDict_CheckExact(container)) {
        PyObjectPtr keys = PyObjectPtr::steal(PyDict_Keys(container));
        for (Py_ssize_t i = 0; keys && i < PyList_GET_SIZE(keys.get()); ++i) {
            PyObject* key = PyList_GET_ITEM(keys.get(), i);
            int const kept = PyDict_Contains(copy, key);
            if (kept != 0) continue;
            PyObject* value = PyDict_GetItemWithError(container, key);
            if (value) (void)PyList_Append(released, value);
            (void)PyDict_DelItem(container, key);
            changed = true;
        }
        Py_ssize_t position = 0;
        PyObject* key = nullptr;
        PyObject* value = nullptr;
        while (PyDict_Next(copy, &position, &key, &value)) {
            PyObject* current = PyDict_GetItemWithError(container, key);
            if (current == value) continue;
            if (current) (void)PyList_Append(released, current);
            (void)PyDict_SetItem(container, key, value);
            changed = true;
        }
        PyErr_Clear();
        return changed;
    }
    if (PySet_CheckExact(container)) {
        PyObjectPtr items = PyObjectPtr::steal(PySequence_List(container));
        for (Py_ssize_t i = 0; items && i < PyList_GET_SIZE(items.get()); ++i) {
            PyObject* item = PyList_GET_ITEM(items.get(), i);
            if (PySet_Contains(copy, item) != 0) continue;
            (void)PyList_Append(released, item);
            (void)PySet_Discard(container, item);
            changed = true;
        }
        PyObjectPtr wanted = PyObjectPtr::steal(PySequence_List(copy));
        for (Py_ssize_t i = 0; wanted && i < PyList_GET_SIZE(wanted.get()); ++i) {
            PyObject* item = PyList_GET_ITEM(wanted.get(), i);
            if (PySet_Contains(container, item) != 0) continue;
            (void)PySet_Add(container, item);
            changed = true;
        }
        PyErr_Clear();
        return changed;
    }
    return false;
}

// Values whose release would run code again after the last pass: kept for
// the process instead.
void keep_for_the_process(PyObjectPtr values) {
    static PyObject* kept = PyList_New(0);
    if (kept && values) (void)PyList_Append(kept, values.get());
    PyErr_Clear();
}

void restore_state(std::vector<saved_container> const& saved) {
    // What is released in the first pass may run finalisers (under the
    // sandbox still, the guard being alive); the second pass undoes what they
    // changed, and what it releases is never freed.
    for (int pass = 0; pass < 2; ++pass) {
        PyObjectPtr released = PyObjectPtr::steal(PyList_New(0));
        if (!released) break;
        bool changed = false;
        restoring = true;
        for (saved_container const& entry : saved) changed = restore(entry, released.get()) || changed;
        restoring = false;
        PyErr_Clear();
        if (pass == 1 && changed) keep_for_the_process(std::move(released));
        if (!changed) break;
    }
}

} // namespace

strict_state_restore::strict_state_restore() noexcept {
    PyObject* pending = PyErr_GetRaisedException();
    if (active_scopes++ == 0) {
        try {
            if (watcher < 0) watcher = PyDict_AddWatcher(&before_change);
            recorded = new std::vector<saved_container>();
            watched = new std::unordered_map<PyObject*, std::size_t>();
            if (watcher >= 0) record_state(*recorded);
            recordedRecursionLimit = Py_GetRecursionLimit();
            recordedCollectorEnabled = PyGC_IsEnabled();
        } catch (...) {
            // Out of memory: what was recorded is restored.
        }
        close_routes();
    }
    PyErr_SetRaisedException(pending);
}

strict_state_restore::~strict_state_restore() {
    if (--active_scopes != 0) return;
    PyObject* pending = PyErr_GetRaisedException();
    Py_SetRecursionLimit(recordedRecursionLimit);
    if (recordedCollectorEnabled) (void)PyGC_Enable();
    else (void)PyGC_Disable();
    if (recorded) {
        restore_state(*recorded);
        for (saved_container const& entry : *recorded)
            if (PyDict_CheckExact(entry.container.get())) (void)PyDict_Unwatch(watcher, entry.container.get());
        delete watched;
        watched = nullptr;
        delete recorded;
        recorded = nullptr;
    }
    PyErr_Clear();
    PyErr_SetRaisedException(pending);
}

} // namespace tesk::cpython
