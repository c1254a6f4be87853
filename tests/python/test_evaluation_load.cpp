// Evaluations under load: many host threads at once, and many evaluations in
// a row without growth of host objects or Python memory.
#include "language_test_support.h"

#include <atomic>
#include <thread>
#include <vector>

namespace tesk::cpython::testing {
namespace {

TEST(EvaluationLoad, ConcurrentEvaluationsFromHostThreads) {
    constexpr int threads = 8;
    constexpr int rounds = 50;
    std::atomic<int> wrong{0};
    std::atomic<int> pending{0};
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([t, &wrong, &pending] {
            for (int i = 0; i < rounds; ++i) {
                HashMap out = map_of({{"acc", Integer(t)}});
                EvaluationScope scope = scope_of(map_of({{"i", Integer(i)}}), Any(), out);
                Any result = internal::result_unwrap_lazy(
                    language_method("evaluate")({String("acc = acc * 1000 + i\nreturn [acc, i][1]"), scope}));
                Any expression = internal::result_unwrap_lazy(
                    language_method("evaluateExpression")({String("i * 2"), scope}));
                bool ok = Integer::test(result) && Integer::unsafe(result).value() == i &&
                          Integer::test(expression) && Integer::unsafe(expression).value() == 2 * i &&
                          Integer::unsafe(out.find(String("acc"))).value() == t * 1000 + i;
                if (!ok) ++wrong;
                if (python_error_pending()) ++pending;
            }
        });
    }
    for (auto& worker : workers) worker.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(pending.load(), 0);
}

// Each statement block's globals and its generated function refer to each
// other, so they go with Python's cycle collection, not at once.
void collect_cycles() {
    gil_guard gil;
    PyObjectPtr gc = PyObjectPtr::steal(PyImport_ImportModule("gc"));
    PyObjectPtr collected = gc ? PyObjectPtr::steal(PyObject_CallMethod(gc.get(), "collect", nullptr)) : PyObjectPtr();
    EXPECT_TRUE(collected);
}

// sys.getallocatedblocks(): the memory blocks that Python has handed out.
std::int64_t allocated_blocks() {
    gil_guard gil;
    PyObjectPtr sys = PyObjectPtr::steal(PyImport_ImportModule("sys"));
    PyObjectPtr blocks = sys ? PyObjectPtr::steal(PyObject_CallMethod(sys.get(), "getallocatedblocks", nullptr))
                             : PyObjectPtr();
    return blocks ? PyLong_AsLongLong(blocks.get()) : -1;
}

TEST(EvaluationLoad, RepeatedEvaluationsLeakNothing) {
    HashMap out = map_of({{"total", Integer(0)}});
    EvaluationScope scope = scope_of(map_of({{"n", Integer(3)}, {"text", String("abc")}}), Any(), out);
    auto round = [&] {
        // Small, so that no new host integers are made (and cached) as it goes.
        (void)evaluate("total = (total + n) % 7\nreturn [text, n, {'k': total}]", scope);
        (void)evaluate_expression("text * n", scope);
        (void)evaluate("raise ValueError('again')", scope);
        (void)evaluate("y = = 1", scope);
    };
    // Warm up: caches, interned names, types made on first use.
    for (int i = 0; i < 200; ++i) round();
    collect_cycles();
    std::int64_t const objectsBefore = internal::live_object_count();
    std::int64_t const blocksBefore = allocated_blocks();
    for (int i = 0; i < 2500; ++i) round(); // 10 000 evaluations
    collect_cycles();
    std::int64_t const objectsAfter = internal::live_object_count();
    std::int64_t const blocksAfter = allocated_blocks();
    // One object or block lost per evaluation would add 10 000; what Python
    // and the host cache on the way (specialised code, interned names) stays
    // far below that.
    EXPECT_LE(objectsAfter - objectsBefore, 50) << "host objects: " << objectsBefore << " -> " << objectsAfter;
    EXPECT_LE(blocksAfter - blocksBefore, 2000) << "Python blocks: " << blocksBefore << " -> " << blocksAfter;
    EXPECT_EQ(integer_of(out.find(String("total"))), (3 * 2700) % 7);
}

} // namespace
} // namespace tesk::cpython::testing
