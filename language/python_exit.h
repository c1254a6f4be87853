// What Python does before its process exits, for hosts that end theirs.
#pragma once

#include <tesk/tesk.h>

namespace tesk::cpython {

// Waits for the non-daemon Python threads, runs the atexit handlers and
// flushes sys.stdout and sys.stderr, as python3 does at exit; an Error when
// one of them fails (a flush to a full disk). The interpreter stays usable.
Result<Any> finish_python_work();

} // namespace tesk::cpython
