// The extension benchmarks: the host's start-up, then the benchmarks.
#include "extension/exports.h"
#include "extension/startup.h"

#include <benchmark/benchmark.h>
#include <tesk/tesk.h>

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    // What a host does after loading the extension.
    brimora_extension_init();
    brimora_extension_bind_api(nullptr);
    tesk::run_init_handlers();
    (void)tesk::cpython::ensure_interpreter();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
