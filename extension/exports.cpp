// The functions the host calls after loading the extension.
#include "extension/exports.h"

#include "extension/sys_path.h"

BRIMORA_EXPORT void brimora_extension_init() {
    try {
        tesk::cpython::add_library_paths(tesk::cpython::extension_directory());
        tesk::cpython::add_user_home();
    } catch (...) {
        // The host expects nothing back; a path that could not be queued only
        // means Python looks in fewer places.
    }
}

BRIMORA_EXPORT void brimora_extension_bind_api(void* /*api*/) {}
