// Where Python looks for modules: the packages beside this library and a
// per-user Python home.
#pragma once

#include <tesk/tesk.h>

#include <filesystem>
#include <string>

namespace tesk::cpython {

// The directory of this library's file; empty when it cannot be found.
std::string extension_directory();
// Adds the ".zip" archives of `directory`/site-packages, that directory
// itself, and the ".zip" archives of `directory`/python3/lib.
void add_library_paths(std::string const& directory);
// Brimora/Python313 below the user's local application-data folder; empty
// when the environment names no such folder.
std::filesystem::path user_python_home();
// Creates the per-user home when it is missing and adds it.
void add_user_home();
// Adds `path` to sys.path unless it is there already. Before the interpreter
// runs, the path is queued and added by the start-up.
Result<None> cpython_add_sys_path(String const& path);

// The paths queued before the interpreter ran, in order (each an Any holding
// a String). Only grows.
List& pending_sys_paths();

} // namespace tesk::cpython
