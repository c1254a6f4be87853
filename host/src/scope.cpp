// EvaluationScope: what a piece of code runs with. Immutable once made.
#include "class_internal.h"

#include "tesk/language.h"

namespace tesk {

namespace {
struct object_value_scope final : internal::object_value_instance {
    object_value_scope(Any s, Any l, Any g, Any o)
        : object_value_instance(internal::builtin_class(internal::builtin::evaluation_scope)), self(std::move(s)),
          locals(std::move(l)), globals(std::move(g)), out_locals(std::move(o)) {}
    Any self, locals, globals, out_locals;
};

object_value_scope const& scope_record(EvaluationScope const& s) {
    return static_cast<object_value_scope const&>(*s.get());
}
} // namespace

EvaluationScope::EvaluationScope(Any const& self, Union<I_Map<String, Any>, None> const& locals,
                                 Union<I_Map<String, Any>, None> const& globals,
                                 Union<I_MutableMap<String, Any>, None> const& outLocals)
    : Any(Any::adopt(new object_value_scope(self, locals, globals, outLocals))) {}

EvaluationScope::EvaluationScope(String const& name, Any const& value)
    : Any(Any::adopt(new object_value_scope(Any(), [&] {
          HashMap locals;
          locals.set(name, value);
          return locals;
      }(), Any(), Any()))) {}

bool EvaluationScope::test(Any const& v) noexcept {
    return v.kind() == Kind::Instance &&
           v.get()->class_value() == internal::builtin_class(internal::builtin::evaluation_scope);
}

Any EvaluationScope::self() const { return scope_record(*this).self; }
Union<I_Map<String, Any>, None> EvaluationScope::locals() const { return scope_record(*this).locals; }
Union<I_Map<String, Any>, None> EvaluationScope::globals() const { return scope_record(*this).globals; }
Union<I_MutableMap<String, Any>, None> EvaluationScope::outLocals() const { return scope_record(*this).out_locals; }

} // namespace tesk
