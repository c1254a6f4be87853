// Ctrl-C ends the running code, not the process.
#pragma once

#include <functional>

namespace brimora {

// Catches SIGINT from now on: the signal handler only notes it, and the
// watcher of on_interrupt acts on it. A caught signal goes back to its
// default action in programs that the code starts (exec resets it), and no
// signal is blocked, so child processes see Ctrl-C as usual. Call first.
void hold_interrupt_signal();

// From now on, Ctrl-C calls `stop` on a thread of its own. When `stop`
// finds nothing to stop, or at a second Ctrl-C, the process ends at once
// with "interrupted" and exit status 130.
void on_interrupt(std::function<bool()> stop);

// Whether Ctrl-C was pressed.
bool interrupt_requested();

// What brimora prints and returns after Ctrl-C.
int report_interrupted();

} // namespace brimora
