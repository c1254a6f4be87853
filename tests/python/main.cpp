// The extension test program: the host's start-up, then the tests.
#include "extension/exports.h"
#include "python/python_ref.h"

#include <gtest/gtest.h>
#include <tesk/tesk.h>

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    // What a host does after loading the extension: the entry points, then
    // the init handlers that the extension queued while it was loaded.
    brimora_extension_init();
    brimora_extension_bind_api(nullptr);
    tesk::run_init_handlers();
    int result = RUN_ALL_TESTS();
    // Nothing finalises the interpreter, and Python frees reference cycles
    // only when its collector runs: collect once, so that the leak check of a
    // sanitized build sees only what is really lost (a class defined by a test
    // keeps its globals, and the host values wrapped in them, in a cycle).
    if (Py_IsInitialized()) {
        tesk::cpython::gil_guard gil;
        PyGC_Collect();
    }
    return result;
}
