// The host type that a Python annotation stands for.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

namespace tesk::cpython {

// Maps a parameter or return annotation (borrowed; may be null) to a host
// type: Untyped for none given (null, inspect's "empty" marker, typing.Any),
// the None type for None, a subscripted generic as its origin (list[int] as
// List), a union as its first member (int | None as Integer), a class by its
// name (the built-in names, the abstract collections, then the host's type
// registry) or as the host class it converts to; a string annotation by the
// name it spells. Anything else is Untyped. Never leaves a Python error
// pending. The caller holds the interpreter lock.
Type host_type_for_annotation(PyObject* annotation);

} // namespace tesk::cpython
