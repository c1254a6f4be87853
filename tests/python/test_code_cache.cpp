// The compiled-code cache: repeated evaluations compile once, the cache
// stays within its size, and what it keeps behaves like fresh code.
#include "language_test_support.h"

#include "language/code_cache.h"

#include <atomic>

namespace tesk::cpython::testing {
namespace {

// Every test starts from its own codes: a counter makes them distinct from
// the codes of every other test in the process.
std::string fresh(std::string const& code) {
    static std::atomic<int> counter{0};
    return code + "  # " + std::to_string(counter.fetch_add(1));
}

class CodeCache : public ::testing::Test {
protected:
    void TearDown() override { set_code_cache_capacity(default_code_cache_capacity); }
};

TEST_F(CodeCache, TheSameCodeCompilesOnce) {
    String code(fresh("return a * 2"));
    code_cache_counters before = code_cache_statistics();
    EXPECT_EQ(integer_of(evaluate(code, scope_of(map_of({{"a", Integer(2)}})))), 4);
    EXPECT_EQ(integer_of(evaluate(code, scope_of(map_of({{"a", Integer(5)}})))), 10);
    code_cache_counters after = code_cache_statistics();
    EXPECT_EQ(after.compilations - before.compilations, 1u);
    EXPECT_GE(after.hits - before.hits, 1u);

    String expression(fresh("a + 1"));
    before = code_cache_statistics();
    EXPECT_EQ(integer_of(evaluate_expression(expression, scope_of(map_of({{"a", Integer(1)}})))), 2);
    EXPECT_EQ(integer_of(evaluate_expression(expression, scope_of(map_of({{"a", Integer(2)}})))), 3);
    EXPECT_EQ(code_cache_statistics().compilations - before.compilations, 1u);
}

TEST_F(CodeCache, KeyHoldsKindAndOutLocalNames) {
    std::string text = fresh("a = 1");
    code_cache_counters before = code_cache_statistics();
    EXPECT_TRUE(evaluate(String(text)).isNone());
    HashMap outs = map_of({{"a", Integer(0)}});
    EXPECT_TRUE(evaluate(String(text), scope_of(Any(), Any(), outs)).isNone());
    EXPECT_EQ(integer_of(outs.get(String("a"))), 1);
    // As an expression, the same text is another program (and a syntax error).
    EXPECT_TRUE(evaluate_expression(String(text)).isError());
    EXPECT_EQ(code_cache_statistics().compilations - before.compilations, 2u);
}

TEST_F(CodeCache, StateDoesNotLeakBetweenRuns) {
    String code(fresh("try:\n    seen\nexcept NameError:\n    seen = 0\nreturn seen + 1"));
    EXPECT_EQ(integer_of(evaluate(code)), 1);
    EXPECT_EQ(integer_of(evaluate(code)), 1);
}

TEST_F(CodeCache, LeastRecentlyUsedCodeIsEvictedAndItsLinesForgotten) {
    set_code_cache_capacity(2);
    String first(fresh("return 1")), second(fresh("return 2")), third(fresh("return 3"));
    for (String const& code : {first, second, third}) (void)evaluate(code);
    EXPECT_LE(code_cache_statistics().entries, 2u);
    code_cache_counters before = code_cache_statistics();
    EXPECT_EQ(integer_of(evaluate(first)), 1); // evicted: compiled again
    EXPECT_EQ(integer_of(evaluate(first)), 1); // kept again
    code_cache_counters after = code_cache_statistics();
    EXPECT_EQ(after.compilations - before.compilations, 1u);
    // linecache holds the lines of the kept codes (and of the running one) only.
    Any registered = evaluate("import linecache\n"
                              "return len([f for f in linecache.cache if f.startswith('<tesk-code-')])");
    EXPECT_LE(integer_of(registered), 3);
}

TEST_F(CodeCache, SizeZeroCompilesEveryTime) {
    set_code_cache_capacity(0);
    String code(fresh("return 4"));
    code_cache_counters before = code_cache_statistics();
    EXPECT_EQ(integer_of(evaluate(code)), 4);
    EXPECT_EQ(integer_of(evaluate(code)), 4);
    EXPECT_EQ(code_cache_statistics().compilations - before.compilations, 2u);
    EXPECT_EQ(code_cache_statistics().entries, 0u);
}

TEST_F(CodeCache, FailuresAreNotCachedAndRepeatTheSameError) {
    String code(fresh("x = = 1"));
    std::string first = error_message(evaluate(code));
    EXPECT_EQ(error_message(evaluate(code)), first);
}

TEST_F(CodeCache, SizeIsAModuleSetting) {
    EXPECT_FALSE(call_cpython_function("set_code_cache_size", {Integer(7)}).isError());
    EXPECT_EQ(code_cache_capacity(), 7u);
    Any refused = call_cpython_function("set_code_cache_size", {Integer(-1)});
    EXPECT_TRUE(refused.isError());
    EXPECT_EQ(code_cache_capacity(), 7u);
}

} // namespace
} // namespace tesk::cpython::testing
