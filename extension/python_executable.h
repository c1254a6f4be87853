// The Python program that child Pythons run.
#pragma once

#include <string>

namespace tesk::cpython {

// The program that `sys.executable` names inside the host, so that code that
// starts "this Python" again (subprocess with sys.executable, multiprocessing,
// venv) runs the same version with the same standard library:
// - the environment variable BRIMORA_PYTHON_EXECUTABLE, when set (the host's
//   own choice, for an installation laid out differently);
// - else the python3.X program of the installation whose runtime library this
//   process has loaded: <prefix>/bin/python3.X for a library in <prefix>/lib
//   or in a folder below it;
// - else empty: no matching program exists, and code that needs one fails
//   clearly instead of starting another Python version.
std::string python_executable();

// Sets sys.executable and sys._base_executable to python_executable(). The
// caller holds the interpreter lock; runs once, before any other code.
void publish_python_executable();

} // namespace tesk::cpython
