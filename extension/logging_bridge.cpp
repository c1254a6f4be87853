// The logging bridge. Its handler script calls host objects through wrapper
// attributes (tesk.get_logger().log(...)), which the wrapper type does not
// offer yet; until then the handler only starts the interpreter, which is
// what the hosts rely on this early init handler for.
#include "extension/logging_bridge.h"

#include "extension/startup.h"

namespace tesk::cpython {

void install_logging_bridge() { ensure_interpreter(); }

} // namespace tesk::cpython
