// Stopping evaluations: interruption from another thread, time limits, and
// an interpreter that works afterwards.
#include "language_test_support.h"

#include "language/evaluation_control.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace tesk::cpython::testing {
namespace {

// Runs `code` on a thread of its own while `stop` is applied to it from this
// one once the evaluation runs; gives the outcome and what the same thread
// evaluates next.
struct stopped_run {
    Any outcome;
    Any next;
};

template <class Stop> stopped_run run_and_stop(char const* code, Stop&& stop, double timeLimit = 0) {
    std::atomic<std::int64_t> thread{0};
    stopped_run run;
    std::thread evaluator([&] {
        set_evaluation_time_limit(timeLimit);
        thread = evaluation_thread_id();
        run.outcome = evaluate(code);
        set_evaluation_time_limit(0);
        run.next = evaluate("return 6 * 7");
    });
    while (thread.load() == 0) std::this_thread::yield();
    stop(thread.load());
    evaluator.join();
    return run;
}

// Interrupts the thread's evaluation as soon as it has started.
void interrupt_when_running(std::int64_t thread) {
    while (!interrupt_evaluation(thread)) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

TEST(EvaluationControl, BusyLoopIsInterruptedAndTheNextEvaluationWorks) {
    stopped_run run = run_and_stop("while True:\n    pass", &interrupt_when_running);
    EXPECT_EQ(error_message(run.outcome), "evaluation interrupted");
    EXPECT_EQ(integer_of(run.next), 42);
}

TEST(EvaluationControl, ExceptExceptionDoesNotSwallowTheStop) {
    stopped_run run = run_and_stop("while True:\n"
                                   "    try:\n"
                                   "        while True: pass\n"
                                   "    except Exception:\n"
                                   "        pass",
                                   &interrupt_when_running);
    EXPECT_EQ(error_message(run.outcome), "evaluation interrupted");
    EXPECT_EQ(integer_of(run.next), 42);
}

TEST(EvaluationControl, TimeLimitEndsALongEvaluation) {
    stopped_run run = run_and_stop("while True:\n    pass", [](std::int64_t) {}, 0.25);
    EXPECT_EQ(error_message(run.outcome), "time limit of 0.25 s exceeded");
    EXPECT_EQ(integer_of(run.next), 42);
    // Code that catches the stop once and goes on is stopped again.
    stopped_run stubborn = run_and_stop("try:\n"
                                        "    while True: pass\n"
                                        "except BaseException:\n"
                                        "    pass\n"
                                        "while True: pass",
                                        [](std::int64_t) {}, 0.1);
    EXPECT_EQ(error_message(stubborn.outcome), "time limit of 0.1 s exceeded");
}

TEST(EvaluationControl, ATimeLimitDoesNotTouchQuickEvaluations) {
    set_evaluation_time_limit(30);
    EXPECT_EQ(integer_of(evaluate("return 1")), 1);
    EXPECT_EQ(integer_of(evaluate_expression("2")), 2);
    set_evaluation_time_limit(0);
}

TEST(EvaluationControl, NothingToInterruptOnAnIdleThread) {
    EXPECT_FALSE(interrupt_evaluation(evaluation_thread_id()));
    EXPECT_FALSE(interrupt_evaluation(-5));
    EXPECT_EQ(integer_of(evaluate("return 1")), 1);
}

TEST(EvaluationControl, ModuleFunctionsReachTheSameControls) {
    std::int64_t const self = integer_of(call_cpython_function("evaluation_thread", {}));
    EXPECT_EQ(self, evaluation_thread_id());
    EXPECT_FALSE(Boolean::unsafe(call_cpython_function("interrupt", {Integer(self)})).value());
    (void)call_cpython_function("set_time_limit", {Float(0.5)});
    EXPECT_EQ(evaluation_time_limit(), 0.5);
    (void)call_cpython_function("set_time_limit", {Integer(0)});
    EXPECT_EQ(evaluation_time_limit(), 0);
    // Through the module, the evaluation of another thread is stopped too.
    stopped_run run = run_and_stop("while True: pass", [](std::int64_t thread) {
        while (!Boolean::unsafe(call_cpython_function("interrupt", {Integer(thread)})).value())
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    });
    EXPECT_EQ(error_message(run.outcome), "evaluation interrupted");
}

} // namespace
} // namespace tesk::cpython::testing
