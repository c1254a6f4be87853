// Refusing the host's controls inside sandboxed evaluations.
#include "language/host_control_refusal.h"

#include "from_python/errors.h"
#include "python/python_ref.h"
#include "python/sandbox_state.h"

namespace tesk::cpython {

std::optional<Error> host_control_refusal() {
    if (!sandbox_active) return std::nullopt;
    // Taken from a raised PermissionError, so that the code that called the
    // control sees the sandbox's own exception again.
    gil_guard gil;
    PyErr_SetString(PyExc_PermissionError, operation_blocked_message);
    return take_python_error(Error(operation_blocked_message));
}

} // namespace tesk::cpython
