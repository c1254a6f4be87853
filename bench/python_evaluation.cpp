// Evaluations against the raw C API doing the same: fresh globals and locals
// with as many entries (the host modules, the host globals, the scope), then
// PyRun_String of the same code. Ours runs the same code again and again (its
// compiled form comes from the cache) and, in the *_fresh_code variants, a
// new code every time (compiled every time).
#include "language/evaluation.h"
#include "to_python/to_python.h"

#include <benchmark/benchmark.h>

#include <string>

namespace {

using namespace tesk;
using namespace tesk::cpython;

HashMap scope_with_a() {
    HashMap locals(String::getClass(), Type::untyped());
    locals.set(String("a"), Integer(41));
    return locals;
}

// The block: ten lines, the last one returning.
char const block[] = "x = a\n"
                     "x = x + 1\n"
                     "y = x * 2\n"
                     "z = y - x\n"
                     "if z > 0:\n"
                     "    z = z + 1\n"
                     "w = [z, y, x]\n"
                     "s = 0\n"
                     "for v in w: s = s + v\n"
                     "return s";

// The same block as the statement evaluation runs it: the body of a function.
std::string raw_block_program() {
    std::string program = "def tesk_outer():\n";
    std::string text = block;
    std::size_t start = 0;
    while (true) {
        std::size_t end = text.find('\n', start);
        program += "\t" + text.substr(start, end == std::string::npos ? std::string::npos : end - start) + "\n";
        if (end == std::string::npos) break;
        start = end + 1;
    }
    program += "tesk_result = tesk_outer()\n";
    return program;
}

// The entries every evaluation starts from (host modules and host globals),
// converted once; each raw evaluation copies them into its fresh globals.
PyObject* raw_initial_globals() {
    PyObject* globals = host_modules_dict();
    for (auto const& [key, value] : tesk::globals().items()) {
        if (!String::test(key)) continue;
        PyObjectPtr converted = to_python_ref(value);
        if (converted) PyDict_SetItemString(globals, String::unsafe(key).c_str(), converted.get());
    }
    PyErr_Clear();
    return globals;
}

// Fresh globals holding the initial entries and the scope; fresh empty locals.
void raw_run(PyObject* initial, char const* code, int start, char const* resultName, benchmark::State& state) {
    for (auto _ : state) {
        PyObject* globals = PyDict_Copy(initial);
        PyObject* a = PyLong_FromLongLong(41);
        PyDict_SetItemString(globals, "a", a);
        Py_DECREF(a);
        PyObject* locals = PyDict_New();
        PyObject* result = PyRun_String(code, start, globals, locals);
        if (!result) {
            PyErr_Print();
            state.SkipWithError("the raw evaluation failed");
            break;
        }
        PyObject* value = resultName ? PyDict_GetItemString(locals, resultName) : result;
        long long back = PyLong_AsLongLong(value);
        benchmark::DoNotOptimize(back);
        Py_DECREF(result);
        Py_DECREF(locals);
        Py_DECREF(globals);
    }
}

void check(Result<Any> const& result, std::int64_t expected, benchmark::State& state) {
    if (!Integer::test(result) || Integer::unsafe(result).value() != expected) {
        state.SkipWithError(("unexpected result: " + display(result).toUtf8()).c_str());
    }
}

void expression_ours(benchmark::State& state) {
    gil_guard gil; // as the raw side: the lock is not part of the comparison
    HashMap locals = scope_with_a();
    String code("a + 1");
    check(language_python_evaluate_expression(code, locals, None()), 42, state);
    for (auto _ : state) {
        Result<Any> result = language_python_evaluate_expression(code, locals, None());
        benchmark::DoNotOptimize(result);
    }
}
BENCHMARK(expression_ours);

// A code never seen before on every iteration: the compilation is measured
// too (the cache cannot help; a trailing comment makes each code distinct).
void expression_ours_fresh_code(benchmark::State& state) {
    gil_guard gil;
    HashMap locals = scope_with_a();
    std::uint64_t serial = 0;
    for (auto _ : state) {
        String code("a + 1 # " + std::to_string(serial++));
        Result<Any> result = language_python_evaluate_expression(code, locals, None());
        benchmark::DoNotOptimize(result);
    }
}
BENCHMARK(expression_ours_fresh_code);

void expression_raw(benchmark::State& state) {
    gil_guard gil;
    PyObjectPtr initial = PyObjectPtr::steal(raw_initial_globals());
    raw_run(initial.get(), "a + 1", Py_eval_input, nullptr, state);
}
BENCHMARK(expression_raw);

void block_ours(benchmark::State& state) {
    gil_guard gil;
    HashMap locals = scope_with_a();
    String code(block);
    check(language_python_evaluate_method(Any(), code, locals, None(), None()), 169, state);
    for (auto _ : state) {
        Result<Any> result = language_python_evaluate_method(Any(), code, locals, None(), None());
        benchmark::DoNotOptimize(result);
    }
}
BENCHMARK(block_ours);

void block_ours_fresh_code(benchmark::State& state) {
    gil_guard gil;
    HashMap locals = scope_with_a();
    std::uint64_t serial = 0;
    for (auto _ : state) {
        String code(std::string(block) + " # " + std::to_string(serial++));
        Result<Any> result = language_python_evaluate_method(Any(), code, locals, None(), None());
        benchmark::DoNotOptimize(result);
    }
}
BENCHMARK(block_ours_fresh_code);

void block_raw(benchmark::State& state) {
    gil_guard gil;
    PyObjectPtr initial = PyObjectPtr::steal(raw_initial_globals());
    std::string program = raw_block_program();
    raw_run(initial.get(), program.c_str(), Py_file_input, "tesk_result", state);
}
BENCHMARK(block_raw);

} // namespace
