// Containers: List, Tuple, HashMap, HashSet.
#include <gtest/gtest.h>
#include "host_test_support.h"

#include <algorithm>
#include <limits>
#include <thread>
#include <vector>

using namespace tesk;

namespace {

std::vector<std::string> keys_of(HashMap const& map) {
    std::vector<std::string> out;
    for (auto const& [k, v] : map.items()) out.push_back(display(k).toUtf8());
    return out;
}

TEST(ListContainer, AppendSetAtAndOrder) {
    List list{Integer(1), String("two")};
    list.append(Float(3.5));
    ASSERT_EQ(list.size(), 3u);
    EXPECT_EQ(display(list), "[1, two, 3.5]");
    list.set(1, Integer(2));
    list.set(7, Integer(9)); // out of range: nothing happens
    EXPECT_EQ(display(list), "[1, 2, 3.5]");
    EXPECT_EQ(Integer::cast(list.at(0)).value().value(), 1);
    std::vector<Any> copy = list.copyItems();
    list.append(Any());
    EXPECT_EQ(copy.size(), 3u); // a snapshot
    EXPECT_TRUE(list.elementType().isUntyped());
}

TEST(ListContainer, BadIndexGivesAnErrorAndChangesNothing) {
    List list{Integer(10)};
    for (std::int64_t index : {std::int64_t{-1}, std::int64_t{1}, INT64_MAX}) {
        Any r = list.at(index);
        ASSERT_TRUE(r.isError());
        EXPECT_EQ(r.error().message(), String("Index out of range: {}.").arg(index));
    }
    EXPECT_EQ(display(list), "[10]");
}

TEST(ListContainer, ConcurrentAppendsAreAllKept) {
    List list;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&list, t] {
            for (int i = 0; i < 1000; ++i) list.append(Integer(t * 1000 + i));
        });
    for (auto& t : threads) t.join();
    ASSERT_EQ(list.size(), 4000u);
    HashSet distinct;
    for (Any const& v : list.copyItems()) ASSERT_FALSE(distinct.insert(v).isError());
    EXPECT_EQ(distinct.size(), 4000u);
}

// What a read for conversion gives: the integer's value, or the item itself.
std::string read_text(ItemRead const& item) {
    return item.isInteger ? "int " + std::to_string(item.integer) : display(item.value).toUtf8();
}

TEST(ItemReads, BuiltinSequencesReadIntegersInPlaceAndRefuseWhatAtAnswers) {
    Any const big = Integer::fromUnsigned(std::numeric_limits<std::uint64_t>::max());
    Any const text = String("two");
    List list{Integer(-7), text, Integer(123456789), big};
    Tuple tuple{Integer(5000), text};
    ItemRead item;
    std::vector<std::string> read;
    for (std::int64_t i = 0; I_Sequence_Generic::readBuiltin(list, i, item); ++i) read.push_back(read_text(item));
    for (std::int64_t i = 0; I_Sequence_Generic::readBuiltin(tuple, i, item); ++i) read.push_back(read_text(item));
    EXPECT_EQ(read, (std::vector<std::string>{"int -7", "two", "int 123456789", "18446744073709551615", "int 5000", "two"}));
    // An integer beyond the signed range is handed over as the item itself.
    ASSERT_TRUE(I_Sequence_Generic::readBuiltin(list, 3, item));
    EXPECT_TRUE(!item.isInteger && item.value.isSame(big));
    // A handle left from an earlier read is dropped, not kept.
    ASSERT_TRUE(I_Sequence_Generic::readBuiltin(list, 0, item));
    EXPECT_TRUE(item.isInteger && !item.value.hasValue());
    // Negative and out-of-range indices, and values that are no built-in
    // sequence, are left to at() and its error.
    for (std::int64_t index : {std::int64_t{-1}, std::int64_t{4}, INT64_MIN, INT64_MAX})
        EXPECT_FALSE(I_Sequence_Generic::readBuiltin(list, index, item)) << index;
    EXPECT_FALSE(I_Sequence_Generic::readBuiltin(tuple, 2, item));
    HashMap map;
    (void)map.set(Integer(0), text);
    EXPECT_FALSE(I_Sequence_Generic::readBuiltin(map, 0, item));
    EXPECT_FALSE(I_Sequence_Generic::readBuiltin(Integer(0), 0, item));
    EXPECT_EQ(display(list), "[-7, two, 123456789, 18446744073709551615]");
}

