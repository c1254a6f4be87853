// Signals handed to Python at the host's request: the library installs no
// signal handler by itself.
#pragma once

#include <tesk/tesk.h>

namespace tesk::cpython {

// The signal that wakes a blocking call of a stopped evaluation on Python's
// main thread: the third-highest real-time signal.
int stop_wake_signal();

// What python3 does with SIGINT, and the stop's wake-up, for the rest of the
// process: SIGINT gets signal.default_int_handler (Ctrl-C raises
// KeyboardInterrupt in the code that runs on Python's main thread, and cuts
// a blocking call there short), and stop_wake_signal() a handler that raises
// a pending stop (interrupt, time limit) in a blocking call of that thread.
// Call it on the thread that started the interpreter; again: no effect.
Result<None> handle_signals();

} // namespace tesk::cpython
