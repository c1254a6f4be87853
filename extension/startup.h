// The one-time start of the embedded interpreter.
//
// The start-up registers itself while the library loads; every entry that
// needs the interpreter calls ensure_interpreter (python/interpreter_start.h).
// A failed start leaves the host running, and every such entry returns its
// Error.
#pragma once

#include "python/interpreter_start.h"
