// Starting the interpreter, as the layers below the extension see it.
//
// The start-up itself belongs to the extension (it installs the audit hook,
// the search paths, the language modules and the importer); it registers
// itself here while the library loads, so that the evaluation and the
// sandbox guard can start the interpreter without depending on the layer
// above them.
#pragma once

#include <tesk/tesk.h>

namespace tesk::cpython {

using interpreter_start_function = Any (*)();

// Called once, while the library loads.
void set_interpreter_start(interpreter_start_function start) noexcept;

// Starts the interpreter once per process: none when it runs, or the Error
// that ended its start (with CPython's message); later calls give the same
// answer at once. Threads that arrive while it runs wait for it without
// holding the interpreter lock.
[[nodiscard]] Any ensure_interpreter();

} // namespace tesk::cpython
