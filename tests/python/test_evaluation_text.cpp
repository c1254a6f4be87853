// The caller's code reaches Python exactly as written: literals, line ends,
// continuations, future imports, and positions in the caller's own lines.
#include "language_test_support.h"

namespace tesk::cpython::testing {
namespace {

TEST(EvaluationText, MultiLineLiteralsKeepTheirText) {
    EXPECT_EQ(string_of(evaluate("s = \"\"\"a\nb\n  c\"\"\"\nreturn s")), "a\nb\n  c");
    EXPECT_EQ(string_of(evaluate("s = '''\n\tx'''\nreturn s")), "\n\tx");
    EXPECT_EQ(string_of(evaluate("return f'''{1 + 1}\nz'''")), "2\nz");
}

TEST(EvaluationText, BackslashContinuationJoinsLines) {
    EXPECT_EQ(integer_of(evaluate("x = 1 + \\\n    2\nreturn x")), 3);
    // The continued line is the last one: the block still returns it.
    EXPECT_EQ(integer_of(evaluate("return 40 + \\\n2")), 42);
}

TEST(EvaluationText, EveryLineEndWorks) {
    EXPECT_EQ(integer_of(evaluate("x = 1\r\ny = 2\r\nreturn x + y")), 3);
    EXPECT_EQ(integer_of(evaluate("x = 1\ry = 2\rreturn x + y")), 3);
    EXPECT_EQ(string_of(evaluate("s = '''a\r\nb'''\r\nreturn s")), "a\nb");
    EXPECT_EQ(integer_of(evaluate_expression("(1 +\r 2)")), 3);
}

TEST(EvaluationText, LeadingByteOrderMarkIsIgnored) {
    EXPECT_EQ(integer_of(evaluate("\xEF\xBB\xBFreturn 5")), 5);
    EXPECT_EQ(integer_of(evaluate_expression("\xEF\xBB\xBF 2 * 3")), 6);
}

TEST(EvaluationText, FutureImportsApplyToTheBlock) {
    Any result = evaluate("from __future__ import annotations\n"
                          "def f(x: not_defined_anywhere): pass\n"
                          "return f.__annotations__['x']");
    EXPECT_EQ(string_of(result), "not_defined_anywhere");
    // Anywhere but the top, Python refuses them, at the caller's line.
    Any late = evaluate("x = 1\nfrom __future__ import annotations");
    EXPECT_EQ(position_of(late).line, 2);
}

TEST(EvaluationText, BlocksWithoutStatementsGiveNone) {
    for (char const* code : {"", "   ", "\n\n", "# a comment", "# one\n\n  # two\n", "\r\n"}) {
        Any result = evaluate(code);
        EXPECT_TRUE(result.isNone()) << "code: " << code << " gave " << display(result).toUtf8();
    }
}

TEST(EvaluationText, NamesAndScopeWorkAsInAFunctionBody) {
    // Assigned names are local, closures see them, out-locals are global.
    EXPECT_EQ(integer_of(evaluate("x = 2\nf = lambda: x * 3\nreturn f()")), 6);
    HashMap outs = map_of({{"a", Integer(1)}});
    EXPECT_TRUE(evaluate("a = a + 41", scope_of(Any(), Any(), outs)).isNone());
    EXPECT_EQ(integer_of(outs.get(String("a"))), 42);
    // Generated names are not visible to the code.
    EXPECT_EQ(string_of(evaluate("return str('tesk_outer' in globals())")), "False");
}

// Syntax errors on lines 1 and 2 are reported in the caller's lines, with
// the caller's line text, whatever the number of out-locals.
class SyntaxErrorText : public WithOutLocals {
protected:
    void expect_syntax_error(char const* code, int line, int column, std::string const& lineText) {
        Any result = run(code);
        position p = position_of(result);
        EXPECT_EQ(p.line, line);
        EXPECT_EQ(p.column, column);
        std::string message = error_message(result);
        EXPECT_NE(message.find("File \"<string>\", line " + std::to_string(line)), std::string::npos) << message;
        EXPECT_NE(message.find("    " + lineText + "\n"), std::string::npos) << message;
        EXPECT_EQ(message.find("tesk_"), std::string::npos) << message;
    }
};

TEST_P(SyntaxErrorText, FirstLine) { expect_syntax_error("y = = 2\nreturn 1", 1, 5, "y = = 2"); }

TEST_P(SyntaxErrorText, SecondLine) { expect_syntax_error("x = 1\nreturn (1 +* 2)", 2, 12, "return (1 +* 2)"); }

TEST_P(SyntaxErrorText, CompilerErrorsNameTheCallersLine) {
    // Found after parsing, by the compiler: still the caller's line and text.
    Any result = run("x = 1\nawait x");
    EXPECT_EQ(position_of(result).line, 2);
    std::string message = error_message(result);
    EXPECT_NE(message.find("await x"), std::string::npos) << message;
    EXPECT_EQ(message.find("<tesk-code"), std::string::npos) << message;
}

INSTANTIATE_TEST_SUITE_P(OutLocalCounts, SyntaxErrorText, ::testing::Values(0, 2));

TEST(EvaluationText, PositionsPastTheCodeAreClampedToItsLastLine) {
    EXPECT_EQ(position_of(evaluate("x = 1\nif True:")).line, 2);
    EXPECT_EQ(position_of(evaluate("x = 1\rif True:\r")).line, 2);
    // A write-back that fails belongs to no line: it is placed at the last one.
    HashMap outs = map_of({{"a", Integer(1)}});
    Any deleted = evaluate("x = 1\ndel a", scope_of(Any(), Any(), outs));
    EXPECT_EQ(error_message(deleted), "name 'a' is not defined");
    EXPECT_EQ(position_of(deleted).line, 2);
    EXPECT_EQ(integer_of(outs.get(String("a"))), 1);
}

TEST(EvaluationText, RuntimeErrorsAfterMultiLineLiteralsKeepTheirLine) {
    EXPECT_EQ(position_of(evaluate("s = '''\n\n'''\nreturn undefined_name")).line, 4);
    EXPECT_EQ(position_of(evaluate("x = 1\ry = undefined_name\r")).line, 2);
}

TEST(EvaluationText, TracebacksShowTheCallersLines) {
    std::string text = string_of(evaluate("import traceback\n"
                                          "try:\n"
                                          "    value = 1 / 0\n"
                                          "except ZeroDivisionError:\n"
                                          "    return traceback.format_exc()"));
    EXPECT_NE(text.find("line 3, in tesk_outer\n    value = 1 / 0\n"), std::string::npos) << text;
    // The same for an expression.
    std::string expression = string_of(evaluate("import traceback\n"
                                                "try:\n"
                                                "    inner()\n"
                                                "except NameError:\n"
                                                "    return traceback.format_exc()"));
    EXPECT_NE(expression.find("    inner()\n"), std::string::npos) << expression;
}

TEST(EvaluationText, ExpressionsIgnoreLeadingBlanksAndKeepColumns) {
    EXPECT_EQ(integer_of(evaluate_expression("  \t1 + 2")), 3);
    position p = position_of(evaluate_expression("  1 +* 2"));
    EXPECT_EQ(p.line, 1);
    EXPECT_EQ(p.column, 6);
}

TEST(EvaluationText, HostileCodeFailsCleanly) {
    EXPECT_TRUE(evaluate(String::fromUtf8("return 1\0", 9)).isError());
    EXPECT_TRUE(evaluate("'''unterminated").isError());
    EXPECT_TRUE(evaluate("\\").isError());
    EXPECT_TRUE(evaluate_expression("").isError());
    EXPECT_EQ(integer_of(evaluate("return 7")), 7);
}

} // namespace
} // namespace tesk::cpython::testing
