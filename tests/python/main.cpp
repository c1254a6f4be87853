// The extension test program: the host's start-up, then the tests.
#include "extension/exports.h"

#include <gtest/gtest.h>
#include <tesk/tesk.h>

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    // What a host does after loading the extension: the entry points, then
    // the init handlers that the extension queued while it was loaded.
    brimora_extension_init();
    brimora_extension_bind_api(nullptr);
    tesk::run_init_handlers();
    return RUN_ALL_TESTS();
}
