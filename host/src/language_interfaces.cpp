// The language interfaces: a language is an instance of a class that has
// I_Language (or PythonLanguage, derived from it) among its ancestors.
#include "class_internal.h"

#include "tesk/language.h"

namespace tesk {
bool I_Language::test(Any const& v) noexcept {
    return internal::raw_record(v)->is_ancestor(internal::builtin_class(internal::builtin::i_language));
}

bool PythonLanguage::test(Any const& v) noexcept {
    return internal::raw_record(v)->is_ancestor(internal::builtin_class(internal::builtin::python_language));
}

} // namespace tesk
