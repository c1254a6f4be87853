// The logging bridge. Its handler script calls host objects through wrapper
// attributes (tesk.get_logger().log(...)), which the wrapper type does not
// offer yet; until then the handler only starts the interpreter, which is
// what the hosts rely on this early init handler for.
#include "extension/logging_bridge.h"

#include "extension/startup.h"

namespace tesk::cpython {

// A failed start is not reported here: every entry that needs the
// interpreter returns it.
void install_logging_bridge() { (void)ensure_interpreter(); }

} // namespace tesk::cpython
