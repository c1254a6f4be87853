// Stopping evaluations. A stop raises tesk.EvaluationInterrupted in the
// evaluating thread at its next check of the eval loop (every backward jump,
// call and function start), delivered without the interpreter lock
// (language/stop_exception.h), so busy code stops at once whatever it does
// with the lock. The exception derives from BaseException, so `except
// Exception` does not catch it; code that catches it anyway gets it again
// every 50 ms (the stop watcher), and from the second time on every line
// it starts raises it. Whatever the code does with it, the evaluation's
// outcome is the stop Error.
#include "language/evaluation_control.h"

#include "language/stop_exception.h"
#include "language/stop_watcher.h"

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <sstream>
#include <unordered_map>

namespace tesk::cpython {

enum class stop_reason : int { none, interrupted, time_limit };

using clock = std::chrono::steady_clock;

struct running_evaluation::record : watched_evaluation {
    std::int64_t thread = 0;
    PyThreadState* state = nullptr; // the evaluating thread's, alive while registered
    bool onMainThread = false;
    std::shared_ptr<record> outer; // the evaluation this one runs inside, on the same thread
    std::atomic<stop_reason> reason{stop_reason::none};
    double limit = 0;
    clock::time_point deadline = clock::time_point::max();
    bool registered = true; // guarded by the registry's lock

    // On the evaluating thread, with the interpreter lock.
    int deliveries = 0;
    saved_trace trace;

    clock::time_point act(clock::time_point now) override;
};

namespace {

using record = running_evaluation::record;

constexpr auto again_after = std::chrono::milliseconds(50);

std::atomic<std::int64_t> next_thread_id{1};
thread_local std::int64_t const this_thread_id = next_thread_id.fetch_add(1);
thread_local double this_thread_time_limit = 0;

// The innermost running evaluation of each host thread. Guarded by `lock`,
// which is taken with or without the interpreter lock; records are shared,
// so a copy taken under the lock stays valid after it.
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

// Python's main thread and the signal that wakes it, once the host has
// handed signals over (wake_main_thread_with); 0 before.
std::atomic<int> wake_signal{0};
pthread_t main_thread{};
unsigned long main_python_thread = 0;

// Stops the evaluations of `thread` from the innermost one out to `upto`
// (to the outermost when null; nothing when `upto` has ended) and raises the
// stop in the thread. The outermost record marked, or null. Takes only the
// registry's lock: the thread state stays alive while its record is
// registered.
std::shared_ptr<record> stop_evaluations(std::int64_t thread, stop_reason reason, record const* upto) {
    running_registry& registered = registry();
    std::lock_guard<spinlock> guard(registered.lock);
    if (upto != nullptr && !upto->registered) return nullptr;
    auto found = registered.innermost.find(thread);
    if (found == registered.innermost.end()) return nullptr;
    std::shared_ptr<record> marked;
    for (std::shared_ptr<record> r = found->second; r; r = r->outer) {
        stop_reason expected = stop_reason::none;
        r->reason.compare_exchange_strong(expected, reason);
        marked = r;
        if (r.get() == upto) break;
    }
    record const& innermost = *found->second;
    raise_stop_in(innermost.state);
    if (int const signal = wake_signal.load(); signal != 0 && innermost.onMainThread)
        (void)pthread_kill(main_thread, signal);
    return marked;
}

// Whether the calling thread's innermost evaluation is being stopped.
bool this_thread_is_stopping() {
    std::shared_ptr<record> innermost = innermost_of(this_thread_id);
    return innermost && innermost->reason.load() != stop_reason::none;
}

// Each time the stop is raised on the evaluating thread: from the second
// time on, the code has caught it and gone on, so no further line may run.
void stop_delivered() {
    std::shared_ptr<record> innermost = innermost_of(this_thread_id);
    if (!innermost || innermost->reason.load() == stop_reason::none) return;
    if (++innermost->deliveries >= 2) start_stop_tracing(innermost->trace, &this_thread_is_stopping);
}

String limit_text(double seconds) {
    std::ostringstream text;
    text << seconds;
    return String(text.str());
}

} // namespace

// The watcher's turn: past the deadline, the time limit stops the
// evaluation; a stopped evaluation that still runs gets the stop again.
clock::time_point record::act(clock::time_point now) {
    stop_reason const current = reason.load();
    if (current == stop_reason::none && now < deadline) return deadline;
    bool const running = stop_evaluations(thread, current != stop_reason::none ? current : stop_reason::time_limit,
                                          this) != nullptr;
    return running ? now + again_after : clock::time_point::min();
}

std::int64_t evaluation_thread_id() { return this_thread_id; }

bool interrupt_evaluation(std::int64_t thread) {
    std::shared_ptr<record> outermost = stop_evaluations(thread, stop_reason::interrupted, nullptr);
    if (!outermost) return false;
    watch(outermost); // raised again until it has ended
    return true;
}

void set_evaluation_time_limit(double seconds) { this_thread_time_limit = seconds > 0 ? seconds : 0; }
double evaluation_time_limit() { return this_thread_time_limit; }

void wake_main_thread_with(int signal) {
    main_thread = pthread_self();
    main_python_thread = PyThread_get_thread_ident();
    wake_signal.store(signal);
}

bool raise_stop_if_stopped() {
    if (!this_thread_is_stopping()) return false;
    withdraw_stop_from(PyThreadState_Get()); // raised here instead
    PyErr_SetNone(stop_exception_type());
    return true;
}

running_evaluation::running_evaluation() : record_(std::make_shared<record>()) {
    record_->thread = this_thread_id;
    record_->state = PyThreadState_Get();
    record_->onMainThread = wake_signal.load() != 0 && PyThread_get_thread_ident() == main_python_thread;
    record_->limit = this_thread_time_limit;
    (void)stop_exception_type(&stop_delivered); // made now, with the lock
    {
        running_registry& r = registry();
        std::lock_guard<spinlock> guard(r.lock);
        std::shared_ptr<record>& slot = r.innermost[record_->thread];
        record_->outer = slot;
        slot = record_;
    }
    if (record_->limit > 0) {
        record_->deadline = clock::now() + std::chrono::duration_cast<clock::duration>(
                                               std::chrono::duration<double>(record_->limit));
        watch(record_);
    }
}

running_evaluation::~running_evaluation() {
    unwatch(record_.get());
    std::shared_ptr<record> outer = record_->outer;
    {
        running_registry& r = registry();
        std::lock_guard<spinlock> guard(r.lock);
        record_->registered = false;
        if (outer)
            r.innermost[record_->thread] = outer;
        else
            r.innermost.erase(record_->thread);
    }
    // A stop that has not been raised yet must not hit the next evaluation;
    // an outer evaluation that is being stopped gets it again, and stays
    // traced.
    bool const outerStopped = outer && outer->reason.load() != stop_reason::none;
    if (outerStopped && record_->trace.active && !outer->trace.active) {
        outer->trace = std::move(record_->trace);
        record_->trace.active = false;
    } else
        end_stop_tracing(record_->trace);
    if (outerStopped)
        raise_stop_in(record_->state);
    else
        withdraw_stop_from(record_->state);
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
