// Stopping evaluations: interruption from another thread and time limits.
#pragma once

#include <tesk/tesk.h>

#include <cstdint>
#include <memory>

namespace tesk::cpython {

// The number that names the calling host thread for interrupt_evaluation.
std::int64_t evaluation_thread_id();

// Ends the evaluation that the thread `thread` runs now (and the evaluations
// it is nested in) with the Error "evaluation interrupted". Busy Python code
// stops within milliseconds; the stop is raised again every 50 ms until the
// evaluation has ended, and code that catches it twice can no longer run a
// line. A blocking call stops at once on Python's main thread once the host
// has handed signals over (wake_main_thread_with), elsewhere when it
// returns; a long call inside C code when it returns. False when that thread
// runs no evaluation. Any thread may call it; it takes no lock that the
// evaluating code can hold, so it returns at once.
bool interrupt_evaluation(std::int64_t thread);

// The time limit of the evaluations that the calling thread starts from now
// on, in seconds; 0 for none (the default). An evaluation that runs longer
// ends with the Error "time limit of N s exceeded".
void set_evaluation_time_limit(double seconds);
double evaluation_time_limit();

// From now on, a stop of an evaluation that runs on the calling thread (which
// must be Python's main thread, where Python runs signal handlers) also sends
// `signal` to it: the signal cuts a blocking system call short (EINTR), and
// Python then runs its signal handlers, among them the one that calls
// raise_stop_if_stopped for this signal.
void wake_main_thread_with(int signal);

// On an evaluating thread, with the interpreter lock: raises the stop when
// its evaluation is being stopped, and says whether it did.
bool raise_stop_if_stopped();

// Marks the calling thread as running evaluated code from construction to
// destruction (both with the interpreter lock held), and watches its time
// limit.
class running_evaluation {
public:
    running_evaluation();
    ~running_evaluation();
    running_evaluation(running_evaluation const&) = delete;
    running_evaluation& operator=(running_evaluation const&) = delete;

    // Call when the code has returned: the Error that replaces the outcome
    // when the evaluation was stopped (the exception that stopped it is
    // cleared), else none.
    Union<Error, None> stopped();

    struct record;

private:
    std::shared_ptr<record> record_;
};

} // namespace tesk::cpython