TEST(ItemReads, AdvancingAListIteratorWalksTheListLive) {
    List list{Integer(1), String("a")};
    Any const it = list.iter();
    ItemRead item;
    ASSERT_TRUE(I_Iterator_Generic::advance(it, item));
    EXPECT_EQ(read_text(item), "int 1");
    // Changed ahead of the iterator: the change is seen.
    list.set(1, Integer(2000));
    // Both ways of advancing share one position.
    Any plain;
    ASSERT_TRUE(I_Iterator_Generic::unsafe(it).advance(plain));
    EXPECT_EQ(display(plain), "2000");
    EXPECT_FALSE(I_Iterator_Generic::advance(it, item));
    EXPECT_FALSE(I_Iterator_Generic::advance(it, item)); // stays at the end
    list.append(String("late"));
    ASSERT_TRUE(I_Iterator_Generic::advance(it, item));
    EXPECT_EQ(read_text(item), "late");
    // Iterators over a tuple and a map; a value that is no iterator has no item.
    std::vector<std::string> read;
    for (Any const t = Tuple{Integer(3), String("b")}.iter(); I_Iterator_Generic::advance(t, item);)
        read.push_back(read_text(item));
    HashMap map;
    (void)map.set(String("k"), Integer(1));
    for (Any const m = map.iter(); I_Iterator_Generic::advance(m, item);) read.push_back(read_text(item));
    EXPECT_EQ(read, (std::vector<std::string>{"int 3", "b", "k"}));
    EXPECT_FALSE(I_Iterator_Generic::advance(list, item));
    EXPECT_FALSE(I_Iterator_Generic::advance(Any(), item));
}

TEST(ItemReads, ThreadsSharingAListIteratorGetEachItemOnce) {
    constexpr int count = 20000;
    List list;
    for (int i = 0; i < count; ++i) list.append(Integer(i));
    Any const it = list.iter();
    std::vector<std::vector<std::int64_t>> taken(4);
    std::vector<std::thread> threads;
    for (auto& mine : taken)
        threads.emplace_back([&it, &mine] {
            for (ItemRead item; I_Iterator_Generic::advance(it, item);) mine.push_back(item.integer);
        });
    for (auto& t : threads) t.join();
    std::vector<int> seen(count, 0);
    for (auto const& mine : taken)
        for (std::int64_t v : mine) ++seen[static_cast<std::size_t>(v)];
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), count);
}

TEST(TupleContainer, FixedItems) {
    Tuple t{Integer(1), String("a")};
    ASSERT_EQ(t.size(), 2u);
    EXPECT_EQ(display(t[1]), "a");
    EXPECT_EQ(t.items().size(), 2u);
    EXPECT_EQ(display(t), "(1, a)");
    EXPECT_EQ(display(Tuple{Integer(1)}), "(1,)");
    EXPECT_EQ(display(Tuple{}), "()");
}

TEST(HashMapContainer, KeepsInsertionOrderAndReplacesInPlace) {
    HashMap map;
    for (char const* k : {"b", "a", "c"}) ASSERT_FALSE(map.set(String(k), String(k)).isError());
    ASSERT_FALSE(map.set(String("a"), Integer(1)).isError());
    EXPECT_EQ(keys_of(map), (std::vector<std::string>{"b", "a", "c"}));
    EXPECT_EQ(display(map), "{b: b, a: 1, c: c}");
    EXPECT_TRUE(map.remove(String("b")));
    EXPECT_FALSE(map.remove(String("b")));
    ASSERT_FALSE(map.set(String("b"), Integer(2)).isError());
    EXPECT_EQ(keys_of(map), (std::vector<std::string>{"a", "c", "b"}));
    EXPECT_EQ(map.size(), 3u);
    EXPECT_TRUE(map.find(String("zz")).isNone());
}

