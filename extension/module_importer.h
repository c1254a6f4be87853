// `import tesk` and `import tesk.<module>` from Python code: a meta-path
// importer that builds Python modules from the host's modules.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

namespace tesk::cpython {

// Puts the importer at the front of sys.meta_path (once, by the start-up).
void install_module_importer();
// A new Python module holding the host module's callables, classes and
// properties; null with a Python exception when there is no such module.
PyObject* export_tesk_module(String const& name);

} // namespace tesk::cpython
