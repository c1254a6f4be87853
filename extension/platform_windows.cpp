// The operating-system layer on Windows.
#if defined(_WIN32)

#include "extension/platform.h"

#include <windows.h>

#include <cstdlib>
#include <string>

namespace tesk::cpython::platform {

namespace {
// The file of the module (DLL or program) that holds `address`.
std::string file_holding(void const* address) {
    HMODULE module = nullptr;
    DWORD const flags = GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
    if (!GetModuleHandleExA(flags, reinterpret_cast<LPCSTR>(address), &module)) return {};
    char buffer[MAX_PATH];
    DWORD size = GetModuleFileNameA(module, buffer, MAX_PATH);
    if (size == 0 || size >= MAX_PATH) return {};
    return std::string(buffer, size);
}
} // namespace

std::string own_library_file() { return file_holding(reinterpret_cast<void const*>(&own_library_file)); }
std::string python_library_file() { return file_holding(reinterpret_cast<void const*>(&Py_IsInitialized)); }

bool is_executable_file(std::string const& path) {
    DWORD attributes = GetFileAttributesA(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

add_audit_hook_function find_add_audit_hook() {
    // The stable-ABI forwarder first, then the versioned runtime (python313.dll).
    std::wstring const versioned =
        L"python" + std::to_wstring(PY_MAJOR_VERSION) + std::to_wstring(PY_MINOR_VERSION) + L".dll";
    for (std::wstring const& name : {std::wstring(L"python3.dll"), versioned}) {
        HMODULE module = GetModuleHandleW(name.c_str());
        if (module == nullptr) continue;
        if (FARPROC symbol = GetProcAddress(module, "PySys_AddAuditHook"))
            return reinterpret_cast<add_audit_hook_function>(symbol);
    }
    return nullptr;
}

} // namespace tesk::cpython::platform

#endif
