// HashMap with String keys: insertion and lookup.
#include <benchmark/benchmark.h>
#include <tesk/tesk.h>

#include <vector>

namespace {

std::vector<tesk::String> make_keys(std::size_t count) {
    std::vector<tesk::String> keys;
    keys.reserve(count);
    for (std::size_t i = 0; i < count; ++i) keys.push_back(tesk::String("key_" + std::to_string(i)));
    return keys;
}

// Fills a new map with `range(0)` keys; the time is per insertion.
void BM_HashMapInsert(benchmark::State& state) {
    auto keys = make_keys(static_cast<std::size_t>(state.range(0)));
    tesk::Integer value(1);
    for (auto _ : state) {
        tesk::HashMap map;
        for (auto const& key : keys) map.set(key, value);
        benchmark::DoNotOptimize(map);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_HashMapInsert)->Arg(16)->Arg(1024);

// Looks up keys that are present, in a map of `range(0)` entries.
void BM_HashMapLookup(benchmark::State& state) {
    auto keys = make_keys(static_cast<std::size_t>(state.range(0)));
    tesk::HashMap map;
    for (auto const& key : keys) map.set(key, tesk::Integer(1));
    std::size_t i = 0;
    for (auto _ : state) {
        auto found = map.find(keys[i]);
        benchmark::DoNotOptimize(found);
        if (++i == keys.size()) i = 0;
    }
}
BENCHMARK(BM_HashMapLookup)->Arg(16)->Arg(1024);

} // namespace
