// Mirroring a Python class of 500 members as a host class: each iteration
// makes a new Python type (untimed) and builds its host class.
#include "python/python_ref.h"
#include "from_python/python_type_class.h"

#include <benchmark/benchmark.h>
#include <tesk/tesk.h>

namespace tesk::cpython {
namespace {

// A factory of classes with `n` members: half methods, half data attributes.
PyObjectPtr class_factory(int n) {
    PyObjectPtr scope = PyObjectPtr::steal(PyDict_New());
    PyDict_SetItemString(scope.get(), "__builtins__", PyEval_GetBuiltins());
    PyObjectPtr ran = PyObjectPtr::steal(PyRun_String(
        "def make(n):\n"
        "    members = {f'm{i}': (lambda self, i=i: i) for i in range(n // 2)}\n"
        "    members.update({f'p{i}': i for i in range(n // 2)})\n"
        "    return type('Wide', (), members)\n",
        Py_file_input, scope.get(), scope.get()));
    (void)n;
    return PyObjectPtr::borrow(PyDict_GetItemString(scope.get(), "make"));
}

void mirror_500_member_class(benchmark::State& state) {
    gil_guard gil;
    PyObjectPtr make = class_factory(500);
    for (auto _ : state) {
        state.PauseTiming();
        PyObjectPtr type = PyObjectPtr::steal(PyObject_CallFunction(make.get(), "i", 500));
        state.ResumeTiming();
        Any cls = host_class_for_python_type(type.get());
        benchmark::DoNotOptimize(cls);
    }
}
BENCHMARK(mirror_500_member_class)->Unit(benchmark::kMicrosecond);

} // namespace
} // namespace tesk::cpython
