#include "app/evaluation.h"

namespace brimora {
namespace {

const tesk::String language_module = "tesk.cpython";
const tesk::String language_class = "CPythonLanguage";

tesk::Error not_available(std::string_view reason) {
    return tesk::Error(tesk::String("Python evaluation is not available (yet): {}.").arg(tesk::String(reason)));
}

// A map of the options' values, or none when there are none.
tesk::Any map_of(std::vector<NamedValue> const& values) {
    if (values.empty()) return {};
    tesk::HashMap map;
    for (auto const& [name, value] : values) map.set(name, value);
    return map;
}

// Calls a member of the language class by name and resolves a deferred
// result. Every member of the class is static: it is looked up among the
// members the class declares (method_of on the class value would look among
// the members of classes as such) and called without a receiver.
tesk::Any call_language(tesk::Class_Generic const& language, tesk::String const& name,
                        std::initializer_list<tesk::Any> arguments) {
    auto method = language.definedMethod(name);
    if (!method)
        return tesk::Error(tesk::String("The language {} has no method {}.").arg(language.qualname(), name));
    return tesk::internal::result_unwrap_lazy(method.value()(arguments));
}

tesk::String const& evaluation_method(Invocation const& invocation) {
    bool expression = invocation.kind == CodeKind::expression;
    if (invocation.sandbox)
        return expression ? tesk::PythonLanguage::$evaluateExpressionInSandbox
                          : tesk::PythonLanguage::$evaluateInSandbox;
    return expression ? tesk::I_Language::$evaluateExpression : tesk::I_Language::$evaluate;
}

// Chooses the strict sandbox level through the language module's own
// function; an extension without it cannot honour --sandbox=strict.
tesk::Any choose_strict_sandbox() {
    auto module = tesk::find_module(language_module);
    if (module) {
        for (auto const& [name, function] : module.value().callables())
            if (name == "cpython_set_sandbox_level")
                return tesk::internal::result_unwrap_lazy(function({tesk::String("strict")}));
    }
    return tesk::Error("The extension offers no strict sandbox level.");
}

} // namespace

tesk::Union<tesk::Class_Generic, tesk::Error> find_python_language() {
    auto module = tesk::find_module(language_module);
    if (!module) return not_available("the extension registered no module tesk.cpython");
    for (auto const& [name, cls] : module.value().classes())
        if (name == language_class) return cls;
    return not_available("the module tesk.cpython has no class CPythonLanguage");
}

tesk::EvaluationScope make_scope(Invocation const& invocation) {
    return tesk::EvaluationScope(tesk::Any(), map_of(invocation.locals), map_of(invocation.globals),
                                 map_of(invocation.outLocals));
}

tesk::Any evaluate(tesk::Class_Generic const& language, Invocation const& invocation, tesk::String const& code,
                   tesk::EvaluationScope const& scope) {
    if (invocation.strictSandbox) {
        tesk::Any chosen = choose_strict_sandbox();
        if (chosen.isError()) return chosen;
    }
    return call_language(language, evaluation_method(invocation), {code, scope});
}

tesk::Any evaluate_block(tesk::Class_Generic const& language, tesk::String const& code,
                         tesk::EvaluationScope const& scope) {
    return call_language(language, tesk::I_Language::$evaluate, {code, scope});
}

tesk::Any call_language_function(tesk::String const& name, std::initializer_list<tesk::Any> arguments) {
    auto module = tesk::find_module(language_module);
    if (!module) return not_available("the extension registered no module tesk.cpython");
    for (auto const& [member, callable] : module.value().callables())
        if (member == name) return tesk::internal::result_unwrap_lazy(callable(arguments));
    return not_available(("the module tesk.cpython has no function " + name.toUtf8()).c_str());
}

tesk::Any set_time_limit(double seconds) { return call_language_function("set_time_limit", {tesk::Float(seconds)}); }

tesk::Any evaluation_thread() { return call_language_function("evaluation_thread", {}); }

bool stop_evaluation(tesk::Any const& thread) {
    tesk::Any stopped = call_language_function("interrupt", {thread});
    return stopped.is<tesk::Boolean>() && tesk::Boolean::unsafe(stopped).value();
}

tesk::Any finish_python_work() { return call_language_function("finish", {}); }

tesk::String to_code(tesk::Class_Generic const& language, tesk::Any const& value) {
    tesk::Any code = call_language(language, tesk::I_Language::$toCode, {value});
    if (code.is<tesk::String>()) return tesk::String::unsafe(code);
    return tesk::display(value);
}

} // namespace brimora
