// The host's controls of the language (sandbox level, limits, interruption,
// search paths, the code cache, the module export, finishing) are the
// host's alone: Python code that reaches them from a sandboxed evaluation
// is refused, at every level, so that it cannot loosen its own limits.
#pragma once

#include <tesk/tesk.h>

#include <optional>

namespace tesk::cpython {

// The refusal ("operation blocked in sandbox", a PermissionError on the
// Python side) when the calling thread runs a sandboxed evaluation; none
// otherwise.
std::optional<Error> host_control_refusal();

} // namespace tesk::cpython
