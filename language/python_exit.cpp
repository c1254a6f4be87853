// What Python does before its process exits. The interpreter is never
// finalised (host objects may outlive it), so a host that ends its process
// asks for the part of finalisation that user code relies on.
#include "language/python_exit.h"

#include "language/evaluation.h"

namespace tesk::cpython {
namespace {

// threading._shutdown is what Py_FinalizeEx calls to wait for the
// non-daemon threads; atexit runs its handlers once, then forgets them.
constexpr char const* exit_script = R"(import atexit, sys, threading
threading._shutdown()
atexit._run_exitfuncs()
for stream in (sys.stdout, sys.stderr):
    if stream is not None:
        stream.flush()
)";

} // namespace

Result<Any> finish_python_work() {
    if (!Py_IsInitialized()) return None();
    return evaluate_statements(exit_script);
}

} // namespace tesk::cpython
