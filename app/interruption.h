// Ctrl-C ends the running code, not the process.
#pragma once

#include <functional>

namespace brimora {

// Holds SIGINT back from this thread and from every thread started after
// it (Python's included), so that only the watcher of on_interrupt sees it.
// Call first, before any other thread exists.
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
