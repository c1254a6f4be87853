// Python values to the host: every plain kind with its edge values, failures
// that come back as clear errors, and what becomes a proxy.
#include "python_test_support.h"

#include "from_python/from_python.h"
#include "from_python/python_object.h"
#include "to_python/to_python.h"

#include <cmath>
#include <limits>
#include <thread>

namespace tesk::cpython::testing {
namespace {

class FromPython : public PythonTest {
protected:
    // The host value of a Python expression; nothing may be left pending.
    Any convert(char const* expression) {
        PyObjectPtr object = eval(expression);
        Any value = from_python(object.get());
        EXPECT_EQ(PyErr_Occurred(), nullptr) << expression << ": " << take_exception_text();
        return value;
    }
    void expect_integer(char const* expression, std::int64_t expected) {
        Any value = convert(expression);
        ASSERT_TRUE(Integer::test(value)) << expression << " gave " << display(value).toUtf8();
        EXPECT_EQ(Integer::unsafe(value).value(), expected) << expression;
        EXPECT_FALSE(Integer::unsafe(value).isUnsigned());
    }
    void expect_float(char const* expression, double expected) {
        Any value = convert(expression);
        ASSERT_TRUE(Float::test(value)) << expression << " gave " << display(value).toUtf8();
        EXPECT_EQ(Float::unsafe(value).value(), expected) << expression;
    }
    void expect_error(char const* expression, std::string const& messagePart) {
        Any value = convert(expression);
        ASSERT_TRUE(value.isError()) << expression << " gave " << display(value).toUtf8();
        EXPECT_NE(message_of(value).find(messagePart), std::string::npos) << message_of(value);
    }
    // A proxy that holds the very object the expression gave.
    void expect_proxy(char const* expression) {
        PyObjectPtr object = eval(expression);
        Any value = from_python(object.get());
        EXPECT_TRUE(is_python_object(value)) << expression << " gave " << display(value).toUtf8();
        EXPECT_EQ(get_pyobj(value).get(), object.get()) << expression;
        EXPECT_EQ(PyErr_Occurred(), nullptr);
    }
};

TEST_F(FromPython, NoneNotImplementedAndBooleans) {
    EXPECT_TRUE(from_python(nullptr).isNone());
    EXPECT_TRUE(convert("None").isNone());
    EXPECT_TRUE(convert("NotImplemented").isUndefined());
    Any t = convert("True");
    ASSERT_TRUE(Boolean::test(t));
    EXPECT_TRUE(Boolean::unsafe(t).value());
    Any f = convert("False");
    ASSERT_TRUE(Boolean::test(f));
    EXPECT_FALSE(Boolean::unsafe(f).value());
    expect_integer("1", 1); // an int, not a boolean
}

TEST_F(FromPython, IntegersInTheSignedRangeAndBeyond) {
    expect_integer("-2**63", std::numeric_limits<std::int64_t>::min());
    expect_integer("2**63 - 1", std::numeric_limits<std::int64_t>::max());
    expect_integer("-1", -1);
    expect_integer("0", 0);
    run("class Small(int): pass\n"
        "class Index:\n"
        "    def __index__(self): return 12\n"
        "class BadInt:\n"
        "    def __int__(self): raise ValueError('no integer here')\n"
        "    def __float__(self): return 1.5\n");
    expect_integer("Small(5)", 5);
    expect_integer("Index()", 12);
    expect_integer("fractions.Fraction(1, 2)", 0); // truncated
    expect_integer("fractions.Fraction(-7, 2)", -3);
    // Out of range: Python's own overflow error, nothing pending, nothing wrapped.
    expect_error("2**63", "too big");
    expect_error("-2**63 - 1", "too big");
    expect_error("2**64 - 1", "too big");
    // A complex number cannot become an integer without losing its value:
    // it stays the Python object.
    expect_proxy("complex(1, 2)");
    expect_error("BadInt()", "no integer here");
}

// Small integers take shortcuts on both sides (shared boxes, values read in
// place, no interpreter lock): every edge of those ranges crosses exactly,
// with the lock and on a thread without it.
TEST_F(FromPython, IntegersAtTheEdgesOfTheSharedRangesCrossExactly) {
    std::vector<std::int64_t> edges = {-(std::int64_t{1} << 31), -(std::int64_t{1} << 30) - 1, -(std::int64_t{1} << 30),
                                       -(std::int64_t{1} << 30) + 1, -7, -6, -5, -4, -1, 0, 1, 255, 256, 257,
                                       1023, 1024, 1025, (std::int64_t{1} << 30) - 1, std::int64_t{1} << 30,
                                       std::int64_t{1} << 31};
    auto crosses = [&edges](std::string& failures) {
        for (std::int64_t v : edges) {
            for (Integer const& host : {Integer(v), v >= 0 ? Integer::fromUnsigned(static_cast<std::uint64_t>(v)) : Integer(v)}) {
                PyObjectPtr object = to_python_ref(host);
                Any back = from_python(object.get());
                gil_guard gil;
                long long read = object ? PyLong_AsLongLong(object.get()) : -1;
                if (!object || !PyLong_CheckExact(object.get()) || read != v)
                    failures += "to Python " + std::to_string(v) + "; ";
                PyErr_Clear();
                if (!Integer::test(back) || Integer::unsafe(back).value() != v || Integer::unsafe(back).isUnsigned())
                    failures += "back " + std::to_string(v) + "; ";
            }
        }
    };
    std::string locked, unlocked;
    crosses(locked);
    Py_BEGIN_ALLOW_THREADS
    std::thread worker([&] { crosses(unlocked); });
    worker.join();
    Py_END_ALLOW_THREADS
    EXPECT_EQ(locked, "");
    EXPECT_EQ(unlocked, "");
    EXPECT_EQ(PyErr_Occurred(), nullptr);
    // The shared boxes are one object per value; others are boxed anew.
    EXPECT_TRUE(Integer(1024).isSame(Integer(1024)));
    EXPECT_FALSE(Integer(1025).isSame(Integer(1025)));
    // An int subclass is no plain int: it still converts by its value.
    expect_integer("type('Mine', (int,), {})(300)", 300);
}

TEST_F(FromPython, AnUnsignedIntegerAboveTheSignedRangeDoesNotComeBack) {
    PyObjectPtr big = to_python_ref(Integer::fromUnsigned(std::numeric_limits<std::uint64_t>::max()));
    Any back = from_python(big.get());
    EXPECT_TRUE(back.isError());
    EXPECT_EQ(PyErr_Occurred(), nullptr);
    PyObjectPtr fits = to_python_ref(Integer::fromUnsigned(std::uint64_t{1} << 62));
    Any value = from_python(fits.get());
    ASSERT_TRUE(Integer::test(value));
    EXPECT_EQ(Integer::unsafe(value).value(), std::int64_t{1} << 62);
}

TEST_F(FromPython, WholeFloatsInRangeBecomeIntegers) {
    expect_integer("3.0", 3);
    expect_integer("-0.0", 0);
    expect_integer("0.0", 0);
    expect_integer("-2.0**63", std::numeric_limits<std::int64_t>::min());
    expect_integer("1e15", 1'000'000'000'000'000);
    expect_float("3.5", 3.5);
    expect_float("-1e-300", -1e-300);
    // Whole values outside the int64 range stay floats, rather than being
    // narrowed into some other number.
    expect_float("2.0**63", 9223372036854775808.0);
    expect_float("1e300", 1e300);
    expect_float("float('inf')", std::numeric_limits<double>::infinity());
    expect_float("float('-inf')", -std::numeric_limits<double>::infinity());
    Any nan = convert("float('nan')");
    ASSERT_TRUE(Float::test(nan));
    EXPECT_TRUE(std::isnan(Float::unsafe(nan).value()));
    run("class MyFloat(float): pass\n");
    expect_float("MyFloat(0.25)", 0.25);
    expect_integer("MyFloat(4)", 4);
}

TEST_F(FromPython, StringsAreUtf8AndUnencodableTextFails) {
    EXPECT_EQ(text_of(convert("''")), "");
    EXPECT_EQ(text_of(convert("'plain'")), "plain");
    EXPECT_EQ(text_of(convert("'h\\u00e9llo \\u20ac \\U0001d11e'")), "h\xC3\xA9llo \xE2\x82\xAC \xF0\x9D\x84\x9E");
    EXPECT_EQ(text_of(convert("'a\\x00b'")), std::string("a\0b", 3));
    run("class MyStr(str): pass\n");
    EXPECT_EQ(text_of(convert("MyStr('sub')")), "sub");
    // A lone surrogate (what surrogateescape makes of an undecodable file
    // name) has no UTF-8 form: an error naming the position, never the empty
    // text, and the encoding error is not left behind (convert checks that
    // nothing is pending).
    expect_error("'abc\\udcffdef'", "can't encode character '\\udcff' in position 3");
    expect_error("MyStr('a\\ud800b')", "position 1");
}

TEST_F(FromPython, BytesAndBytearraysAreCopied) {
    Any empty = convert("b''");
    ASSERT_TRUE(ByteArray::test(empty));
    EXPECT_EQ(ByteArray::unsafe(empty).size(), 0u);
    Any bytes = convert("b'a\\x00\\xff'");
    ASSERT_TRUE(ByteArray::test(bytes));
    EXPECT_EQ(ByteArray::unsafe(bytes).asChars(), std::string_view("a\0\xff", 3));

    PyObjectPtr array = eval("bytearray(b'xy')");
    Any copied = from_python(array.get());
    ASSERT_TRUE(ByteArray::test(copied));
    EXPECT_NE(static_cast<void const*>(ByteArray::unsafe(copied).data()), PyByteArray_AS_STRING(array.get()));
    PyByteArray_AS_STRING(array.get())[0] = 'z'; // the host copy does not change
    EXPECT_EQ(ByteArray::unsafe(copied).asChars(), "xy");
    // A memoryview is none of them: it stays a Python object.
    expect_proxy("memoryview(b'abc')");
}

TEST_F(FromPython, DecimalsGoThroughTheirText) {
    Any tenths = convert("decimal.Decimal('1.10')");
    ASSERT_TRUE(Decimal::test(tenths)) << display(tenths).toUtf8();
    EXPECT_EQ(Decimal::unsafe(tenths).toString().toUtf8(), "1.10");
    Any negativeZero = convert("decimal.Decimal('-0')");
    ASSERT_TRUE(Decimal::test(negativeZero));
    EXPECT_EQ(Decimal::unsafe(negativeZero).toString().toUtf8(), "-0");
    Any nan = convert("decimal.Decimal('NaN')");
    ASSERT_TRUE(Decimal::test(nan));
    // Text that is no decimal, and a str() that raises, give clear errors.
    run("class Garbled(decimal.Decimal):\n"
        "    def __str__(self): return 'twelve'\n"
        "class Broken(decimal.Decimal):\n"
        "    def __str__(self): raise ValueError('no text for you')\n");
    EXPECT_TRUE(convert("Garbled(12)").isError());
    expect_error("Broken(12)", "no text for you");
}

TEST_F(FromPython, DatesTimesAndOffsets) {
    Any date = convert("datetime.date(2024, 1, 2)");
    ASSERT_TRUE(Date::test(date));
    EXPECT_EQ(Date::unsafe(date).year(), 2024);
    EXPECT_EQ(Date::unsafe(date).month(), 1);
    EXPECT_EQ(Date::unsafe(date).day(), 2);

    Any naive = convert("datetime.datetime(2024, 1, 2, 3, 4, 5, 6)");
    ASSERT_TRUE(DateTime::test(naive));
    Time t = DateTime::unsafe(naive).time();
    EXPECT_EQ(DateTime::unsafe(naive).date().day(), 2);
    EXPECT_EQ(t.hour(), 3);
    EXPECT_EQ(t.minute(), 4);
    EXPECT_EQ(t.second(), 5);
    EXPECT_EQ(t.nanoseconds(), 6000u);
    EXPECT_FALSE(t.hasOffset());

    Any plus2 = convert("datetime.datetime(2024, 1, 2, 3, 4, 5, 6, "
                        "tzinfo=datetime.timezone(datetime.timedelta(hours=2), 'EET'), fold=1)");
    ASSERT_TRUE(DateTime::test(plus2));
    t = DateTime::unsafe(plus2).time();
    EXPECT_TRUE(t.hasOffset());
    EXPECT_EQ(t.utcOffsetSeconds(), 7200u);
    EXPECT_EQ(t.zoneName().toUtf8(), "EET");
    EXPECT_EQ(t.fold(), 1);

    // Offsets the host cannot keep (negative, or not whole seconds) are dropped.
    Any minus5 = convert("datetime.datetime(2024, 1, 2, 3, 4, 5, tzinfo=datetime.timezone(-datetime.timedelta(hours=5)))");
    ASSERT_TRUE(DateTime::test(minus5));
    EXPECT_FALSE(DateTime::unsafe(minus5).time().hasOffset());
    Any fractional = convert("datetime.time(1, 2, 3, tzinfo=datetime.timezone(datetime.timedelta(microseconds=500)))");
    ASSERT_TRUE(Time::test(fractional));
    EXPECT_FALSE(Time::unsafe(fractional).hasOffset());

    // A naive time does not carry its fold; one with an offset does.
    Any naiveFold = convert("datetime.time(13, 45, 30, fold=1)");
    ASSERT_TRUE(Time::test(naiveFold));
    EXPECT_FALSE(Time::unsafe(naiveFold).hasOffset());
    EXPECT_EQ(Time::unsafe(naiveFold).fold(), 0);
    Any utcFold = convert("datetime.time(13, 45, 30, tzinfo=datetime.timezone.utc, fold=1)");
    ASSERT_TRUE(Time::test(utcFold));
    EXPECT_TRUE(Time::unsafe(utcFold).hasOffset());
    EXPECT_EQ(Time::unsafe(utcFold).utcOffsetSeconds(), 0u);
    EXPECT_EQ(Time::unsafe(utcFold).zoneName().toUtf8(), "UTC");
    EXPECT_EQ(Time::unsafe(utcFold).fold(), 1);

    // A tzinfo whose utcoffset raises: the error is cleared, the time is naive.
    run("class BadZone(datetime.tzinfo):\n"
        "    def utcoffset(self, dt): raise ValueError('no offset')\n");
    Any badZone = convert("datetime.time(1, 2, 3, tzinfo=BadZone())");
    ASSERT_TRUE(Time::test(badZone));
    EXPECT_FALSE(Time::unsafe(badZone).hasOffset());
}

TEST_F(FromPython, DateFieldsOutOfThe32BitRangeDoNotRead) {
    // Read as a 64-bit long and narrowed, 2**40 used to become year 0. A
    // field that does not fit makes the object unreadable as a date: it is
    // held as a Python object instead.
    run("class FarDate(datetime.date):\n"
        "    @property\n"
        "    def year(self): return 2**40\n"
        "class FarTime(datetime.time):\n"
        "    @property\n"
        "    def hour(self): return -2**40\n");
    expect_proxy("FarDate(2024, 1, 2)");
    expect_proxy("FarTime(1, 2, 3)");
    // The edge of the range still reads.
    run("class EdgeDate(datetime.date):\n"
        "    @property\n"
        "    def year(self): return 2**31 - 1\n");
    Any edge = convert("EdgeDate(2024, 1, 2)");
    ASSERT_TRUE(Date::test(edge)) << display(edge).toUtf8();
    EXPECT_EQ(Date::unsafe(edge).year(), 2147483647);
}

TEST_F(FromPython, ExceptionsBecomeHostErrors) {
    expect_error("ValueError('x marks the spot')", "x marks the spot");
}

TEST_F(FromPython, AnObjectWhoseInstanceCheckRaisesCountsAsAnException) {
    // isinstance(obj, Exception) reads obj.__class__, which raises here: a
    // failed check counts as an exception, and its error is not left pending
    // (convert() checks that nothing is).
    run("class Opaque:\n"
        "    @property\n"
        "    def __class__(self): raise RuntimeError('no class')\n"
        "    def __str__(self): return 'opaque object'\n");
    expect_error("Opaque()", "opaque object");
    // The checks that count a failure as no match leave nothing pending either.
    run("class OpaqueDecimal:\n"
        "    @property\n"
        "    def __class__(self): raise RuntimeError('no class')\n"
        "    def __index__(self): return 2\n");
    expect_integer("OpaqueDecimal()", 2);
}

TEST_F(FromPython, EverythingElseIsHeldAsAPythonObject) {
    for (char const* expression : {"[]", "()", "{}", "set()", "frozenset()", "(i for i in range(3))", "len",
                                   "sys", "object()", "lambda: 1"}) {
        expect_proxy(expression);
    }
    // Two conversions give two proxies of the same object.
    PyObjectPtr list = eval("[1]");
    Any a = from_python(list.get());
    Any b = from_python(list.get());
    EXPECT_FALSE(a.isSame(b));
    EXPECT_EQ(get_pyobj(a).get(), get_pyobj(b).get());
}

TEST_F(FromPython, AWrapperGivesBackTheVeryHostObject) {
    List list{Integer(1)};
    PyObjectPtr wrapper = to_python_ref(list);
    Any back = from_python(wrapper.get());
    EXPECT_TRUE(back.isSame(list));
    // A foreign type that merely carries the wrapper's name is no wrapper.
    run("Impostor = type('>TeskObject', (), {})\n");
    expect_proxy("Impostor()");
}

TEST_F(FromPython, RoundTripsKeepEveryPlainValue) {
    std::vector<Any> values = {
        Any(),
        Boolean(true),
        Integer(std::numeric_limits<std::int64_t>::min()),
        Integer(-1),
        Float(0.5),
        String("h\xC3\xA9llo"),
        ByteArray("ab", 2),
        Decimal::fromString(String("1.10")),
        Date(1999, 12, 31),
        Time(23, 59, 59, 999'999'000),
        Time(1, 2, 3, 4000, 3600, String("CET"), 1),
        DateTime(Date(2024, 2, 29), Time(12, 0, 0, 1000)),
    };
    for (Any const& value : values) {
        PyObjectPtr object = to_python_ref(value);
        ASSERT_TRUE(object) << display(value).toUtf8() << ": " << take_exception_text();
        Any back = from_python(object.get());
        if (Time::test(value) && Time::unsafe(value).hasOffset()) {
            // Python times are naive: the clock fields come back, the offset does not.
            ASSERT_TRUE(Time::test(back));
            EXPECT_EQ(Time::unsafe(back).hour(), 1);
            EXPECT_FALSE(Time::unsafe(back).hasOffset());
            continue;
        }
        EXPECT_TRUE(equals(value, back)) << display(value).toUtf8() << " came back as " << display(back).toUtf8();
    }
    // A whole float comes back as an integer of the same value.
    PyObjectPtr two = to_python_ref(Float(2.0));
    Any back = from_python(two.get());
    ASSERT_TRUE(Integer::test(back));
    EXPECT_EQ(Integer::unsafe(back).value(), 2);
}

} // namespace
} // namespace tesk::cpython::testing
