// Python modules exported as host modules.
#pragma once

#include <tesk/tesk.h>

#include <functional>

namespace tesk::cpython {

// Imports the Python module `pythonName` and registers it as the host module
// `hostName` (a CPythonModule), and with `withSubmodules` every submodule of
// a package too, depth first, as `hostName.sub`. A host name registered
// already keeps its module. None when the Python module cannot be imported;
// no Python error is left pending. The caller holds the interpreter lock.
Any export_python_module(String const& pythonName, String const& hostName, bool withSubmodules);

// Told of each top-level module as its export begins: how many are done,
// how many there are, and the module's name.
using import_progress = std::function<void(std::int64_t done, std::int64_t total, String const& name)>;

// Exports every importable top-level module (and its submodules) as
// "python." followed by its name, once per process; later calls return at
// once. Modules that would print, open a window or a browser, start servers
// or take the interpreter's process-wide settings are left out by name.
Result<None> import_all_modules(import_progress const& progress = {});

// The names import_all_modules leaves out (besides names starting with "_").
std::vector<char const*> const& modules_left_out();

// The language modules under the host module "python" (python.builtins,
// python.collections, python.collections.abc, python.datetime,
// python.decimal, python.sys, python.types, python.typing).
void export_language_modules();

} // namespace tesk::cpython
