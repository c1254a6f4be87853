// Host objects in Python: their types, attributes, introspection and calls.
#include "wrapper_test_classes.h"
#include "wrapper_test_support.h"

#include "from_python/from_python.h"

namespace tesk::cpython::testing {
namespace {

std::int64_t one(Any const&) { return 1; }
std::int64_t two(Any const&) { return 2; }
std::int64_t three(Any const&) { return 3; }

I_Callable_Generic method_named(char const* name, I_Callable_Generic function) {
    return method_builder_base(String(name)).assign_func(function).signature(String("")).build();
}

class WrapperAttributes : public WrapperTest {
protected:
    void SetUp() override {
        gauge_ = make_gauge("main", 3);
        bind_host("g", gauge_);
        bind_host("other", make_gauge("other", 5));
        bind_host("Gauge", gauge_class());
    }
    Any field(char const* name) { return gauge_.fieldValue(String(name)); }
    Any gauge_;
};

TEST_F(WrapperAttributes, EachModuleClassHasOneTypeNamedAfterIt) {
    expect_true("type(g) is type(other)");
    EXPECT_EQ(text("type(g).__name__"), "tesk~wrappertest`Gauge");
    EXPECT_EQ(text("type(g).__module__"), "builtins");
    EXPECT_EQ(text("type(g).__doc__"), "A gauge for the wrapper tests.");
    // The type lists the public members for help() and dir(), no "_" names.
    expect_true("{'add', 'fail', 'make', 'size', 'level'} <= set(dir(type(g)))");
    expect_true("'_private' not in dir(type(g)) and '_hidden' not in dir(type(g))");
    EXPECT_EQ(text("type(g).add.__doc__"), "(a: Integer, b: Integer) -> Integer\n\n-");
    EXPECT_EQ(text("type(g).level.__doc__"), "The count, writable.");
    // A property without a setter has a read-only descriptor.
    EXPECT_EQ(raised_by("type(g).size.__set__(g, 1)").rfind("AttributeError", 0), 0u);
}

TEST_F(WrapperAttributes, ClassesInNoModuleShareTheVariantTypes) {
    bind_host("c", make_free_callable());
    bind_host("p", make_free_plain());
    bind_host("xs", List{Integer(1)});
    bind_host("m", HashMap());
    expect_true("callable(c) and c(1, 2, 3) == 6");
    expect_true("not callable(p) and not callable(xs)");
    expect_true("type(c).__name__ == type(p).__name__ == type(xs).__name__ == '>TeskObject'");
    expect_true("type(c) is not type(p) and type(xs) is not type(m)");
    // A plain value offers + among the container operators, and nothing else.
    EXPECT_EQ(raised_by("len(p)").rfind("TypeError", 0), 0u);
    EXPECT_EQ(raised_by("p[0]").rfind("TypeError", 0), 0u);
    expect_true("len(xs) == 1 and len(m) == 0");
}

TEST_F(WrapperAttributes, FieldsAndPropertiesReadAndWrite) {
    expect_true("g.label == 'main' and g.count == 3 and g.size == 42 and g.level == 3");
    run("g.count = 4\ng.level = g.level + 1\n");
    EXPECT_EQ(Integer::cast(field("count")).value().value(), 5);
    // A name the object does not have becomes a property of its own.
    run("g.note = [1, 2]\n");
    expect_true("g.note == [1, 2]");
    // Deleting assigns none.
    run("del g.label\n");
    EXPECT_TRUE(field("label").isNone());
}

TEST_F(WrapperAttributes, RefusedWritesRaiseAndChangeNothing) {
    EXPECT_EQ(raised_by("setattr(g, 'size', 1)"), "RuntimeError: Read-only attribute: size.");
    std::string refused = raised_by("setattr(g, 'level', 'high')");
    EXPECT_EQ(refused.rfind("RuntimeError: level: ", 0), 0u) << refused;
    refused = raised_by("setattr(g, 'count', 'many')");
    EXPECT_EQ(refused.rfind("RuntimeError: count: ", 0), 0u) << refused;
    EXPECT_EQ(Integer::cast(field("count")).value().value(), 3);
    EXPECT_EQ(raised_by("g.nothing"), "AttributeError: 'wrappertest.Gauge' object has no attribute 'nothing'");
    // A special name the value cannot answer falls to Python's own lookup.
    EXPECT_EQ(raised_by("g.__name__").rfind("AttributeError", 0), 0u);
}

TEST_F(WrapperAttributes, RepeatedReadsFollowClassEditsAndOwnMembers) {
    // A class of this test's own: the edits below reach no other test.
    class_builder_base builder(String("Edited"));
    builder.method(method_named("answer", make_closure(&one)));
    builder.property(property_builder_base(String("p")).getter(make_closure(&one)));
    Class_Generic cls = builder.build().as<Class_Generic>();
    Any first = cls.allocateInstance();
    bind_host("a", first);
    bind_host("b", cls.allocateInstance());
    // Each read twice, the second from what the first looked up.
    expect_true("a.answer() == 1 and a.answer() == 1 and a.p == 1 and a.p == 1");
    add_class_method_unsafe(cls, String("answer"), method_named("answer", make_closure(&two)));
    add_class_property_unsafe(cls, String("p"), Property(make_closure(&two)));
    expect_true("a.answer() == 2 and b.answer() == 2 and a.p == 2 and b.p == 2");
    // A member of the object's own answers before the class's, for that object alone.
    EXPECT_TRUE(insert_method(first, String("answer"), method_named("answer", make_closure(&three))).isNone());
    expect_true("a.answer() == 3 and b.answer() == 2");
    // A property added under a method's name answers first, as a first lookup would.
    add_class_property_unsafe(cls, String("answer"), Property(make_closure(&three)));
    expect_true("b.answer == 3");
    EXPECT_EQ(raised_by("b.missing"), "AttributeError: 'Edited' object has no attribute 'missing'");
}

TEST_F(WrapperAttributes, IntrospectionComesFromTheHost) {
    EXPECT_EQ(text("g.add.__doc__"), "(a: Integer, b: Integer) -> Integer\n\nThe method add.");
    EXPECT_EQ(text("g.add.__text_signature__"), "(a: Integer, b: Integer) -> Integer");
    EXPECT_EQ(text("g.__doc__"), "A gauge for the wrapper tests.");
    expect_true("g.__bool__ is True");
    // Only parameters and results whose type is a class are annotated.
    // (make takes a String and gives an untyped result).
    expect_true("list(Gauge.make.__annotations__) == ['label']");
    expect_true("list(g.add.__annotations__) == ['a', 'b', 'return']");
    expect_true("all(isinstance(t, type) for t in g.add.__annotations__.values())");
    // __dir__ is the list itself, each name once; dir() sorts it.
    expect_true("isinstance(g.__dir__, list) and len(g.__dir__) == len(set(g.__dir__))");
    expect_true("g.__dir__.count('__add__') == 1");
    expect_true("{'label', 'count', 'add', 'size', 'level'} <= set(g.__dir__)");
    expect_true("dir(g) == sorted(g.__dir__)");
    EXPECT_EQ(text("Gauge.__module__"), "wrappertest");
    EXPECT_EQ(text("g.add.__name__"), "add");
}

TEST_F(WrapperAttributes, MethodsTakePositionalOrKeywordArguments) {
    expect_true("g.add(1, 2) == 12 and g.add(b=2, a=1) == 12");
    expect_true("Gauge.make('new').label == 'new'");
    // Calling a class constructs an instance.
    expect_true("type(Gauge()) is type(g) and Gauge().label is None");
    EXPECT_EQ(raised_by("Gauge(label='x')"), "TypeError: wrappertest.Gauge takes no keyword arguments.");
    // Keywords are the whole call: positional ones are not passed with them.
    EXPECT_EQ(raised_by("g.add(1, b=2)").rfind("RuntimeError: Missing argument: a", 0), 0u);
    // A keyword whose key is no string is dropped; without others the call is positional.
    expect_true("g.add(1, 2, **{1: 5}) == 12");
    // A module class's instance that is not callable says so.
    EXPECT_EQ(raised_by("g()"), "RuntimeError: Non-callable object: " + display(gauge_).toUtf8());
    // A host Error result is a Python exception that Python code can catch.
    run("try:\n    g.fail()\nexcept RuntimeError as e:\n    caught = str(e)\n");
    EXPECT_EQ(text("caught"), "the gauge failed");
}

TEST_F(WrapperAttributes, HostModulesAnswerTheirCallablesAndClasses) {
    auto cpython = find_module(String("tesk.cpython"));
    ASSERT_TRUE(cpython.has_value());
    bind_host("cpython", cpython.value());
    expect_true("callable(cpython.cpython_add_sys_path)");
    expect_true("cpython.CPythonLanguage.__name__ == 'CPythonLanguage'");
    auto wrappertest = find_module(String("wrappertest"));
    ASSERT_TRUE(wrappertest.has_value());
    bind_host("wrappertest", wrappertest.value());
    expect_true("wrappertest.Gauge.make('m').label == 'm'");
    expect_true("wrappertest.name == 'wrappertest'");
}

TEST_F(WrapperAttributes, WrappersComeBackAsTheVeryHostObject) {
    Any back = from_python(eval("g").get());
    EXPECT_TRUE(back.isSame(gauge_));
    EXPECT_TRUE(from_python(eval("Gauge").get()).isSame(gauge_class()));
}

} // namespace
} // namespace tesk::cpython::testing
