// Errors across the boundary. A Python exception becomes a host Error of the
// matching host class (with the source position after an evaluation); a host
// Error is raised in Python as an exception of a type made for its class,
// carrying the Error itself so that the very same object comes back.
#include "from_python/errors.h"

#include "python/python_class_slot.h"
#include "from_python/attributes.h"
#include "from_python/from_python.h"
#include "from_python/instance_test.h"
#include "to_python/wrapper.h"

#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

namespace tesk::cpython {
namespace {

// The pairs of host error classes and generated Python exception types. Only
// grows; the types are owned by it and live for the process. The lock is taken
// with or without the interpreter lock (never the other way round), and no
// Python code runs while it is held.
struct exception_type_registry {
    spinlock lock;
    std::unordered_map<internal::object_value_class const*, PyObject*> types;
    std::unordered_map<PyObject*, Class_Generic> classes;
};

exception_type_registry& registry() {
    // Never destroyed: the Python types it holds must not be released at exit.
    static auto* const instance = new exception_type_registry;
    return *instance;
}

// The text of a Python str; lone surrogates are escaped rather than lost.
String text_of(PyObject* str) {
    PyObjectPtr bytes = PyObjectPtr::steal(PyUnicode_AsEncodedString(str, "utf-8", "backslashreplace"));
    if (!bytes) {
        PyErr_Clear();
        return String();
    }
    return String::fromUtf8(PyBytes_AS_STRING(bytes.get()), static_cast<std::size_t>(PyBytes_GET_SIZE(bytes.get())));
}

// traceback.format_exception, looked up on first need and kept.
python_class_slot format_exception_function{"traceback", "format_exception"};

// Python's full report of a syntax error: the file and line, the source line,
// the caret line and the closing line; empty when it cannot be made.
String formatted_report(PyObject* exception) {
    PyObject* format = format_exception_function.get();
    if (format == nullptr) return String();
    PyObjectPtr lines = PyObjectPtr::steal(PyObject_CallFunctionObjArgs(format, exception, nullptr));
    PyObjectPtr empty = PyObjectPtr::steal(PyUnicode_FromString(""));
    PyObjectPtr joined = lines && empty && PyList_Check(lines.get())
                             ? PyObjectPtr::steal(PyUnicode_Join(empty.get(), lines.get()))
                             : PyObjectPtr();
    if (!joined) {
        PyErr_Clear();
        return String();
    }
    return text_of(joined.get());
}

// str(exception); when str() itself fails, the exception's type name with
// Python's own marker for that case, so the error still says what it was.
String message_of(PyObject* exception) {
    PyObjectPtr str = PyObjectPtr::steal(PyObject_Str(exception));
    if (str) return text_of(str.get());
    PyErr_Clear();
    return String(std::string(Py_TYPE(exception)->tp_name) + ": <exception str() failed>");
}

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

// Whether calling the class makes errors.
bool makes_errors(Class_Generic const& cls) {
    Type made = cls;
    if (auto call = I_Callable_Generic::cast(cls.record()->call_operator())) made = call.value().resultType();
    return made.conformsTo(Error::getClass());
}

Union<Integer, None> position(std::optional<std::int64_t> value) {
    if (!value || *value <= 0) return {};
    return Integer(static_cast<std::int64_t>(*value));
}

} // namespace

Union<Error, None> fetch_python_error() {
    gil_guard gil;
    if (PyErr_Occurred() == nullptr) return {};
    PyObjectPtr exception = PyObjectPtr::steal(PyErr_GetRaisedException());
    if (!exception) return {};
    Any converted = from_python(exception.get());
    if (converted.isError()) return converted.error();
    return {};
}

Error take_python_error(Error const& fallback) {
    Union<Error, None> error = fetch_python_error();
    PyErr_Clear();
    if (error.has_value()) return error.value();
    return fallback;
}

Any error_from_exception(PyObject* exception) {
    if (exception == nullptr) return Error::unknown();
    gil_guard gil;
    // An exception raised for a host error carries that error.
    if (PyObjectPtr carried = PyObjectPtr::steal(PyObject_GetAttrString(exception, "tesk"))) {
        Any carriedError = from_python(carried.get());
        if (carriedError.isError()) return carriedError;
        // A generated type raised by Python code itself carries only the
        // class-level None: it converts through its class and message.
    } else {
        PyErr_Clear();
    }
    Class_Generic const errorClass = host_error_class_for(reinterpret_cast<PyObject*>(Py_TYPE(exception)));
    String message;
    if (is_instance(exception, PyExc_SyntaxError)) message = formatted_report(exception);
    if (message.isEmpty()) message = message_of(exception);
    return Error::ofClass(errorClass, message);
}

Class_Generic host_error_class_for(PyObject* exceptionType) {
    if (exceptionType == nullptr) return Error::getClass();
    if (exceptionType == PyExc_StopIteration) return StopIteration::getClass();
    exception_type_registry& r = registry();
    {
        std::lock_guard<spinlock> guard(r.lock);
        if (auto found = r.classes.find(exceptionType); found != r.classes.end()) return found->second;
    }
    gil_guard gil;
    if (PyType_Check(exceptionType)) {
        Any converted = from_python(exceptionType);
        if (auto cls = Class_Generic::cast(converted); cls && makes_errors(cls.value())) return cls.value();
    }
    return Error::getClass();
}

Error evaluation_error_from_python(int lineCorrection, int columnCorrection, int lastLine, char const* codeFile) {
    gil_guard gil;
    if (PyErr_Occurred() == nullptr) return Error::unknown();
    PyObjectPtr exception = PyObjectPtr::steal(PyErr_GetRaisedException());
    if (!exception) return Error::unknown();
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

void raise_host_error(Error const& error) {
    gil_guard gil;
    std::string const message = error.message().toUtf8();
    Class_Generic const errorClass = raw_class_of(error);
    // A plain error without a cause has nothing that a new Error with the
    // same message would lose.
    if (errorClass.isSame(Error::getClass()) && error.cause().isNone()) {
        PyErr_SetString(PyExc_RuntimeError, message.c_str());
        return;
    }
    PyObject* type = python_exception_type_for(errorClass);
    if (type == nullptr) {
        PyErr_SetString(PyExc_RuntimeError, message.c_str());
        return;
    }
    PyObjectPtr noArguments = PyObjectPtr::steal(PyTuple_New(0));
    PyObjectPtr instance = noArguments ? PyObjectPtr::steal(PyObject_Call(type, noArguments.get(), nullptr))
                                       : PyObjectPtr();
    PyObjectPtr carried = instance ? PyObjectPtr::steal(new_wrapper(error)) : PyObjectPtr();
    if (!carried || PyObject_SetAttrString(instance.get(), "tesk", carried.get()) < 0) {
        // Without the carried error, the message is what is left to pass on.
        PyErr_Clear();
        PyErr_SetString(type, message.c_str());
        return;
    }
    PyErr_SetObject(type, instance.get());
}

PyObject* python_exception_type_for(Class_Generic const& errorClass) {
    if (errorClass.isSame(StopIteration::getClass())) return PyExc_StopIteration;
    if (errorClass.isSame(Error::getClass())) return PyExc_RuntimeError;
    exception_type_registry& r = registry();
    {
        std::lock_guard<spinlock> guard(r.lock);
        if (auto found = r.types.find(errorClass.record()); found != r.types.end()) return found->second;
    }
    // Python requires a dotted name (module.class).
    std::string name = errorClass.qualname().toUtf8();
    if (name.find('.') == std::string::npos) name = "tesk." + name;
    gil_guard gil;
    PyObjectPtr dict = PyObjectPtr::steal(Py_BuildValue("{s:O}", "tesk", Py_None));
    PyObjectPtr made = dict ? PyObjectPtr::steal(PyErr_NewException(name.c_str(), PyExc_RuntimeError, dict.get()))
                            : PyObjectPtr();
    if (!made) {
        // Nothing is registered, so the next error of this class tries again.
        PyErr_Clear();
        return PyExc_RuntimeError;
    }
    // The type was made outside the registry lock (making it runs Python's
    // type machinery); a thread that registered one meanwhile wins, so each
    // host class still has exactly one Python type.
    PyObject* winner = nullptr;
    {
        std::lock_guard<spinlock> guard(r.lock);
        auto [entry, inserted] = r.types.emplace(errorClass.record(), made.get());
        if (inserted) {
            r.classes.emplace(made.get(), errorClass);
            return made.release();
        }
        winner = entry->second;
    }
    return winner; // `made` is dropped here, after the lock (it takes the interpreter lock)
}

} // namespace tesk::cpython
