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

// Code that fights the stop: every loop catches BaseException and goes on,
// with a finally, with a function that catches it again, or with the
// interpreter lock kept for as long as the switch interval allows (which a
// stop that waits for the lock would wait for).
TEST(EvaluationControl, ATimeLimitHoldsAgainstCodeThatCatchesEverything) {
    char const* const stubborn[] = {
        "while True:\n"
        "    try:\n"
        "        while True: pass\n"
        "    except BaseException:\n"
        "        pass",
        "while True:\n"
        "    try:\n"
        "        while True: pass\n"
        "    finally:\n"
        "        continue",
        "def keep_going():\n"
        "    try:\n"
        "        while True: pass\n"
        "    except BaseException:\n"
        "        keep_going()\n"
        "while True:\n"
        "    try:\n"
        "        keep_going()\n"
        "    except BaseException:\n"
        "        pass",
        "import sys\n"
        "sys.setswitchinterval(1e6)\n"
        "while True:\n"
        "    try:\n"
        "        while True: pass\n"
        "    except BaseException:\n"
        "        pass",
    };
    for (char const* code : stubborn) {
        stopped_run run = run_and_stop(code, [](std::int64_t) {}, 0.1);
        EXPECT_EQ(error_message(run.outcome), "time limit of 0.1 s exceeded") << code;
        EXPECT_EQ(integer_of(run.next), 42) << code;
    }
    (void)evaluate("import sys\nsys.setswitchinterval(0.005)");
    // interrupt() too: stopped however often the code catches it.
    stopped_run interrupted = run_and_stop(stubborn[0], &interrupt_when_running);
    EXPECT_EQ(error_message(interrupted.outcome), "evaluation interrupted");
    EXPECT_EQ(integer_of(interrupted.next), 42);
}

std::atomic<bool> long_call_entered{false};
std::atomic<bool> line_after_reached{false};
Any note_entered() {
    long_call_entered = true;
    return None();
}
Any note_after() {
    line_after_reached = true;
    return None();
}

// Inside a long C call (sum over a range runs no Python instruction and keeps
// the interpreter lock), interrupt() still returns at once; the evaluation
// stops at the first instruction after the call.
TEST(EvaluationControl, InterruptReturnsAtOnceDuringALongCCall) {
    long_call_entered = false;
    line_after_reached = false;
    HashMap locals = map_of({{"entered", make_closure(&note_entered)}, {"after", make_closure(&note_after)}});
    std::atomic<std::int64_t> thread{0};
    Any outcome;
    std::thread evaluator([&] {
        thread = evaluation_thread_id();
        outcome = evaluate("entered()\ntotal = sum(range(2 * 10**7))\nafter()", scope_of(locals));
    });
    while (!long_call_entered.load()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // inside sum() by now
    auto const started = std::chrono::steady_clock::now();
    bool const interrupted = interrupt_evaluation(thread.load());
    auto const took = std::chrono::steady_clock::now() - started;
    evaluator.join();
    EXPECT_TRUE(interrupted);
    EXPECT_LT(took, std::chrono::milliseconds(10)); // a bound with a wide margin: it takes microseconds
    EXPECT_EQ(error_message(outcome), "evaluation interrupted");
    EXPECT_FALSE(line_after_reached.load());
}

// Blocking calls: on another thread than Python's main thread the stop
// arrives when the call returns (Python runs signal checks on the main
// thread only), and is not lost meanwhile.
TEST(EvaluationControl, AStopWaitsForABlockingCallOnAnotherThread) {
    stopped_run run = run_and_stop("import time\ntime.sleep(0.4)\nreturn 'slept'", [](std::int64_t) {}, 0.05);
    EXPECT_EQ(error_message(run.outcome), "time limit of 0.05 s exceeded");
    EXPECT_EQ(integer_of(run.next), 42);
}

// Once signals are handed to Python, a stop cuts every kind of blocking call
// of the main thread short (the calls would block for 60 s).
TEST(EvaluationControl, AStopCutsBlockingCallsOfTheMainThreadShort) {
    // Only on the thread that started the interpreter.
    Any elsewhere;
    std::thread([&] { elsewhere = call_cpython_function("handle_signals", {}); }).join();
    EXPECT_NE(error_message(elsewhere).find("Signals cannot be handed to Python here"), std::string::npos)
        << error_message(elsewhere);
    Any handed = call_cpython_function("handle_signals", {});
    ASSERT_FALSE(handed.isError()) << error_message(handed);
    EXPECT_FALSE(call_cpython_function("handle_signals", {}).isError()); // again: nothing changes

    char const* const blocking[] = {
        "import time\ntime.sleep(60)",
        "import threading\nthreading.Event().wait(60)",
        "import threading\nlock = threading.Lock()\nlock.acquire()\nlock.acquire(timeout=60)",
        "import queue\nqueue.Queue().get(timeout=60)",
        "import os, select\nr, w = os.pipe()\nselect.select([r], [], [], 60)",
        "import socket\na, b = socket.socketpair()\na.recv(1)",
        // and code that catches the stop around its blocking call
        "import time\nwhile True:\n    try:\n        time.sleep(60)\n    except BaseException:\n        pass",
    };
    for (char const* code : blocking) {
        set_evaluation_time_limit(0.1);
        auto const started = std::chrono::steady_clock::now();
        Any outcome = evaluate(code);
        auto const took = std::chrono::steady_clock::now() - started;
        set_evaluation_time_limit(0);
        EXPECT_EQ(error_message(outcome), "time limit of 0.1 s exceeded") << code;
        EXPECT_LT(took, std::chrono::seconds(30)) << code; // far below the 60 s the call would block
    }
    EXPECT_EQ(integer_of(evaluate("return 6 * 7")), 42);
    // Python has python3's SIGINT handler now.
    EXPECT_EQ(error_message(evaluate("import signal\n"
                                     "assert signal.getsignal(signal.SIGINT) is signal.default_int_handler\n"
                                     "raise KeyboardInterrupt")),
              "KeyboardInterrupt");
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
