// Stopping evaluations. An evaluation is stopped by raising an exception in
// its thread with PyThreadState_SetAsyncExc: Python raises it at the next
// check of its eval loop (every backward jump and call), so busy code stops
// at once, while a blocking C call (time.sleep, a socket read) finishes
// first. The exception derives from BaseException, so `except Exception`
// does not catch it; whatever the code does with it, the evaluation's
// outcome is the stop Error.
#include "language/evaluation_control.h"

#include "python/python_once.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <sstream>
#include <thread>
#include <unordered_map>

namespace tesk::cpython {

enum class stop_reason : int { none, interrupted, time_limit };

struct running_evaluation::record {
    std::int64_t thread = 0;
    unsigned long pythonThread = 0;
    std::shared_ptr<record> outer; // the evaluation this one runs inside, on the same thread
    std::atomic<stop_reason> reason{stop_reason::none};
    double limit = 0;

    // The time-limit watchdog, when there is a limit.
    std::mutex mutex;
    std::condition_variable finishedSignal;
    bool finished = false;
    std::thread watchdog;
};

namespace {

using record = running_evaluation::record;

std::atomic<std::int64_t> next_thread_id{1};
thread_local std::int64_t const this_thread_id = next_thread_id.fetch_add(1);
thread_local double this_thread_time_limit = 0;

// The innermost running evaluation of each host thread. Guarded by `lock`,
// which is taken after the interpreter lock (or without it); records are
// shared, so a copy taken under the lock stays valid after it.
struct running_registry {
    spinlock lock;
    std::unordered_map<std::int64_t, std::shared_ptr<record>> innermost;
};

running_registry& registry() {
    // Never destroyed: evaluations may still run while the process exits.
    static auto* const instance = new running_registry;
    return *instance;
}

std::shared_ptr<record> innermost_of(std::int64_t thread) {
    running_registry& r = registry();
    std::lock_guard<spinlock> guard(r.lock);
    auto found = r.innermost.find(thread);
    return found == r.innermost.end() ? nullptr : found->second;
}

python_once stop_type_once;
PyObject* stop_type_object = nullptr;

// The exception that stops evaluated code; made once, kept for the process.
PyObject* stop_type() {
    stop_type_once.run([] {
        stop_type_object = PyErr_NewExceptionWithDoc("tesk.EvaluationInterrupted",
                                                     "The evaluation was stopped by its host.",
                                                     PyExc_BaseException, nullptr);
        if (stop_type_object == nullptr) PyErr_Clear();
    });
    return stop_type_object != nullptr ? stop_type_object : PyExc_KeyboardInterrupt;
}

// Stops the evaluations of `thread` from the innermost one out to `upto`
// (to the outermost when null). The caller holds the interpreter lock, so
// none of them can finish meanwhile.
bool stop_evaluations(std::int64_t thread, stop_reason reason, record const* upto) {
    std::shared_ptr<record> innermost = innermost_of(thread);
    if (!innermost) return false;
    for (record* r = innermost.get(); r != nullptr; r = r->outer.get()) {
        stop_reason expected = stop_reason::none;
        r->reason.compare_exchange_strong(expected, reason);
        if (r == upto) break;
    }
    PyThreadState_SetAsyncExc(innermost->pythonThread, stop_type());
    return true;
}

// Waits for the deadline; past it, stops the evaluation, again every 50 ms
// while it still runs (code that catches BaseException gets it again).
void watch_time_limit(record* watched) {
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(watched->limit);
    std::unique_lock<std::mutex> lock(watched->mutex);
    if (watched->finishedSignal.wait_until(lock, deadline, [&] { return watched->finished; })) return;
    while (!watched->finished) {
        lock.unlock();
        {
            gil_guard gil;
            std::lock_guard<std::mutex> check(watched->mutex);
            if (!watched->finished) (void)stop_evaluations(watched->thread, stop_reason::time_limit, watched);
        }
        lock.lock();
        watched->finishedSignal.wait_for(lock, std::chrono::milliseconds(50), [&] { return watched->finished; });
    }
}

String limit_text(double seconds) {
    std::ostringstream text;
    text << seconds;
    return String(text.str());
}

} // namespace

std::int64_t evaluation_thread_id() { return this_thread_id; }

bool interrupt_evaluation(std::int64_t thread) {
    // No evaluation, no interpreter lock: the interpreter may not even run.
    if (!innermost_of(thread)) return false;
    gil_guard gil;
    return stop_evaluations(thread, stop_reason::interrupted, nullptr);
}

void set_evaluation_time_limit(double seconds) { this_thread_time_limit = seconds > 0 ? seconds : 0; }
double evaluation_time_limit() { return this_thread_time_limit; }

running_evaluation::running_evaluation() : record_(std::make_shared<record>()) {
    record_->thread = this_thread_id;
    record_->pythonThread = PyThread_get_thread_ident();
    record_->limit = this_thread_time_limit;
    (void)stop_type(); // made now, not by a watchdog racing the evaluation
    {
        running_registry& r = registry();
        std::lock_guard<spinlock> guard(r.lock);
        std::shared_ptr<record>& slot = r.innermost[record_->thread];
        record_->outer = slot;
        slot = record_;
    }
    if (record_->limit > 0) record_->watchdog = std::thread(&watch_time_limit, record_.get());
}

running_evaluation::~running_evaluation() {
    if (record_->watchdog.joinable()) {
        {
            std::lock_guard<std::mutex> lock(record_->mutex);
            record_->finished = true;
        }
        record_->finishedSignal.notify_all();
        // The watchdog may be waiting for the interpreter lock.
        Py_BEGIN_ALLOW_THREADS record_->watchdog.join();
        Py_END_ALLOW_THREADS
    }
    std::shared_ptr<record> outer = record_->outer;
    {
        running_registry& r = registry();
        std::lock_guard<spinlock> guard(r.lock);
        if (outer)
            r.innermost[record_->thread] = outer;
        else
            r.innermost.erase(record_->thread);
    }
    // A stop that has not been raised yet must not hit the next evaluation;
    // an outer evaluation that is being stopped gets it again.
    bool const outerStopped = outer && outer->reason.load() != stop_reason::none;
    PyThreadState_SetAsyncExc(record_->pythonThread, outerStopped ? stop_type() : nullptr);
}

Union<Error, None> running_evaluation::stopped() {
    switch (record_->reason.load()) {
    case stop_reason::none:
        return {};
    case stop_reason::interrupted:
        PyErr_Clear();
        return Error("evaluation interrupted");
    case stop_reason::time_limit:
        PyErr_Clear();
        return Error(String("time limit of {} s exceeded").arg(limit_text(record_->limit)));
    }
    return {};
}

} // namespace tesk::cpython