TEST(HashMapContainer, EqualNumbersOfAnyKindAreOneKey) {
    HashMap map;
    ASSERT_FALSE(map.set(Integer(1), String("int")).isError());
    ASSERT_FALSE(map.set(Float(1.0), String("float")).isError());
    ASSERT_FALSE(map.set(Integer::fromUnsigned(1), String("unsigned")).isError());
    ASSERT_FALSE(map.set(Decimal::fromString(String("1.000")), String("decimal")).isError());
    EXPECT_EQ(map.size(), 1u);
    EXPECT_EQ(display(map), "{1: decimal}");
    EXPECT_TRUE(map.contains(Float(1.0)));
    EXPECT_FALSE(map.contains(Boolean(true))); // booleans are not numbers
    EXPECT_FALSE(map.contains(String("1")));
    // Tuples are keys by their items.
    ASSERT_FALSE(map.set(Tuple{String("x"), Integer(2)}, String("pair")).isError());
    EXPECT_EQ(display(map.find(Tuple{String("x"), Float(2.0)})), "pair");
}

TEST(HashMapContainer, MutableKeysAreRefusedAndNothingIsLost) {
    HashMap map;
    ASSERT_FALSE(map.set(String("kept"), Integer(1)).isError());
    List mutable_key{Integer(1)};
    for (Any key : {Any(mutable_key), Any(HashMap()), Any(HashSet()), Any(Tuple{String("a"), List()})}) {
        auto r = map.set(key, Integer(2));
        ASSERT_TRUE(r.isError());
        EXPECT_EQ(r.error().message(), String("Unhashable key: {}.").arg(key));
    }
    EXPECT_EQ(display(map), "{kept: 1}");
    EXPECT_TRUE(HashSet().insert(List()).isError());
}

TEST(HashMapContainer, ManyInsertionsAndRemovalsStayConsistent) {
    HashMap map;
    constexpr int count = 5000;
    for (int i = 0; i < count; ++i) ASSERT_FALSE(map.set(String("key" + std::to_string(i)), Integer(i)).isError());
    for (int i = 0; i < count; i += 2) ASSERT_TRUE(map.remove(String("key" + std::to_string(i))));
    ASSERT_EQ(map.size(), static_cast<std::size_t>(count / 2));
    for (int i = 0; i < count; ++i) {
        Any found = map.find(String("key" + std::to_string(i)));
        if (i % 2 == 0)
            ASSERT_TRUE(found.isNone()) << i;
        else
            ASSERT_EQ(Integer::cast(found).value().value(), i);
    }
    auto items = map.items();
    ASSERT_EQ(items.size(), static_cast<std::size_t>(count / 2));
    EXPECT_EQ(display(items.front().first), "key1");
    EXPECT_EQ(display(items.back().first), "key4999");
}

TEST(HashMapContainer, ConcurrentWritersAndReaders) {
    HashMap map;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&map, t] {
            for (int i = 0; i < 500; ++i) {
                String key("k" + std::to_string(i));
                (void)map.set(key, Integer(t));
                (void)map.find(key);
                if (i % 3 == 0) map.remove(key);
            }
        });
    for (auto& t : threads) t.join();
    for (auto const& [k, v] : map.items()) EXPECT_TRUE(map.contains(k));
    EXPECT_LE(map.size(), 500u);
}

TEST(HashSetContainer, InsertContainsRemove) {
    HashSet set;
    EXPECT_TRUE(set.insert(String("a")).as<Boolean>().value());
    EXPECT_FALSE(set.insert(String("a")).as<Boolean>().value());
    EXPECT_TRUE(set.insert(Integer(2)).as<Boolean>().value());
    EXPECT_FALSE(set.insert(Float(2.0)).as<Boolean>().value());
    EXPECT_TRUE(set.insert(Any()).as<Boolean>().value());
    EXPECT_TRUE(set.contains(Any()));
    EXPECT_EQ(set.size(), 3u);
    EXPECT_EQ(display(set), "{a, 2, None}");
    EXPECT_TRUE(set.remove(Integer(2)));
    EXPECT_FALSE(set.contains(Float(2.0)));
    EXPECT_EQ(set.items().size(), 2u);
}


// ---- native answers to the interface calls ----------------------------------
// The members and the native answers of one class tell which of them answered.

Any member_at(Any const&, std::int64_t) { return String("member"); }
Any member_at_or(Any const&, std::int64_t, Any const&) { return String("member"); }
Any member_get(Any const&, Any const&) { return String("member"); }
Any member_next(Any const&) { return String("member"); }
Any own_at(Any const&, std::int64_t) { return String("own"); }
Any override_at(Any const&, std::int64_t) { return String("override"); }

