// The signature and result type of a CPythonFunction, worked out from the
// Python side once and kept in the instance.
#pragma once

#include "proxies/function.h"

namespace tesk::cpython {

// Where the two are kept: fields of the class, empty until first asked for.
// Never cleared, so a later change of the defaults does not reach a
// signature made before it.
extern meta_field_untyped const signature_field;   // "_sign"
extern meta_field_untyped const result_type_field; // "_result_type"

// inspect.signature of the function: its parameters (typed by their
// annotations), the result type and the defaults.
Result<Signature> function_signature(CPythonFunction const& function);
// The type of the return annotation (through typing.get_type_hints, so that
// string annotations are evaluated), Untyped when there is none.
Type function_result_type(CPythonFunction const& function);

} // namespace tesk::cpython
