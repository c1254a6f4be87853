// Helpers of the language tests: the language reached the way a host reaches
// it (module tesk.cpython, class CPythonLanguage, member lookup), scopes built
// from host maps, and the check that no Python error is left behind.
#pragma once

#include "python/python_ref.h"

#include <gtest/gtest.h>
#include <tesk/tesk.h>

#include <initializer_list>
#include <string>
#include <utility>

namespace tesk::cpython::testing {

inline Class_Generic language_class() {
    auto module = find_module("tesk.cpython");
    if (module) {
        for (auto const& [name, cls] : module.value().classes())
            if (name == "CPythonLanguage") return cls;
    }
    ADD_FAILURE() << "tesk.cpython has no class CPythonLanguage";
    return Class_Generic::unsafe(Any());
}

// A function of the module tesk.cpython, called as the host calls it.
inline Any call_cpython_function(char const* name, std::initializer_list<Any> args) {
    auto module = find_module("tesk.cpython");
    if (module) {
        for (auto const& [member, callable] : module.value().callables())
            if (member == name) return internal::result_unwrap_lazy(callable(args));
    }
    ADD_FAILURE() << "tesk.cpython has no function " << name;
    return Any();
}

// A static member of the language class, found as the host finds it.
inline I_Callable_Generic language_method(String const& name) {
    Class_Generic cls = language_class();
    auto method = method_of(cls, name);
    if (!method) method = cls.definedMethod(name);
    if (!method) {
        ADD_FAILURE() << "CPythonLanguage has no method " << name.toUtf8();
        return I_Callable_Generic::unsafe(Any());
    }
    return method.value();
}

// Whether the calling thread has a Python exception pending.
inline bool python_error_pending() {
    gil_guard gil;
    return PyErr_Occurred() != nullptr;
}

// Calls a language member; every host entry must leave Python without a
// pending exception, whatever it returns.
inline Any call_language(String const& name, std::initializer_list<Any> args) {
    Any result = internal::result_unwrap_lazy(language_method(name)(args));
    EXPECT_FALSE(python_error_pending()) << name.toUtf8() << " left a Python exception pending";
    return result;
}

inline Any evaluate(String const& code, Any const& scope = Any()) { return call_language("evaluate", {code, scope}); }
inline Any evaluate_expression(String const& code, Any const& scope = Any()) {
    return call_language("evaluateExpression", {code, scope});
}

inline HashMap map_of(std::initializer_list<std::pair<char const*, Any>> entries) {
    HashMap map;
    for (auto const& [name, value] : entries) (void)map.set(String(name), value);
    return map;
}

inline EvaluationScope scope_of(Any const& locals, Any const& globals = Any(), Any const& outLocals = Any(),
                                Any const& self = Any()) {
    return EvaluationScope(self, locals, globals, outLocals);
}

inline std::int64_t integer_of(Any const& value) {
    EXPECT_TRUE(Integer::test(value)) << "not an Integer: " << display(value).toUtf8();
    return Integer::test(value) ? Integer::unsafe(value).value() : -999999;
}
inline std::string string_of(Any const& value) {
    EXPECT_TRUE(String::test(value)) << "not a String: " << display(value).toUtf8();
    return String::test(value) ? String::unsafe(value).toUtf8() : std::string();
}
inline std::string error_message(Any const& value) {
    EXPECT_TRUE(value.isError()) << "not an Error: " << display(value).toUtf8();
    return value.isError() ? value.error().message().toUtf8() : std::string();
}

// The position of an evaluation error; -1 for a missing one.
struct position {
    std::int64_t line = -1;
    std::int64_t column = -1;
    std::int64_t length = -1;
};
inline position position_of(Any const& value) {
    position p;
    auto error = EvaluationError::cast(value);
    EXPECT_TRUE(error.has_value()) << "not an EvaluationError: " << display(value).toUtf8();
    if (!error) return p;
    EvaluationError e = error.value();
    if (e.line()) p.line = e.line().value().value();
    if (e.column()) p.column = e.column().value().value();
    if (e.length()) p.length = e.length().value().value();
    return p;
}

// A map of `count` out-locals o0, o1, ... holding 0, 1, ...
inline HashMap out_locals(int count) {
    HashMap map;
    for (int i = 0; i < count; ++i) (void)map.set(String("o" + std::to_string(i)), Integer(i));
    return map;
}

// Evaluations whose scope has as many out-locals as the test parameter says:
// positions and messages must not depend on them.
class WithOutLocals : public ::testing::TestWithParam<int> {
protected:
    Any run(char const* code) { return evaluate(code, scope_of(Any(), Any(), out_locals(GetParam()))); }
};

} // namespace tesk::cpython::testing
