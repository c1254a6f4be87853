// Fixture of the include-layer check: the bottom layer includes only itself.
#pragma once
#include "python/python_ref.h"
