// hash_of, compare_objects and display: the contracts between them.
#include <gtest/gtest.h>
#include "host_test_support.h"

#include <cmath>
#include <functional>

using namespace tesk;

namespace {

Any dec(char const* text) { return Decimal::fromString(String(text)); }

TEST(CompareAndHash, EqualValuesHashAlike) {
    std::pair<Any, Any> equal_pairs[] = {
        {Integer(1), Float(1.0)},
        {Integer(1), Integer::fromUnsigned(1)},
        {Integer(-3), dec("-3.00")},
        {Float(0.5), dec("0.5")},
        {Float(0.0), Float(-0.0)},
        {Float(0x1p63), Integer::fromUnsigned(std::uint64_t{1} << 63)},
        {Float(1e20), dec("1e20")},
        {dec("1.10"), dec("1.1")},
        {dec("Infinity"), Float(INFINITY)},
        {Integer(INT64_MIN), Float(-0x1p63)},
        {String("text"), String(std::string("te") + "xt")},
        {ByteArray("ab", 2), ByteArray("ab", 2)},
        {Tuple{Integer(1), String("a")}, Tuple{Float(1.0), String("a")}},
        {List{Integer(1)}, List{Float(1.0)}},
        {Date(2024, 1, 2), Date(2024, 1, 2)},
        {Time(12, 0, 0, 0, 3600, String("A")), Time(11, 0, 0, 0, 0, String("UTC"))},
        {DateTime(Date(2024, 1, 2), Time(0, 30, 0, 0, 3600, String())),
         DateTime(Date(2024, 1, 1), Time(23, 30, 0, 0, 0, String()))},
        {Any(), None()},
    };
    for (auto const& [a, b] : equal_pairs) {
        EXPECT_TRUE(equals(a, b)) << display(a).toUtf8() << " == " << display(b).toUtf8();
        EXPECT_TRUE(equals(b, a)) << display(b).toUtf8() << " == " << display(a).toUtf8();
        EXPECT_EQ(hash_of(a), hash_of(b)) << display(a).toUtf8() << " / " << display(b).toUtf8();
    }
    HashMap m1, m2;
    (void)m1.set(String("a"), Integer(1)), (void)m1.set(String("b"), Integer(2));
    (void)m2.set(String("b"), Float(2.0)), (void)m2.set(String("a"), Integer(1));
    EXPECT_TRUE(equals(m1, m2));
    EXPECT_EQ(hash_of(m1), hash_of(m2));
}

TEST(CompareAndHash, NumbersOrderExactlyAcrossKinds) {
    EXPECT_EQ(compare_objects(Integer(INT64_MAX), Float(0x1p63)), Ordering::less());
    EXPECT_EQ(compare_objects(Integer::fromUnsigned(UINT64_MAX), Float(0x1p64)), Ordering::less());
    EXPECT_EQ(compare_objects(Integer::fromUnsigned(UINT64_MAX), Integer(-1)), Ordering::greater());
    EXPECT_EQ(compare_objects(Integer(-1), Integer::fromUnsigned(0)), Ordering::less());
    EXPECT_EQ(compare_objects(Integer(2), Float(2.5)), Ordering::less());
    EXPECT_EQ(compare_objects(Float(-2.5), Integer(-2)), Ordering::less());
    EXPECT_EQ(compare_objects(Integer(3), Float(-INFINITY)), Ordering::greater());
    // 2^53 + 1 is not a double: the integer is larger than the nearest one.
    EXPECT_EQ(compare_objects(Integer((std::int64_t{1} << 53) + 1), Float(0x1p53)), Ordering::greater());
    // A decimal equals a double only when the double's exact value is that decimal.
    EXPECT_EQ(compare_objects(dec("0.1"), Float(0.1)), Ordering::less());
    EXPECT_EQ(compare_objects(dec("0.1000000000000000055511151231257827021181583404541015625"), Float(0.1)),
              Ordering::equal());
    EXPECT_EQ(compare_objects(dec("-1e400"), Float(-1e300)), Ordering::less());
    EXPECT_EQ(compare_objects(dec("12345678901234567890123"), Integer::fromUnsigned(UINT64_MAX)), Ordering::greater());
    EXPECT_EQ(compare_objects(dec("2.50"), dec("2.5")), Ordering::equal());
}

TEST(CompareAndHash, OtherKindsOrder) {
    EXPECT_EQ(compare_objects(String("abc"), String("abd")), Ordering::less());
    EXPECT_EQ(compare_objects(String("ab"), String("a")), Ordering::greater());
    EXPECT_EQ(compare_objects(ByteArray("\x01", 1), ByteArray("\xff", 1)), Ordering::less());
    EXPECT_EQ(compare_objects(Boolean(false), Boolean(true)), Ordering::less());
    EXPECT_EQ(compare_objects(Date(2023, 12, 31), Date(2024, 1, 1)), Ordering::less());
    EXPECT_EQ(compare_objects(Time(10, 0, 0, 1), Time(10, 0, 0, 0)), Ordering::greater());
    EXPECT_EQ(compare_objects(List{Integer(1), Integer(2)}, List{Integer(1), Integer(3)}), Ordering::less());
    EXPECT_EQ(compare_objects(List{Integer(1)}, List{Integer(1), Integer(0)}), Ordering::less());
    EXPECT_EQ(compare_objects(Tuple{String("b")}, Tuple{String("a"), String("z")}), Ordering::greater());
}

TEST(CompareAndHash, NotComparableCases) {
    Any nan = Float(NAN);
    std::pair<Any, Any> pairs[] = {
        {Integer(1), String("1")},
        {Boolean(true), Integer(1)},
        {nan, Float(NAN)},
        {nan, Integer(0)},
        {dec("NaN"), dec("NaN")},
        {Time(1, 0, 0), Time(1, 0, 0, 0, 0, String("UTC"))}, // naive against aware
        {Date(2024, 1, 1), DateTime(Date(2024, 1, 1), Time(0, 0, 0))},
        {List{Integer(1)}, Tuple{Integer(1)}},
        {List{Integer(1), String("x")}, List{Integer(1), Integer(2)}},
        {Any(), Integer(0)},
        {String("a"), ByteArray("a", 1)},
    };
    for (auto const& [a, b] : pairs) {
        EXPECT_EQ(compare_objects(a, b), Ordering::notComparable()) << display(a).toUtf8() << " ? " << display(b).toUtf8();
        EXPECT_EQ(compare_objects(b, a), Ordering::notComparable()) << display(b).toUtf8() << " ? " << display(a).toUtf8();
    }
    EXPECT_TRUE(equals(nan, nan)); // the same object is equal to itself
    HashMap a, b;
    (void)a.set(String("k"), Integer(1));
    (void)b.set(String("k"), Integer(2));
    EXPECT_EQ(compare_objects(a, b), Ordering::notComparable());
}

TEST(CompareAndHash, ContainerThatHoldsItselfStopsSafely) {
    List list{Integer(1)};
    list.append(list);
    EXPECT_NE(display(list).find("..."), String::npos);
    EXPECT_EQ(compare_objects(list, list), Ordering::equal()); // identical
    List other{Integer(1)};
    other.append(other);
    (void)compare_objects(list, other); // must return, whatever it decides
    (void)hash_of(list);
    list.set(1, Any()); // break the cycle so that both lists are freed
    other.set(1, Any());
}

// An immutable class whose instances stand for an integer amount: its
// overrides make Amount(5) equal to, ordered with and hashed like Integer(5).
struct AmountClass {
    internal::object_value_class* record = test_class_record("Amount", traits::immutable);
    AmountClass() {
        Class_Generic cls = Class_Generic::of(record);
        add_class_field_unsafe(cls, {String("value"), Type::untyped(), String()});
        add("__compare__", [](std::span<Any const> args) -> Any {
            Any other = args[1].kind() == Kind::Instance ? args[1].fieldValue(String("value")) : args[1];
            if (!Integer::test(other)) return Undefined();
            return Integer(compare_objects(args[0].fieldValue(String("value")), other).value());
        });
        add("__hash__", [](std::span<Any const> args) -> Any {
            return Integer::fromUnsigned(hash_of(args[0].fieldValue(String("value"))));
        });
        add("__display__", [](std::span<Any const> args) -> Any {
            return String("Amount({})").arg(args[0].fieldValue(String("value")));
        });
    }
    void add(char const* name, std::function<Any(std::span<Any const>)> f) {
        add_class_method_unsafe(Class_Generic::of(record), String(name),
                                I_Callable_Generic::unsafe(internal::make_function_callable(
                                    std::move(f), Signature(Type::untyped(), {}), String(name))));
    }
    Any make(std::int64_t v) const {
        Any a = Any::adopt(new internal::object_value_instance(record));
        (void)a.setFieldValue(String("value"), Integer(v));
        return a;
    }
};

TEST(CompareAndHash, ClassOverridesDecideForTheirInstances) {
    static AmountClass amounts;
    Any five = amounts.make(5);
    EXPECT_TRUE(equals(five, Integer(5)));
    EXPECT_TRUE(equals(Integer(5), five)); // the right-hand side's override, reflected
    EXPECT_EQ(compare_objects(Integer(3), five), Ordering::less());
    EXPECT_EQ(compare_objects(five, amounts.make(9)), Ordering::less());
    EXPECT_EQ(compare_objects(five, String("5")), Ordering::notComparable());
    EXPECT_EQ(hash_of(five), hash_of(Integer(5)));
    EXPECT_EQ(display(List{five}), "[Amount(5)]");

    // As map keys, the override's equality is asked outside the map's lock.
    HashMap map;
    ASSERT_FALSE(map.set(five, String("amount")).isError());
    EXPECT_EQ(display(map.find(Integer(5))), "amount");
    ASSERT_FALSE(map.set(Integer(5), String("integer")).isError()); // the same key: replaced
    EXPECT_EQ(map.size(), 1u);
    EXPECT_EQ(display(map), "{Amount(5): integer}");
    EXPECT_TRUE(map.remove(amounts.make(5)));
    EXPECT_EQ(map.size(), 0u);
}

TEST(Display, TextOfEachKind) {
    EXPECT_EQ(display(Any()), "None");
    EXPECT_EQ(display(Undefined()), "Undefined");
    EXPECT_EQ(display(Boolean(true)), "true");
    EXPECT_EQ(display(Boolean(false)), "false");
    EXPECT_EQ(display(Integer(-42)), "-42");
    EXPECT_EQ(display(String("as it is")), "as it is");
    EXPECT_EQ(display(List{}), "[]");
    EXPECT_EQ(display(List{Integer(1), List{String("x")}}), "[1, [x]]");
    EXPECT_EQ(display(HashMap()), "{}");
    EXPECT_EQ(display(Error(String("It failed."))), "It failed.");
    EXPECT_EQ(display(Integer::getClass()), "Integer");
    EXPECT_EQ(Integer(5).toDisplayString(), "5");
    Any instance = Any::adopt(new internal::object_value_instance(test_class_record("Widget")));
    EXPECT_EQ(display(instance), "<Widget>");
    EXPECT_EQ(object_id(instance), reinterpret_cast<std::uintptr_t>(instance.get()));
    EXPECT_EQ(object_id(Any()), 0u);
}

} // namespace
