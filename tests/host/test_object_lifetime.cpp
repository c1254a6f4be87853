// Object lifetime: counting, finalisers, deferred values, copies across threads.
#include <gtest/gtest.h>
#include "host_test_support.h"

#include <atomic>
#include <thread>
#include <vector>

using namespace tesk;

namespace {

// Counts live host objects around a block of work: the block must leave
// exactly as many objects as it found.
class LeakCheck {
public:
    LeakCheck() : before_(internal::live_object_count()) {}
    std::int64_t leaked() const { return internal::live_object_count() - before_; }

private:
    std::int64_t before_;
};

TEST(ObjectLifetime, ValuesAndContainersLeaveNothingBehind) {
    // Warm the shared values (class records, caches) before counting.
    (void)String("warm"), (void)Integer(1), (void)Boolean(true), (void)List(), (void)HashMap();
    LeakCheck check;
    {
        List list{Integer(1), String("two"), Float(3.0)};
        HashMap map;
        ASSERT_FALSE(map.set(String("list"), Integer(7)).isError());
        ASSERT_FALSE(map.set(Tuple{Integer(1), String("k")}, list).isError());
        list.append(map); // a cycle would leak; this is not one: the map is dropped from the list below
        list.set(3, Any());
        HashSet set;
        ASSERT_FALSE(set.insert(Decimal::fromString(String("1.10"))).isError());
        DateTime when(Date(2024, 1, 2), Time(3, 4, 5, 6000, 7200, String("CET")));
        ByteArray bytes("abc", 3);
        Any deferred = Computed_Generic::make([list] { return Any(list); });
        EXPECT_TRUE(internal::unwrap(deferred).isSame(list));
        EXPECT_GT(check.leaked(), 0);
    }
    EXPECT_EQ(check.leaked(), 0);
}

TEST(ObjectLifetime, SmallIntegersAndBooleansAreSharedWithoutAllocation) {
    // Each shared value is made on first use; make these before counting.
    (void)Integer(1024), (void)Integer(-5), (void)Boolean(false), (void)Boolean(true), (void)Undefined();
    LeakCheck check;
    Integer a(1024), b(1024), c(-5);
    Boolean t(true), f(false);
    EXPECT_TRUE(a.isSame(b));
    EXPECT_TRUE(Boolean(true).isSame(t));
    EXPECT_TRUE(Boolean(false).isSame(f));
    EXPECT_TRUE(String().isSame(String("")));
    EXPECT_TRUE(Undefined().isSame(Undefined()));
    EXPECT_EQ(check.leaked(), 0);
    Integer big(1025);
    EXPECT_EQ(check.leaked(), 1);
    EXPECT_FALSE(big.isSame(Integer(1025)));
}

TEST(ObjectLifetime, SharedValuesAreImmortalAndCopiesLeaveTheirCountAlone) {
    Integer small(7);
    Boolean yes(true);
    String name = I_Sequence_Generic::$at; // an interned member name
    std::vector<internal::object_value const*> shared = {small.get(), yes.get(), String().get(),
                                                         Undefined().get(), name.get()};
    std::vector<std::uint32_t> counts;
    for (auto const* record : shared) {
        EXPECT_TRUE(record->is_immortal());
        counts.push_back(record->use_count());
    }
    // Copied, boxed again and dropped from many threads at once: the counts
    // never move, and the values stay what they were.
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&shared] {
            for (int i = 0; i < 20000; ++i) {
                Integer again(7);
                for (auto const* record : shared) Any copy = Any::borrow(record);
            }
        });
    }
    for (auto& t : threads) t.join();
    for (std::size_t i = 0; i < shared.size(); ++i) EXPECT_EQ(shared[i]->use_count(), counts[i]);
    EXPECT_EQ(small.value(), 7);
    EXPECT_TRUE(yes.value());
    // A value that is not shared is counted as before.
    String own("not shared");
    EXPECT_FALSE(own.get()->is_immortal());
    EXPECT_EQ(own.get()->use_count(), 1u);
}

