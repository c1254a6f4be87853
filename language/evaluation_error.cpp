// A failed evaluation's error, with the positions moved back onto the
// caller's code.
#include "language/evaluation_error.h"

#include "from_python/attributes.h"
#include "from_python/errors.h"
#include "from_python/from_python.h"
#include "from_python/instance_test.h"

#include <optional>

namespace tesk::cpython {
namespace {

// Syntax errors in evaluated code name this file.
constexpr char const* evaluated_file = "<string>";

// The line of the innermost traceback entry that runs evaluated code (code
// objects of the file `codeFile`). Frames of other files (a library function
// that raised) say nothing about where in the caller's code the error happened.
std::optional<long long> innermost_evaluated_line(PyObject* exception, char const* codeFile) {
    std::optional<long long> line;
    PyObjectPtr entry = PyObjectPtr::steal(PyException_GetTraceback(exception));
    while (entry && entry.get() != Py_None) {
        PyObjectPtr frame = PyObjectPtr::steal(PyObject_GetAttrString(entry.get(), "tb_frame"));
        PyObjectPtr code = frame ? PyObjectPtr::steal(PyObject_GetAttrString(frame.get(), "f_code")) : PyObjectPtr();
        if (code && has_text_attribute(code.get(), "co_filename", codeFile)) {
            if (auto number = integer_attribute(entry.get(), "tb_lineno")) line = number;
        }
        entry = PyObjectPtr::steal(PyObject_GetAttrString(entry.get(), "tb_next"));
    }
    PyErr_Clear();
    return line;
}

Union<Integer, None> position(std::optional<std::int64_t> value) {
    if (!value || *value <= 0) return {};
    return Integer(static_cast<std::int64_t>(*value));
}

} // namespace

Error evaluation_error_from_python(int lineCorrection, int columnCorrection, int lastLine, char const* codeFile) {
    gil_guard gil;
    if (PyErr_Occurred() == nullptr) return Error::unknown();
    PyObjectPtr exception = PyObjectPtr::steal(PyErr_GetRaisedException());
    if (!exception) return Error::unknown();
    // SystemExit and KeyboardInterrupt say why the code stopped rather than
    // where it failed: they keep their own class (and an exit code), without
    // a position.
    if (!PyObject_TypeCheck(exception.get(), reinterpret_cast<PyTypeObject*>(PyExc_Exception)))
        return base_exception_error(exception.get());
    Any converted = from_python(exception.get());
    Error const base = converted.isError() ? converted.error() : Error::unknown();

    // A syntax error in the evaluated code knows its position; the position
    // attributes of other exceptions (a JSON decoding error's lineno, a syntax
    // error of some other source) refer to other text.
    std::optional<std::int64_t> line, offset, endLine, endOffset;
    if (is_instance(exception.get(), PyExc_SyntaxError) &&
        has_text_attribute(exception.get(), "filename", evaluated_file)) {
        line = integer_attribute(exception.get(), "lineno");
        offset = integer_attribute(exception.get(), "offset");
        endLine = integer_attribute(exception.get(), "end_lineno");
        endOffset = integer_attribute(exception.get(), "end_offset");
    }
    PyErr_Clear();
    std::optional<std::int64_t> length;
    if (line && offset && endLine && endOffset && *line == *endLine && *endOffset >= *offset)
        length = *endOffset - *offset;
    if (!line) line = innermost_evaluated_line(exception.get(), codeFile);

    if (line) *line += lineCorrection;
    if (offset) *offset += columnCorrection;
    if (line && lastLine > 0 && *line > lastLine) line = lastLine;
    Union<Integer, None> const lineValue = position(line);
    Union<Integer, None> const columnValue = position(offset);
    if (!lineValue.has_value() && !columnValue.has_value()) return base;
    Union<Integer, None> const lengthValue =
        length ? Union<Integer, None>(Integer(static_cast<std::int64_t>(*length))) : Union<Integer, None>();
    EvaluationError error(base.message(), None(), lineValue, columnValue, lengthValue);
    error.setStack(base.stack());
    error.setValue(base.value());
    return error;
}

} // namespace tesk::cpython
