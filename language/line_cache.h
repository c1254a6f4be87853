// The evaluated code's text in Python's linecache, so that tracebacks,
// `traceback.format_exc()` and `logging.exception` show its lines.
#pragma once

#include "python/python_ref.h"

#include <string_view>
#include <vector>

namespace tesk::cpython {

// The lines of `text` as Python's tokenizer sees them: split at CRLF, CR and
// LF; a text ending in a line break has an empty last line.
std::vector<std::string_view> source_lines(std::string_view text);

// Registers (or unregisters) `text` under the file name `file` (a Python
// string). The caller holds the interpreter lock; failures are cleared,
// since only tracebacks depend on them.
void register_source(std::string_view text, PyObject* file);
void forget_source(PyObject* file);

} // namespace tesk::cpython
