// CPythonObject through the host's generic member operations: Python
// attributes as host properties and methods, display text and comparison.
#include "python_test_support.h"

#include "from_python/from_python.h"
#include "from_python/python_object.h"

namespace tesk::cpython::testing {
namespace {

class PythonObjectMembers : public PythonTest {
protected:
    void SetUp() override {
        run("class Thing:\n"
            "    kind = 'thing'\n"
            "    def __init__(self): self._value = 1\n"
            "    @property\n"
            "    def value(self): return self._value\n"
            "    @value.setter\n"
            "    def value(self, v): self._value = v\n"
            "    @property\n"
            "    def fixed(self): return 7\n"
            "    def twice(self, x): return 2 * x\n"
            "    def __str__(self): return 'a thing'\n"
            "thing = Thing()\n");
        thing = from_python(eval("thing").get());
        ASSERT_TRUE(is_python_object(thing));
    }
    // The Python value of an expression in the shared namespace, as a host value.
    Any host(char const* expression) { return from_python(eval(expression).get()); }
    static std::int64_t integer_of(Any const& value) {
        Any resolved = internal::result_unwrap_lazy(value);
        EXPECT_TRUE(Integer::test(resolved)) << display(resolved).toUtf8();
        return Integer::test(resolved) ? Integer::unsafe(resolved).value() : -1;
    }
    Any thing;
};

TEST_F(PythonObjectMembers, OwnMemberListsAreEmptyButEachAttributeIsReachableByName) {
    EXPECT_TRUE(own_properties_of(thing).empty());
    EXPECT_TRUE(own_methods_of(thing).empty());
    EXPECT_EQ(text_of(thing.propertyValue(String("kind"))), "thing");
    EXPECT_EQ(integer_of(thing.propertyValue(String("value"))), 1);
}

TEST_F(PythonObjectMembers, PropertyValueIsAlwaysCurrentAndWritesGoToPython) {
    EXPECT_TRUE(thing.setPropertyValue(String("value"), Integer(5)).isNone());
    EXPECT_EQ(integer_of(host("thing._value")), 5);
    run("thing._value = 6");
    EXPECT_EQ(integer_of(thing.propertyValue(String("value"))), 6);
    // A new attribute is simply set.
    EXPECT_TRUE(thing.setPropertyValue(String("fresh"), String("new")).isNone());
    EXPECT_EQ(text_of(host("thing.fresh")), "new");
}

TEST_F(PythonObjectMembers, PropertiesOfThePythonClassKeepTheirAccessors) {
    auto value = property_of(thing, String("value"));
    ASSERT_TRUE(value.has_value());
    EXPECT_TRUE(value.value().setter().hasValue());
    EXPECT_TRUE(value.value().set(thing, Integer(9)).isNone());
    EXPECT_EQ(integer_of(host("thing._value")), 9);
    EXPECT_EQ(integer_of(value.value().get(thing)), 9);

    auto fixed = property_of(thing, String("fixed"));
    ASSERT_TRUE(fixed.has_value());
    EXPECT_FALSE(fixed.value().setter().hasValue()); // read-only: no fset
    EXPECT_EQ(integer_of(fixed.value().get(thing)), 7);
    EXPECT_TRUE(fixed.value().set(thing, Integer(1)).isError());
}

TEST_F(PythonObjectMembers, APlainAttributeAsAPropertyIsASnapshot) {
    auto kind = property_of(thing, String("kind"));
    ASSERT_TRUE(kind.has_value());
    run("Thing.kind = 'changed'");
    EXPECT_EQ(text_of(kind.value().get(thing)), "thing");
    EXPECT_EQ(text_of(thing.propertyValue(String("kind"))), "changed");
    EXPECT_FALSE(property_of(thing, String("missing")).has_value());
}

TEST_F(PythonObjectMembers, PythonMethodsAreHostMethods) {
    auto twice = method_of(thing, String("twice"));
    ASSERT_TRUE(twice.has_value());
    // The Python bound method carries its object: the host passes none.
    EXPECT_EQ(integer_of(thing.callMethod(String("twice"), std::initializer_list<Any>{Integer(21)})), 42);
    EXPECT_FALSE(method_of(thing, String("missing")).has_value());
    EXPECT_FALSE(method_of(thing, String("kind")).has_value()); // not callable
    // The class's own host members come first.
    EXPECT_TRUE(method_of(thing, Any::$__display__).has_value());
}

TEST_F(PythonObjectMembers, RemovingMembersChangesNothing) {
    for (auto key : {&Any::$__removeProperty__, &Any::$__removeMethod__}) {
        Any removed = thing.callMethod(*key, std::initializer_list<Any>{String("kind")});
        ASSERT_TRUE(Boolean::test(removed)) << display(removed).toUtf8();
        EXPECT_FALSE(Boolean::unsafe(removed).value());
    }
    EXPECT_EQ(text_of(host("thing.kind")), "thing");
}

TEST_F(PythonObjectMembers, InsertingAFixedValueSetsTheAttributeAndAComputedOneIsRefused) {
    EXPECT_TRUE(insert_property_value(thing, String("label"), String("lab")).isNone());
    EXPECT_EQ(text_of(host("thing.label")), "lab");
    Property computed(I_Callable_Generic::unsafe(internal::make_function_callable(
        [](std::span<Any const>) { return Any(Integer(1)); }, Signature(Type::untyped(), {}))));
    EXPECT_EQ(message_of(insert_property(thing, String("computed"), computed)),
              "Unable to insert non-value property to a python object, use 'raw_insert_property' instead.");
    EXPECT_EQ(PyObject_HasAttrString(eval("thing").get(), "computed"), 0);
}

TEST_F(PythonObjectMembers, AnInsertedHostMethodIsCallableFromPython) {
    // A method that expects its object gets the proxy bound in.
    I_Callable_Generic method = make_closure(+[](Any self, std::int64_t x) -> Any {
        return Integer(x + (is_python_object(self) ? 100 : 0));
    });
    EXPECT_TRUE(insert_method(thing, String("plus"), method).isNone());
    EXPECT_EQ(integer_of(host("thing.plus(1)")), 101);
    // `thing` lives in a cycle with its class; what it holds is let go now.
    run("del thing.plus");
}

TEST_F(PythonObjectMembers, FailuresAreHostErrorsAndChangeNothing) {
    EXPECT_NE(message_of(thing.propertyValue(String("missing"))).find("has no attribute 'missing'"),
              std::string::npos);
    // A value without a Python form is refused before anything is set.
    Any formless = cpython_object_class().allocateInstance();
    EXPECT_EQ(message_of(thing.setPropertyValue(String("kind"), formless)).rfind("Unable to convert an argument", 0),
              0u);
    EXPECT_EQ(text_of(host("thing.kind")), "thing");
    // A Python setter that raises.
    run("class Strict:\n"
        "    @property\n"
        "    def v(self): return 0\n"
        "    @v.setter\n"
        "    def v(self, x): raise ValueError('no way')\n");
    Any strict = host("Strict()");
    EXPECT_EQ(message_of(strict.setPropertyValue(String("v"), Integer(1))), "no way");

    // A proxy that holds nothing.
    Any empty = cpython_object_class().allocateInstance();
    EXPECT_EQ(message_of(empty.propertyValue(String("x"))), "The object is null.");
    EXPECT_EQ(message_of(empty.setPropertyValue(String("x"), Integer(1))), "The object is null.");
    EXPECT_EQ(message_of(insert_property_value(empty, String("x"), Integer(1))), "The object is null.");
    EXPECT_FALSE(property_of(empty, String("x")).has_value());
    EXPECT_FALSE(method_of(empty, String("x")).has_value());
}

TEST_F(PythonObjectMembers, DisplayIsPythonsStr) {
    EXPECT_EQ(display(thing).toUtf8(), "a thing");
    run("class Loud:\n"
        "    def __str__(self): raise RuntimeError('no text')\n");
    Any loud = host("Loud()");
    EXPECT_EQ(message_of(loud.callMethod(Any::$__display__)), "no text");
    EXPECT_EQ(display(loud).toUtf8(), "<CPythonObject>"); // the host's own form
}

TEST_F(PythonObjectMembers, ComparisonAsksPython) {
    run("class Ranked:\n"
        "    def __init__(self, n): self.n = n\n"
        "    def __lt__(self, o): return self.n < o.n\n"
        "    def __gt__(self, o): return self.n > o.n\n"
        "class Moody:\n"
        "    def __lt__(self, o): raise TypeError('no order')\n"
        "    def __gt__(self, o): raise TypeError('no order')\n");
    Any one = host("Ranked(1)"), two = host("Ranked(2)"), anotherOne = host("Ranked(1)");
    EXPECT_EQ(compare_objects(one, two), Ordering::less());
    EXPECT_EQ(compare_objects(two, one), Ordering::greater());
    // Neither less nor greater nor ==: the helper function says 0.
    EXPECT_EQ(compare_objects(one, anotherOne), Ordering::equal());
    // Two proxies of the same object are equal without asking Python.
    Any again = from_python(get_pyobj(one).get());
    EXPECT_EQ(compare_objects(one, again), Ordering::equal());
    // Against a host value: by identity, so never equal.
    EXPECT_NE(compare_objects(one, Integer(1)), Ordering::equal());

    Any moody = host("Moody()");
    EXPECT_EQ(message_of(moody.callMethod(Any::$__compare__, std::initializer_list<Any>{host("Moody()")})),
              "no order");
}

} // namespace
} // namespace tesk::cpython::testing
