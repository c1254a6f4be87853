// brimora run: a Python script run inside the host the way python3 runs it.
#pragma once

#include "app/command_line.h"

#include <brimora/embed.h>
#include <tesk/tesk.h>

namespace brimora {

// Runs the script as the module __main__ (with __file__ set, sys.argv =
// [FILE, ARGS...] and the script's directory first on sys.path) through the
// language's statement evaluation, and gives the exit status python3 would
// give: the code of sys.exit, 0 at the end of the script, 1 after an
// uncaught exception (whose traceback the script's sys.excepthook prints on
// standard error, as python3 does), 2 when the script cannot be read.
int run_script(Python const& python, ScriptRun const& run);

} // namespace brimora
