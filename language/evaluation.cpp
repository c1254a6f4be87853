// Running Python code for the host: a statement block as the body of a
// generated function, or a single expression, in fresh dictionaries filled
// from the host's modules and the caller's scope.
#include "language/evaluation.h"

#include "python/host_entry.h"
#include "to_python/python_dict.h"
#include "extension/startup.h"
#include "from_python/from_python.h"
#include "from_python/errors.h"
#include "to_python/to_python.h"

#include <memory>
#include <mutex>
#include <span>
#include <vector>

namespace tesk::cpython {
namespace {

using namespace std::string_view_literals;

// A module of this importance is internal to the host: evaluations never see it.
constexpr int hidden_importance = 10;

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

// Writes the caller's names into `dict`. A value without a Python form is
// left out (the code sees no such name); a name that is not text is refused.
Any copy_map_into(PyObject* dict, I_Map_Generic const& map) {
    std::vector<std::pair<Any, Any>> entries;
    if (Any failure = map_entries(map, entries); failure.isError()) return failure;
    for (auto const& [key, value] : entries) {
        auto name = String::cast(key);
        if (!name || !name.value().isValidUtf8())
            return Error(String("A scope name must be UTF-8 text: {}.").arg(key));
        (void)set_converted_item(dict, name.value(), value);
    }
    return None();
}

// The evaluation globals: the host modules, then the global names, then the
// out-locals, then the locals; a later name replaces an earlier one, which is
// how the caller's locals shadow its globals.
Any populate_globals(PyObject* globals, Union<I_Map<String, Any>, None> const& callerGlobals,
                     Union<I_MutableMap<String, Any>, None> const& outLocals,
                     Union<I_Map<String, Any>, None> const& locals) {
    PyObjectPtr modules = PyObjectPtr::steal(host_modules_dict());
    if (!modules || PyDict_Merge(globals, modules.get(), 0) < 0) {
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

// Calls the builtin `exec` or `eval` with the source text and the two
// dictionaries; null with the Python exception (or with nothing pending when
// the builtin is missing).
PyObjectPtr run_builtin(char const* builtin, std::string_view source, PyObject* globals, PyObject* locals) {
    PyObject* builtins = PyEval_GetBuiltins();
    PyObject* function = builtins != nullptr ? PyDict_GetItemString(builtins, builtin) : nullptr;
    if (function == nullptr) return {};
    // Sized: a NUL inside the code reaches Python, which reports it, instead
    // of silently cutting the code short.
    PyObjectPtr text = PyObjectPtr::steal(
        PyUnicode_DecodeUTF8(source.data(), static_cast<Py_ssize_t>(source.size()), nullptr));
    if (!text) return {};
    PyObjectPtr arguments = PyObjectPtr::steal(PyTuple_Pack(3, text.get(), globals, locals));
    if (!arguments) return {};
    return PyObjectPtr::steal(PyObject_CallObject(function, arguments.get()));
}

Error invalid_code() { return Error("The code is not valid UTF-8 text."); }

// Whether `name` can stand in the generated `global` and write-back lines.
bool is_python_identifier(String const& name) {
    std::string_view text = name.asChars();
    PyObjectPtr str =
        PyObjectPtr::steal(PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), nullptr));
    if (!str || PyUnicode_IsIdentifier(str.get()) != 1) {
        PyErr_Clear();
        return false;
    }
    PyObjectPtr keyword = PyObjectPtr::steal(PyImport_ImportModule("keyword"));
    PyObjectPtr isKeyword =
        keyword ? PyObjectPtr::steal(PyObject_CallMethod(keyword.get(), "iskeyword", "O", str.get())) : PyObjectPtr();
    bool reserved = isKeyword && PyObject_IsTrue(isKeyword.get()) == 1;
    PyErr_Clear();
    return !reserved;
}

// Where the store callables of one evaluation put what they receive. Shared
// with the callables, which Python code may keep beyond the evaluation
// (through frame introspection); once the evaluation has finished, the slot
// is closed and they change nothing.
struct evaluation_slot {
    spinlock lock;
    bool open = true;
    Any result;
    Union<I_MutableMap<String, Any>, None> outLocals;

