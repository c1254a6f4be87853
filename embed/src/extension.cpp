#include "brimora/extension.h"

#include <dlfcn.h>

#include <filesystem>

namespace brimora {
namespace {

using init_function = void (*)();
using bind_api_function = void (*)(void*);

// The reason of the last failed loader call.
tesk::String loader_reason() {
    char const* reason = dlerror();
    return tesk::String(reason != nullptr ? reason : "unknown reason");
}

// The directory of the file that holds this very function.
std::filesystem::path this_library_directory() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&this_library_directory), &info) == 0 || info.dli_fname == nullptr) return {};
    std::error_code ec;
    auto path = std::filesystem::canonical(info.dli_fname, ec);
    return ec ? std::filesystem::path() : path.parent_path();
}

} // namespace

std::string default_extension_path() {
    std::filesystem::path directory = this_library_directory();
    return directory.empty() ? extension_file_name : (directory / extension_file_name).string();
}

tesk::Union<tesk::None, tesk::Error> load_extension(std::string const& path) {
    // RTLD_GLOBAL: Python's own extension modules (lib-dynload) expect the
    // interpreter's symbols, which come with this library, to be global.
    // RTLD_NODELETE: the library outlives its handle (see the header).
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_GLOBAL | RTLD_NODELETE);
    if (handle == nullptr)
        return tesk::Error(tesk::String("Cannot load the Python extension: {}").arg(loader_reason()));

    auto init = reinterpret_cast<init_function>(dlsym(handle, "brimora_extension_init"));
    auto bind_api =
        init ? reinterpret_cast<bind_api_function>(dlsym(handle, "brimora_extension_bind_api")) : nullptr;
    if (bind_api == nullptr) {
        tesk::Error notExtension(
            tesk::String("{} is not a Brimora extension: {}").arg(tesk::String(path), loader_reason()));
        dlclose(handle);
        return notExtension;
    }
    init();
    bind_api(nullptr);
    // Closing only drops the reference count: RTLD_NODELETE keeps the code.
    dlclose(handle);
    return tesk::None();
}

} // namespace brimora
