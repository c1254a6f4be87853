// Member lookup and calls through typed wrappers.
#include <benchmark/benchmark.h>
#include <tesk/tesk.h>

#include <array>

namespace {

// Finds the method "at" of a List by name, as any dynamic caller does.
void BM_MethodLookup(benchmark::State& state) {
    tesk::List list{tesk::Integer(1), tesk::Integer(2)};
    tesk::String name("at");
    for (auto _ : state) {
        auto method = tesk::method_of(list, name);
        benchmark::DoNotOptimize(method);
    }
}
BENCHMARK(BM_MethodLookup);

std::int64_t add(std::int64_t a, std::int64_t b) { return a + b; }

// A native two-argument function called through its host callable: argument
// casts, the call and the boxing of the result.
void BM_TypedCall2(benchmark::State& state) {
    tesk::I_Callable_Generic callable = tesk::make_closure(&add);
    std::array<tesk::Any, 2> arguments{tesk::Integer(20), tesk::Integer(22)};
    for (auto _ : state) {
        tesk::Any result = callable.invoke(arguments);
        benchmark::DoNotOptimize(result);
    }
}
BENCHMARK(BM_TypedCall2);

} // namespace
