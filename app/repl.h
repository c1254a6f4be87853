// brimora repl: the interactive Python prompt inside the host.
#pragma once

#include "app/command_line.h"

#include <brimora/embed.h>

namespace brimora {

// Reads entries and runs them until Ctrl-D (or the end of input), as
// python3's prompt does: line editing and history on a terminal, blocks of
// several lines, the value of an expression printed with sys.displayhook,
// an exception's traceback printed and the session going on. Each entry
// runs in its own evaluation, in the sandbox and under the time limit that
// the options give; reading runs outside them. Ctrl-C raises
// KeyboardInterrupt, as in python3: it cancels the line being edited or the
// running entry. Gives the exit status: 0, or the code of sys.exit.
int run_repl(Python const& python, ReplRun const& options);

} // namespace brimora
