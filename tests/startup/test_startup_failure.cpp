// An interpreter that cannot start leaves the host running: every entry
// that needs Python returns the start-up Error with CPython's message. A
// program of its own, since the start happens once per process.
#include "extension/exports.h"
#include "extension/startup.h"
#include "language/evaluation.h"

#include <gtest/gtest.h>
#include <tesk/tesk.h>

#include <cstdlib>
#include <string>

namespace {

std::string message_of(tesk::Any const& value) {
    return value.isError() ? value.error().message().toUtf8() : std::string("<not an Error>");
}

TEST(StartupFailure, EveryEntryReturnsTheStartError) {
    tesk::Any started = tesk::cpython::ensure_interpreter();
    ASSERT_TRUE(started.isError());
    std::string const message = message_of(started);
    EXPECT_EQ(message.rfind("Python could not start: ", 0), 0u) << message;
    // CPython's own words for a home without the standard library.
    EXPECT_NE(message.find("encoding"), std::string::npos) << message;

    tesk::Any block = tesk::internal::result_unwrap_lazy(tesk::cpython::evaluate_statements("return 1"));
    EXPECT_EQ(message_of(block), message);
    tesk::Any expression = tesk::internal::result_unwrap_lazy(
        tesk::cpython::language_python_evaluate_expression(tesk::String("1"), {}, {}));
    EXPECT_EQ(message_of(expression), message);
    // Asked again, the same answer: no second attempt, no crash.
    EXPECT_EQ(message_of(tesk::cpython::ensure_interpreter()), message);
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    // A home that holds no standard library: CPython cannot load its codecs.
    setenv("PYTHONHOME", "/nonexistent/python-home", 1);
    brimora_extension_init();
    brimora_extension_bind_api(nullptr);
    tesk::run_init_handlers();
    return RUN_ALL_TESTS();
}
