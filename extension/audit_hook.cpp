// The audit hook. The sandbox rules (refused events, read-only files) are not
// in place yet: every operation passes. The hook is installed all the same,
// because it can only be added before the interpreter starts.
#include "extension/audit_hook.h"

namespace tesk::cpython {

int audit_hook(char const* /*event*/, PyObject* /*arguments*/, void* /*userData*/) noexcept { return 0; }

} // namespace tesk::cpython
