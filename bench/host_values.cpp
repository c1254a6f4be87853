// Handles and boxing: copying an Any, boxing integers.
#include <benchmark/benchmark.h>
#include <tesk/tesk.h>

namespace {

// One copy and one release of a counted handle.
void BM_AnyCopy(benchmark::State& state) {
    tesk::Any value = tesk::String("a shared value");
    for (auto _ : state) {
        tesk::Any copy = value;
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(BM_AnyCopy);

// Small integers come from the cache: no allocation.
void BM_IntegerBoxSmall(benchmark::State& state) {
    std::int64_t n = 0;
    for (auto _ : state) {
        tesk::Integer boxed(n);
        benchmark::DoNotOptimize(boxed);
        n = (n + 1) & 63;
    }
}
BENCHMARK(BM_IntegerBoxSmall);

// Large integers are allocated.
void BM_IntegerBoxLarge(benchmark::State& state) {
    std::int64_t n = std::int64_t{1} << 40;
    for (auto _ : state) {
        tesk::Integer boxed(n);
        benchmark::DoNotOptimize(boxed);
        ++n;
    }
}
BENCHMARK(BM_IntegerBoxLarge);

} // namespace
