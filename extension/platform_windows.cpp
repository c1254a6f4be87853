// The operating-system layer on Windows.
#if defined(_WIN32)

#include "extension/platform.h"

#include <windows.h>

#include <cstdlib>
#include <string>

namespace tesk::cpython::platform {

std::string own_library_file() {
    HMODULE module = nullptr;
    DWORD const flags = GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
    if (!GetModuleHandleExA(flags, reinterpret_cast<LPCSTR>(&own_library_file), &module)) return {};
    char buffer[MAX_PATH];
    DWORD size = GetModuleFileNameA(module, buffer, MAX_PATH);
    if (size == 0 || size >= MAX_PATH) return {};
    return std::string(buffer, size);
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
