// Compiling the caller's code exactly as written.
//
// A statement block runs as the body of the function `tesk_outer` (so that
// `return` works and assigned names are local), but what Python sees of it
// is the caller's text: every position the compiler or a traceback reports
// is a position in that text, and literals keep their exact content.
//
// Two ways get there. Most blocks are compiled as the text of the function
// (the block indented by a tab under a `def` line), and the code's location
// table is moved back onto the caller's lines and columns: as fast as a
// plain compilation. Text for which indenting could change anything (string
// literals across lines, continuations, unusual line ends; see
// block_function_text) and any text that fails to compile take the exact
// path: the block is parsed as a module and its statements are moved into
// the function through the syntax tree, which costs about twice as much and
// gives Python's own error for the caller's text.
#include "language/code_compiler.h"

#include "language/block_text.h"
#include "language/code_locations.h"
#include "language/line_cache.h"
#include "python/exec_code.h"
#include "python/python_name.h"
#include "python/python_once.h"
#include "python/python_text.h"

#include <algorithm>
#include <atomic>

namespace tesk::cpython {
namespace {

// The exact path, in Python. `compile_block` returns the code or raises
// SyntaxError with the caller's positions, under the file name "<string>";
// `as_user_error` gives an expression's SyntaxError the same form.
constexpr char const* compiler_script = R"(
import ast
import re
import types

_line_end = re.compile(r'\r\n|\r|\n')

def _lines(source):
    return _line_end.split(source)

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
    for constant in code.co_consts:
        if isinstance(constant, types.CodeType) and constant.co_name == 'tesk_outer':
            return constant
    raise SystemError('the compiled block has no function')

def as_user_error(error, source, first_line_shift):
    if isinstance(error, SyntaxError):
        _as_user_error(error, source, first_line_shift)
)";

// The script's functions, made once and kept for the process (raw
// references, never released: nothing touches Python at exit).
struct compiler_functions {
    PyObject* compileBlock = nullptr;
    PyObject* asUserError = nullptr;
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
        compiler.asUserError = take("as_user_error");
    });
    return compiler;
}

bool compiler_missing(PyObject* function) {
    if (function != nullptr) return false;
    PyErr_SetString(PyExc_RuntimeError, "The code compiler could not be set up.");
    return true;
}

std::atomic<std::uint64_t> next_file_number{1};

// A byte-order mark starts the text as python3 allows it to start a file.
std::string_view without_byte_order_mark(String const& code) {
    std::string_view text = code.asChars();
    if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
    return text;
}

// The NUL-terminated text of `part`, a view into `code`.
char const* terminated(String const& code, std::string_view part) {
    return code.c_str() + (code.asChars().size() - part.size());
}

// Compiles NUL-terminated UTF-8 text as Python's compile() compiles a str
// (no coding cookie, the current language version).
PyObjectPtr compile_text(char const* text, PyObject* file, int start) {
    PyCompilerFlags flags = _PyCompilerFlags_INIT;
    flags.cf_flags = PyCF_SOURCE_IS_UTF8 | PyCF_IGNORE_COOKIE;
    return PyObjectPtr::steal(Py_CompileStringObject(text, file, start, &flags, -1));
}

python_name warnings_module{"warnings"};
python_name filters_attribute{"filters"};

// The filter ("error", any message, Warning, any module, any line), made once.
python_once error_filter_once;
PyObject* error_filter_entry = nullptr;

PyObject* error_filter() {
    error_filter_once.run([] {
        error_filter_entry = Py_BuildValue("(sOOOi)", "error", Py_None, PyExc_Warning, Py_None, 0);
        if (error_filter_entry == nullptr) PyErr_Clear();
    });
    return error_filter_entry;
}

// While a block compiles as the function's text, every warning is an error:
// a SyntaxWarning would name a line of that text. The failed compilation
// then takes the exact path, which gives the warning as usual. Python's
// warnings read the filter list of the `warnings` module at every warning,
// so an entry at its front, taken out again before the interpreter lock is
// let go, is seen by this compilation only.
class warnings_as_errors {
public:
    warnings_as_errors() {
        PyObjectPtr module = loaded_module(warnings_module);
        PyObject* attribute = module ? filters_attribute.get() : nullptr;
        if (attribute) filters_ = PyObjectPtr::steal(PyObject_GetAttr(module.get(), attribute));
        filter_ = PyObjectPtr::borrow(error_filter());
        if (!filters_ || !PyList_CheckExact(filters_.get()) || !filter_ ||
            PyList_Insert(filters_.get(), 0, filter_.get()) < 0) {
            PyErr_Clear();
            filters_ = PyObjectPtr();
        }
    }
    ~warnings_as_errors() {
        if (!filters_) return;
        Py_ssize_t const count = PyList_GET_SIZE(filters_.get());
        for (Py_ssize_t i = 0; i < count; ++i) {
            if (PyList_GET_ITEM(filters_.get(), i) != filter_.get()) continue;
            if (PySequence_DelItem(filters_.get(), i) < 0) PyErr_Clear();
            break;
        }
    }
    warnings_as_errors(warnings_as_errors const&) = delete;
    warnings_as_errors& operator=(warnings_as_errors const&) = delete;

    bool active() const { return static_cast<bool>(filters_); }

private:
    PyObjectPtr filters_;
    PyObjectPtr filter_;
};

