#include "app/extension_loader.h"

#include "app/platform.h"

#include <dlfcn.h>

namespace brimora {
namespace {

using init_function = void (*)();
using bind_api_function = void (*)(void*);

// The reason of the last failed loader call.
tesk::String loader_reason() {
    char const* reason = dlerror();
    return tesk::String(reason != nullptr ? reason : "unknown reason");
}

} // namespace

std::string default_extension_path() {
    std::string directory = executable_directory();
    return directory.empty() ? extension_file_name : directory + "/" + extension_file_name;
}

void LoadedExtension::Closer::operator()(void* handle) const noexcept { dlclose(handle); }

std::variant<LoadedExtension, tesk::Error> LoadedExtension::load(std::string const& path) {
    // RTLD_GLOBAL: Python's own extension modules (lib-dynload) expect the
    // interpreter's symbols, which come with this library, to be global.
    // RTLD_NODELETE: see the class comment.
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_GLOBAL | RTLD_NODELETE);
    if (handle == nullptr)
        return tesk::Error(tesk::String("Cannot load the Python extension: {}").arg(loader_reason()));
    LoadedExtension extension(handle);

    auto init = reinterpret_cast<init_function>(dlsym(handle, "brimora_extension_init"));
    auto bind_api =
        init ? reinterpret_cast<bind_api_function>(dlsym(handle, "brimora_extension_bind_api")) : nullptr;
    if (bind_api == nullptr)
        return tesk::Error(tesk::String("{} is not a Brimora extension: {}").arg(tesk::String(path), loader_reason()));

    init();
    bind_api(nullptr);
    return extension;
}

} // namespace brimora
