// The operating-system layer on Linux and other POSIX systems.
#if !defined(_WIN32)

#include "extension/platform.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace tesk::cpython::platform {

namespace {
// The file of the shared object (or program) that holds `address`.
std::string file_holding(void const* address) {
    Dl_info info{};
    if (dladdr(address, &info) == 0 || info.dli_fname == nullptr) return {};
    return info.dli_fname;
}
} // namespace

// Any address inside a library identifies it.
std::string own_library_file() { return file_holding(reinterpret_cast<void const*>(&own_library_file)); }
std::string python_library_file() { return file_holding(reinterpret_cast<void const*>(&Py_IsInitialized)); }

bool is_executable_file(std::string const& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && access(path.c_str(), X_OK) == 0;
}

add_audit_hook_function find_add_audit_hook() {
    // Found directly when the runtime's symbols are global, which they are
    // when the host loaded the runtime (or this library) with RTLD_GLOBAL.
    if (void* symbol = dlsym(RTLD_DEFAULT, "PySys_AddAuditHook"))
        return reinterpret_cast<add_audit_hook_function>(symbol);
    // Otherwise ask the loaded runtime itself, by the versioned names of its
    // shared library; RTLD_NOLOAD never loads a second copy.
    std::string const base = "libpython" + std::to_string(PY_MAJOR_VERSION) + "." + std::to_string(PY_MINOR_VERSION);
    for (std::string const& name : {base + ".so.1.0", base + ".so"}) {
        void* handle = dlopen(name.c_str(), RTLD_LAZY | RTLD_NOLOAD);
        if (handle == nullptr) continue;
        void* symbol = dlsym(handle, "PySys_AddAuditHook");
        // The loaded runtime stays loaded: RTLD_NOLOAD took a reference of
        // its own, which is given back here.
        dlclose(handle);
        if (symbol != nullptr) return reinterpret_cast<add_audit_hook_function>(symbol);
    }
    return nullptr;
}

} // namespace tesk::cpython::platform

#endif