// The quick path for a block: the function's text compiled with warnings as
// errors, `tesk_outer`'s code taken out of the module and moved back onto
// the caller's positions. Null, with no exception pending, when the block
// needs the exact path.
PyObjectPtr compile_block_text(std::string_view block, std::vector<String> const& names, PyObject* file) {
    std::optional<std::string> const text = block_function_text(block, names);
    if (!text) return {};
    PyObjectPtr module;
    {
        warnings_as_errors strict;
        if (strict.active()) module = compile_text(text->c_str(), file, Py_file_input);
    }
    // The module's first constant is the code of its one function.
    PyObject* constants = module ? reinterpret_cast<PyCodeObject*>(module.get())->co_consts : nullptr;
    PyObjectPtr code;
    if (constants && PyTuple_GET_SIZE(constants) > 0 && PyCode_Check(PyTuple_GET_ITEM(constants, 0))) {
        code = relocate_code(PyTuple_GET_ITEM(constants, 0),
                             {function_header_lines(!names.empty()), function_body_indent});
    }
    if (!code) PyErr_Clear();
    return code;
}

std::atomic<std::uint64_t> tree_compilations{0};

// The exact path for a block, through the syntax tree.
PyObjectPtr compile_block_tree(std::string_view block, std::vector<String> const& names, PyObject* file) {
    tree_compilations.fetch_add(1, std::memory_order_relaxed);
    if (compiler_missing(functions().compileBlock)) return {};
    PyObjectPtr source = python_text(block);
    PyObjectPtr nameTuple = PyObjectPtr::steal(PyTuple_New(static_cast<Py_ssize_t>(names.size())));
    if (!source || !nameTuple) return {};
    for (std::size_t i = 0; i < names.size(); ++i) {
        PyObject* name = python_text(names[i].asChars()).release();
        if (name == nullptr) return {};
        PyTuple_SET_ITEM(nameTuple.get(), static_cast<Py_ssize_t>(i), name);
    }
    PyObjectPtr code = PyObjectPtr::steal(
        PyObject_CallFunctionObjArgs(functions().compileBlock, source.get(), file, nameTuple.get(), nullptr));
    if (!code) {
        // The error is the caller's: the compiler's own frames stay out of its report.
        PyObjectPtr error = PyObjectPtr::steal(PyErr_GetRaisedException());
        if (error) (void)PyException_SetTraceback(error.get(), Py_None);
        PyErr_SetRaisedException(error.release());
    }
    return code;
}

// Gives the pending SyntaxError of an expression the caller's positions: the
// file "<string>", columns counted from before the `blanks` leading blanks
// that were not compiled, and the text of the line.
void as_user_error(std::string_view text, std::size_t blanks) {
    PyObjectPtr error = PyObjectPtr::steal(PyErr_GetRaisedException());
    PyObjectPtr source = python_text(text);
    PyObjectPtr shift = PyObjectPtr::steal(PyLong_FromSize_t(blanks));
    if (!source || !shift || compiler_missing(functions().asUserError)) return;
    PyObjectPtr done = PyObjectPtr::steal(
        PyObject_CallFunctionObjArgs(functions().asUserError, error.get(), source.get(), shift.get(), nullptr));
    if (!done) return;
    PyErr_SetRaisedException(error.release());
}

// A compiled program for `text` under a file name of its own, made by
// `compile` (the code, or null with a Python exception set); its lines are
// registered under that name as `shown` (the text the code was compiled from).
template <class Compile>
std::shared_ptr<compiled_code const> make_compiled(std::string_view text, std::string_view shown, Compile&& compile) {
    std::string file = "<tesk-code-" + std::to_string(next_file_number.fetch_add(1)) + ">";
    PyObjectPtr fileName = python_text(file);
    if (!fileName) return {};
    PyObjectPtr code = compile(fileName.get());
    if (!code) return {};
    auto made = std::make_shared<compiled_code>();
    made->code = std::move(code);
    made->lineCount = static_cast<int>(source_lines(text).size());
    register_source(shown, fileName.get());
    made->file = std::move(file);
    made->fileName = std::move(fileName);
    return made;
}

} // namespace

std::uint64_t syntax_tree_compilations() { return tree_compilations.load(std::memory_order_relaxed); }

compiled_code::~compiled_code() {
    if (!fileName) return;
    gil_guard gil;
    forget_source(fileName.get());
    code = PyObjectPtr();
    fileName = PyObjectPtr();
}

std::shared_ptr<compiled_code const> compile_block(String const& code, std::vector<String> const& outLocalNames) {
    std::string_view const text = without_byte_order_mark(code);
    return make_compiled(text, text, [&](PyObject* file) {
        if (PyObjectPtr quick = compile_block_text(text, outLocalNames, file)) return quick;
        return compile_block_tree(text, outLocalNames, file);
    });
}

std::shared_ptr<compiled_code const> compile_expression(String const& code) {
    std::string_view const text = without_byte_order_mark(code);
    // Leading blanks are not compiled, as Python's eval ignores them.
    std::size_t const blanks = std::min(text.find_first_not_of(" \t"), text.size());
    std::string_view const shown = text.substr(blanks);
    return make_compiled(text, shown, [&](PyObject* file) {
        if (shown.find('\0') != std::string_view::npos) {
            PyErr_SetString(PyExc_SyntaxError, "source code string cannot contain null bytes");
            return PyObjectPtr();
        }
        PyObjectPtr compiled = compile_text(terminated(code, shown), file, Py_eval_input);
        if (!compiled) as_user_error(text, blanks);
        return compiled;
    });
}

} // namespace tesk::cpython
