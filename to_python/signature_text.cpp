#include "to_python/signature_text.h"

namespace tesk::cpython {

std::string signature_text(I_Callable_Generic const& callable) {
    auto signature = callable.signature();
    if (!signature.is<Signature>()) return {};
    return signature.as<Signature>().toString(Signature::with_types | Signature::with_result).toUtf8();
}

} // namespace tesk::cpython
