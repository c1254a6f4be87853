// Ctrl-C: KeyboardInterrupt in the code, as in python3, and exit status 130.
#pragma once

#include <functional>

namespace brimora {

// What brimora prints and returns after Ctrl-C ended the code.
int report_interrupted();

// For work that Python code does not run as an evaluation (the export of
// every module, which takes any exception of an import as a module that
// cannot be imported): catches SIGINT from now on, and calls `stop` on a
// thread of its own at Ctrl-C. When `stop` finds nothing to stop, or at a
// second Ctrl-C, the process ends at once with "interrupted" and exit status
// 130. A caught signal goes back to its default action in programs that the
// code starts (exec resets it). Call first.
void hold_interrupt_signal();
void on_interrupt(std::function<bool()> stop);
// Whether Ctrl-C was pressed since hold_interrupt_signal.
bool interrupt_requested();

} // namespace brimora
