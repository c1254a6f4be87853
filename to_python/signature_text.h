// The text of a host callable's signature, as Python introspection shows it.
#pragma once

#include <tesk/tesk.h>

#include <string>

namespace tesk::cpython {

// "(a: Integer, b: String = 'x') -> Float"; empty when the callable has no
// signature.
std::string signature_text(I_Callable_Generic const& callable);

} // namespace tesk::cpython
