// Running Python code for the host: a statement block as the body of the
// function `tesk_outer`, or a single expression, compiled once (code_cache)
// and run in fresh globals filled from the host's modules and the caller's
// scope. Out-locals are declared `global` in the function and copied back
// from the globals after it returned.
#include "language/evaluation.h"

#include "python/host_entry.h"
#include "to_python/python_dict.h"
#include "python/interpreter_start.h"
#include "python/python_text.h"
#include "from_python/from_python.h"
#include "from_python/errors.h"
#include "language/evaluation_error.h"
#include "language/code_cache.h"
#include "language/evaluation_control.h"
#include "language/stack_budget.h"
#include "to_python/to_python.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

namespace tesk::cpython {
namespace {

using namespace std::string_view_literals;

// The entries of a host map, in its iteration order.
Any map_entries(I_Map_Generic const& map, std::vector<std::pair<Any, Any>>& entries) {
    if (auto hashMap = HashMap::cast(map)) {
        entries = hashMap.value().items();
        return None();
    }
    Any keys = map.keys();
    if (keys.isError()) return keys;
    auto list = List::cast(keys);
    if (!list) return Error(String("The keys of a scope map are not a list: {}.").arg(keys));
    for (Any const& key : list.value().copyItems()) {
        Any value = map.get(key);
        if (value.isError()) return value;
        entries.emplace_back(key, value);
    }
    return None();
}

// Writes the caller's names into `dict`. A name that is not text, or whose
// value has no Python form, fails the evaluation and is named: left out, it
// would only surface later as a NameError that hides the reason.
Any copy_map_into(PyObject* dict, I_Map_Generic const& map) {
    std::vector<std::pair<Any, Any>> entries;
    if (Any failure = map_entries(map, entries); failure.isError()) return failure;
    for (auto const& [key, value] : entries) {
        auto name = String::cast(key);
        if (!name || !name.value().isValidUtf8())
            return Error(String("A scope name must be UTF-8 text: {}.").arg(key));
        PyObjectPtr pythonName = python_text(name.value().asChars());
        PyObjectPtr converted = pythonName ? to_python_ref(value) : PyObjectPtr();
        if (!converted || PyDict_SetItem(dict, pythonName.get(), converted.get()) < 0) {
            Error reason = take_python_error(Error(String("it has no Python form")));
            return Error(String("The scope value '{}' cannot be converted to Python: {}")
                             .arg(name.value())
                             .arg(reason.message()));
        }
    }
    return None();
}

// The dict of host modules that evaluations start from, remade only when the
// modules changed (a raw reference kept for the process; guarded by the
// interpreter lock). Borrowed; null with a Python exception set.
struct host_modules_table {
    PyObject* dict = nullptr;
    std::uint64_t generation = 0;
};
host_modules_table modules_table;

PyObject* current_host_modules() {
    std::uint64_t const generation = internal::modules_generation();
    if (modules_table.dict != nullptr && modules_table.generation == generation) return modules_table.dict;
    // Making the wrappers may let the interpreter lock go; a table another
    // thread stored meanwhile is replaced, and remade later if it is older.
    PyObject* fresh = host_modules_dict();
    if (fresh == nullptr) return nullptr;
    PyObjectPtr const replaced = PyObjectPtr::steal(std::exchange(modules_table.dict, fresh));
    modules_table.generation = generation;
    return fresh;
}

// The evaluation globals: the host modules, then the global names, then the
// out-locals, then the locals; a later name replaces an earlier one, which is
// how the caller's locals shadow its globals.
Any populate_globals(PyObject* globals, Union<I_Map<String, Any>, None> const& callerGlobals,
                     Union<I_MutableMap<String, Any>, None> const& outLocals,
                     Union<I_Map<String, Any>, None> const& locals) {
    PyObject* modules = current_host_modules();
    if (modules == nullptr || PyDict_Merge(globals, modules, 0) < 0) {
        if (auto error = fetch_python_error()) return error.value();
        return Error("Unable to bind the host modules.");
    }
    I_Map_Generic const globalNames = callerGlobals.has_value() ? I_Map_Generic(callerGlobals.value())
                                                                 : I_Map_Generic(tesk::globals());
    for (Any const& map : {Any(globalNames), Any(outLocals), Any(locals)}) {
        if (!map.hasValue()) continue;
        if (Any failure = copy_map_into(globals, I_Map_Generic::unsafe(map)); failure.isError()) return failure;
    }
    return None();
}

Error invalid_code() { return Error("The code is not valid UTF-8 text."); }

// Python 3.13's reserved words (keyword.kwlist); soft keywords such as
// `match` and `type` are names like any other.
bool is_reserved_word(std::string_view name) {
    static constexpr std::string_view words[] = {
        "False", "None",   "True",    "and",      "as",       "assert", "async",  "await",    "break",
        "class", "continue", "def",   "del",      "elif",     "else",   "except", "finally",  "for",
        "from",  "global", "if",      "import",   "in",       "is",     "lambda", "nonlocal", "not",
        "or",    "pass",   "raise",   "return",   "try",      "while",  "with",   "yield"};
    return std::find(std::begin(words), std::end(words), name) != std::end(words);
}

// Whether `name` can stand in the generated `global` and write-back lines.
bool is_python_identifier(String const& name) {
    PyObjectPtr str = python_text(name.asChars());
    if (!str || PyUnicode_IsIdentifier(str.get()) != 1) {
        PyErr_Clear();
        return false;
    }
    return !is_reserved_word(name.asChars());
}

// The out-local names, in the map's order; an Error for a name that cannot
// be written as a Python variable.
Any out_local_names(Union<I_MutableMap<String, Any>, None> const& outLocals, std::vector<String>& names) {
    if (!outLocals.has_value()) return None();
    Any keys = outLocals.value().keys();
    if (keys.isError()) return keys;
    auto list = List::cast(keys);
    if (!list) return Error(String("The keys of the out-locals are not a list: {}.").arg(keys));
    for (Any const& key : list.value().copyItems()) {
        auto name = String::cast(key);
        if (!name || !is_python_identifier(name.value()))
            return Error(String("An out-local name is not a Python identifier: {}.").arg(key));
        names.push_back(name.value());
    }
    return None();
}

// The caller's code as a positioned error at its last line: for failures
// after the code has run, which belong to no line of it.
Error at_last_line(Error const& base, compiled_code const& compiled) {
    if (EvaluationError::test(base) || compiled.lineCount <= 0) return base;
    EvaluationError error(base.message(), None(), Integer(compiled.lineCount), None(), None());
    error.setStack(base.stack());
    error.setValue(base.value());
    return error;
}

Error evaluation_error(compiled_code const* compiled) {
    if (compiled == nullptr) return evaluation_error_from_python(0, 0, 0, syntax_error_file);
    return evaluation_error_from_python(0, 0, compiled->lineCount, compiled->file.c_str());
}

// Copies the final value of every out-local from the evaluation globals
// back into the caller's map, in the map's order.
Any write_back(PyObject* globals, std::vector<String> const& names, I_MutableMap<String, Any> const& outLocals,
               compiled_code const& compiled) {
    for (String const& name : names) {
        PyObjectPtr key = python_text(name.asChars());
        PyObject* value = key ? PyDict_GetItemWithError(globals, key.get()) : nullptr;
        if (value == nullptr) {
            // A name the code deleted: the error Python gives for it.
            if (key && !PyErr_Occurred()) PyErr_Format(PyExc_NameError, "name '%U' is not defined", key.get());
            return at_last_line(evaluation_error(&compiled), compiled);
        }
        Any converted = from_python(value);
        if (converted.isError()) return at_last_line(converted.error(), compiled);
        // A value the map refuses (one that does not fit its value type)
        // fails the evaluation instead of silently keeping the old value.
        Any stored = outLocals.setChecked(name, converted);
        if (stored.isError()) return at_last_line(stored.error(), compiled);
    }
    return None();
}

// Fresh evaluation globals: the builtins (as exec would add them), then the
// scope (see populate_globals).
PyObjectPtr evaluation_globals(Any& failure, Union<I_Map<String, Any>, None> const& globals,
                               Union<I_MutableMap<String, Any>, None> const& outLocals,
                               Union<I_Map<String, Any>, None> const& locals) {
    PyObjectPtr dict = PyObjectPtr::steal(PyDict_New());
    if (!dict || PyDict_SetItemString(dict.get(), "__builtins__", PyEval_GetBuiltins()) < 0) {
        failure = evaluation_error(nullptr);
        return {};
    }
    failure = populate_globals(dict.get(), globals, outLocals, locals);
    if (failure.isError()) return {};
    return dict;
}

// Runs compiled code under the evaluation's stop controls: the value, or
// the Error that ended it.
template <class Run> Any run_controlled(compiled_code const& compiled, Run&& run, PyObjectPtr& value) {
    running_evaluation running;
    value = run();
    if (auto stopped = running.stopped()) {
        value = PyObjectPtr();
        return stopped.value();
    }
    if (!value) return evaluation_error(&compiled);
    return None();
}

Any evaluate_method(Any const& self, String const& code, Union<I_Map<String, Any>, None> const& locals,
                    Union<I_Map<String, Any>, None> const& globals,
                    Union<I_MutableMap<String, Any>, None> const& outLocals) {
    if (!code.isValidUtf8()) return invalid_code();
    if (Any failure = ensure_interpreter(); failure.isError()) return failure;
    gil_guard gil;
    c_stack_budget stack;

    std::vector<String> names;
    if (Any failure = out_local_names(outLocals, names); failure.isError()) return failure;
    Any failure;
    PyObjectPtr evalGlobals = evaluation_globals(failure, globals, outLocals, locals);
    if (!evalGlobals) return failure;
    // After the scope maps, so that a map entry named "self" does not win.
    (void)set_converted_item(evalGlobals.get(), "self", self);

    std::shared_ptr<compiled_code const> compiled = cached_block(code, names);
    if (!compiled) return evaluation_error(nullptr);
    PyObjectPtr value;
    Any ran = run_controlled(*compiled, [&] {
        PyObjectPtr function = PyObjectPtr::steal(PyFunction_New(compiled->code.get(), evalGlobals.get()));
        return function ? PyObjectPtr::steal(PyObject_CallNoArgs(function.get())) : PyObjectPtr();
    }, value);
    if (ran.isError()) return ran;
    Any result = from_python(value.get());
    if (outLocals.has_value()) {
        if (Any written = write_back(evalGlobals.get(), names, outLocals.value(), *compiled); written.isError())
            return written;
    }
    return result;
}

Any evaluate_expression(String const& code, Union<I_Map<String, Any>, None> const& locals,
                        Union<I_Map<String, Any>, None> const& globals) {
    if (!code.isValidUtf8()) return invalid_code();
    if (Any failure = ensure_interpreter(); failure.isError()) return failure;
    gil_guard gil;
    c_stack_budget stack;
    Any failure;
    PyObjectPtr evalGlobals = evaluation_globals(failure, globals, None(), locals);
    if (!evalGlobals) return failure;
    PyObjectPtr evalLocals = PyObjectPtr::steal(PyDict_New());
    if (!evalLocals) return evaluation_error(nullptr);

    std::shared_ptr<compiled_code const> compiled = cached_expression(code);
    if (!compiled) return evaluation_error(nullptr);
    PyObjectPtr value;
    Any ran = run_controlled(*compiled, [&] {
        return PyObjectPtr::steal(PyEval_EvalCode(compiled->code.get(), evalGlobals.get(), evalLocals.get()));
    }, value);
    if (ran.isError()) return ran;
    return from_python(value.get());
}

} // namespace

PyObject* host_modules_dict() { return host_modules_by_name(host_module_names::modules_and_inlined).release(); }

Result<Any> language_python_evaluate_method(Any const& self, String const& code,
                                            Union<I_Map<String, Any>, None> const& locals,
                                            Union<I_Map<String, Any>, None> const& globals,
                                            Union<I_MutableMap<String, Any>, None> const& outLocals) {
    return host_entry([&] { return evaluate_method(self, code, locals, globals, outLocals); });
}

Result<Any> language_python_evaluate_expression(String const& code, Union<I_Map<String, Any>, None> const& locals,
                                                Union<I_Map<String, Any>, None> const& globals) {
    return host_entry([&] { return evaluate_expression(code, locals, globals); });
}

Result<Any> evaluate_statements(String const& code) { return language_python_evaluate_method(Any(), code, {}, {}, {}); }

Result<Any> evaluate_statements_in_scope(String const& code, EvaluationScope const& scope) {
    return language_python_evaluate_method(scope.self(), code, scope.locals(), scope.globals(), scope.outLocals());
}

} // namespace tesk::cpython
