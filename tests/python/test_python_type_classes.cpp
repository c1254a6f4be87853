// Python classes as host classes: one per type, what they mirror, calling
// them, exception classes, and odd classes that must not break anything.
#include "python_test_support.h"

#include "from_python/from_python.h"
#include "from_python/python_object.h"
#include "from_python/python_type_class.h"
#include "to_python/to_python.h"

namespace tesk::cpython::testing {
namespace {

class PythonTypeClasses : public PythonTest {
protected:
    Class_Generic class_of_expression(char const* expression) {
        Any converted = from_python(eval(expression).get());
        EXPECT_TRUE(Class_Generic::test(converted)) << expression << ": " << display(converted).toUtf8();
        return Class_Generic::test(converted) ? Class_Generic::unsafe(converted) : Class_Generic::unsafe(Any());
    }
    static bool has_method(Class_Generic const& cls, char const* name) {
        return cls.definedMethod(String(name)).has_value();
    }
};

TEST_F(PythonTypeClasses, OneHostClassPerTypeNamedWithoutItsModule) {
    run("class Thing:\n    pass\n");
    Class_Generic first = class_of_expression("Thing");
    EXPECT_TRUE(first.isSame(class_of_expression("Thing")));
    EXPECT_EQ(first.name(), String("Thing"));
    run("import collections");
    EXPECT_EQ(class_of_expression("collections.OrderedDict").name(), String("OrderedDict"));
    // Back in Python, the host class is the very type.
    PyObjectPtr back = to_python_ref(first);
    EXPECT_EQ(back.get(), eval("Thing").get());
    // The built-in value types are the host's own classes.
    EXPECT_TRUE(class_of_expression("int").isSame(Integer::getClass()));
    EXPECT_TRUE(class_of_expression("str").isSame(String::getClass()));
    EXPECT_TRUE(class_of_expression("datetime.date").isSame(Date::getClass()));
    EXPECT_TRUE(class_of_expression("type").isSame(Class_Generic::getClass()));
}

TEST_F(PythonTypeClasses, PublicMembersAreMirroredAndTheClassStaysConstructible) {
    run("class Shape:\n"
        "    '''A shape.'''\n"
        "    sides = 4\n"
        "    names = ['a', 'b']\n"
        "    _hidden = 1\n"
        "    def __init__(self, size): self.size = size\n"
        "    def area(self): return self.size * self.size\n"
        "    def _private(self): pass\n"
        "    class Corner:\n"
        "        '''A corner.'''\n");
    Class_Generic shape = class_of_expression("Shape");
    EXPECT_EQ(shape.doc(), String("A shape."));
    EXPECT_TRUE(has_method(shape, "area"));
    EXPECT_FALSE(has_method(shape, "_private"));
    EXPECT_FALSE(has_method(shape, "__init__"));
    EXPECT_FALSE(shape.definedProperty(String("_hidden")).has_value());
    // A number is a fixed value; a list, which only a proxy could hold, has none.
    auto sides = shape.definedProperty(String("sides"));
    ASSERT_TRUE(sides.has_value());
    EXPECT_EQ(Integer::unsafe(sides.value().get(Any())).value(), 4);
    auto names = shape.definedProperty(String("names"));
    ASSERT_TRUE(names.has_value());
    EXPECT_TRUE(names.value().get(Any()).isNone());
    // A nested class is a property whose value is its host class.
    auto corner = shape.definedProperty(String("Corner"));
    ASSERT_TRUE(corner.has_value());
    EXPECT_TRUE(corner.value().get(Any()).isSame(class_of_expression("Shape.Corner")));
    EXPECT_EQ(corner.value().doc(), String("A corner."));

    // Calling the host class calls the type: __init__ runs although it is not mirrored.
    Any square = shape({Integer(3)});
    ASSERT_TRUE(is_python_object(square)) << display(square).toUtf8();
    EXPECT_EQ(Integer::unsafe(internal::result_unwrap_lazy(square.callMethod(String("area")))).value(), 9);
    // The mirrored method, called with the instance.
    auto area = shape.definedMethod(String("area"));
    ASSERT_TRUE(area.has_value());
    EXPECT_EQ(Integer::unsafe(internal::result_unwrap_lazy(area.value()({square}))).value(), 9);
    // A call that Python refuses is its error.
    EXPECT_NE(message_of(shape({})).find("missing 1 required positional argument"), std::string::npos);
}

TEST_F(PythonTypeClasses, ASubclassListsItsBasesMembers) {
    run("class Base:\n"
        "    kind = 'base'\n"
        "    def hello(self): return 'base'\n"
        "    def shared(self): return 'base'\n"
        "class Derived(Base):\n"
        "    def shared(self): return 'derived'\n");
    Class_Generic base = class_of_expression("Base");
    Class_Generic derived = class_of_expression("Derived");
    EXPECT_TRUE(derived.is_ancestor(base));
    EXPECT_TRUE(has_method(derived, "hello"));
    EXPECT_TRUE(derived.definedProperty(String("kind")).has_value());
    // Its own member is not replaced by the base's.
    Any instance = from_python(eval("Derived()").get());
    auto shared = derived.definedMethod(String("shared"));
    ASSERT_TRUE(shared.has_value());
    EXPECT_EQ(String::unsafe(internal::result_unwrap_lazy(shared.value()({instance}))), String("derived"));
}

TEST_F(PythonTypeClasses, ExceptionClassesDeriveFromErrorWithTheirNotesAsMessage) {
    run("class Failure(ValueError):\n    pass\n"
        "noted = Failure('x')\n"
        "noted.add_note('first')\n"
        "noted.add_note('second')\n");
    Class_Generic failure = class_of_expression("Failure");
    EXPECT_TRUE(failure.is_ancestor(Error::getClass()));
    auto message = failure.definedProperty(Error::$$message);
    ASSERT_TRUE(message.has_value());
    Any noted = make_python_object(cpython_object_class(), eval("noted").get());
    EXPECT_EQ(text_of(message.value().get(noted)), "\nfirst\nsecond");
    Any plain = make_python_object(cpython_object_class(), eval("Failure('y')").get());
    EXPECT_EQ(text_of(message.value().get(plain)), "");
}

TEST_F(PythonTypeClasses, OddClassesGiveAClassOrAClearError) {
    EXPECT_EQ(message_of(host_class_for_python_type(eval("3").get())), "Not a type.");
    EXPECT_EQ(message_of(host_class_for_python_type(nullptr)), "Not a type.");
    // A class that refers to itself is mirrored once.
    run("class Loop:\n    pass\nLoop.me = Loop\n");
    Class_Generic loop = class_of_expression("Loop");
    auto me = loop.definedProperty(String("me"));
    ASSERT_TRUE(me.has_value());
    EXPECT_TRUE(me.value().get(Any()).isSame(loop));
    // A doc that is no text, and a metaclass whose attribute lookup raises.
    run("class Meta(type):\n"
        "    def __getattr__(cls, name): raise RuntimeError('no ' + name)\n"
        "class Odd(metaclass=Meta):\n"
        "    __doc__ = 5\n"
        "    def method(self): pass\n");
    Class_Generic odd = class_of_expression("Odd");
    EXPECT_EQ(odd.doc(), String(""));
    EXPECT_TRUE(has_method(odd, "method"));
}

TEST_F(PythonTypeClasses, AClassOfFiveHundredMembersIsOnePublication) {
    run("def make(n):\n"
        "    members = {f'm{i}': (lambda self, i=i: i) for i in range(n // 2)}\n"
        "    members.update({f'p{i}': i for i in range(n // 2)})\n"
        "    return type('Wide', (), members)\n"
        "warm = make(2)\n"
        "wide = make(500)\n");
    (void)class_of_expression("warm"); // the classes every mirror uses are built once
    std::uint64_t const before = internal::class_publication_count();
    Class_Generic wide = class_of_expression("wide");
    EXPECT_EQ(internal::class_publication_count(), before + 1);
    EXPECT_TRUE(has_method(wide, "m249"));
    EXPECT_TRUE(wide.definedProperty(String("p249")).has_value());
}

} // namespace
} // namespace tesk::cpython::testing
