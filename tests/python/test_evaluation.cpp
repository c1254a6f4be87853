// Evaluating statement blocks and expressions: results, scopes, write-back.
#include "language_test_support.h"

namespace tesk::cpython::testing {
namespace {

TEST(Evaluation, BlocksAndExpressionsGiveHostValues) {
    EXPECT_EQ(integer_of(evaluate("return 1 + 2")), 3);
    EXPECT_TRUE(evaluate("x = 1").isNone());
    EXPECT_TRUE(evaluate("").isNone());
    EXPECT_TRUE(evaluate("\n  \n").isNone());
    EXPECT_EQ(integer_of(evaluate_expression("1 + 2")), 3);
    EXPECT_EQ(string_of(evaluate_expression("'a' * 3")), "aaa");
    EXPECT_TRUE(evaluate_expression("None").isNone());
}

TEST(Evaluation, ExpressionThatAssignsIsASyntaxError) {
    Any result = evaluate_expression("x = 1");
    EXPECT_NE(error_message(result).find("SyntaxError"), std::string::npos) << error_message(result);
}

TEST(Evaluation, LocalsShadowGlobals) {
    EvaluationScope scope = scope_of(map_of({{"x", Integer(2)}}), map_of({{"x", Integer(1)}, {"y", Integer(10)}}));
    EXPECT_EQ(integer_of(evaluate("return x + y", scope)), 12);
    EXPECT_EQ(integer_of(evaluate_expression("x + y", scope)), 12);
}

TEST(Evaluation, HostGlobalsAreSeenWhenTheScopeHasNone) {
    (void)globals().set(String("h4_test_global"), Integer(77));
    EXPECT_EQ(integer_of(evaluate_expression("h4_test_global")), 77);
    // A caller's global map replaces the host's.
    Any hidden = evaluate_expression("h4_test_global", scope_of(Any(), map_of({{"other", Integer(1)}})));
    EXPECT_NE(error_message(hidden).find("h4_test_global"), std::string::npos);
    (void)globals().remove(String("h4_test_global"));
}

TEST(Evaluation, AssigningAScopeNameInABlockIsUnboundLocal) {
    Any result = evaluate("x = x + 1", scope_of(map_of({{"x", Integer(1)}})));
    EXPECT_NE(error_message(result).find("x"), std::string::npos);
    EXPECT_EQ(position_of(result).line, 1);
}

TEST(Evaluation, SelfIsTheScopesSelfInBlocksOnly) {
    EvaluationScope scope = scope_of(map_of({{"self", Integer(1)}}), Any(), Any(), Integer(5));
    EXPECT_EQ(integer_of(evaluate("return self", scope)), 5);
    EXPECT_TRUE(evaluate("return self").isNone());
    // Expressions see `self` only through the scope maps.
    EXPECT_EQ(integer_of(evaluate_expression("self", scope)), 1);
    EXPECT_TRUE(evaluate_expression("self", scope_of(Any(), Any(), Any(), Integer(5))).isError());
}

TEST(Evaluation, OutLocalsAreWrittenBack) {
    HashMap none;
    EXPECT_EQ(integer_of(evaluate("return 4", scope_of(Any(), Any(), none))), 4);
    EXPECT_EQ(none.size(), 0u);

    HashMap one = map_of({{"a", Integer(1)}});
    EXPECT_TRUE(evaluate("a = a + 41", scope_of(Any(), Any(), one)).isNone());
    EXPECT_EQ(integer_of(one.find(String("a"))), 42);

    HashMap untouched = map_of({{"a", Integer(1)}});
    EXPECT_TRUE(evaluate("pass", scope_of(Any(), Any(), untouched)).isNone());
    EXPECT_EQ(integer_of(untouched.find(String("a"))), 1);

    HashMap two = map_of({{"a", Integer(1)}, {"b", String("x")}});
    EXPECT_EQ(integer_of(evaluate("a = a * 10\nb = b + 'y'\nreturn a", scope_of(Any(), Any(), two))), 10);
    EXPECT_EQ(integer_of(two.find(String("a"))), 10);
    EXPECT_EQ(string_of(two.find(String("b"))), "xy");
}

TEST(Evaluation, OutLocalsOverrideGlobalsAndLoseToLocals) {
    HashMap out = map_of({{"v", Integer(2)}});
    EXPECT_EQ(integer_of(evaluate_expression("v", scope_of(map_of({{"v", Integer(3)}}), map_of({{"v", Integer(1)}}),
                                                           out))),
              3);
    EXPECT_EQ(integer_of(evaluate("return v", scope_of(Any(), map_of({{"v", Integer(1)}}), out))), 2);
}

TEST(Evaluation, ARefusedWriteBackIsReportedAndKeepsTheOldValue) {
    HashMap typed(String::getClass(), Integer::getClass());
    (void)typed.set(String("n"), Integer(1));
    Any result = evaluate("n = 'not a number'", scope_of(Any(), Any(), typed));
    EXPECT_TRUE(result.isError());
    EXPECT_EQ(integer_of(typed.find(String("n"))), 1);
}

TEST(Evaluation, ADeletedOutLocalFailsAfterTheBlock) {
    HashMap out = map_of({{"a", Integer(1)}});
    Any result = evaluate("del a\nreturn 5", scope_of(Any(), Any(), out));
    EXPECT_NE(error_message(result).find("'a'"), std::string::npos) << error_message(result);
    // The write-back belongs to no line of the code: the last one is reported.
    EXPECT_EQ(position_of(result).line, 2);
    EXPECT_EQ(integer_of(out.find(String("a"))), 1);
}

TEST(Evaluation, CrlfCodeRuns) {
    EXPECT_EQ(integer_of(evaluate("x = 20\r\ny = 22\r\nreturn x + y\r\n")), 42);
}

TEST(Evaluation, EachEvaluationStartsFresh) {
    EXPECT_TRUE(evaluate("global leftover\nleftover = 1").isNone());
    EXPECT_TRUE(evaluate_expression("leftover").isError());
}

TEST(Evaluation, ScopeValueWithoutPythonFormFailsTheEvaluationNamingIt) {
    // Left out, the name would only surface as a NameError hiding the reason.
    // A host error, a tuple nested past the depth limit and invalid text have
    // no Python form, whichever map holds them.
    Any deep = Tuple({Integer(1)});
    for (int i = 0; i < 300; ++i) deep = Tuple({deep});
    char const invalid[] = "\xff\xfe";
    std::pair<char const*, Any> const cases[] = {
        {"no form", Error("no form")},
        {"nested deeper than 200 levels", deep},
        {"can't decode byte 0xff", String::fromRawDataUnsafe(invalid, 2)},
    };
    for (auto const& [reason, bad] : cases) {
        HashMap map = map_of({{"good", Integer(1)}, {"bad", bad}});
        for (EvaluationScope const& scope : {scope_of(map), scope_of(Any(), map), scope_of(Any(), Any(), map)}) {
            std::string const message = error_message(evaluate("return good", scope));
            EXPECT_NE(message.find("The scope value 'bad' cannot be converted to Python"), std::string::npos) << message;
            EXPECT_NE(message.find(reason), std::string::npos) << message;
        }
        std::string const expression = error_message(evaluate_expression("good", scope_of(map)));
        EXPECT_NE(expression.find("'bad'"), std::string::npos) << expression;
        EXPECT_FALSE(python_error_pending());
    }
}

TEST(Evaluation, TextThatUtf8CannotEncodeFailsInsteadOfBecomingEmpty) {
    // A lone surrogate: what os.fsdecode makes of an undecodable file name.
    std::string const expression = error_message(evaluate_expression("'abc\\udcffdef'"));
    EXPECT_NE(expression.find("can't encode character '\\udcff' in position 3"), std::string::npos) << expression;
    Any block = evaluate("import os\nreturn os.fsdecode(b'name\\xff')");
    EXPECT_NE(error_message(block).find("in position 4"), std::string::npos) << error_message(block);
    // An out-local keeps its old value rather than receiving the empty text.
    HashMap out = map_of({{"a", Integer(1)}});
    Any written = evaluate("a = 'x\\ud800'", scope_of(Any(), Any(), out));
    EXPECT_NE(error_message(written).find("surrogates not allowed"), std::string::npos) << error_message(written);
    EXPECT_EQ(integer_of(out.find(String("a"))), 1);
    EXPECT_FALSE(python_error_pending());
}

TEST(Evaluation, AScopeNameThatIsNotTextIsRefused) {
    HashMap locals;
    (void)locals.set(Integer(1), Integer(2));
    Any result = evaluate("return 1", scope_of(locals));
    EXPECT_NE(error_message(result).find("scope name"), std::string::npos) << error_message(result);
}

TEST(Evaluation, OutLocalNamesMustBeIdentifiers) {
    for (char const* name : {"not an identifier", "a'); import os; ('", "class", "None", "await", "1a"}) {
        HashMap out = map_of({{name, Integer(1)}});
        Any result = evaluate("return 1", scope_of(Any(), Any(), out));
        EXPECT_NE(error_message(result).find("not a Python identifier"), std::string::npos) << name;
        EXPECT_EQ(integer_of(out.find(String(name))), 1);
    }
    // Soft keywords are names like any other.
    HashMap soft = map_of({{"match", Integer(1)}, {"type", Integer(2)}});
    EXPECT_TRUE(evaluate("match = match + type", scope_of(Any(), Any(), soft)).isNone());
    EXPECT_EQ(integer_of(soft.find(String("match"))), 3);
}

// Evaluations keep the table of host modules between them: a module
// registered, changed or hidden later is seen by the next evaluation.
TEST(Evaluation, ModulesRegisteredLaterAreSeen) {
    char const* name = "late_registered_module";
    char const* present = "return str('late_registered_module' in globals())";
    EXPECT_EQ(string_of(evaluate(present)), "False");
    auto module = get_module(String(name));
    ASSERT_TRUE(module.has_value());
    EXPECT_EQ(string_of(evaluate(present)), "True");
    module.value().addCallable(String("answer"), I_Callable_Generic::unsafe(internal::make_constant_callable(Integer(42))));
    EXPECT_EQ(integer_of(evaluate("return late_registered_module.answer()")), 42);
    module.value().setImportance(10); // internal to the host: hidden from evaluations
    EXPECT_EQ(string_of(evaluate(present)), "False");
}

TEST(Evaluation, HostCallablesInTheScopeAreCalled) {
    Any twice = internal::make_function_callable(
        [](std::span<Any const> args) -> Any { return Integer(Integer::unsafe(args[0]).value() * 2); },
        internal::make_signature(Integer::getClass(), {Integer::getClass()}), "twice");
    EXPECT_EQ(integer_of(evaluate("return twice(21)", scope_of(map_of({{"twice", twice}})))), 42);
}

TEST(Evaluation, ResultsComeBackAsProxiesOfPythonObjects) {
    Any list = evaluate("return [1, 2, 3]");
    ASSERT_FALSE(list.isError()) << error_message(list);
    EXPECT_EQ(string_of(call_language("toCode", {list})), "[1, 2, 3]");
    // Passing it back in gives Python the very same list.
    EXPECT_EQ(integer_of(evaluate("l.append(4)\nreturn len(l)", scope_of(map_of({{"l", list}})))), 4);
    EXPECT_EQ(string_of(call_language("toCode", {list})), "[1, 2, 3, 4]");
}

} // namespace
} // namespace tesk::cpython::testing
