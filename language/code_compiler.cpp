// Compiling the caller's code exactly as written.
//
// A statement block runs as the body of the function `tesk_outer` (so that
// `return` works and assigned names are local), but its text is never
// re-indented: the block is parsed as a module, and its statements are moved
// into the function through the syntax tree. Multi-line string literals,
// backslash continuations, CR, CRLF and LF line ends therefore mean exactly
// what they mean to python3, and every position the compiler or a traceback
// reports is a position in the caller's text. This costs more per compilation
// than wrapping the text (the tree crosses into Python objects and back),
// which the code cache pays once per distinct code.
#include "language/code_compiler.h"

#include "python/exec_code.h"
#include "python/python_once.h"

#include <atomic>

namespace tesk::cpython {
namespace {

// The syntax-tree work, in Python. `compile_block` and `compile_expression`
// return (code, line count) and register the text with linecache; they raise
// SyntaxError with the caller's positions, under the file name "<string>".
constexpr char const* compiler_script = R"(
import ast
import linecache
import re
import types

_line_end = re.compile(r'\r\n|\r|\n')

def _lines(source):
    return _line_end.split(source)

def _without_bom(source):
    return source[1:] if source.startswith('\ufeff') else source

def _register(source, filename):
    lines = [line + '\n' for line in _lines(source)]
    linecache.cache[filename] = (len(source), None, lines, filename)

def _as_user_error(error, source, first_line_shift=0):
    error.filename = '<string>'
    lines = _lines(source)
    if error.lineno is not None and 1 <= error.lineno <= len(lines):
        if error.lineno == 1 and first_line_shift:
            if error.offset is not None:
                error.offset += first_line_shift
            if error.end_offset is not None and error.end_lineno == 1:
                error.end_offset += first_line_shift
            error.text = None
        if error.text is None:
            error.text = lines[error.lineno - 1] + '\n'

def _at(node, line):
    node.lineno = node.end_lineno = line
    node.col_offset = node.end_col_offset = 0
    return node

def _is_future_import(statement):
    return isinstance(statement, ast.ImportFrom) and statement.module == '__future__'

def compile_block(source, filename, names):
    source = _without_bom(source)
    line_count = len(_lines(source))
    statements = compile(source, '<string>', 'exec', ast.PyCF_ONLY_AST, dont_inherit=True).body
    # Future imports at the top of the block apply to the whole block, as at
    # the top of a python3 file; anywhere else Python refuses them.
    future = 0
    while future < len(statements) and _is_future_import(statements[future]):
        future += 1
    body = statements[future:]
    if names:
        body.insert(0, _at(ast.Global(names=list(names)), 1))
    if not body:
        body.append(_at(ast.Pass(), 1))
    no_arguments = ast.arguments(posonlyargs=[], args=[], vararg=None, kwonlyargs=[], kw_defaults=[],
                                 kwarg=None, defaults=[])
    function = _at(ast.FunctionDef(name='tesk_outer', args=no_arguments, body=body, decorator_list=[],
                                   returns=None, type_comment=None, type_params=[]), 1)
    module = ast.Module(body=statements[:future] + [function], type_ignores=[])
    try:
        code = compile(module, filename, 'exec', dont_inherit=True)
    except SyntaxError as error:
        _as_user_error(error, source)
        raise
    _register(source, filename)
    for constant in code.co_consts:
        if isinstance(constant, types.CodeType) and constant.co_name == 'tesk_outer':
            return constant, line_count
    raise SystemError('the compiled block has no function')

def compile_expression(source, filename):
    source = _without_bom(source)
    # Leading blanks are ignored, as Python's eval ignores them.
    stripped = source.lstrip(' \t')
    try:
        code = compile(stripped, filename, 'eval', dont_inherit=True)
    except SyntaxError as error:
        _as_user_error(error, source, len(source) - len(stripped))
        raise
    _register(stripped, filename)
    return code, len(_lines(source))

def forget(filename):
    linecache.cache.pop(filename, None)
)";

// The script's functions, made once and kept for the process (raw
// references, never released: nothing touches Python at exit).
struct compiler_functions {
    PyObject* compileBlock = nullptr;
    PyObject* compileExpression = nullptr;
    PyObject* forget = nullptr;
};

python_once compiler_once;
compiler_functions compiler;

compiler_functions const& functions() {
    compiler_once.run([] {
        PyObjectPtr globals = PyObjectPtr::steal(PyDict_New());
        if (!globals || PyDict_SetItemString(globals.get(), "__builtins__", PyEval_GetBuiltins()) < 0 ||
            !exec_code(compiler_script, globals.get(), globals.get())) {
            PyErr_Clear();
            return;
        }
        auto take = [&](char const* name) {
            PyObject* function = PyDict_GetItemString(globals.get(), name);
            Py_XINCREF(function);
            return function;
        };
        compiler.compileBlock = take("compile_block");
        compiler.compileExpression = take("compile_expression");
        compiler.forget = take("forget");
    });
    return compiler;
}

std::atomic<std::uint64_t> next_file_number{1};

PyObjectPtr python_text(std::string_view text) {
    return PyObjectPtr::steal(PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), nullptr));
}

