#include "app/evaluation.h"

namespace brimora {
namespace {

// A map of the options' values, or none when there are none.
tesk::Any map_of(std::vector<NamedValue> const& values) {
    if (values.empty()) return {};
    tesk::HashMap map;
    for (auto const& [name, value] : values) map.set(name, value);
    return map;
}

} // namespace

tesk::EvaluationScope make_scope(Invocation const& invocation) {
    return tesk::EvaluationScope(tesk::Any(), map_of(invocation.locals), map_of(invocation.globals),
                                 map_of(invocation.outLocals));
}

Sandbox sandbox_of(EvaluationOptions const& options) {
    if (options.strictSandbox) return Sandbox::strict;
    return options.sandbox ? Sandbox::standard : Sandbox::off;
}

tesk::Any evaluate(Python const& python, Invocation const& invocation, tesk::String const& code,
                   tesk::EvaluationScope const& scope) {
    Outcome result = invocation.kind == CodeKind::expression ? python.evaluate_expression(code, scope)
                                                             : python.evaluate(code, scope);
    return result.value();
}

} // namespace brimora
