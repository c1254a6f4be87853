// Host values to Python: every plain kind with its edge values, tuples,
// dates and times, errors, and what becomes a wrapper.
#include "python_test_support.h"

#include "from_python/from_python.h"
#include "from_python/python_object.h"
#include "from_python/errors.h"
#include "to_python/to_python.h"
#include "to_python/wrapper.h"

#include <cmath>
#include <limits>
#include <thread>

namespace tesk::cpython::testing {
namespace {

class ToPython : public PythonTest {
protected:
    // Converts and checks that no error was raised.
    PyObjectPtr convert(Any const& value) {
        PyObjectPtr result = to_python_ref(value);
        EXPECT_TRUE(result) << "no Python object for " << display(value).toUtf8();
        EXPECT_EQ(PyErr_Occurred(), nullptr) << take_exception_text();
        return result;
    }
    // Converts a value that must fail with the named Python exception.
    void expect_raises(Any const& value, char const* exceptionType) {
        PyObjectPtr result = to_python_ref(value);
        EXPECT_FALSE(result);
        ASSERT_NE(PyErr_Occurred(), nullptr);
        EXPECT_EQ(take_exception_text().rfind(exceptionType, 0), 0u);
    }
    void expect_equals(Any const& value, char const* pythonExpression) {
        PyObjectPtr converted = convert(value);
        PyObjectPtr expected = eval(pythonExpression);
        ASSERT_TRUE(converted && expected);
        EXPECT_TRUE(Py_IS_TYPE(converted.get(), Py_TYPE(expected.get())))
            << Py_TYPE(converted.get())->tp_name << " instead of " << Py_TYPE(expected.get())->tp_name;
        EXPECT_TRUE(equal(converted.get(), expected.get())) << pythonExpression;
    }
};

TEST_F(ToPython, NoneUndefinedAndBooleans) {
    EXPECT_EQ(convert(Any()).get(), Py_None);
    EXPECT_EQ(convert(None()).get(), Py_None);
    EXPECT_EQ(convert(Undefined()).get(), Py_NotImplemented);
    EXPECT_EQ(convert(Boolean(true)).get(), Py_True);
    EXPECT_EQ(convert(Boolean(false)).get(), Py_False);
}

TEST_F(ToPython, IntegersKeepEveryValueOfBothSignednesses) {
    expect_equals(Integer(std::numeric_limits<std::int64_t>::min()), "-2**63");
    expect_equals(Integer(std::numeric_limits<std::int64_t>::max()), "2**63 - 1");
    expect_equals(Integer(-1), "-1");
    expect_equals(Integer(0), "0");
    // The largest unsigned value stays positive and intact.
    expect_equals(Integer::fromUnsigned(std::numeric_limits<std::uint64_t>::max()), "2**64 - 1");
    // Equal values of both signednesses give equal Python integers.
    PyObjectPtr s = convert(Integer(std::int64_t{42}));
    PyObjectPtr u = convert(Integer::fromUnsigned(42));
    EXPECT_TRUE(equal(s.get(), u.get()));
}

TEST_F(ToPython, FloatsKeepSignInfinityAndNaN) {
    expect_equals(Float(1e300), "1e300");
    expect_equals(Float(2.0), "2.0"); // stays a float on this side
    expect_equals(Float(std::numeric_limits<double>::infinity()), "float('inf')");
    PyObjectPtr negativeZero = convert(Float(-0.0));
    EXPECT_TRUE(std::signbit(PyFloat_AsDouble(negativeZero.get())));
    PyObjectPtr nan = convert(Float(std::nan("")));
    EXPECT_TRUE(std::isnan(PyFloat_AsDouble(nan.get())));
}

TEST_F(ToPython, ByteArraysBecomeImmutableBytes) {
    expect_equals(ByteArray(), "b''");
    char const raw[] = {'a', '\0', '\xff'};
    expect_equals(ByteArray(raw, sizeof raw), "b'a\\x00\\xff'");
}

TEST_F(ToPython, StringsDecodeStrictlyFromUtf8) {
    expect_equals(String(), "''");
    expect_equals(String("plain"), "'plain'");
    expect_equals(String("h\xC3\xA9llo \xE2\x82\xAC \xF0\x9D\x84\x9E"), "'h\\u00e9llo \\u20ac \\U0001d11e'");
    expect_equals(String(std::string_view("a\0b", 3)), "'a\\x00b'");
    // Bytes that are no UTF-8, and a surrogate in its 3-byte form, fail with
    // the decoding error rather than giving altered text.
    expect_raises(String::fromRawDataUnsafe("\xff", 1), "UnicodeDecodeError");
    expect_raises(String::fromRawDataUnsafe("\xED\xA0\x80", 3), "UnicodeDecodeError");
}

TEST_F(ToPython, TuplesConvertItemByItemAndFailAsAWhole) {
    expect_equals(Tuple{}, "()");
    expect_equals(Tuple{Integer(1), String("x"), Tuple{Boolean(true), Any()}}, "(1, 'x', (True, None))");
    // One bad item fails the tuple, with that item's exception pending.
    expect_raises(Tuple{Integer(1), String::fromRawDataUnsafe("\xff", 1), Integer(3)}, "UnicodeDecodeError");
    // An item without a Python form (a proxy holding nothing) leaves the whole
    // tuple without one, and raises nothing.
    Any empty = cpython_object_class().allocateInstance();
    EXPECT_FALSE(to_python_ref(Tuple{Integer(1), empty}));
    EXPECT_EQ(PyErr_Occurred(), nullptr);
}

TEST_F(ToPython, DecimalsGoByTheirText) {
    auto decimal = [](char const* text) { return Any(Decimal::fromString(String(text))); };
    expect_equals(decimal("1.10"), "decimal.Decimal('1.10')");
    PyObjectPtr tenths = convert(decimal("1.10"));
    PyObjectPtr text = PyObjectPtr::steal(PyObject_Str(tenths.get()));
    EXPECT_STREQ(PyUnicode_AsUTF8(text.get()), "1.10"); // the final zero stays
    PyObjectPtr negativeZero = convert(decimal("-0"));
    text = PyObjectPtr::steal(PyObject_Str(negativeZero.get()));
    EXPECT_STREQ(PyUnicode_AsUTF8(text.get()), "-0");
    PyObjectPtr nan = convert(decimal("NaN"));
    bind("value", nan.get());
    PyObjectPtr isNan = eval("value.is_nan()");
    EXPECT_EQ(isNan.get(), Py_True);
}

TEST_F(ToPython, DatesAndTimesAreNaiveWithTheFoldBit) {
    expect_equals(Date(2024, 1, 2), "datetime.date(2024, 1, 2)");
    // Nanoseconds are truncated to microseconds.
    expect_equals(Time(13, 45, 30, 999), "datetime.time(13, 45, 30, 0)");
    expect_equals(Time(13, 45, 30, 1'999'999), "datetime.time(13, 45, 30, 1999)");
    // An offset is not carried: the Python time is naive with the same clock fields.
    PyObjectPtr offset = convert(Time(13, 45, 30, 0, 7200, String("CEST"), 1));
    bind("value", offset.get());
    EXPECT_EQ(eval("value.tzinfo is None and value.fold == 1 and value == datetime.time(13, 45, 30)").get(),
              Py_True);
    expect_equals(DateTime(Date(2024, 1, 2), Time(3, 4, 5, 6000)), "datetime.datetime(2024, 1, 2, 3, 4, 5, 6)");
    PyObjectPtr folded = convert(DateTime(Date(2024, 10, 27), Time(2, 30, 0, 0, 0, String("UTC"), 1)));
    bind("value", folded.get());
    EXPECT_EQ(eval("value.fold == 1 and value.tzinfo is None").get(), Py_True);
    // Values Python refuses raise its own error.
    expect_raises(Date(0, 1, 1), "ValueError");
    expect_raises(Time(24, 0, 0), "ValueError");
}

TEST_F(ToPython, AnErrorIsRaisedAndComesBackAsTheSameError) {
    Error error(String("the host failed"));
    expect_raises(error, "RuntimeError");
    PyObjectPtr converted = to_python_ref(error);
    EXPECT_FALSE(converted);
    Union<Error, None> back = fetch_python_error();
    ASSERT_TRUE(back.has_value());
    EXPECT_EQ(back.value().message().toUtf8(), "the host failed");
}

TEST_F(ToPython, HostObjectsBecomeDistinctWrappersOfTheSameObject) {
    List list{Integer(1), Integer(2)};
    PyObjectPtr first = convert(list);
    PyObjectPtr second = convert(list);
    ASSERT_TRUE(first && second);
    EXPECT_NE(first.get(), second.get());
    ASSERT_NE(is_wrapper(first.get()), nullptr);
    EXPECT_TRUE(is_wrapper(first.get())->isSame(list));
    EXPECT_TRUE(equal(first.get(), second.get()));
    EXPECT_EQ(PyObject_Hash(first.get()), PyObject_Hash(second.get()));
    // Maps, sets, callables, classes and deferred values are wrapped too.
    for (Any value : {Any(HashMap()), Any(HashSet()), Any(List::getClass()),
                      Any(Computed_Generic::make([] { return Any(Integer(1)); }))}) {
        PyObjectPtr wrapped = convert(value);
        ASSERT_NE(is_wrapper(wrapped.get()), nullptr) << display(value).toUtf8();
        EXPECT_TRUE(is_wrapper(wrapped.get())->isSame(value));
    }
}

TEST_F(ToPython, AProxyGivesBackItsOwnPythonObject) {
    PyObjectPtr list = eval("[1, 2]");
    Any proxy = from_python(list.get());
    ASSERT_TRUE(is_python_object(proxy));
    EXPECT_EQ(convert(proxy).get(), list.get());
    // A proxy that holds nothing has no Python form, and that is no error.
    Any empty = cpython_object_class().allocateInstance();
    EXPECT_FALSE(to_python_ref(empty));
    EXPECT_EQ(PyErr_Occurred(), nullptr);
}

TEST_F(ToPython, ConvertsOnAThreadThatDoesNotHoldTheLock) {
    bool converted = false;
    Py_BEGIN_ALLOW_THREADS
    std::thread worker([&] {
        // Both directions take the lock themselves on a fresh host thread.
        PyObjectPtr tuple = to_python_ref(Tuple{Integer(7), String("seven")});
        Any back = from_python(tuple.get());
        gil_guard gil;
        converted = tuple && PyTuple_Check(tuple.get()) && PyTuple_GET_SIZE(tuple.get()) == 2 &&
                    get_pyobj(back).get() == tuple.get();
    });
    worker.join();
    Py_END_ALLOW_THREADS
    EXPECT_TRUE(converted);
}

} // namespace
} // namespace tesk::cpython::testing
