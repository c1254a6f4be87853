// Failed evaluations: positions in the caller's code, messages, host errors
// through Python and back, and exceptions that are not errors.
#include "language_test_support.h"

namespace tesk::cpython::testing {
namespace {

// Error positions must not depend on how many lines the generated program
// puts in front of the caller's code.
class ErrorPositions : public WithOutLocals {};

TEST_P(ErrorPositions, SyntaxErrorIsAtTheCallersLineAndColumn) {
    Any result = run("x = 1\ny = = 2\nreturn y");
    position p = position_of(result);
    EXPECT_EQ(p.line, 2);
    // Python points at the second "=": column 5 of "y = = 2".
    EXPECT_EQ(p.column, 5);
    EXPECT_GE(p.length, 0);
    std::string message = error_message(result);
    EXPECT_NE(message.find("File \"<string>\""), std::string::npos) << message;
    EXPECT_NE(message.find("SyntaxError: invalid syntax"), std::string::npos) << message;
}

TEST_P(ErrorPositions, NameErrorHasALineAndNoColumn) {
    Any result = run("a = 1\nb = 2\nreturn missing_name");
    EXPECT_EQ(error_message(result), "name 'missing_name' is not defined");
    position p = position_of(result);
    EXPECT_EQ(p.line, 3);
    EXPECT_EQ(p.column, -1);
}

TEST_P(ErrorPositions, ErrorRaisedInsideANestedFunctionIsAtItsLine) {
    Any result = run("def f():\n    raise ValueError('deep')\nreturn f()");
    EXPECT_EQ(error_message(result), "deep");
    EXPECT_EQ(position_of(result).line, 2);
}

INSTANTIATE_TEST_SUITE_P(OutLocalCounts, ErrorPositions, ::testing::Values(0, 1, 2));

TEST(EvaluationErrors, ExpressionErrorsArePlacedInTheExpression) {
    Any syntax = evaluate_expression("1 +* 2");
    position p = position_of(syntax);
    EXPECT_EQ(p.line, 1);
    EXPECT_EQ(p.column, 4);
    Any runtime = evaluate_expression("1 / 0");
    EXPECT_EQ(error_message(runtime), "division by zero");
    EXPECT_EQ(position_of(runtime).line, 1);
}

TEST(EvaluationErrors, ErrorInLibraryCodeIsPlacedAtTheCallersLine) {
    // json's decoding error has its own lineno (in the JSON text); the line
    // reported is the line of the caller's code that called json.
    Any result = evaluate("import json\n\njson.loads('{')");
    EXPECT_EQ(position_of(result).line, 3);
}

TEST(EvaluationErrors, EmptyMessageStaysEmpty) {
    Any result = evaluate("raise ValueError()");
    EXPECT_EQ(error_message(result), "");
}

TEST(EvaluationErrors, ExceptionWhoseStrRaisesStillGivesAnError) {
    Any result = evaluate("class BadStr(Exception):\n"
                          "    def __str__(self):\n"
                          "        raise RuntimeError('no str')\n"
                          "raise BadStr()");
    EXPECT_NE(error_message(result).find("BadStr"), std::string::npos) << error_message(result);
    EXPECT_EQ(position_of(result).line, 4);
}

// The host class made for a Python exception type of the module builtins.
Class_Generic builtin_exception_class(char const* name) {
    auto builtins = find_module(String("python.builtins"));
    EXPECT_TRUE(builtins.has_value());
    for (auto const& [member, cls] : builtins.value().classes())
        if (member == String(name)) return cls;
    ADD_FAILURE() << name << " is not in python.builtins";
    return Error::getClass();
}

TEST(EvaluationErrors, SystemExitAndKeyboardInterruptAreErrorsThatSayWhatStopped) {
    struct expected {
        char const* code;
        char const* message;
        char const* type;
        Any value;
    };
    for (expected const& e : {expected{"raise SystemExit(3)", "SystemExit: 3", "SystemExit", Integer(3)},
                              expected{"import sys\nsys.exit('bye')", "SystemExit: bye", "SystemExit", String("bye")},
                              expected{"import sys\nsys.exit()", "SystemExit", "SystemExit", Any()},
                              expected{"raise KeyboardInterrupt()", "KeyboardInterrupt", "KeyboardInterrupt", Any()}}) {
        Any result = evaluate(e.code);
        ASSERT_TRUE(result.isError()) << e.code;
        EXPECT_EQ(error_message(result), e.message) << e.code;
        EXPECT_TRUE(Type(raw_class_of(result)).conformsTo(builtin_exception_class(e.type))) << e.code;
        Any value = result.error().value();
        EXPECT_TRUE(value.isNone() ? e.value.isNone() : compare_objects(value, e.value).value() == 0) << e.code;
    }
    EXPECT_EQ(error_message(evaluate_expression("exit(4)")), "SystemExit: 4");
    // The process is still here and Python still works.
    EXPECT_EQ(integer_of(evaluate_expression("2 + 2")), 4);
}

TEST(EvaluationErrors, InvalidUtf8CodeIsRefused) {
    char const bytes[] = "return '\xff\xfe'";
    Any result = evaluate(String::fromRawDataUnsafe(bytes, sizeof(bytes) - 1));
    EXPECT_EQ(error_message(result), "The code is not valid UTF-8 text.");
    Any expression = evaluate_expression(String::fromRawDataUnsafe(bytes + 7, sizeof(bytes) - 8));
    EXPECT_EQ(error_message(expression), "The code is not valid UTF-8 text.");
}

TEST(EvaluationErrors, NulInCodeIsReportedNotCutOff) {
    char const bytes[] = "return 1\0 + 1";
    Any result = evaluate(String::fromRawDataUnsafe(bytes, sizeof(bytes) - 1));
    EXPECT_TRUE(result.isError());
}

// A host error class derived from Error, made the way host libraries make theirs.
Class_Generic failure_class() {
    static Class_Generic const cls = [] {
        class_builder_base builder("H4TestFailure");
        builder.bases({Error::getClass()});
        Any built = internal::result_unwrap_lazy(builder.build());
        EXPECT_TRUE(Class_Generic::test(built)) << display(built).toUtf8();
        return Class_Generic::unsafe(built);
    }();
    return cls;
}

Any failing_callable(Error const& error) {
    return internal::make_function_callable([error](std::span<Any const>) -> Any { return error; },
                                            internal::make_signature(Type::untyped(), {}), "fail");
}

TEST(HostErrors, TheSameErrorObjectComesBack) {
    Error original = Error::ofClass(failure_class(), "boom");
    original.setValue(Integer(7));
    EvaluationScope scope = scope_of(map_of({{"fail", failing_callable(original)}}));
    Any caught = evaluate("try:\n    fail()\nexcept RuntimeError as e:\n    return e", scope);
    ASSERT_TRUE(caught.isError());
    EXPECT_TRUE(caught.isSame(original));
    EXPECT_TRUE(raw_class_of(caught).isSame(failure_class()));
}

TEST(HostErrors, DerivedErrorsGetTheirOwnRuntimeErrorType) {
    Error original = Error::ofClass(failure_class(), "boom");
    EvaluationScope scope = scope_of(map_of({{"fail", failing_callable(original)}}));
    Any names = evaluate("try:\n    fail()\nexcept RuntimeError as e:\n"
                         "    return [type(e).__module__, type(e).__name__, str(e), e.args, issubclass(type(e), RuntimeError)]",
                         scope);
    // The message is the exception's text and its one argument, as for a plain Error.
    EXPECT_EQ(string_of(call_language("toCode", {names})), "['tesk', 'H4TestFailure', 'boom', ('boom',), True]");
    // One type per host class.
    Any same = evaluate("types = set()\nfor _ in range(3):\n    try:\n        fail()\n"
                        "    except RuntimeError as e:\n        types.add(type(e))\nreturn len(types)",
                        scope);
    EXPECT_EQ(integer_of(same), 1);
}

TEST(HostErrors, EveryDerivedErrorCarriesItsMessageThroughPythonCode) {
    // What `except Exception as e: log(str(e))` sees, for errors of the
    // host's own classes, a class made at run time and one derived from it.
    static Class_Generic const derived = [] {
        class_builder_base builder("H4TestDerivedFailure");
        builder.bases({failure_class()});
        return Class_Generic::unsafe(internal::result_unwrap_lazy(builder.build()));
    }();
    for (Class_Generic const& cls : {BadArgument::getClass(), EvaluationError::getClass(), failure_class(), derived}) {
        std::string const message = "failed in " + cls.qualname().toUtf8() + " \xE2\x82\xAC";
        EvaluationScope scope = scope_of(map_of({{"fail", failing_callable(Error::ofClass(cls, String(message)))}}));
        Any logged = evaluate("log = []\ntry:\n    fail()\nexcept Exception as e:\n"
                              "    log.append(str(e))\n    log.append(e.args)\n    log.append(isinstance(e, RuntimeError))\n"
                              "return log",
                              scope);
        EXPECT_EQ(string_of(call_language("toCode", {logged})),
                  "['" + message + "', ('" + message + "',), True]") << cls.qualname().toUtf8();
    }
}

TEST(HostErrors, UnhandledHostErrorKeepsItsMessageWithAPosition) {
    Error original = Error::ofClass(failure_class(), "boom");
    Any result = evaluate("x = 1\nfail()", scope_of(map_of({{"fail", failing_callable(original)}})));
    EXPECT_EQ(error_message(result), "boom");
    EXPECT_EQ(position_of(result).line, 2);
}

TEST(HostErrors, PlainErrorIsARuntimeErrorWithItsMessage) {
    EvaluationScope scope = scope_of(map_of({{"fail", failing_callable(Error("plain"))}}));
    EXPECT_EQ(string_of(evaluate("try:\n    fail()\nexcept RuntimeError as e:\n    return str(e)", scope)), "plain");
    Any unhandled = evaluate("fail()", scope);
    EXPECT_EQ(error_message(unhandled), "plain");
}

TEST(HostErrors, StopIterationMapsBothWays) {
    EvaluationScope scope = scope_of(map_of({{"stop", failing_callable(StopIteration())}}));
    Any caught = evaluate("try:\n    stop()\nexcept StopIteration as e:\n    return e", scope);
    EXPECT_TRUE(StopIteration::test(caught)) << display(caught).toUtf8();
}

TEST(HostErrors, PythonExceptionsBecomeHostErrors) {
    Any error = evaluate("return ValueError('x')");
    EXPECT_EQ(error_message(error), "x");
    Any stop = evaluate("return StopIteration()");
    EXPECT_TRUE(StopIteration::test(stop));
}

} // namespace
} // namespace tesk::cpython::testing
