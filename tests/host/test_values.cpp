// Plain values: booleans and truth, integers, floats, decimals, dates and times, bytes.
#include <gtest/gtest.h>
#include "host_test_support.h"

#include <cmath>
#include <limits>

using namespace tesk;

namespace {

TEST(BooleanValues, TruthOfEveryKind) {
    Any falsy[] = {Any(), None(), Undefined(), Boolean(false), Integer(0), Integer::fromUnsigned(0), Float(0.0),
                   Float(-0.0), String(""), ByteArray(), List(), HashMap(), HashSet(), Tuple{},
                   Decimal::fromString(String("-0.000")), Computed_Generic::make([] { return Any(Integer(0)); })};
    for (Any const& v : falsy) EXPECT_FALSE(Boolean::from(v).value()) << display(v).toUtf8();
    Any truthy[] = {Boolean(true), Integer(-1), Integer::fromUnsigned(UINT64_MAX), Float(NAN), Float(1e-300),
                    String("0"), ByteArray("\0", 1), List{Any()}, Tuple{Any()}, Decimal::fromString(String("0.01")),
                    Decimal::fromString(String("NaN")), Date(2024, 1, 1), Error(String("an error is a value"))};
    for (Any const& v : truthy) EXPECT_TRUE(Boolean::from(v).value()) << display(v).toUtf8();
    EXPECT_TRUE(Boolean::from(Integer(5)).isTrue());
    EXPECT_FALSE(Boolean(false).isTrue());
}

TEST(IntegerValues, SignedAndUnsignedEdges) {
    Integer min(std::numeric_limits<std::int64_t>::min()), max(std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(min.value(), std::numeric_limits<std::int64_t>::min());
    EXPECT_FALSE(min.isUnsigned());
    EXPECT_TRUE(max.fitsSigned());
    Integer top = Integer::fromUnsigned(UINT64_MAX);
    EXPECT_TRUE(top.isUnsigned());
    EXPECT_EQ(top.unsignedValue(), UINT64_MAX);
    EXPECT_EQ(top.value(), -1); // the same bits read as signed
    EXPECT_FALSE(top.fitsSigned());
    EXPECT_EQ(display(top), "18446744073709551615");
    EXPECT_EQ(display(min), "-9223372036854775808");
    EXPECT_TRUE(Integer::fromUnsigned(static_cast<std::uint64_t>(INT64_MAX)).fitsSigned());
}

TEST(IntegerValues, Int32AndInt64CastsCheckTheRange) {
    EXPECT_EQ(Int32::from(Integer(INT32_MAX)), INT32_MAX);
    EXPECT_EQ(Int32::from(Integer(INT32_MIN)), INT32_MIN);
    EXPECT_FALSE(Int32::from(Integer(std::int64_t{INT32_MAX} + 1)));
    EXPECT_FALSE(Int32::from(Integer(std::int64_t{INT32_MIN} - 1)));
    EXPECT_EQ(Int64::from(Integer(INT64_MIN)), INT64_MIN);
    EXPECT_EQ(Int64::from(Integer::fromUnsigned(static_cast<std::uint64_t>(INT64_MAX))), INT64_MAX);
    EXPECT_FALSE(Int64::from(Integer::fromUnsigned(static_cast<std::uint64_t>(INT64_MAX) + 1)));
    EXPECT_FALSE(Int32::from(Integer::fromUnsigned(UINT64_MAX)));
    EXPECT_FALSE(Int64::from(Float(1.0)));
    EXPECT_FALSE(Int64::from(String("1")));
    EXPECT_FALSE(Int64::from(Any()));
    EXPECT_EQ(Int64::from(Computed_Generic::make([] { return Any(Integer(-7)); })), -7);
}

TEST(FloatValues, DisplayIsTheShortestRoundTrip) {
    struct Case {
        double value;
        char const* text;
    } cases[] = {{2.0, "2.0"},     {3.5, "3.5"},       {0.1, "0.1"},        {-0.0, "-0.0"},   {1e16, "1e+16"},
                 {1e15, "1000000000000000.0"}, {0.0001, "0.0001"}, {0.00001, "1e-05"}, {1.5e-300, "1.5e-300"},
                 {123456789.125, "123456789.125"}, {INFINITY, "inf"}, {-INFINITY, "-inf"}, {NAN, "nan"}};
    for (auto const& c : cases) EXPECT_EQ(display(Float(c.value)), c.text);
    double tricky = 0.1 + 0.2;
    EXPECT_EQ(std::stod(display(Float(tricky)).toUtf8()), tricky);
}

TEST(DecimalValues, TextIsKeptExactly) {
    for (char const* text : {"1.10", "-0.000", "+5", ".5", "5.", "1E+3", "1e-7", "123456789012345678901234567890.5",
                             "Infinity", "-inf", "NaN", "snan", "+INF"}) {
        auto d = Decimal::fromString(String(text));
        ASSERT_TRUE(d.is<Decimal>()) << text;
        EXPECT_EQ(d.as<Decimal>().toString(), text);
        EXPECT_EQ(display(d), text);
    }
}

TEST(DecimalValues, InvalidTextGivesAClearError) {
    for (char const* text : {"", ".", "+", "1.2.3", "1e", "1e+", "e5", "1 ", " 1", "0x10", "1,5", "Infinit", "NaN5",
                             "--1", "1_000"}) {
        auto d = Decimal::fromString(String(text));
        ASSERT_TRUE(d.isError()) << text;
        EXPECT_EQ(d.error().message(), String("Invalid decimal text: {}.").arg(String(text)));
    }
}

TEST(DateTimeValues, FieldsAndOffsets) {
    Date d(2024, 2, 29);
    EXPECT_EQ(d.year(), 2024);
    EXPECT_EQ(d.month(), 2);
    EXPECT_EQ(d.day(), 29);
    Time naive(13, 45, 30, 999);
    EXPECT_FALSE(naive.hasOffset());
    EXPECT_EQ(naive.utcOffsetSeconds(), 0u);
    EXPECT_EQ(naive.zoneName(), "");
    Time aware(13, 45, 30, 6000, 7200, String("CEST"), 1);
    EXPECT_TRUE(aware.hasOffset());
    EXPECT_EQ(aware.utcOffsetSeconds(), 7200u);
    EXPECT_EQ(aware.zoneName(), "CEST");
    EXPECT_EQ(aware.fold(), 1);
    DateTime dt(d, aware);
    EXPECT_TRUE(dt.date().isSame(d));
    EXPECT_EQ(dt.time().nanoseconds(), 6000u);
    EXPECT_EQ(display(d), "2024-02-29");
    EXPECT_EQ(display(naive), "13:45:30.000000999");
    EXPECT_EQ(display(dt), "2024-02-29T13:45:30.000006+02:00");
}

TEST(ByteArrayValues, CopiesTheBytes) {
    char source[] = {'a', '\0', 'b'};
    ByteArray bytes(source, sizeof source);
    source[0] = 'z';
    ASSERT_EQ(bytes.size(), 3u);
    EXPECT_EQ(bytes.asChars(), std::string_view("a\0b", 3));
    EXPECT_EQ(ByteArray().size(), 0u);
    EXPECT_EQ(display(bytes), "b'a\\x00b'");
}

} // namespace
