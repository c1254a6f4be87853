// The stop exception and its delivery. PyThreadState_SetAsyncExc needs the
// interpreter lock, which busy code may keep for as long as it likes
// (sys.setswitchinterval(1e6)) and a long C call keeps until it returns;
// waiting for it made every stop as late as the code chose. What it does is
// small: store the exception in the thread state and set the thread's
// eval-breaker flag, both atomic fields that the eval loop reads atomically.
// With an immortal exception type no reference count changes hands, so any
// thread can do the same without the lock.
#include "language/stop_exception.h"

#include "python/python_once.h"
#include "python/sandbox_state.h"

#include <atomic>
#include <cstdint>
#include <utility>

#if PY_VERSION_HEX < 0x030D0000 || PY_VERSION_HEX >= 0x030E0000
#error "the stop delivery reads thread-state fields of CPython 3.13"
#endif

namespace tesk::cpython {
namespace {

// _PY_ASYNC_EXCEPTION_BIT of CPython 3.13 (Include/internal/pycore_ceval.h):
// the eval loop's flag for "a pending asynchronous exception".
constexpr std::uintptr_t async_exception_bit = std::uintptr_t{1} << 3;

python_once type_once;
PyObject* type_object = nullptr;
std::atomic<void (*)()> delivery_hook{nullptr};

// BaseException's own initialisation, then the delivery hook: an instance is
// made each time the eval loop raises the pending stop.
int stop_init(PyObject* self, PyObject* args, PyObject* keywords) {
    if (reinterpret_cast<PyTypeObject*>(PyExc_BaseException)->tp_init(self, args, keywords) < 0) return -1;
    if (auto hook = delivery_hook.load()) hook();
    return 0;
}

PyObject* make_type() {
    static PyType_Slot slots[] = {{Py_tp_init, reinterpret_cast<void*>(&stop_init)},
                                  {Py_tp_doc, const_cast<char*>("The evaluation was stopped by its host.")},
                                  {0, nullptr}};
    static PyType_Spec description = {"tesk.EvaluationInterrupted", static_cast<int>(sizeof(PyBaseExceptionObject)), 0,
                               Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE, slots};
    PyObject* type = PyType_FromSpecWithBases(&description, PyExc_BaseException);
    if (type == nullptr) {
        PyErr_Clear();
        return nullptr;
    }
    // Kept for the process, and immortal: raise_stop_in hands it over
    // without the interpreter lock.
    Py_SET_REFCNT(type, _Py_IMMORTAL_REFCNT);
    return type;
}

std::atomic<bool (*)()> tracing_condition{nullptr};

int stop_tracer(PyObject*, PyFrameObject*, int what, PyObject*) {
    if (what != PyTrace_LINE) return 0;
    auto stopping = tracing_condition.load();
    if (stopping == nullptr || !stopping() || type_object == nullptr) return 0;
    PyErr_SetNone(type_object);
    return -1;
}

// The tracer is the host's own: a sandboxed evaluation that is stopped is
// traced although its code may not set a tracer itself.
// An exception already pending (the one that ends the evaluation) is kept.
void set_trace(Py_tracefunc function, PyObject* object) {
    PyObject* const pending = PyErr_GetRaisedException();
    bool const sandboxed = std::exchange(sandbox_active, false);
    PyEval_SetTrace(function, object);
    sandbox_active = sandboxed;
    PyErr_SetRaisedException(pending);
}

} // namespace

PyObject* stop_exception_type(void (*delivered)()) {
    if (delivered != nullptr) delivery_hook.store(delivered);
    type_once.run([] { type_object = make_type(); });
    return type_object != nullptr ? type_object : PyExc_KeyboardInterrupt;
}

void raise_stop_in(PyThreadState* state) {
    PyObject* const stop = type_object != nullptr ? type_object : PyExc_KeyboardInterrupt; // both immortal
    PyObject* expected = nullptr;
    std::atomic_ref<PyObject*>(state->async_exc).compare_exchange_strong(expected, stop);
    std::atomic_ref<std::uintptr_t>(state->eval_breaker).fetch_or(async_exception_bit);
}

void withdraw_stop_from(PyThreadState* state) {
    PyObject* expected = type_object != nullptr ? type_object : PyExc_KeyboardInterrupt;
    std::atomic_ref<PyObject*>(state->async_exc).compare_exchange_strong(expected, nullptr);
}

void start_stop_tracing(saved_trace& saved, bool (*stopping)()) {
    PyThreadState* state = PyThreadState_Get();
    if (saved.active || state->c_tracefunc == &stop_tracer) return;
    tracing_condition.store(stopping);
    saved.function = state->c_tracefunc;
    saved.object = PyObjectPtr::borrow(state->c_traceobj);
    saved.active = true;
    set_trace(&stop_tracer, nullptr);
}

void end_stop_tracing(saved_trace& saved) {
    if (!saved.active) return;
    saved.active = false;
    PyObjectPtr object = std::move(saved.object);
    set_trace(saved.function, object.get());
}

} // namespace tesk::cpython
