// Conversions both ways against the raw C API doing the same work. Both sides
// run with the interpreter lock already held, as conversions do inside an
// evaluation or a call from Python.
#include "from_python/from_python.h"
#include "to_python/to_python.h"

#include <benchmark/benchmark.h>

#include <string>

namespace {

using namespace tesk;
using namespace tesk::cpython;

// Outside the small-integer caches of both sides, so both allocate.
constexpr std::int64_t sample_integer = 123'456'789;

// A small value: one that both sides keep shared (CPython up to 256, the
// host up to 1024).
constexpr std::int64_t small_integer = 200;

void integer_round_trip_ours(benchmark::State& state, std::int64_t sample) {
    gil_guard gil;
    Integer value(sample);
    for (auto _ : state) {
        PyObject* object = to_python(value);
        Any back = from_python(object);
        Py_DECREF(object);
        benchmark::DoNotOptimize(back);
    }
}

void integer_round_trip_raw(benchmark::State& state, std::int64_t sample) {
    gil_guard gil;
    for (auto _ : state) {
        PyObject* object = PyLong_FromLongLong(sample);
        long long back = PyLong_AsLongLong(object);
        Py_DECREF(object);
        benchmark::DoNotOptimize(back);
    }
}

void integer_ours(benchmark::State& state) { integer_round_trip_ours(state, sample_integer); }
void integer_raw(benchmark::State& state) { integer_round_trip_raw(state, sample_integer); }
void integer_small_ours(benchmark::State& state) { integer_round_trip_ours(state, small_integer); }
void integer_small_raw(benchmark::State& state) { integer_round_trip_raw(state, small_integer); }
BENCHMARK(integer_ours);
BENCHMARK(integer_raw);
BENCHMARK(integer_small_ours);
BENCHMARK(integer_small_raw);

std::string const sample_text(100, 'x');

void string_ours(benchmark::State& state) {
    gil_guard gil;
    String value(sample_text);
    for (auto _ : state) {
        PyObject* object = to_python(value);
        Any back = from_python(object);
        Py_DECREF(object);
        benchmark::DoNotOptimize(back);
    }
}
BENCHMARK(string_ours);

void string_raw(benchmark::State& state) {
    gil_guard gil;
    for (auto _ : state) {
        PyObject* object = PyUnicode_FromStringAndSize(sample_text.data(), static_cast<Py_ssize_t>(sample_text.size()));
        Py_ssize_t size = 0;
        char const* back = PyUnicode_AsUTF8AndSize(object, &size);
        benchmark::DoNotOptimize(back);
        Py_DECREF(object);
    }
}
BENCHMARK(string_raw);

Tuple sample_tuple() {
    std::vector<Any> items;
    for (int i = 0; i < 10; ++i) items.push_back(Integer(sample_integer + i));
    return Tuple(std::move(items));
}

PyObject* raw_tuple() {
    PyObject* tuple = PyTuple_New(10);
    for (int i = 0; i < 10; ++i) PyTuple_SET_ITEM(tuple, i, PyLong_FromLongLong(sample_integer + i));
    return tuple;
}

// The host tuple becomes a Python tuple; coming back, a Python tuple is held
// by a host proxy (its items are read on demand).
void tuple_ours(benchmark::State& state) {
    gil_guard gil;
    Tuple value = sample_tuple();
    for (auto _ : state) {
        PyObject* object = to_python(value);
        Any back = from_python(object);
        Py_DECREF(object);
        benchmark::DoNotOptimize(back);
    }
}
BENCHMARK(tuple_ours);

// Builds the tuple and reads every item back: more than our way back does.
void tuple_raw(benchmark::State& state) {
    gil_guard gil;
    for (auto _ : state) {
        PyObject* tuple = raw_tuple();
        long long sum = 0;
        for (int i = 0; i < 10; ++i) sum += PyLong_AsLongLong(PyTuple_GET_ITEM(tuple, i));
        Py_DECREF(tuple);
        benchmark::DoNotOptimize(sum);
    }
}
BENCHMARK(tuple_raw);

// One direction only: the tuple build alone.
void tuple_to_python_ours(benchmark::State& state) {
    gil_guard gil;
    Tuple value = sample_tuple();
    for (auto _ : state) {
        PyObject* object = to_python(value);
        benchmark::DoNotOptimize(object);
        Py_DECREF(object);
    }
}
BENCHMARK(tuple_to_python_ours);

void tuple_to_python_raw(benchmark::State& state) {
    gil_guard gil;
    for (auto _ : state) {
        PyObject* object = raw_tuple();
        benchmark::DoNotOptimize(object);
        Py_DECREF(object);
    }
}
BENCHMARK(tuple_to_python_raw);

} // namespace

// What the host alone costs to make the value a conversion back gives: the
// floor under each round trip beside the raw C API's own work.
namespace {

void host_integer_alone(benchmark::State& state) {
    for (auto _ : state) {
        Integer value(sample_integer);
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(host_integer_alone);

void host_string_alone(benchmark::State& state) {
    for (auto _ : state) {
        String value = String::fromRawDataUnsafe(sample_text.data(), sample_text.size());
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(host_string_alone);

} // namespace