constexpr internal::native_operations native_answers{
    .at = [](Any const&, std::int64_t index) -> Any { return String("native {}").arg(Integer(index)); },
    .get = [](Any const&, Any const& key) -> Any { return String("native {}").arg(key); },
    .next = [](Any const&) -> Any { return String("native"); },
};

I_Callable_Generic method(char const* name, I_Callable_Generic const& function, char const* parameters) {
    return method_builder_base(String(name)).assign_func(function).signature(String(parameters)).build();
}

Class_Generic answering_class(char const* name) {
    class_builder_base b{String(name)};
    b.entry(entry_tag::interface_methods, {I_Sequence_Generic::getClass(),
                                           method("at", make_closure(member_at), "self, index"),
                                           method("atOr", make_closure(member_at_or), "self, index, default")});
    b.entry(entry_tag::interface_methods,
            {I_Map_Generic::getClass(), method("get", make_closure(member_get), "self, key")});
    b.entry(entry_tag::interface_methods,
            {I_Iterator_Generic::getClass(), method("next", make_closure(member_next), "self")});
    Class_Generic cls = b.build().as<Class_Generic>();
    set_native_operations_unsafe(cls, &native_answers);
    return cls;
}

TEST(NativeAnswers, StandForTheMembersOfTheirOwnClassOnly) {
    Class_Generic cls = answering_class("NativelyAnswering");
    Any instance = cls.allocateInstance();
    EXPECT_EQ(display(I_Sequence_Generic::unsafe(instance).at(3)), "native 3");
    EXPECT_EQ(display(I_Map_Generic::unsafe(instance).get(String("k"))), "native k");
    EXPECT_EQ(display(I_Map_Generic::unsafe(instance).getOr(String("k"), Any())), "native k");
    EXPECT_EQ(display(I_Iterator_Generic::unsafe(instance).next()), "native");
    Any item;
    EXPECT_TRUE(I_Iterator_Generic::unsafe(instance).advance(item));
    EXPECT_EQ(display(item), "native");
    // An operation without a native answer goes to its member.
    EXPECT_EQ(display(I_Sequence_Generic::unsafe(instance).atOr(3, Any())), "member");
    // Calls by name reach the members, as before.
    EXPECT_EQ(display(instance.callMethod(String("at"), std::vector<Any>{Integer(3)})), "member");

    // An instance with a member of its own: its members come first.
    Any withOwn = cls.allocateInstance();
    ASSERT_FALSE(insert_method(withOwn, String("at"), make_closure(own_at)).isError());
    EXPECT_EQ(display(I_Sequence_Generic::unsafe(withOwn).at(0)), "own");
    EXPECT_EQ(display(I_Map_Generic::unsafe(withOwn).get(String("k"))), "member");

    // A derived class may override the members: the native answers are not inherited.
    class_builder_base derived{String("NativelyAnsweringDerived")};
    derived.bases({cls});
    derived.method(method("at", make_closure(override_at), "self, index"));
    Any child = derived.build().as<Class_Generic>().allocateInstance();
    EXPECT_EQ(display(I_Sequence_Generic::unsafe(child).at(0)), "override");
    EXPECT_EQ(display(I_Map_Generic::unsafe(child).get(String("k"))), "member");
}

TEST(NativeAnswers, AnEditOfTheMethodsEndsThem) {
    Class_Generic cls = answering_class("NativelyAnsweringEdited");
    Any instance = cls.allocateInstance();
    EXPECT_EQ(display(I_Sequence_Generic::unsafe(instance).at(1)), "native 1");
    add_class_method_unsafe(cls, String("at"), method("at", make_closure(override_at), "self, index"));
    EXPECT_EQ(display(I_Sequence_Generic::unsafe(instance).at(1)), "override");
    EXPECT_EQ(display(I_Map_Generic::unsafe(instance).get(String("k"))), "member");

    Class_Generic hooked = answering_class("NativelyAnsweringHooked");
    set_method_hook_unsafe(hooked, [](Any const&, String const&) -> Any { return Any(); });
    EXPECT_EQ(display(I_Sequence_Generic::unsafe(hooked.allocateInstance()).at(1)), "member");
}

} // namespace
