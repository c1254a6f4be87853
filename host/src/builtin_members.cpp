// The methods and properties of the built-in classes.
#include "builtin_classes.h"

namespace tesk::internal {

void install_builtin_members() {}

} // namespace tesk::internal
