// Blocks compile in one of two ways: as the text of their function (the
// common case) or through the syntax tree (text that indenting could change).
// Whichever way a block takes, Python must see the same code at the same
// positions of the caller's text.
#include "language/code_compiler.h"
#include "language_test_support.h"

#include <cctype>
#include <ostream>
#include <string>

namespace tesk::cpython::testing {
namespace {

// Appended to every sample: the first line of the block's code object and
// every instruction with its position, for it and the code nested in it, as
// text. Empty instructions are left out: a function whose body starts on its
// `def` line (as through the syntax tree) drops a NOP that one with its body
// on the next lines keeps, as python3 does with the same two texts.
constexpr char const* positions_report =
    "\n"
    "import sys as _sys, dis as _dis\n"
    "def _walk(code):\n"
    "    nested = [_walk(c) for c in code.co_consts if hasattr(c, 'co_lines')]\n"
    "    steps = [(i.opname, tuple(i.positions)) for i in _dis.get_instructions(code) if i.opname != 'NOP']\n"
    "    return [code.co_firstlineno, steps, nested]\n"
    "return repr(_walk(_sys._getframe().f_code))";

// A comment with a backslash changes nothing in what the block means, but
// sends it through the syntax tree.
constexpr char const* syntax_tree_marker = "\n# a backslash \\ in a comment";

struct sample {
    char const* name;
    char const* code;
};

sample const samples[] = {
    {"statements", "x = 1\ny = x + 2\nz = [x, y]"},
    {"nesting", "total = 0\nfor i in range(3):\n    if i:\n        total += i\n    else:\n        total -= 1"},
    {"tabs", "if True:\n\tx = 1\n\tif x:\n\t\tx = 2"},
    {"brackets across lines", "x = [1,\n     2,\n  3]\ny = (x[0] +\n     x[1])"},
    {"nested function", "def f(a, b=2):\n    c = a + b\n    return lambda: c * a\ny = f(1)()"},
    {"decorator and lambda", "import functools\n@functools.lru_cache\ndef g(n):\n    return n\nh = lambda v: v + 1"},
    {"generator expression", "x = sum(i * i for i in range(4))\ny = {k: k for k in 'ab'}"},
    {"blank lines", "x = 1\n\n\n\n\n\n\n\ny = 2\n\n\n# note\n\nz = 3"},
    {"long lines", "x = 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1"
                   " + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1 + 1"
                   " + len('a very long literal that pushes this call far to the right of the line')"},
    {"text with wide characters", "s = 'größe €'\nt = s.upper() + 'ß'\nu = f'{s}-{t}'"},
    {"exceptions and with", "try:\n    x = 1 / 1\nexcept ZeroDivisionError as e:\n    x = 0\nfinally:\n    y = 2\n"
                            "import contextlib\nwith contextlib.suppress(KeyError):\n    z = {}['k']"},
    {"comments and strings with hashes", "x = '#'  # a comment with 'quotes\"\ny = \"it's\"  # \"\nz = x + y"},
};

void PrintTo(sample const& s, std::ostream* out) { *out << s.name; }

class BlockPositions : public ::testing::TestWithParam<std::tuple<sample, int>> {
protected:
    Any run(std::string const& code) {
        return evaluate(String(code), scope_of(Any(), Any(), out_locals(std::get<1>(GetParam()))));
    }
};

TEST_P(BlockPositions, BothCompilationsGiveTheSameCode) {
    std::string const code = std::string(std::get<0>(GetParam()).code) + positions_report;

    std::uint64_t const before = syntax_tree_compilations();
    Any asText = run(code);
    EXPECT_EQ(syntax_tree_compilations(), before) << "the sample did not compile as the function's text";
    Any throughTree = run(code + syntax_tree_marker);
    EXPECT_EQ(syntax_tree_compilations(), before + 1) << "the marker did not send the sample through the tree";

    EXPECT_EQ(string_of(asText), string_of(throughTree));
}

INSTANTIATE_TEST_SUITE_P(Samples, BlockPositions,
                         ::testing::Combine(::testing::ValuesIn(samples), ::testing::Values(0, 2)),
                         [](auto const& info) {
                             std::string name = std::get<0>(info.param).name;
                             for (char& c : name)
                                 if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
                             return name + "_" + std::to_string(std::get<1>(info.param)) + "_out_locals";
                         });

TEST(EvaluationPositions, TracebackMarksTheFailingPartOfTheCallersLine) {
    std::string text = string_of(evaluate("import traceback\n"
                                          "try:\n"
                                          "    value = 3 + 1 / 0\n"
                                          "except ZeroDivisionError:\n"
                                          "    return traceback.format_exc()"));
    EXPECT_NE(text.find("line 3, in tesk_outer\n    value = 3 + 1 / 0\n                ~~^~~\n"), std::string::npos)
        << text;
}

TEST(EvaluationPositions, FunctionsOfABlockShowTheirSource) {
    EXPECT_EQ(string_of(evaluate("x = 1\n"
                                 "\n"
                                 "def f(a):\n"
                                 "    return a + x\n"
                                 "import inspect\n"
                                 "return inspect.getsource(f)")),
              "def f(a):\n    return a + x\n");
    EXPECT_EQ(integer_of(evaluate("class C:\n    pass\nreturn C.__firstlineno__")), 1);
    EXPECT_EQ(integer_of(evaluate("x = 1\nclass C:\n    pass\nreturn C.__firstlineno__")), 2);
}

// Warnings given while compiling name the caller's line, however the block
// compiled. The first evaluation records every warning shown; the last puts
// Python's own handler back.
TEST(EvaluationPositions, CompileWarningsNameTheCallersLine) {
    ASSERT_TRUE(evaluate("import sys, warnings\n"
                         "sys.tesk_test_warnings = []\n"
                         "sys.tesk_test_shown = warnings.showwarning\n"
                         "warnings.showwarning = lambda message, category, file, line, *rest: "
                         "sys.tesk_test_warnings.append((category.__name__, line))\n"
                         "warnings.simplefilter('always', SyntaxWarning)")
                    .isNone());
    EXPECT_EQ(integer_of(evaluate("x = 1\nif x is 1:\n    x = 2\nreturn x")), 2);
    EXPECT_EQ(integer_of(evaluate("x = 1\ny = 2\nz = '\\d'\nreturn len(z)")), 2);
    EXPECT_EQ(string_of(evaluate("import sys, warnings\n"
                                 "warnings.showwarning = sys.tesk_test_shown\n"
                                 "warnings.filters.remove(('always', None, SyntaxWarning, None, 0))\n"
                                 "return repr(sys.tesk_test_warnings)")),
              "[('SyntaxWarning', 2), ('SyntaxWarning', 3)]");
    // The filter list is as it was: the compilations added nothing that stayed.
    EXPECT_EQ(string_of(evaluate("import warnings\n"
                                 "return str(any(f[0] == 'error' for f in warnings.filters))")),
              "False");
}

TEST(EvaluationPositions, TextThatIndentingWouldChangeKeepsItsMeaning) {
    // An indented first statement is an error, as at the top of a file.
    Any indented = evaluate("  x = 1\nreturn x");
    EXPECT_NE(error_message(indented).find("unexpected indent"), std::string::npos);
    EXPECT_EQ(position_of(indented).line, 1);
    // A string that continues across a line keeps its exact text.
    EXPECT_EQ(string_of(evaluate("s = 'a\\\nb'\nreturn s")), "ab");
    // Quotes inside comments and comments inside strings change nothing.
    EXPECT_EQ(string_of(evaluate("# it's\ns = '# not a comment'\nreturn s")), "# not a comment");
}

} // namespace
} // namespace tesk::cpython::testing
