// The one-time start of the embedded interpreter.
#pragma once

#include <tesk/tesk.h>

namespace tesk::cpython {

// Runs the start-up once per process: none when the interpreter runs, or the
// Error that ended its start (with CPython's message); later calls give the
// same answer at once. Threads that arrive while it runs wait for it without
// holding the interpreter lock. A failed start leaves the host running, and
// every entry that needs the interpreter returns that Error.
[[nodiscard]] Any ensure_interpreter();

} // namespace tesk::cpython
