// Evaluations on host threads whose stacks are much smaller than the main
// thread's: deep recursion in C (repr of a deeply nested list) must end in a
// RecursionError, not in a crash.
#include "language_test_support.h"

#include <functional>

#include <pthread.h>

namespace tesk::cpython::testing {
namespace {

// Runs `work` on a new thread with a stack of `bytes` and waits for it.
void run_on_stack(std::size_t bytes, std::function<void()> work) {
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, bytes), 0);
    pthread_t thread;
    auto body = [](void* argument) -> void* {
        (*static_cast<std::function<void()>*>(argument))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, body, &work), 0);
    pthread_attr_destroy(&attributes);
    pthread_join(thread, nullptr);
}

TEST(SmallStacks, DeepRecursionOnASmallHostThreadIsAnError) {
    std::string nested, called, after;
    run_on_stack(256 * 1024, [&] {
        nested = error_message(evaluate("x = []\nfor i in range(2000):\n    x = [x]\nreturn repr(x)"));
        // Recursion through C calls of Python functions, too.
        called = error_message(evaluate("class Deep:\n    def __init__(self, n): self.n = n\n"
                                        "    def __repr__(self): return repr(Deep(self.n - 1)) if self.n else 'end'\n"
                                        "return repr(Deep(5000))"));
        // The thread's limit comes back after each evaluation: shallow work still runs.
        after = string_of(evaluate("x = []\nfor i in range(20):\n    x = [x]\nreturn repr(x)[:3]"));
    });
    EXPECT_NE(nested.find("maximum recursion depth exceeded"), std::string::npos) << nested;
    EXPECT_NE(called.find("maximum recursion depth exceeded"), std::string::npos) << called;
    EXPECT_EQ(after, "[[[");
    // The main thread's stack still takes the same nesting.
    EXPECT_EQ(string_of(evaluate("x = []\nfor i in range(2000):\n    x = [x]\nreturn repr(x)[:3]")), "[[[");
}

TEST(SmallStacks, TheMinimumStackEvaluatesAndNests) {
    // The README's minimum for a host thread that evaluates Python code.
    std::string flat, nested, deep;
    run_on_stack(128 * 1024, [&] {
        flat = string_of(evaluate_expression("'flat'"));
        nested = string_of(evaluate_expression("repr([[[[[[[[[[1]]]]]]]]]])"));
        deep = error_message(evaluate("x = []\nfor i in range(2000):\n    x = [x]\nreturn repr(x)"));
    });
    EXPECT_EQ(flat, "flat");
    EXPECT_EQ(nested, "[[[[[[[[[[1]]]]]]]]]]");
    EXPECT_NE(deep.find("maximum recursion depth exceeded"), std::string::npos) << deep;
}

} // namespace
} // namespace tesk::cpython::testing
