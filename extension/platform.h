// What the extension needs from the operating system.
#pragma once

#include <Python.h>

#include <cstdlib>
#include <string>

namespace tesk::cpython::platform {

// The full file name of this library, or empty when it cannot be found.
std::string own_library_file();

// The full file name of the Python runtime library loaded in the process
// (found from the address of one of its functions), or empty.
std::string python_library_file();

// Whether `path` names a file that this process may execute.
bool is_executable_file(std::string const& path);

// The signature of PySys_AddAuditHook.
using add_audit_hook_function = int (*)(Py_AuditHookFunction hook, void* userData);

// PySys_AddAuditHook of the Python runtime that is already loaded in the
// process, looked up at run time (nothing is loaded); null when there is none.
add_audit_hook_function find_add_audit_hook();

// The value of an environment variable; empty when it is unset or empty.
// The C runtime's getenv serves every platform.
inline std::string environment_variable(char const* name) {
    char const* value = std::getenv(name);
    return value != nullptr ? std::string(value) : std::string();
}

} // namespace tesk::cpython::platform
