#include "brimora/python.h"

namespace brimora {
namespace {

const tesk::String language_module = "tesk.cpython";
const tesk::String language_class = "CPythonLanguage";

tesk::Error not_available(tesk::String const& reason) {
    return tesk::Error(tesk::String("Python evaluation is not available (yet): {}.").arg(reason));
}

tesk::String const& evaluation_method(bool expression, Sandbox sandbox) {
    if (sandbox != Sandbox::off)
        return expression ? tesk::PythonLanguage::$evaluateExpressionInSandbox
                          : tesk::PythonLanguage::$evaluateInSandbox;
    return expression ? tesk::I_Language::$evaluateExpression : tesk::I_Language::$evaluate;
}

} // namespace

Python Python::start(std::string const& extensionPath, std::function<void()> const& defineHostModules) {
    auto loaded = load_extension(extensionPath);
    if (loaded.is<tesk::Error>()) return Python(loaded);
    if (defineHostModules) defineHostModules();
    tesk::run_init_handlers();
    return find();
}

Python Python::find() {
    auto module = tesk::find_module(language_module);
    if (!module) return Python(not_available("the extension registered no module tesk.cpython"));
    for (auto const& [name, cls] : module.value().classes())
        if (name == language_class) return Python(cls);
    return Python(not_available("the module tesk.cpython has no class CPythonLanguage"));
}

tesk::Error Python::error() const { return ok() ? tesk::Error() : language_.error(); }

// Every member of the language class is static: it is looked up among the
// members the class declares (method_of on the class value would look among
// the members of classes as such) and called without a receiver.
Outcome Python::call_language(tesk::String const& method, std::initializer_list<tesk::Any> arguments) const {
    if (!ok()) return Outcome(language_);
    tesk::Class_Generic language = tesk::Class_Generic::unsafe(language_);
    auto member = language.definedMethod(method);
    if (!member)
        return Outcome(tesk::Error(tesk::String("The language {} has no method {}.").arg(language.qualname(), method)));
    return Outcome(member.value()(arguments));
}

Outcome Python::evaluate(tesk::String const& code, tesk::EvaluationScope const& scope) const {
    return call_language(evaluation_method(false, sandbox_), {code, scope});
}

Outcome Python::evaluate(tesk::String const& code) const {
    return call_language(evaluation_method(false, sandbox_), {code, tesk::Any()});
}

Outcome Python::evaluate_expression(tesk::String const& code, tesk::EvaluationScope const& scope) const {
    return call_language(evaluation_method(true, sandbox_), {code, scope});
}

Outcome Python::evaluate_expression(tesk::String const& code) const {
    return call_language(evaluation_method(true, sandbox_), {code, tesk::Any()});
}

Outcome Python::set_sandbox(Sandbox sandbox) {
    if (sandbox != Sandbox::off) {
        Outcome level = call("cpython_set_sandbox_level", {tesk::String(sandbox == Sandbox::strict ? "strict" : "standard")});
        if (!level) return level;
    }
    sandbox_ = sandbox;
    return Outcome(tesk::None());
}

Outcome Python::set_time_limit(double seconds) const { return call("set_time_limit", {tesk::Float(seconds)}); }

std::optional<std::int64_t> Python::evaluation_thread() const {
    return call("evaluation_thread", {}).get<std::int64_t>();
}

bool Python::interrupt(std::int64_t thread) const {
    return call("interrupt", {tesk::Integer(thread)}).get<bool>().value_or(false);
}

Outcome Python::handle_signals() const { return call("handle_signals", {}); }

Outcome Python::finish() const { return call("finish", {}); }

tesk::String Python::to_code(tesk::Any const& value) const {
    if (auto code = call_language(tesk::I_Language::$toCode, {value}).get<tesk::String>()) return *code;
    return tesk::display(value);
}

Outcome Python::call(tesk::String const& function, std::initializer_list<tesk::Any> arguments) const {
    if (!ok()) return Outcome(language_);
    auto module = tesk::find_module(language_module);
    if (!module) return Outcome(not_available("the extension registered no module tesk.cpython"));
    for (auto const& [name, callable] : module.value().callables())
        if (name == function) return Outcome(callable(arguments));
    return Outcome(not_available(tesk::String("the module tesk.cpython has no function {}").arg(function)));
}

} // namespace brimora
