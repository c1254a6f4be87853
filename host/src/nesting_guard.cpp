// nesting_guard: a bound on how deep display, compare and hash descend.
#include "value_objects.h"

namespace tesk::internal {

namespace {
// Deep enough for any real nesting; a list that holds itself stops here
// instead of exhausting the stack.
constexpr int nesting_limit = 200;
thread_local int t_depth = 0;
} // namespace

nesting_guard::nesting_guard() noexcept { ++t_depth; }
nesting_guard::~nesting_guard() { --t_depth; }
bool nesting_guard::ok() const noexcept { return t_depth <= nesting_limit; }

} // namespace tesk::internal