    // The stored result; afterwards the callables are refused.
    Any close() {
        Any taken;
        Any map;
        {
            std::lock_guard<spinlock> guard(lock);
            open = false;
            taken.swap(result);
            map.swap(outLocals);
        }
        // `map` is dropped here, outside the lock: dropping a host object can
        // run its finaliser, which may need the interpreter lock.
        return taken;
    }
};

Error finished_evaluation(char const* callable) {
    return Error(String("{} was called after its evaluation had finished.").arg(callable));
}

Any make_store_result(std::shared_ptr<evaluation_slot> const& slot) {
    auto store = [slot](std::span<Any const> args) -> Any {
        if (args.size() != 1) return internal::arity_error(1, args.size());
        Any previous = args[0];
        {
            std::lock_guard<spinlock> guard(slot->lock);
            if (!slot->open) return finished_evaluation("tesk_store_result");
            slot->result.swap(previous);
        }
        return None();
    };
    return internal::make_function_callable(store, internal::make_signature(Type::none(), {Type::untyped()}),
                                            "tesk_store_result");
}

Any make_store_local(std::shared_ptr<evaluation_slot> const& slot) {
    auto store = [slot](std::span<Any const> args) -> Any {
        if (args.size() != 2) return internal::arity_error(2, args.size());
        auto name = String::cast(args[0]);
        if (!name) return BadArgument("String", args[0]);
        Union<I_MutableMap<String, Any>, None> map;
        {
            std::lock_guard<spinlock> guard(slot->lock);
            if (!slot->open) return finished_evaluation("tesk_store_local");
            map = slot->outLocals;
        }
        // The map's own store runs outside the slot's lock: a map that is a
        // proxy of a Python object takes the interpreter lock.
        return host_entry([&]() -> Any {
            // A refused value (one that does not fit the map's value type)
            // is reported, so that the evaluation fails instead of silently
            // keeping the old value.
            return map.value().setChecked(name.value(), args[1]);
        });
    };
    return internal::make_function_callable(
        store, internal::make_signature(Type::none(), {String::getClass(), Type::untyped()}), "tesk_store_local");
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

// The body of the generated function: every line of the code, indented by
// one tab. Only line feeds end a line, so the lines of a CRLF text keep their
// carriage return, which Python reads as part of the line ending.
void append_block(string_builder& program, std::vector<String> const& lines) {
    bool blank = true;
    for (String const& line : lines) {
        program << '\t' << line << '\n';
        if (!line.trimmed().isEmpty()) blank = false;
    }
    // A function needs a body: an empty block returns None, as Python's own
    // exec of empty code does. Added after the code, so no position moves.
    if (blank) program << "\tpass\n"sv;
}

Any evaluate_method(Any const& self, String const& code, Union<I_Map<String, Any>, None> const& locals,
                    Union<I_Map<String, Any>, None> const& globals,
                    Union<I_MutableMap<String, Any>, None> const& outLocals) {
    if (!code.isValidUtf8()) return invalid_code();
    ensure_interpreter();
    gil_guard gil;

    std::vector<String> names;
    if (Any failure = out_local_names(outLocals, names); failure.isError()) return failure;

    PyObjectPtr evalGlobals = PyObjectPtr::steal(PyDict_New());
    PyObjectPtr evalLocals = PyObjectPtr::steal(PyDict_New());
    if (!evalGlobals || !evalLocals) return evaluation_error_from_python(0, 0);
    if (Any failure = populate_globals(evalGlobals.get(), globals, outLocals, locals); failure.isError())
        return failure;

    // The generated program. Positions that Python reports are shifted back
    // into the caller's code: one line for the `def`, one per `global` line,
    // and one column for the indenting tab.
    int lineCorrection = -1;
    string_builder program;
    program << "def tesk_outer():\n"sv;
    for (String const& name : names) {
        program << "\tglobal "sv << name << '\n';
        --lineCorrection;
    }
    std::vector<String> const lines = code.split('\n');
    append_block(program, lines);
    program << "tesk_store_result( tesk_outer() )\n"sv;
    for (String const& name : names) program << "tesk_store_local('"sv << name << "',"sv << name << ")\n"sv;

    auto slot = std::make_shared<evaluation_slot>();
    slot->outLocals = outLocals;
    bool const stored = (!outLocals.has_value() ||
                         set_converted_item(evalLocals.get(), "tesk_store_local", make_store_local(slot))) &&
                        set_converted_item(evalLocals.get(), "tesk_store_result", make_store_result(slot));
    if (!stored) {
        (void)slot->close();
        return Error("Unable to pass the result callables to Python.");
    }
    // After the scope maps, so that a map entry named "self" does not win.
    (void)set_converted_item(evalGlobals.get(), "self", self);

    PyObjectPtr ran = run_builtin("exec", program.str(), evalGlobals.get(), evalLocals.get());
    Any result = slot->close();
    if (!ran) return evaluation_error_from_python(lineCorrection, -1, static_cast<int>(lines.size()));
    return result;
}

Any evaluate_expression(String const& code, Union<I_Map<String, Any>, None> const& locals,
                        Union<I_Map<String, Any>, None> const& globals) {
    if (!code.isValidUtf8()) return invalid_code();
    ensure_interpreter();
    gil_guard gil;
    PyObjectPtr evalGlobals = PyObjectPtr::steal(PyDict_New());
    PyObjectPtr evalLocals = PyObjectPtr::steal(PyDict_New());
    if (!evalGlobals || !evalLocals) return evaluation_error_from_python(0, 0);
    if (Any failure = populate_globals(evalGlobals.get(), globals, None(), locals); failure.isError()) return failure;
    PyObjectPtr value = run_builtin("eval", code.asChars(), evalGlobals.get(), evalLocals.get());
    if (!value) return evaluation_error_from_python(0, 0);
    return from_python(value.get());
}

} // namespace

PyObject* host_modules_dict() {
    gil_guard gil;
    PyObjectPtr dict = PyObjectPtr::steal(PyDict_New());
    if (!dict) return nullptr;
    for (Module const& module : modules()) {
        if (module.importance() == hidden_importance) continue;
        String const name = module.name();
        // Dotted modules are reached through their parents, not by name.
        if (!name.contains(".")) (void)set_converted_item(dict.get(), name, module);
        if (property_of(module, internal::inlined_key())) {
            for (auto const& [member, cls] : module.classes()) (void)set_converted_item(dict.get(), member, cls);
            for (auto const& [member, callable] : module.callables())
                (void)set_converted_item(dict.get(), member, callable);
        }
    }
    return dict.release();
}

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
