// The exception that stops evaluated code, raised in another thread without
// the interpreter lock, and the line tracer that keeps raising it in code
// that catches it.
#pragma once

#include "python/python_ref.h"

namespace tesk::cpython {

// tesk.EvaluationInterrupted, a BaseException. Made once (the caller holds
// the interpreter lock the first time) and immortal, so that any thread may
// hand it to a thread state without touching its reference count. `delivered`
// runs on the evaluating thread, with the interpreter lock, each time an
// instance is made: that is each time the stop is raised.
PyObject* stop_exception_type(void (*delivered)() = nullptr);

// Makes `state` raise the stop exception at its next check of the eval loop
// (every backward jump, call and function start), as PyThreadState_SetAsyncExc
// does, but without the interpreter lock: the pending exception and the
// thread's eval-breaker flag are set atomically. A pending exception that is
// not the stop is left in place. The caller keeps `state` alive.
void raise_stop_in(PyThreadState* state);

// Takes a pending stop back from `state` (the caller's own, lock held).
void withdraw_stop_from(PyThreadState* state);

// The line tracer: on the calling thread (interpreter lock held), makes every
// line of Python code that starts from now on raise the stop while
// `stopping()` is true, so that no `except` or `finally` can run a line of
// its own and the code cannot go on. Keeps the thread's previous trace
// function in `saved`; end_stop_tracing puts it back.
struct saved_trace {
    Py_tracefunc function = nullptr;
    PyObjectPtr object;
    bool active = false;
};
void start_stop_tracing(saved_trace& saved, bool (*stopping)());
void end_stop_tracing(saved_trace& saved);

} // namespace tesk::cpython
