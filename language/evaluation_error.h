// A failed evaluation's error, in the caller's lines and columns.
#pragma once

#include <tesk/tesk.h>

namespace tesk::cpython {

// After a failed evaluation: the pending exception as an Error, or an
// EvaluationError with corrected positions; Error::unknown() when nothing is pending.
// A corrected line past `lastLine` (when it is above 0) is reported as
// `lastLine`: Python places some errors just after the end of the code (an
// unfinished block). Runtime errors take their line from the innermost
// traceback entry of code compiled under the file name `codeFile`.
Error evaluation_error_from_python(int lineCorrection, int columnCorrection, int lastLine = 0,
                                   char const* codeFile = "<string>");

} // namespace tesk::cpython
