// Python modules exported as host modules: one module with its submodules,
// the fixed language modules of the start-up, and every module there is.
#include "language/module_export.h"

#include "python/byte_code_writes.h"
#include "python/host_entry.h"
#include "python/python_once.h"
#include "python/python_ref.h"
#include "from_python/from_python.h"
#include "proxies/python_module.h"
#include "language/evaluation.h"

#include <algorithm>
#include <cstring>

namespace tesk::cpython {

namespace {

constexpr char const* top_level_listing = "import pkgutil\nreturn list(pkgutil.iter_modules())";
constexpr char const* submodule_listing = "import pkgutil\npath = getattr( pp, '__path__', None )\nif path:\n"
                                          "    return list( pkgutil.iter_modules( path ) )\nreturn list()";

// The "name" of each entry of a listing (a sequence of pkgutil.ModuleInfo),
// in order; empty when the listing failed.
std::vector<String> listed_names(Any const& listing) {
    std::vector<String> names;
    Any resolved = internal::result_unwrap_lazy(listing);
    if (!I_Sequence_Generic::test(resolved)) return names;
    I_Sequence_Generic entries = I_Sequence_Generic::unsafe(resolved);
    Any length = internal::result_unwrap_lazy(entries.length());
    if (!Integer::test(length)) return names;
    for (std::int64_t i = 0; i < Integer::unsafe(length).value(); ++i) {
        Any name = internal::result_unwrap_lazy(entries.at(i).propertyValue(String("name")));
        names.push_back(String::test(name) ? String::unsafe(name) : String());
    }
    return names;
}

void export_submodules(PyObject* package, String const& pythonName, String const& hostName) {
    // Only a package has submodules: the listing of any other module is
    // empty, and not running it spares an evaluation per module.
    if (PyObject_HasAttrString(package, "__path__") != 1) return;
    Any proxy = from_python(package);
    Any listing = evaluate_statements_in_scope(String(submodule_listing), EvaluationScope(String("pp"), proxy));
    for (String const& name : listed_names(listing)) {
        if (name.isEmpty() || name.startsWith("_")) continue;
        (void)export_python_module(pythonName + String(".") + name, hostName + String(".") + name, true);
    }
}

bool left_out(String const& name) {
    if (name.isEmpty() || name.startsWith("_")) return true;
    auto const& names = modules_left_out();
    return std::any_of(names.begin(), names.end(), [&](char const* other) { return name == other; });
}

void import_every_module(import_progress const& progress) {
    gil_guard gil;
    if (!find_module(String("python"))) return;
    // A module imported for the first time would leave a file in its __pycache__.
    byte_code_writes_off unwritten;
    std::vector<String> names = listed_names(evaluate_statements(String(top_level_listing)));
    std::erase_if(names, left_out);
    std::int64_t const total = static_cast<std::int64_t>(names.size());
    for (std::int64_t done = 0; done < total; ++done) {
        String const& name = names[static_cast<std::size_t>(done)];
        if (progress) progress(done, total, name);
        (void)export_python_module(name, String("python.") + name, true);
    }
    if (progress) progress(total, total, String());
    PyErr_Clear();
}

} // namespace

std::vector<char const*> const& modules_left_out() {
    static std::vector<char const*> const names = {
        // Python's own list: the process-wide modules and the two jokes that
        // print a poem and open a web browser.
        "builtins", "this", "antigravity", "sys",
        // Windows and turtles: importing them may open a display connection.
        "tkinter", "turtle", "turtledemo", "idlelib",
        // CPython's own test suite: thousands of modules, some of which start
        // servers or change process-wide settings when imported.
        "test",
    };
    return names;
}

Any export_python_module(String const& pythonName, String const& hostName, bool withSubmodules) {
    gil_guard gil;
    PyObjectPtr imported = PyObjectPtr::steal(PyImport_ImportModule(pythonName.c_str()));
    if (!imported) {
        PyErr_Clear();
        return Any();
    }
    Module module = python_module(hostName, imported.get());
    auto registered = register_module(module);
    if (withSubmodules) export_submodules(imported.get(), pythonName, hostName);
    PyErr_Clear();
    return registered.is<Module>() ? Any(registered.as<Module>()) : Any();
}

Result<None> import_all_modules(import_progress const& progress) {
    return host_entry([&]() -> Any {
        static python_once once;
        gil_guard gil;
        once.run([&] { import_every_module(progress); });
        return Any();
    });
}

void export_language_modules() {
    static constexpr std::pair<char const*, char const*> language_modules[] = {
        {"builtins", "python.builtins"}, {"collections", "python.collections"},
        {"collections.abc", "python.collections.abc"}, {"datetime", "python.datetime"},
        {"decimal", "python.decimal"}, {"sys", "python.sys"}, {"types", "python.types"}, {"typing", "python.typing"},
    };
    bool collections = false;
    for (auto const& [pythonName, hostName] : language_modules) {
        // collections.abc is tried only under a collections that was made.
        if (std::strcmp(pythonName, "collections.abc") == 0 && !collections) continue;
        bool const made = export_python_module(String(pythonName), String(hostName), false).hasValue();
        if (std::strcmp(pythonName, "collections") == 0) collections = made;
    }
}

} // namespace tesk::cpython
