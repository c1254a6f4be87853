// The host calling a Python function with two integers: through the
// CPythonFunction proxy as host code does (I_Callable_Generic::invoke), against
// the raw C API (vectorcall with two ints, the result read back as an integer)
// and pybind11 (a py::object call with two ints), in the same run.
//
// The raw and pybind11 calls need the interpreter lock, so every variant runs
// with it held for the whole loop, as calls made from inside an evaluation
// do; `ours_unlocked` is the host thread that holds no lock and takes it per
// call, and `ours_through_call` the generic path that a callable instance
// without an invoke hook takes (a list of the arguments, "call" by name).
#include "python/python_ref.h"
#include "from_python/from_python.h"

#include <benchmark/benchmark.h>
#include <pybind11/pybind11.h>
#include <tesk/tesk.h>

namespace {

using namespace tesk;
using namespace tesk::cpython;
namespace py = pybind11;

// The Python function, made once.
PyObject* python_add() {
    static PyObject* const function = [] {
        gil_guard gil;
        PyObjectPtr globals = PyObjectPtr::steal(PyDict_New());
        PyDict_SetItemString(globals.get(), "__builtins__", PyEval_GetBuiltins());
        PyObjectPtr ran = PyObjectPtr::steal(
            PyRun_String("def add(a, b):\n    return a + b\n", Py_file_input, globals.get(), globals.get()));
        if (!ran) PyErr_Print();
        return PyObjectPtr::borrow(PyDict_GetItemString(globals.get(), "add")).release();
    }();
    return function;
}

I_Callable_Generic host_add() {
    static I_Callable_Generic const* const function = [] {
        gil_guard gil;
        return new I_Callable_Generic(I_Callable_Generic::unsafe(from_python(python_add())));
    }();
    return *function;
}

// The value of an integer result, read in place as the raw side reads its
// PyLong (a typed handle would be a copy: two more atomic operations).
std::int64_t integer_of(Any const& result) {
    std::int64_t value = 0;
    Any failure;
    (void)internal::cast_int64(result, value, failure);
    return value;
}

void check(benchmark::State& state, std::int64_t sum) {
    if (sum != 42) state.SkipWithError("the call gave a wrong result");
}

// The host's arguments, as host code holds them.
std::span<Any const> host_arguments() {
    static Any const* const arguments = new Any[2]{Integer(20), Integer(22)};
    return {arguments, 2};
}

void function_call_ours(benchmark::State& state) {
    I_Callable_Generic add = host_add();
    std::span<Any const> arguments = host_arguments();
    gil_guard gil;
    std::int64_t sum = 0;
    for (auto _ : state) {
        Any result = add.invoke(arguments);
        sum = integer_of(result);
        benchmark::DoNotOptimize(sum);
    }
    check(state, sum);
}

void function_call_ours_unlocked(benchmark::State& state) {
    I_Callable_Generic add = host_add();
    std::span<Any const> arguments = host_arguments();
    std::int64_t sum = 0;
    for (auto _ : state) {
        Any result = add.invoke(arguments);
        sum = integer_of(result);
        benchmark::DoNotOptimize(sum);
    }
    check(state, sum);
}

void function_call_ours_through_call(benchmark::State& state) {
    I_Callable_Generic add = host_add();
    std::span<Any const> arguments = host_arguments();
    gil_guard gil;
    std::int64_t sum = 0;
    for (auto _ : state) {
        Any const args[] = {List{arguments[0], arguments[1]}};
        Any result = add.callMethod(String("call"), args);
        sum = integer_of(result);
        benchmark::DoNotOptimize(sum);
    }
    check(state, sum);
}

void function_call_raw(benchmark::State& state) {
    PyObject* add = python_add();
    gil_guard gil;
    std::int64_t sum = 0;
    for (auto _ : state) {
        PyObject* args[] = {nullptr, PyLong_FromLongLong(20), PyLong_FromLongLong(22)};
        PyObject* result = PyObject_Vectorcall(add, args + 1, 2 | PY_VECTORCALL_ARGUMENTS_OFFSET, nullptr);
        sum = PyLong_AsLongLong(result);
        Py_DECREF(result);
        Py_DECREF(args[1]);
        Py_DECREF(args[2]);
        benchmark::DoNotOptimize(sum);
    }
    check(state, sum);
}

void function_call_pybind11(benchmark::State& state) {
    gil_guard gil;
    py::object add = py::reinterpret_borrow<py::object>(python_add());
    std::int64_t sum = 0;
    for (auto _ : state) {
        sum = add(20, 22).cast<std::int64_t>();
        benchmark::DoNotOptimize(sum);
    }
    check(state, sum);
}

BENCHMARK(function_call_ours);
BENCHMARK(function_call_ours_unlocked);
BENCHMARK(function_call_ours_through_call);
BENCHMARK(function_call_raw);
BENCHMARK(function_call_pybind11);

} // namespace
