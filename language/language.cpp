// CPythonLanguage and the host modules tesk.cpython and python.
#include "language/language.h"

#include "python/host_entry.h"
#include "language/code_cache.h"
#include "language/evaluation.h"
#include "language/evaluation_control.h"
#include "language/host_control_refusal.h"
#include "language/module_export.h"
#include "language/module_lookup.h"
#include "language/python_exit.h"
#include "language/registration.h"
#include "language/signal_handling.h"
#include "python/sandbox_guard.h"
#include "python/interpreter_start.h"

#include <optional>

namespace tesk::cpython {
namespace {

String sandbox_level_name(sandbox_level level) {
    return level == sandbox_level::strict ? String("strict") : String("standard");
}

Result<String> set_sandbox_level_member(String const& level) {
    if (auto refused = host_control_refusal()) return *refused;
    sandbox_level chosen;
    if (level == "standard") chosen = sandbox_level::standard;
    else if (level == "strict") chosen = sandbox_level::strict;
    else return Error(String("Unknown sandbox level: {}. Expected 'standard' or 'strict'.").arg(level));
    return sandbox_level_name(configured_sandbox_level.exchange(chosen));
}

// The stop controls and the code cache as module functions: the host reaches
// them through its own dispatch, like the evaluations.
// Each refuses a call from sandboxed code (language/host_control_refusal.h).
Result<Boolean> interrupt_member(std::int64_t thread) {
    if (auto refused = host_control_refusal()) return *refused;
    return Boolean(interrupt_evaluation(thread));
}
std::int64_t evaluation_thread_member() { return evaluation_thread_id(); }
Result<None> set_time_limit_member(double seconds) {
    if (auto refused = host_control_refusal()) return *refused;
    set_evaluation_time_limit(seconds);
    return None();
}
// Signal handlers belong to the process: sandboxed code may not install them.
Result<None> handle_signals_member() {
    if (auto refused = host_control_refusal()) return *refused;
    return handle_signals();
}
Result<Any> set_code_cache_size_member(std::int64_t entries) {
    if (auto refused = host_control_refusal()) return *refused;
    if (entries < 0) return Error(String("A code cache size cannot be negative: {}.").arg(entries));
    set_code_cache_capacity(static_cast<std::size_t>(entries));
    return None();
}

Result<None> import_all_modules_member() {
    if (auto refused = host_control_refusal()) return *refused;
    return import_all_modules();
}
Result<Any> finish_member() {
    if (auto refused = host_control_refusal()) return *refused;
    return finish_python_work();
}

// importAllModules with a host callable told (done, total, name) as each
// top-level module's export begins.
Result<None> import_all_modules_reporting(Any const& progress) {
    if (auto refused = host_control_refusal()) return *refused;
    if (!progress.hasValue()) return import_all_modules();
    if (!I_Callable_Generic::test(progress))
        return Error(String("The progress of import_all_modules must be callable: {}.").arg(progress));
    I_Callable_Generic report = I_Callable_Generic::unsafe(progress);
    return import_all_modules([report](std::int64_t done, std::int64_t total, String const& name) {
        (void)report({Integer(done), Integer(total), name});
    });
}

// The members of tesk.cpython, described while the library loads.
struct cpython_module_members {
    module_function evaluate{cpython_module_name, "evaluate", make_closure(&evaluate_block), "code, scope",
                             "Evaluates Python code.", {Any()}};
    module_function evaluate_expr{cpython_module_name, "evaluate_expr", make_closure(&evaluate_expression),
                                  "code, scope", "Evaluates Python expression.", {Any()}};
    module_function set_sandbox_level{cpython_module_name, "cpython_set_sandbox_level",
                                      make_closure(&set_sandbox_level_member), "level",
                                      "Sets how much sandboxed evaluations refuse: 'standard' or 'strict' "
                                      "(also threads, tracing, frames, code objects, writable mappings, ctypes, changes "
                                      "through the host's descriptors, ending, signalling or reconfiguring the process, "
                                      "deferred code, and modules with unaudited routes; what a strict evaluation "
                                      "changes in the process-wide Python state is undone when it ends). Returns the "
                                      "previous level."};
    module_function interrupt{cpython_module_name, "interrupt", make_closure(&interrupt_member), "thread",
                              "Ends the evaluation that the host thread runs; false when it runs none."};
    module_function evaluation_thread{cpython_module_name, "evaluation_thread",
                                      make_closure(&evaluation_thread_member), "",
                                      "The number of the calling host thread, for interrupt."};
    module_function set_time_limit{cpython_module_name, "set_time_limit", make_closure(&set_time_limit_member),
                                   "seconds",
                                   "Limits the evaluations that the calling thread starts; 0 for no limit."};
    module_function handle_signals{cpython_module_name, "handle_signals", make_closure(&handle_signals_member), "",
                                   "Hands SIGINT to Python as python3 does (KeyboardInterrupt in the code of the main "
                                   "thread, blocking calls there cut short) and lets a stop (interrupt, time limit) "
                                   "cut a blocking call of the main thread short. Call it on the thread that started "
                                   "the interpreter; the library installs no signal handler otherwise."};
    module_function set_code_cache_size{cpython_module_name, "set_code_cache_size",
                                        make_closure(&set_code_cache_size_member), "entries",
                                        "How many distinct compiled codes are kept; 0 for none."};
    module_function finish{cpython_module_name, "finish", make_closure(&finish_member), "",
                           "Waits for non-daemon Python threads, runs the atexit handlers and flushes the "
                           "standard streams, as Python does before it exits."};
    module_function import_all{cpython_module_name, "import_all_modules", make_closure(&import_all_modules_reporting),
                               "progress",
                               "Exports every importable Python module as a host module under 'python' (once per "
                               "process); progress, when given, is called with (done, total, name) as each "
                               "top-level module's export begins.",
                               {Any()}};
    module_property doc{cpython_module_name, meta_property_untyped("$$doc"), String("Interface to Python language.")};
};

cpython_module_members const& members() {
    static cpython_module_members const described;
    return described;
}

// A static member of the language class.
I_Callable_Generic static_method(String const& name, I_Callable_Generic const& function, String const& parameterNames,
                                 std::vector<Any> defaults = {}, String const& doc = String()) {
    return method_builder_base(name)
        .assign_func(function)
        .signature(parameterNames)
        .assign_doc(doc)
        .assign_defaults(std::move(defaults))
        .set_static(true)
        .build();
}

// What every evaluation member does with its scope.
struct scope_parts {
    Any self;
    Union<I_Map<String, Any>, None> locals;
    Union<I_Map<String, Any>, None> globals;
    Union<I_MutableMap<String, Any>, None> outLocals;
};

scope_parts parts_of(Union<EvaluationScope, None> const& scope) {
    if (!scope.has_value()) return {};
    EvaluationScope s = scope.value();
    return {s.self(), s.locals(), s.globals(), s.outLocals()};
}

Any run_block(String const& code, Union<EvaluationScope, None> const& scope) {
    scope_parts p = parts_of(scope);
    return language_python_evaluate_method(p.self, code, p.locals, p.globals, p.outLocals);
}

Any run_expression(String const& code, Union<EvaluationScope, None> const& scope) {
    scope_parts p = parts_of(scope);
    return language_python_evaluate_expression(code, p.locals, p.globals);
}

Any instance_member() { return language_instance(); }
Result<Any> resolve_member(String const& name) { return resolve_python_name(name); }
Result<String> to_code_member(Any const& value) { return python_value_to_code(value); }

void fill_language_class(class_builder_base& builder) {
    Class_Generic const python_language = PythonLanguage::getClass();
    String const example = "tesk.cpython.CPythonLanguage.evaluateExpression('[1, 2, 3]')";
    builder.bases({python_language})
        .module(cpython_module_name)
        .doc("Implementation of 'I_Language' interface for Python language.")
        .entry(entry_tag::option, {Integer(10)})
        .entry(entry_tag::example,
               {String("CPythonLanguage::evaluateExpression(\"[1, 2, 3]\");"), language_name_cpp()})
        .entry(entry_tag::example, {String(example), language_name_js()})
        .entry(entry_tag::example, {String(example), language_name_python()});

    std::vector<Any> const no_scope = {Any()};
    builder.entry(entry_tag::interface_methods,
                  {python_language, static_method(Any::$__init__, make_closure(&instance_member), ""),
                   static_method(I_Language::$evaluate, make_closure(&evaluate_block), "code, scope", no_scope),
                   static_method(I_Language::$evaluateExpression, make_closure(&evaluate_expression), "code, scope",
                                 no_scope),
                   static_method(PythonLanguage::$evaluateInSandbox, make_closure(&evaluate_block_in_sandbox),
                                 "code, scope", no_scope),
                   static_method(PythonLanguage::$evaluateExpressionInSandbox,
                                 make_closure(&evaluate_expression_in_sandbox), "code, scope", no_scope),
                   static_method(I_Language::$resolve, make_closure(&resolve_member), "name"),
                   static_method(I_Language::$toCode, make_closure(&to_code_member), "value")});
    builder.method(static_method(keys().import_all_modules, make_closure(&import_all_modules_member), "", {},
                                 "Imports all standard python modules."));

    property_builder_base canEvaluate(I_Language::$$canEvaluate);
    canEvaluate.assign_getter_value(Boolean(true));
    property_builder_base name(I_HasName::$$name);
    name.assign_getter_value(String("CPython"));
    property_builder_base instance(I_Language::$$instance);
    instance.getter(make_closure(&instance_member));
    builder.entry(entry_tag::interface_properties, {python_language, canEvaluate.entry(), name.entry(), instance.entry()});
}

} // namespace

Class_Generic cpython_language_class() {
    static class_accessor const accessor("CPythonLanguage", &fill_language_class);
    return accessor();
}

Any language_instance() {
    static Any const instance = internal::object_value_instance::create(cpython_language_class().record());
    return instance;
}

Result<Any> evaluate_block(String code, Union<EvaluationScope, None> scope) {
    return host_entry([&] { return run_block(code, scope); });
}

Result<Any> evaluate_expression(String code, Union<EvaluationScope, None> scope) {
    return host_entry([&] { return run_expression(code, scope); });
}

// The guard is entered before the evaluation and left after it on every
// path; it holds the interpreter lock throughout, so the evaluation's own
// lock nests inside it.
Result<Any> evaluate_block_in_sandbox(String code, Union<EvaluationScope, None> scope) {
    return host_entry([&]() -> Any {
        if (Any failure = ensure_interpreter(); failure.isError()) return failure;
        sandbox_guard guard;
        return run_block(code, scope);
    });
}

Result<Any> evaluate_expression_in_sandbox(String code, Union<EvaluationScope, None> scope) {
    return host_entry([&]() -> Any {
        if (Any failure = ensure_interpreter(); failure.isError()) return failure;
        sandbox_guard guard;
        return run_expression(code, scope);
    });
}

void describe_cpython_module() { (void)members(); }
void register_evaluate() { members().evaluate.register_now(); }
void register_evaluate_expr() { members().evaluate_expr.register_now(); }
void register_cpython_set_sandbox_level() { members().set_sandbox_level.register_now(); }
void register_cpython_doc() { members().doc.register_now(); }
void register_evaluation_controls() {
    members().interrupt.register_now();
    members().evaluation_thread.register_now();
    members().set_time_limit.register_now();
    members().handle_signals.register_now();
    members().set_code_cache_size.register_now();
    members().finish.register_now();
    members().import_all.register_now();
}

void setup_python_module() {
    auto found = get_module("python");
    if (!found.is<Module>()) return;
    Module python = found.as<Module>();
    python.setDoc(
        "Python is an easy to learn, powerful programming language. It has efficient high-level data structures "
        "and a simple but effective approach to object-oriented programming. Python\u2019s elegant syntax and "
        "dynamic typing, together with its interpreted nature, make it an ideal language for scripting and rapid "
        "application development in many areas on most platforms.");
    (void)insert_property_value(python, meta_property_untyped("$$icon"), String(":/tesk/icons/py.svg"));
    export_language_modules();
}

} // namespace tesk::cpython
