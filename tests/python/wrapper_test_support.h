// The fixture of the wrapper tests: host values bound as Python names, and
// the exceptions that Python code raises, as text.
#pragma once

#include "python_test_support.h"

#include "to_python/to_python.h"

#include <string>

namespace tesk::cpython::testing {

class WrapperTest : public PythonTest {
protected:
    // Binds the Python form of a host value (a wrapper, for most).
    void bind_host(char const* name, Any const& value) {
        PyObjectPtr wrapped = to_python_ref(value);
        ASSERT_TRUE(wrapped) << take_exception_text();
        bind(name, wrapped.get());
    }
    // "Type: message" of the exception that the expression raises.
    std::string raised_by(char const* expression) {
        PyObjectPtr result = PyObjectPtr::steal(PyRun_String(expression, Py_eval_input, scope(), scope()));
        EXPECT_FALSE(result) << expression << " did not raise";
        return take_exception_text();
    }
    // Whether the expression's value equals Python's `True`; reports what it got otherwise.
    void expect_true(char const* expression) {
        PyObjectPtr result = eval(expression);
        EXPECT_EQ(result.get(), Py_True) << expression;
    }
    // The UTF-8 text of str(value of the expression).
    std::string text(char const* expression) {
        PyObjectPtr result = eval(expression);
        if (!result) return {};
        PyObjectPtr str = PyObjectPtr::steal(PyObject_Str(result.get()));
        return str ? PyUnicode_AsUTF8(str.get()) : take_exception_text();
    }
};

} // namespace tesk::cpython::testing
