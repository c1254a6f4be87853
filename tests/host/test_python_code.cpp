// PythonLanguage::toCode: values written as Python source.
#include <gtest/gtest.h>
#include "host_test_support.h"

#include <cmath>

using namespace tesk;

namespace {

std::string code(Any const& v) {
    auto r = PythonLanguage::toCode(v);
    if (r.isError()) return "error: " + r.error().message().toUtf8();
    return r.as<String>().toUtf8();
}

TEST(PythonCode, PlainValues) {
    EXPECT_EQ(code(Any()), "None");
    EXPECT_EQ(code(Boolean(true)), "True");
    EXPECT_EQ(code(Boolean(false)), "False");
    EXPECT_EQ(code(Integer(42)), "42");
    EXPECT_EQ(code(Integer(INT64_MIN)), "-9223372036854775808");
    EXPECT_EQ(code(Integer::fromUnsigned(UINT64_MAX)), "18446744073709551615");
    EXPECT_EQ(code(Float(3.5)), "3.5");
    EXPECT_EQ(code(Float(2.0)), "2.0");
    EXPECT_EQ(code(Float(1e100)), "1e+100");
    EXPECT_EQ(code(Float(INFINITY)), "float('inf')");
    EXPECT_EQ(code(Float(-INFINITY)), "float('-inf')");
    EXPECT_EQ(code(Float(NAN)), "float('nan')");
    EXPECT_EQ(code(Decimal::fromString(String("1.10"))), "Decimal('1.10')");
}

TEST(PythonCode, TextAndBytesAreEscaped) {
    EXPECT_EQ(code(String("it's a \\ test\n\r\t")), R"('it\'s a \\ test\n\r\t')");
    EXPECT_EQ(code(String(std::string("\x01\x1f\x7f", 3))), R"('\x01\x1f\x7f')");
    EXPECT_EQ(code(String("\xC2\x85 caf\xC3\xA9 \xE2\x82\xAC")), "'\\x85 caf\xC3\xA9 \xE2\x82\xAC'");
    EXPECT_EQ(code(String::fromRawDataUnsafe("a\xFF", 2)), "'a\xEF\xBF\xBD'");
    EXPECT_EQ(code(ByteArray("a'\\\n\x00\xff", 6)), R"(b'a\'\\\n\x00\xff')");
    EXPECT_EQ(code(ByteArray()), "b''");
}

TEST(PythonCode, Containers) {
    EXPECT_EQ(code(List{Integer(1), String("a"), List{}}), "[1, 'a', []]");
    EXPECT_EQ(code(Tuple{}), "()");
    EXPECT_EQ(code(Tuple{Integer(1)}), "(1,)");
    EXPECT_EQ(code(Tuple{Integer(1), Integer(2)}), "(1, 2)");
    HashMap map;
    (void)map.set(String("k"), List{Boolean(true)});
    (void)map.set(Integer(2), Any());
    EXPECT_EQ(code(map), "{'k': [True], 2: None}");
    EXPECT_EQ(code(HashMap()), "{}");
    HashSet set;
    (void)set.insert(Integer(1)), (void)set.insert(Integer(2));
    EXPECT_EQ(code(set), "{1, 2}");
    EXPECT_EQ(code(HashSet()), "set()");
}

TEST(PythonCode, DatesAndTimes) {
    EXPECT_EQ(code(Date(2024, 1, 2)), "datetime.date(2024, 1, 2)");
    EXPECT_EQ(code(Time(13, 45, 30)), "datetime.time(13, 45, 30)");
    EXPECT_EQ(code(Time(13, 45, 30, 999)), "datetime.time(13, 45, 30)"); // below a microsecond
    EXPECT_EQ(code(Time(13, 45, 30, 6000)), "datetime.time(13, 45, 30, 6)");
    EXPECT_EQ(code(Time(1, 2, 3, 0, 7200, String("CET"), 1)),
              "datetime.time(1, 2, 3, tzinfo=datetime.timezone(datetime.timedelta(seconds=7200), 'CET'), fold=1)");
    EXPECT_EQ(code(DateTime(Date(2024, 1, 2), Time(3, 4, 5, 6000))), "datetime.datetime(2024, 1, 2, 3, 4, 5, 6)");
}

TEST(PythonCode, ValuesWithoutASourceFormGiveAnError) {
    Any instance = Any::adopt(new internal::object_value_instance(test_class_record("Gadget")));
    EXPECT_EQ(code(instance), "error: Unable to render as Python code: <Gadget>.");
    // Inside a container the failure is the item's, and nothing partial is returned.
    EXPECT_EQ(code(List{Integer(1), instance}), "error: Unable to render as Python code: <Gadget>.");
}

} // namespace