// Calls one of the script's compile functions with (code, file name, extra...)
// and unpacks its (code, line count).
template <class... Extra>
std::shared_ptr<compiled_code const> run_compiler(PyObject* function, String const& code, Extra... extra) {
    if (function == nullptr) {
        PyErr_SetString(PyExc_RuntimeError, "The code compiler could not be set up.");
        return {};
    }
    auto made = std::make_shared<compiled_code>();
    made->file = "<tesk-code-" + std::to_string(next_file_number.fetch_add(1)) + ">";
    PyObjectPtr text = python_text(code.asChars());
    PyObjectPtr file = python_text(made->file);
    if (!text || !file) return {};
    PyObjectPtr result = PyObjectPtr::steal(
        PyObject_CallFunctionObjArgs(function, text.get(), file.get(), extra..., nullptr));
    if (!result) {
        // The error is the caller's: the compiler's own frames stay out of its report.
        PyObjectPtr error = PyObjectPtr::steal(PyErr_GetRaisedException());
        if (error) (void)PyException_SetTraceback(error.get(), Py_None);
        PyErr_SetRaisedException(error.release());
        return {};
    }
    PyObject* compiled = nullptr;
    int lineCount = 0;
    if (!PyArg_ParseTuple(result.get(), "Oi", &compiled, &lineCount)) return {};
    made->code = PyObjectPtr::borrow(compiled);
    made->lineCount = lineCount;
    return made;
}

} // namespace

compiled_code::~compiled_code() {
    if (file.empty() || !code) return;
    gil_guard gil;
    if (compiler.forget == nullptr) return;
    PyObjectPtr name = python_text(file);
    PyObjectPtr done = name ? PyObjectPtr::steal(PyObject_CallOneArg(compiler.forget, name.get())) : PyObjectPtr();
    // Only linecache's memory is at stake: a failure must not stay pending.
    if (!done) PyErr_Clear();
}

std::shared_ptr<compiled_code const> compile_block(String const& code, std::vector<String> const& outLocalNames) {
    PyObjectPtr names = PyObjectPtr::steal(PyTuple_New(static_cast<Py_ssize_t>(outLocalNames.size())));
    if (!names) return {};
    for (std::size_t i = 0; i < outLocalNames.size(); ++i) {
        PyObject* name = python_text(outLocalNames[i].asChars()).release();
        if (name == nullptr) return {};
        PyTuple_SET_ITEM(names.get(), static_cast<Py_ssize_t>(i), name);
    }
    return run_compiler(functions().compileBlock, code, names.get());
}

std::shared_ptr<compiled_code const> compile_expression(String const& code) {
    return run_compiler(functions().compileExpression, code);
}

} // namespace tesk::cpython
