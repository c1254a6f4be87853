// Python's logging records to the host's logger.
#pragma once

namespace tesk::cpython {

// The init handler that sets the bridge up; normally the first to need Python.
void install_logging_bridge();

} // namespace tesk::cpython
