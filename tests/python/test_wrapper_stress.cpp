// Wrappers under load: host threads whose evaluations make and drop many
// wrappers and call methods on host objects that they share.
#include "language_test_support.h"
#include "wrapper_test_classes.h"

#include <atomic>
#include <thread>
#include <vector>

namespace tesk::cpython::testing {
namespace {

void collect_cycles() {
    gil_guard gil;
    PyGC_Collect();
}

TEST(WrapperStress, ThreadsMakeAndDropWrappersOfSharedObjects) {
    constexpr int threads = 8;
    constexpr char const* block = "total = 0\n"
                                  "for i in range(10000):\n"
                                  "    total += g.add(1, 2) + xs[0] + m['k'] + len(xs)\n"
                                  "    g.level = i\n"
                                  "return total\n";
    Any gauge = make_gauge("shared", 0);
    List list{Integer(1), Integer(2)};
    HashMap map = map_of({{"k", Integer(3)}});
    EvaluationScope scope = scope_of(map_of({{"g", gauge}, {"xs", list}, {"m", map}}));
    auto run_block = [&] { return internal::result_unwrap_lazy(language_method("evaluate")({String(block), scope})); };
    ASSERT_EQ(integer_of(run_block()), 10000 * 18); // builds what lives for the process
    collect_cycles();
    std::int64_t live = internal::live_object_count();

    std::atomic<int> wrong{0};
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&] {
            Any result = run_block();
            if (!Integer::test(result) || Integer::unsafe(result).value() != 10000 * 18) ++wrong;
        });
    }
    for (auto& worker : workers) worker.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(integer_of(gauge.fieldValue(String("count"))), 9999);
    collect_cycles();
    EXPECT_EQ(internal::live_object_count(), live);
}

} // namespace
} // namespace tesk::cpython::testing
