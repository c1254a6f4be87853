// Fixture of the include-layer check: an include that goes up, which the
// check must report.
#include "extension/startup.h"
#include "python/python_ref.h"