// A class whose finaliser records each object it sees and may keep it alive.
struct FinalisedClass {
    internal::object_value_class* record = test_class_record("Finalised");
    std::vector<std::uint64_t> seen; // object ids, in finalising order
    bool keep = false;
    FinalisedClass() {
        set_finalizer_unsafe(Class_Generic::of(record), internal::make_function_callable(
            [this](std::span<Any const> args) {
                seen.push_back(object_id(args[0]));
                if (keep) kept = args[0];
                return Any();
            },
            Signature(Type::untyped(), {}), String("finalise")));
    }
    Any make() const { return Any::adopt(new internal::object_value_instance(record)); }
    Any kept;
};

TEST(ObjectLifetime, FinaliserRunsOnceWithTheObjectBeforeDeletion) {
    static FinalisedClass cls; // class records live for the process
    LeakCheck check;
    Any object = cls.make();
    std::uint64_t id = object_id(object);
    object.reset();
    ASSERT_EQ(cls.seen.size(), 1u);
    EXPECT_EQ(cls.seen[0], id);
    EXPECT_EQ(check.leaked(), 0);
}

TEST(ObjectLifetime, FinaliserThatKeepsTheObjectDelaysDeletionAndRunsOnlyOnce) {
    static FinalisedClass cls;
    cls.keep = true;
    LeakCheck check;
    cls.make().reset();
    ASSERT_EQ(cls.seen.size(), 1u);
    ASSERT_TRUE(cls.kept.hasValue());
    EXPECT_EQ(check.leaked(), 1); // revived by the finaliser
    cls.keep = false;
    cls.kept.reset();
    EXPECT_EQ(cls.seen.size(), 1u); // not finalised a second time
    EXPECT_EQ(check.leaked(), 0);
}

TEST(ObjectLifetime, CopiesFromManyThreadsKeepTheCountRight) {
    LeakCheck check;
    {
        String shared("shared between threads");
        ASSERT_EQ(shared.get()->use_count(), 1u);
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([shared] {
                for (int i = 0; i < 20000; ++i) {
                    Any copy = shared;
                    Any moved = std::move(copy);
                    moved.reset();
                }
            });
        }
        for (auto& t : threads) t.join();
        EXPECT_EQ(shared.get()->use_count(), 1u);
    }
    EXPECT_EQ(check.leaked(), 0);
}

TEST(ObjectLifetime, ComputedValueRunsItsProducerOnceAcrossThreads) {
    std::atomic<int> runs{0};
    Computed_Generic deferred = Computed_Generic::make([&runs] {
        ++runs;
        return Any(Integer(42));
    });
    std::vector<std::thread> threads;
    std::atomic<int> right{0};
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            if (Integer::cast(deferred.resolve()).value().value() == 42) ++right;
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(runs.load(), 1);
    EXPECT_EQ(right.load(), 4);
}

TEST(ObjectLifetime, NestedDeferredValuesResolveToTheFinalValue) {
    Any inner = Computed_Generic::make([] { return Any(String("end")); });
    Any outer = Computed_Generic::make([inner] { return inner; });
    EXPECT_EQ(String::cast(internal::result_unwrap_lazy(outer)).value(), "end");
    // Casting sees through deferred values.
    EXPECT_TRUE(String::cast(outer).has_value());
    EXPECT_FALSE(Integer::cast(outer).has_value());
}

TEST(ObjectLifetime, ProducerExceptionBecomesAnErrorResult) {
    Any deferred = Computed_Generic::make([]() -> Any { throw std::runtime_error("producer failed"); });
    Any result = internal::unwrap(deferred);
    ASSERT_TRUE(result.isError());
    EXPECT_NE(result.error().message().find("producer failed"), String::npos);
}

TEST(ObjectLifetime, OwnMembersTableIsCreatedOnceUnderContention) {
    List target;
    std::vector<internal::own_members*> seen(4);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) threads.emplace_back([&, t] { seen[t] = &target.get()->own_or_create(); });
    for (auto& t : threads) t.join();
    for (auto* p : seen) EXPECT_EQ(p, seen[0]);
    EXPECT_EQ(target.get()->own(), seen[0]);
}

} // namespace
