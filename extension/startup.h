// The one-time start of the embedded interpreter.
#pragma once

namespace tesk::cpython {

// Runs the start-up once per process; later calls return at once. Threads
// that arrive while it runs wait for it.
void ensure_interpreter();

} // namespace tesk::cpython
