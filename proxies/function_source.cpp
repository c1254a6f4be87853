#include "proxies/function_source.h"

#include "python/interpreter_start.h"
#include "python/python_text.h"
#include "from_python/errors.h"
#include "to_python/python_dict.h"

#include <cctype>

namespace tesk::cpython {
namespace {

bool is_lambda(String const& text) { return text.startsWith("lambda "); }

// A bare body as the body of `func`, which takes its arguments as `args`.
String wrapped_body(String const& body) {
    string_builder text;
    text << "def func(*args):";
    for (String const& line : body.split('\n')) text << "\n\t" << line;
    return text.toString();
}

// The text as Python is given it.
String normalised(String const& source) {
    String const text = source.trimmed();
    if (is_lambda(text) || !defined_function_name(text).isEmpty()) return text;
    return wrapped_body(text);
}

// Runs the text: a lambda through eval (its value is the function), anything
// else through exec (the function is bound in `globals`). Null with the
// Python error pending on failure.
PyObjectPtr run(String const& text, PyObject* globals) {
    PyObject* builtins = PyEval_GetBuiltins();
    PyObjectPtr runner =
        PyObjectPtr::borrow(builtins ? PyDict_GetItemString(builtins, is_lambda(text) ? "eval" : "exec") : nullptr);
    PyObjectPtr code = python_text(text.asChars());
    if (!runner || !code) return {};
    return PyObjectPtr::steal(PyObject_CallFunctionObjArgs(runner.get(), code.get(), globals, globals, nullptr));
}

Union<CPythonFunction, Error> compile(String const& source) {
    String const text = normalised(source);
    String const name = is_lambda(text) ? String() : defined_function_name(text);
    PyObjectPtr globals = host_modules_by_name(host_module_names::modules);
    PyObjectPtr result = globals ? run(text, globals.get()) : PyObjectPtr();
    if (!result) return take_python_error(Error(String("Unable to compile the function.")));
    if (PyCallable_Check(result.get())) return function_from_object(result.get());
    PyObjectPtr key = python_text(name.asChars());
    PyObject* defined = key ? PyDict_GetItemWithError(globals.get(), key.get()) : nullptr;
    PyErr_Clear();
    if (defined && PyCallable_Check(defined)) return function_from_object(defined);
    return Error(String("Unable to find the function: {}.").arg(name));
}

} // namespace

String defined_function_name(String const& source) {
    String const text = source.trimmed();
    if (text.size() < 4 || !text.startsWith("def") || !std::isspace(static_cast<unsigned char>(text.asChars()[3])))
        return String();
    std::size_t const colon = text.find(":", 4);
    if (colon == String::npos) return String();
    String name = text.sliced(4, colon - 4).trimmed();
    if (std::size_t const parenthesis = name.find("("); parenthesis != String::npos && parenthesis > 0)
        name = name.sliced(0, parenthesis).trimmed();
    return name;
}

Union<CPythonFunction, Error> function_from_source(String const& source) {
    if (Any failure = ensure_interpreter(); failure.isError()) return failure;
    gil_guard gil;
    return compile(source);
}

} // namespace tesk::cpython
