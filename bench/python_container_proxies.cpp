// The container proxies used from the host, as host code uses them (through
// the host's collection interfaces), against the raw C API doing the same
// Python work with the same conversions. Both sides hold the interpreter lock
// throughout, as a host call made inside an evaluation does.
#include "from_python/from_python.h"
#include "to_python/to_python.h"

#include <benchmark/benchmark.h>

#include <string>

namespace {

using namespace tesk;
using namespace tesk::cpython;

constexpr Py_ssize_t element_count = 1000;

PyObjectPtr evaluated(char const* expression) {
    PyObjectPtr globals = PyObjectPtr::steal(PyDict_New());
    PyDict_SetItemString(globals.get(), "__builtins__", PyEval_GetBuiltins());
    return PyObjectPtr::steal(PyRun_String(expression, Py_eval_input, globals.get(), globals.get()));
}

PyObjectPtr sample_list() { return evaluated("list(range(1000))"); }
PyObjectPtr sample_dict() { return evaluated("{f'key{i}': i for i in range(1000)}"); }
String const sample_key("key500");

// ---- indexing ---------------------------------------------------------------

void sequence_at_ours(benchmark::State& state) {
    gil_guard gil;
    PyObjectPtr list = sample_list();
    I_Sequence_Generic sequence = I_Sequence_Generic::unsafe(from_python(list.get()));
    std::int64_t index = 0;
    for (auto _ : state) {
        Any item = sequence.at(index);
        benchmark::DoNotOptimize(item);
        if (++index == element_count) index = 0;
    }
}
BENCHMARK(sequence_at_ours);

void sequence_at_raw(benchmark::State& state) {
    gil_guard gil;
    PyObjectPtr list = sample_list();
    Py_ssize_t index = 0;
    for (auto _ : state) {
        PyObjectPtr item = PyObjectPtr::steal(PySequence_GetItem(list.get(), index));
        Any converted = from_python(item.get());
        benchmark::DoNotOptimize(converted);
        if (++index == element_count) index = 0;
    }
}
BENCHMARK(sequence_at_raw);

// The host's own share: the same call on a host class whose `at` answers
// without Python (the index itself), so what remains above it is the proxy's.
Any echo_at(Any const&, std::int64_t index) { return Integer(index); }

I_Sequence_Generic echo_sequence() {
    class_builder_base builder(String("BenchEchoSequence"));
    builder.entry(entry_tag::interface_methods,
                  {I_Sequence_Generic::getClass(),
                   method_builder_base(I_Sequence_Generic::$at).assign_func(make_closure(&echo_at)).signature(String("self, index")).build()});
    return I_Sequence_Generic::unsafe(builder.build().as<Class_Generic>().allocateInstance());
}

void sequence_at_host_dispatch(benchmark::State& state) {
    static I_Sequence_Generic const sequence = echo_sequence();
    std::int64_t index = 0;
    for (auto _ : state) {
        Any item = sequence.at(index);
        benchmark::DoNotOptimize(item);
        if (++index == element_count) index = 0;
    }
}
BENCHMARK(sequence_at_host_dispatch);

// ---- mapping lookup ---------------------------------------------------------

void mapping_get_ours(benchmark::State& state) {
    gil_guard gil;
    PyObjectPtr dict = sample_dict();
    I_Map_Generic map = I_Map_Generic::unsafe(from_python(dict.get()));
    for (auto _ : state) {
        Any value = map.get(sample_key);
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(mapping_get_ours);

void mapping_get_raw(benchmark::State& state) {
    gil_guard gil;
    PyObjectPtr dict = sample_dict();
    for (auto _ : state) {
        PyObjectPtr key = to_python_ref(sample_key);
        Any value = from_python(PyDict_GetItem(dict.get(), key.get())); // borrowed
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(mapping_get_raw);

// ---- iteration --------------------------------------------------------------

void iterate_ours(benchmark::State& state) {
    gil_guard gil;
    PyObjectPtr list = sample_list();
    I_Iterable_Generic iterable = I_Iterable_Generic::unsafe(from_python(list.get()));
    for (auto _ : state) {
        I_Iterator_Generic iterator = iterable.iter().as<I_Iterator_Generic>();
        for (;;) {
            Any item = iterator.next();
            if (item.isError()) break; // StopIteration
            benchmark::DoNotOptimize(item);
        }
    }
    state.SetItemsProcessed(state.iterations() * element_count);
}
BENCHMARK(iterate_ours);

void iterate_raw(benchmark::State& state) {
    gil_guard gil;
    PyObjectPtr list = sample_list();
    for (auto _ : state) {
        PyObjectPtr iterator = PyObjectPtr::steal(PyObject_GetIter(list.get()));
        while (PyObjectPtr item = PyObjectPtr::steal(PyIter_Next(iterator.get()))) {
            Any converted = from_python(item.get());
            benchmark::DoNotOptimize(converted);
        }
    }
    state.SetItemsProcessed(state.iterations() * element_count);
}
BENCHMARK(iterate_raw);

} // namespace
