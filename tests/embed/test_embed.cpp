// The embedding kit as a host uses it: the real extension (beside
// libbrimora_embed in the build tree) loaded at run time, real CPython.
#include <brimora/embed.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <future>
#include <string>
#include <thread>

namespace {

// One start per test process: the extension's init handlers run once.
brimora::Python const& python() {
    static brimora::Python const started = brimora::Python::start();
    return started;
}

TEST(Embed, StartsAndEvaluatesABlockWithAScope) {
    ASSERT_TRUE(python()) << python().error().message().asChars();
    brimora::Scope scope;
    scope.local("a", tesk::Integer(41)).out("seen", tesk::Integer(0));
    brimora::Outcome result = python().evaluate("seen = a * 2\nreturn a + 1", scope);
    ASSERT_TRUE(result) << result.message();
    EXPECT_EQ(result.get<std::int64_t>(), 42);
    EXPECT_EQ(result.get<double>(), 42.0);
    EXPECT_FALSE(result.get<std::string>());
    auto seen = tesk::Integer::cast(scope.out_value("seen"));
    ASSERT_TRUE(seen);
    EXPECT_EQ(seen.value().value(), 82);
    EXPECT_TRUE(scope.out_value("absent").isNone());
}

TEST(Embed, EvaluatesExpressionsAsTypedValues) {
    EXPECT_EQ(python().evaluate_expression("'-'.join(['a', 'b'])").get<std::string>(), "a-b");
    EXPECT_EQ(python().evaluate_expression("1 < 2").get<bool>(), true);
    EXPECT_EQ(python().evaluate_expression("2.5").get<double>(), 2.5);
    auto list = python().evaluate_expression("[1, 2, 3]", brimora::Scope().global("unused", tesk::None()));
    ASSERT_TRUE(list);
    EXPECT_EQ(python().to_code(list.value()).toUtf8(), "[1, 2, 3]");
    EXPECT_TRUE(python().evaluate_expression("None").value().isNone());
}

TEST(Embed, ErrorsCarryTheMessageLineAndColumn) {
    brimora::Outcome failed = python().evaluate("x = 1\nreturn x / 0");
    ASSERT_FALSE(failed);
    EXPECT_EQ(failed.message(), "division by zero");
    EXPECT_EQ(failed.line(), 2);
    EXPECT_FALSE(failed.get<std::int64_t>());
    EXPECT_TRUE(failed.error().message().contains("division by zero"));

    brimora::Outcome syntax = python().evaluate("return (1 +");
    ASSERT_FALSE(syntax);
    EXPECT_EQ(syntax.line(), 1);
    EXPECT_TRUE(syntax.column());
    // The interpreter goes on.
    EXPECT_EQ(python().evaluate_expression("6 * 7").get<std::int64_t>(), 42);
}

TEST(Embed, AnOutcomeThatSucceededHasNoError) {
    brimora::Outcome fine = python().evaluate("return 1");
    EXPECT_TRUE(fine.error().isNone());
    EXPECT_EQ(fine.message(), "");
    EXPECT_FALSE(fine.line());
}

TEST(Embed, SandboxBelongsToTheHandle) {
    brimora::Python sandboxed = python();
    ASSERT_TRUE(sandboxed.set_sandbox(brimora::Sandbox::strict));
    EXPECT_EQ(sandboxed.sandbox(), brimora::Sandbox::strict);
    brimora::Outcome thread = sandboxed.evaluate("import threading\nthreading.Thread(target=print).start()");
    ASSERT_FALSE(thread);
    EXPECT_EQ(thread.message(), "operation blocked in sandbox");
    brimora::Outcome write = sandboxed.evaluate("open('/nonexistent/x', 'w')");
    EXPECT_EQ(write.message(), "write blocked: read-only sandbox");
    // The handle it was copied from still runs unsandboxed.
    EXPECT_EQ(python().sandbox(), brimora::Sandbox::off);
    EXPECT_TRUE(python().evaluate("import threading\nt = threading.Thread(target=print)\nt.start()\nt.join()"));
    ASSERT_TRUE(sandboxed.set_sandbox(brimora::Sandbox::standard));
}

TEST(Embed, TimeLimitStopsTheCallingThreadsEvaluations) {
    ASSERT_TRUE(python().set_time_limit(0.2));
    brimora::Outcome spun = python().evaluate("while True:\n    pass");
    ASSERT_TRUE(python().set_time_limit(0));
    ASSERT_FALSE(spun);
    EXPECT_EQ(spun.message(), "time limit of 0.2 s exceeded");
    EXPECT_TRUE(python().evaluate("return 1"));
}

TEST(Embed, InterruptStopsAnotherThreadsEvaluation) {
    std::promise<std::int64_t> started;
    auto threadNumber = started.get_future();
    brimora::Outcome spun{tesk::None()};
    std::thread worker([&] {
        started.set_value(python().evaluation_thread().value_or(-1));
        spun = python().evaluate("while True:\n    pass");
    });
    std::int64_t thread = threadNumber.get();
    ASSERT_GE(thread, 0);
    while (!python().interrupt(thread)) std::this_thread::yield();
    worker.join();
    EXPECT_EQ(spun.message(), "evaluation interrupted");
    EXPECT_FALSE(python().interrupt(thread)); // it runs nothing now
}

// Signals go to Python only when the host asks, on the thread that started
// the interpreter; then a stop cuts a blocking call of that thread short.
TEST(Embed, SignalsAreHandedToPythonOnRequest) {
    char const* const handled = "import signal\n"
                                "return (signal.getsignal(signal.SIGINT) is signal.default_int_handler,\n"
                                "        signal.getsignal(signal.SIGRTMAX - 2) != signal.SIG_DFL)";
    EXPECT_EQ(python().to_code(python().evaluate(handled).value()).toUtf8(), "(True, False)");
    brimora::Outcome elsewhere{tesk::None()};
    std::thread([&] { elsewhere = python().handle_signals(); }).join();
    EXPECT_FALSE(elsewhere);
    ASSERT_TRUE(python().handle_signals()) << python().handle_signals().message();
    EXPECT_EQ(python().to_code(python().evaluate(handled).value()).toUtf8(), "(True, True)");

    ASSERT_TRUE(python().set_time_limit(0.2));
    brimora::Outcome slept = python().evaluate("import time\ntime.sleep(60)\nreturn 'slept'");
    ASSERT_TRUE(python().set_time_limit(0));
    EXPECT_EQ(slept.message(), "time limit of 0.2 s exceeded");
}

TEST(Embed, CallsFunctionsOfTheLanguageModule) {
    EXPECT_TRUE(python().call("set_code_cache_size", {tesk::Integer(16)}));
    brimora::Outcome missing = python().call("no_such_function", {});
    EXPECT_EQ(missing.message(),
              "Python evaluation is not available (yet): the module tesk.cpython has no function no_such_function.");
    brimora::Outcome refused = python().call("set_code_cache_size", {tesk::Integer(-1)});
    EXPECT_EQ(refused.message(), "A code cache size cannot be negative: -1.");
    EXPECT_TRUE(python().finish());
}

TEST(Embed, MissingExtensionIsAnErrorThatEveryCallReturns) {
    brimora::Python missing = brimora::Python::start("/nonexistent/libbrimora_python.so");
    ASSERT_FALSE(missing);
    std::string const reason = missing.error().message().toUtf8();
    EXPECT_EQ(reason.rfind("Cannot load the Python extension: /nonexistent/libbrimora_python.so:", 0), 0u) << reason;
    EXPECT_EQ(missing.evaluate("return 1").message(), reason);
    EXPECT_EQ(missing.evaluate_expression("1").message(), reason);
    EXPECT_FALSE(missing.set_sandbox(brimora::Sandbox::strict));
    EXPECT_FALSE(missing.set_time_limit(1));
    EXPECT_FALSE(missing.evaluation_thread());
    EXPECT_FALSE(missing.interrupt(1));
    EXPECT_EQ(missing.finish().message(), reason);
}

TEST(Embed, ALibraryThatIsNoExtensionIsRefused) {
    // libteskcore is a library without the extension's entry points.
    std::string const runtime = brimora::default_extension_path();
    std::string const directory = runtime.substr(0, runtime.rfind('/'));
    auto loaded = brimora::load_extension(directory + "/libteskcore.so");
    ASSERT_TRUE(loaded.is<tesk::Error>());
    std::string const reason = loaded.as<tesk::Error>().message().toUtf8();
    EXPECT_NE(reason.find("is not a Brimora extension"), std::string::npos) << reason;
    EXPECT_NE(reason.find("brimora_extension_init"), std::string::npos) << reason;
}

TEST(Embed, TheDefaultExtensionIsBesideTheKit) {
    std::string const path = brimora::default_extension_path();
    EXPECT_TRUE(path.ends_with("/libbrimora_python.so")) << path;
}

} // namespace
