// The logging bridge: a handler on Python's root logger that hands each
// record to the host's logger, tesk.get_logger().log(tesk.LogRecord(...)).
#include "extension/logging_bridge.h"

#include "extension/startup.h"
#include "language/evaluation.h"

namespace tesk::cpython {
namespace {

// Runs as a statement block: TeskLogHandler is local to the generated
// function, and `emit` finds `tesk` later in the globals of this evaluation
// (every evaluation starts with the host modules), which its function object
// keeps alive. Records below INFO are dropped by the root logger's level
// before they reach the handler.
constexpr char const* bridge_script = R"(
import logging

class TeskLogHandler(logging.Handler):
    def emit(self, record):
        msg = self.format(record)
        tesk.get_logger().log(
            tesk.LogRecord(record.levelno, msg)
        )

root = logging.getLogger()
root.setLevel(logging.INFO)
root.addHandler(TeskLogHandler())
)";

} // namespace

void install_logging_bridge() {
    // A failed start is not reported here: every entry that needs the
    // interpreter returns it.
    if (ensure_interpreter().isError()) return;
    // A failure (a Python without logging) only leaves Python's records
    // where Python puts them; the host's start-up goes on.
    (void)evaluate_statements(bridge_script);
}

} // namespace tesk::cpython
