// Helpers of the extension tests: a lock held for the whole test, Python
// snippets run through the raw C API, and leak counters.
#pragma once

#include "python/python_ref.h"
#include "extension/startup.h"

#include <gtest/gtest.h>
#include <tesk/tesk.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

namespace tesk::cpython::testing {

// Each test holds the interpreter lock from start to end, like the code that
// calls the conversions inside an evaluation.
class PythonTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_FALSE(ensure_interpreter().isError()); }
    void TearDown() override {
        // Whatever a test did, the conversions must not leave an error behind.
        EXPECT_EQ(PyErr_Occurred(), nullptr) << "a Python error was left pending";
        PyErr_Clear();
    }

    // The namespace that the snippets of a test share, with the modules they use.
    PyObject* scope() {
        if (!scope_) {
            scope_ = PyObjectPtr::steal(PyDict_New());
            PyDict_SetItemString(scope_.get(), "__builtins__", PyEval_GetBuiltins());
            run("import datetime, decimal, fractions, sys");
        }
        return scope_.get();
    }
    // The value of a Python expression (new reference); fails the test on an exception.
    PyObjectPtr eval(char const* expression) {
        PyObjectPtr result = PyObjectPtr::steal(PyRun_String(expression, Py_eval_input, scope(), scope()));
        if (!result) report(expression);
        return result;
    }
    // Runs statements in the shared namespace.
    void run(char const* statements) {
        PyObjectPtr result = PyObjectPtr::steal(PyRun_String(statements, Py_file_input, scope(), scope()));
        if (!result) report(statements);
    }
    // Binds a name in the shared namespace.
    void bind(char const* name, PyObject* value) { PyDict_SetItemString(scope(), name, value); }
    // The text of the pending exception, clearing it; empty when none is pending.
    static std::string take_exception_text() {
        PyObject* exception = PyErr_GetRaisedException();
        if (!exception) return {};
        PyObjectPtr owned = PyObjectPtr::steal(exception);
        std::string text = Py_TYPE(exception)->tp_name;
        PyObjectPtr message = PyObjectPtr::steal(PyObject_Str(exception));
        if (message) text += std::string(": ") + PyUnicode_AsUTF8(message.get());
        PyErr_Clear();
        return text;
    }
    static bool equal(PyObject* a, PyObject* b) { return PyObject_RichCompareBool(a, b, Py_EQ) == 1; }

private:
    void report(char const* code) {
        ADD_FAILURE() << "Python failed on: " << code << "\n" << take_exception_text();
    }
    gil_guard gil_;
    PyObjectPtr scope_;
};

// The UTF-8 text of a host value when it is a String.
inline std::string text_of(Any const& value) {
    return String::test(value) ? String::unsafe(value).toUtf8() : std::string("<not a String>");
}
// The message of a host Error value.
inline std::string message_of(Any const& value) {
    return value.isError() ? value.error().message().toUtf8() : std::string("<not an Error>");
}

// Ends the process when a test has not finished within 60 s: a deadlock
// would otherwise hang the suite instead of failing it.
class Watchdog {
public:
    explicit Watchdog(char const* what) : thread_([this, what] {
        std::unique_lock lock(mutex_);
        if (!done_.wait_for(lock, std::chrono::seconds(60), [this] { return finished_; })) {
            std::fprintf(stderr, "deadlock: %s\n", what);
            std::_Exit(1);
        }
    }) {}
    ~Watchdog() {
        {
            std::lock_guard lock(mutex_);
            finished_ = true;
        }
        done_.notify_one();
        thread_.join();
    }

private:
    std::mutex mutex_;
    std::condition_variable done_;
    bool finished_ = false;
    std::thread thread_;
};

} // namespace tesk::cpython::testing
