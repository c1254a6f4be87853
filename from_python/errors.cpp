// Python exceptions as host errors: an exception raised for a host Error
// gives that very Error back; any other becomes an Error of the host class
// that stands for its type, with Python's message.
#include "from_python/errors.h"

#include "python/python_class_slot.h"
#include "from_python/attributes.h"
#include "from_python/from_python.h"
#include "from_python/instance_test.h"
#include "to_python/host_errors.h"

#include <string>

namespace tesk::cpython {
namespace {

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

// Whether calling the class makes errors.
bool makes_errors(Class_Generic const& cls) {
    Type made = cls;
    if (auto call = I_Callable_Generic::cast(cls.record()->call_operator())) made = call.value().resultType();
    return made.conformsTo(Error::getClass());
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

Error argument_conversion_error(Any const& argument) {
    return take_python_error(Error(String("Unable to convert an argument: {}.").arg(argument)));
}

Error base_exception_error(PyObject* exception) {
    gil_guard gil;
    PyTypeObject* type = Py_TYPE(exception);
    // The class made for its type (python.builtins.SystemExit), which says
    // what stopped the code; an error of it is raised in Python as that type.
    Any madeClass = from_python(reinterpret_cast<PyObject*>(type));
    Class_Generic const errorClass =
        Class_Generic::test(madeClass) && Type(Class_Generic::unsafe(madeClass)).conformsTo(Error::getClass())
            ? Class_Generic::unsafe(madeClass)
            : host_error_class_for(reinterpret_cast<PyObject*>(type));
    std::string name = type->tp_name;
    if (auto dot = name.rfind('.'); dot != std::string::npos) name.erase(0, dot + 1);
    String const text = message_of(exception);
    Error error = Error::ofClass(errorClass, text.isEmpty() ? String(name) : String(name + ": " + text.toUtf8()));
    if (PyErr_GivenExceptionMatches(reinterpret_cast<PyObject*>(type), PyExc_SystemExit)) {
        PyObjectPtr code = PyObjectPtr::steal(PyObject_GetAttrString(exception, "code"));
        if (code) error.setValue(from_python(code.get()));
        PyErr_Clear();
    }
    return error;
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
    if (auto registered = error_class_of_exception_type(exceptionType)) return registered.value();
    gil_guard gil;
    if (PyType_Check(exceptionType)) {
        Any converted = from_python(exceptionType);
        if (auto cls = Class_Generic::cast(converted); cls && makes_errors(cls.value())) return cls.value();
    }
    return Error::getClass();
}

} // namespace tesk::cpython
