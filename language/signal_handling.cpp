// Signals for Python. CPython's own C handler does the work: it only notes
// the signal (no interpreter lock), cuts a blocking system call of the
// thread it interrupts short (it is installed without SA_RESTART), and the
// call, seeing EINTR, runs the Python handlers at once on the main thread.
// The wake-up signal's handler is a built-in function that raises the stop
// of the evaluation being stopped, so a stopped time.sleep or input() ends
// without waiting for its own end.
#include "language/signal_handling.h"

#include "language/evaluation_control.h"
#include "python/interpreter_start.h"
#include "python/python_ref.h"

#include <signal.h>

namespace tesk::cpython {
namespace {

PyObject* wake_handler(PyObject*, PyObject* const*, Py_ssize_t) {
    if (raise_stop_if_stopped()) return nullptr;
    Py_RETURN_NONE;
}

PyMethodDef wake_handler_definition = {"tesk_stop_wake", reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(&wake_handler)),
                                       METH_FASTCALL,
                                       "Raises the host's stop of the running evaluation (a signal handler)."};

// signal.signal(number, handler); an Error with Python's message when it
// fails (not the main thread, say).
Result<None> set_handler(PyObject* signalModule, int number, PyObject* handler) {
    PyObjectPtr previous =
        PyObjectPtr::steal(PyObject_CallMethod(signalModule, "signal", "iO", number, handler));
    if (previous) return None();
    PyObjectPtr raised = PyObjectPtr::steal(PyErr_GetRaisedException());
    PyObjectPtr text = raised ? PyObjectPtr::steal(PyObject_Str(raised.get())) : PyObjectPtr();
    char const* message = text ? PyUnicode_AsUTF8(text.get()) : nullptr;
    PyErr_Clear();
    return Error(String("Signals cannot be handed to Python here: {}.").arg(String(message ? message : "unknown")));
}

bool handled = false; // guarded by the interpreter lock

} // namespace

int stop_wake_signal() { return SIGRTMAX - 2; }

Result<None> handle_signals() {
    if (Any failure = ensure_interpreter(); failure.isError()) return failure.error();
    gil_guard gil;
    if (handled) return None();
    PyObjectPtr module = PyObjectPtr::steal(PyImport_ImportModule("signal"));
    PyObjectPtr intHandler = module ? PyObjectPtr::steal(PyObject_GetAttrString(module.get(), "default_int_handler"))
                                    : PyObjectPtr();
    PyObjectPtr wake = PyObjectPtr::steal(PyCFunction_New(&wake_handler_definition, nullptr));
    if (!intHandler || !wake) {
        PyErr_Clear();
        return Error("Signals cannot be handed to Python: the module signal is missing.");
    }
    if (auto set = set_handler(module.get(), SIGINT, intHandler.get()); set.isError()) return set;
    if (auto set = set_handler(module.get(), stop_wake_signal(), wake.get()); set.isError()) return set;
    wake_main_thread_with(stop_wake_signal());
    handled = true;
    return None();
}

} // namespace tesk::cpython
