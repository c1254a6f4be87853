// Python's logging reaches the host's logger: the bridge, installed by the
// level-3 init handler, puts a handler on the root logger that calls
// tesk.get_logger().log(tesk.LogRecord(level, message)).
#include "language_test_support.h"

#include <mutex>
#include <thread>
#include <string>
#include <vector>

namespace tesk::cpython::testing {
namespace {

// What the test host's logger received, as "level:message".
std::mutex logged_lock;
std::vector<std::string> logged;

std::vector<std::string> take_logged() {
    std::lock_guard<std::mutex> guard(logged_lock);
    return std::exchange(logged, {});
}

// tesk.LogRecord(level, message): a record is a host map of both, which
// reaches Python wrapped and comes back as itself.
HashMap make_record(Integer const& level, String const& message) {
    return map_of({{"level", level}, {"message", message}});
}

void log(Any const& /*self*/, HashMap const& record) {
    std::string entry = display(record.get(String("level"))).toUtf8() + ":" + display(record.get(String("message"))).toUtf8();
    std::lock_guard<std::mutex> guard(logged_lock);
    logged.push_back(entry);
}

void fill_logger(class_builder_base& builder) {
    builder.module("tesk").method(
        method_builder_base("log").assign_func(make_closure(&log)).signature("record").build());
}

Any get_logger() {
    static class_accessor const logger_class{"TestLogger", &fill_logger};
    static Any const logger = logger_class().allocateInstance();
    return logger;
}

// The host module tesk with its logger, in place before the test program
// runs the init handlers (and with them the bridge), as in a real host.
struct test_host_logger {
    test_host_logger() {
        (void)get_module("tesk");
        (void)register_function("tesk", "get_logger",
                                method_builder_base("get_logger").assign_func(make_closure(&get_logger)).set_static(true).build());
        (void)register_function("tesk", "LogRecord",
                                method_builder_base("LogRecord")
                                    .assign_func(make_closure(&make_record))
                                    .signature("level, message")
                                    .set_static(true)
                                    .build());
    }
};
test_host_logger const host_logger;

TEST(LoggingBridge, RootLoggerIsAtInfoWithTheHostHandler) {
    Any result = evaluate("import logging\nroot = logging.getLogger()\n"
                          "return (root.level, [type(h).__name__ for h in root.handlers])");
    EXPECT_EQ(string_of(call_language("toCode", {result})), "(20, ['TeskLogHandler'])");
}

// The handler reaches the host through attributes of wrapped host objects
// (the module tesk, the logger); without them it cannot deliver a record.
bool wrapped_attributes_available() {
    return !evaluate("return tesk.get_logger().log").isError();
}

TEST(LoggingBridge, InfoReachesTheHostLoggerAndDebugDoesNot) {
    if (!wrapped_attributes_available())
        GTEST_SKIP() << "attribute access on wrapped host objects is not available yet";
    (void)take_logged();
    Any result = evaluate("import logging\n"
                          "logging.info('shown')\n"
                          "logging.debug('hidden')\n"
                          "logging.getLogger('named').warning('careful %s', 'now')\n"
                          "logging.log(35, 'odd')");
    EXPECT_TRUE(result.isNone()) << display(result).toUtf8();
    EXPECT_EQ(take_logged(), (std::vector<std::string>{"20:shown", "30:careful now", "35:odd"}));
}

TEST(LoggingBridge, RecordsFromAnotherThreadArrive) {
    if (!wrapped_attributes_available())
        GTEST_SKIP() << "attribute access on wrapped host objects is not available yet";
    (void)take_logged();
    std::thread logging_thread([] { (void)evaluate("import logging\nlogging.error('from a thread')"); });
    logging_thread.join();
    EXPECT_EQ(take_logged(), (std::vector<std::string>{"40:from a thread"}));
}

} // namespace
} // namespace tesk::cpython::testing
