// Callables: typed-wrapper argument casts, defaults, named calls, binding,
// signatures and the builders' rules for getters and setters.
#include <gtest/gtest.h>
#include <tesk/tesk.h>

using namespace tesk;

namespace {

std::int64_t add(std::int64_t a, int b) { return a + b; }
String describe(String const& s) { return String("text ") + s; }
double half(double x) { return x / 2; }
Any take_any(Any const& v) { return v; }

Any call(I_Callable_Generic const& c, std::initializer_list<Any> args) { return c(args); }

TEST(TypedWrappers, ArgumentsCastDirectlyOrThroughTheirPrototype) {
    auto f = make_closure(add);
    EXPECT_EQ(Integer::cast(call(f, {Integer(40), Integer(2)})).value().value(), 42);
    // A deferred argument is resolved to its value.
    auto deferred = Computed_Generic::make([] { return Any(Integer(2)); });
    EXPECT_EQ(Integer::cast(call(f, {Integer(40), deferred})).value().value(), 42);
    // An integer widens to a double parameter.
    EXPECT_EQ(Float::cast(call(make_closure(half), {Integer(3)})).value().value(), 1.5);
    // Any takes everything, none included.
    EXPECT_TRUE(call(make_closure(take_any), {Any()}).isNone());
}

TEST(TypedWrappers, FailuresNameTheParameterOrPassTheErrorThrough) {
    auto f = make_closure(add);
    Any bad = call(f, {Integer(1), String("two")});
    ASSERT_TRUE(BadArgument::test(bad));
    EXPECT_EQ(bad.error().message(), "Bad argument: expected Integer, got two.");

    Error original(String("upstream"));
    Any passed = call(f, {Integer(1), original});
    EXPECT_TRUE(passed.isSame(original)) << "an error argument is the result itself";

    Any out_of_range = call(f, {Integer(1), Integer(std::int64_t{1} << 40)});
    ASSERT_TRUE(BadArgument::test(out_of_range));
    EXPECT_TRUE(out_of_range.error().message().startsWith("Bad argument: expected Int32"));

    Any arity = call(f, {Integer(1)});
    ASSERT_TRUE(arity.isError());
    EXPECT_EQ(arity.error().message(), "Wrong number of arguments: expected 2, got 1.");
}

// A handle type over a class whose coercion turns numbers into instances.
Class_Generic box_class() {
    static Class_Generic* cls = [] {
        auto* c = new Class_Generic(class_builder_base(String("CoercedBox")).build().as<Class_Generic>());
        Class_Generic box = *c;
        set_coercion_unsafe(box, [box](Any const& v) -> Any {
            if (Integer::test(v)) return box.allocateInstance();
            return result_error_cast_source(v, box);
        });
        return c;
    }();
    return *cls;
}
class Box : public Any {
    TESK_HANDLE(Box, Any)
public:
    static bool test(Any const& v) noexcept { return v.kind() == Kind::Instance && v.get()->class_value() == box_class().record(); }
};
Class_Generic Box::getClass() { return box_class(); }
bool is_box(Box const& b) { return Box::test(b); }

TEST(TypedWrappers, TheParameterClassCoercionIsTried) {
    auto f = make_closure(is_box);
    EXPECT_TRUE(Boolean::cast(call(f, {Integer(3)})).value().value()) << "coerced";
    EXPECT_EQ(call(f, {String("x")}).error().message(), "Bad argument: expected CoercedBox, got x.");
    Class_Generic box = box_class();
    EXPECT_TRUE(box.coerce(Integer(1)).kind() == Kind::Instance);
    Any refused = box.coerce(String("x"));
    ASSERT_TRUE(refused.isError());
    EXPECT_EQ(refused.error().message(), "Unable to cast x to CoercedBox.");
    Any same = box.allocateInstance();
    EXPECT_TRUE(box.coerce(same).isSame(same));
    // String's class has no coercion: a wrong value is refused with the class name.
    Any s = call(make_closure(describe), {Integer(5)});
    EXPECT_EQ(s.error().message(), "Bad argument: expected String, got 5.");
}

TEST(Callables, DefaultsAndNamedArguments) {
    auto f = method_builder_base(String("add")).assign_func(make_closure(add)).signature(String("a, b"))
                 .assign_defaults({Integer(10)}).build();
    EXPECT_EQ(f.signature().as<Signature>().toString(), "(a: Integer, b: Integer = 10) -> Integer");
    EXPECT_EQ(Integer::cast(call(f, {Integer(1)})).value().value(), 11) << "missing trailing argument from its default";

    HashMap named;
    named.set(String("a"), Integer(5));
    EXPECT_EQ(Integer::cast(f.callWithNamed(named)).value().value(), 15);
    named.set(String("b"), Integer(1));
    EXPECT_EQ(Integer::cast(f.callWithNamed(named)).value().value(), 6);

    HashMap unknown;
    unknown.set(String("a"), Integer(1));
    unknown.set(String("c"), Integer(1));
    EXPECT_EQ(f.callWithNamed(unknown).error().message(), "Unknown argument: c.");
    HashMap missing;
    missing.set(String("b"), Integer(1));
    EXPECT_EQ(f.callWithNamed(missing).error().message(), "Missing argument: a.");

    EXPECT_EQ(Integer::cast(f.callWith(List{Integer(2), Integer(3)})).value().value(), 5);
}

TEST(Callables, BindingNamesAndConstants) {
    auto f = method_builder_base(String("add")).assign_func(make_closure(add)).signature(String("a, b")).build();
    auto bound = f.bindInstance(Integer(100));
    EXPECT_TRUE(bound.isIndependent());
    EXPECT_EQ(bound.signature().as<Signature>().toString(Signature::with_types), "(b: Integer)");
    EXPECT_EQ(Integer::cast(call(bound, {Integer(1)})).value().value(), 101);
    EXPECT_EQ(bound.name(), "add");

    auto k = internal::make_constant_callable(String("fixed"));
    EXPECT_EQ(String::cast(internal::constant_callable_value(k)).value(), "fixed");
    EXPECT_TRUE(internal::constant_callable_value(f).isNone());

    auto abstract = method_builder_base(String("todo")).build();
    EXPECT_EQ(call(abstract, {}).error().message(), "Abstract function: todo.");

    Signature sig(Float::getClass(), {Parameter(String("a"), Integer::getClass()), Parameter(String("b"), String::getClass())},
                  {String("x")});
    EXPECT_EQ(sig.toString(), "(a: Integer, b: String = 'x') -> Float");
    EXPECT_EQ(sig.requiredParameterCount(), 1);
    EXPECT_EQ(sig.renamed(String("p, q"), {}).toString(0), "(p, q)");
}

// A callable that is a class instance: it answers "call" with the argument list.
Any sum_call(Any const&, List const& args) {
    std::int64_t total = 0;
    for (Any const& a : args.copyItems()) total += Integer::cast(a).value().value();
    return Integer(total);
}

TEST(Callables, InstancesOfClassesImplementingICallable) {
    class_builder_base b{String("SummingCallable")};
    b.entry(entry_tag::interface_methods,
            {I_Callable_Generic::getClass(), method_builder_base(String("call")).assign_func(make_closure(sum_call)).build()});
    Any obj = b.build().as<Class_Generic>().allocateInstance();
    ASSERT_TRUE(I_Callable_Generic::test(obj));
    auto c = I_Callable_Generic::unsafe(obj);
    EXPECT_EQ(Integer::cast(c({Integer(1), Integer(2), Integer(3)})).value().value(), 6);
    EXPECT_FALSE(c.isIndependent());
    c.setIndependent(true);
    EXPECT_TRUE(c.isIndependent()) << "kept in the _independent field of I_Callable";
}

// An invoke hook that tells its calls apart from "call": the product of
// the arguments, and the instance it was given.
Any product_invoke(Any const& self, std::span<Any const> args) {
    std::int64_t total = 1;
    for (Any const& a : args) total *= Integer::cast(a).value().value();
    return Tuple({self, Integer(total)});
}

TEST(Callables, AnInvokeHookTakesTheCallsOfInstancesInsteadOfCall) {
    class_builder_base b{String("HookedCallable")};
    b.entry(entry_tag::interface_methods,
            {I_Callable_Generic::getClass(), method_builder_base(String("call")).assign_func(make_closure(sum_call)).build()});
    Class_Generic cls = b.build().as<Class_Generic>();
    auto c = I_Callable_Generic::unsafe(cls.allocateInstance());
    auto plain = I_Callable_Generic::unsafe(b.build().as<Class_Generic>().allocateInstance());

    set_invoke_hook_unsafe(cls, &product_invoke);
    Any result = c({Integer(2), Integer(3), Integer(4)});
    ASSERT_TRUE(Tuple::test(result)) << display(result).toUtf8();
    EXPECT_TRUE(Tuple::unsafe(result)[0].isSame(c)) << "the hook gets the instance itself";
    EXPECT_EQ(Integer::cast(Tuple::unsafe(result)[1]).value().value(), 24);
    // Every way of calling goes through invoke, and so through the hook.
    EXPECT_TRUE(Tuple::test(c.callWith(List{Integer(5)})));
    // The method stays, for callers that look it up by name; another class
    // (here one built from the same entries) keeps calling "call".
    EXPECT_EQ(Integer::cast(c.callMethod(String("call"), std::vector<Any>{List{Integer(5)}})).value().value(), 5);
    EXPECT_EQ(Integer::cast(plain({Integer(2), Integer(3)})).value().value(), 5);

    set_invoke_hook_unsafe(cls, nullptr);
    EXPECT_EQ(Integer::cast(c({Integer(2), Integer(3), Integer(4)})).value().value(), 9) << "back to \"call\"";
}

Any getter_two(Any const&, Any const&) { return Any(); }
Any getter_defaulted(Any const&, Any const&) { return Any(); }
Any getter_none() { return Integer(1); }
void setter_three(Any const&, Any const&, Any const&) {}
void setter_one(Any const&) {}

TEST(PropertyBuilder, MisuseIsReportedToTheAssertionLog) {
    clear_assertion_messages();
    property_builder_base(String("p")).getter(make_closure(getter_two));
    auto defaulted = method_builder_base(String("g")).assign_func(make_closure(getter_defaulted))
                         .assign_defaults({Any()}).build();
    property_builder_base(String("q")).getter(defaulted);
    property_builder_base(String("r")).setter(make_closure(setter_three));
    auto messages = assertion_messages();
    ASSERT_EQ(messages.size(), 2u) << "a getter whose extra parameter has a default is fine";
    EXPECT_EQ(messages[0], "[property_builder::getter] Too many parameters in the getter function.");
    EXPECT_EQ(messages[1], "[property_builder::setter] Too many parameters in the setter function.");
    clear_assertion_messages();
    EXPECT_TRUE(assertion_messages().empty());

    auto g = make_closure(getter_none);
    auto s = make_closure(setter_one);
    Property p = property_builder_base(String("s")).getter(g).setter(s).build();
    EXPECT_TRUE(p.getter().isIndependent()) << "a getter without parameters takes no object";
    EXPECT_TRUE(I_Callable_Generic::unsafe(p.setter()).isIndependent()) << "a setter with one parameter takes no object";
    EXPECT_FALSE(g.isIndependent() || s.isIndependent()) << "the builder marks its own copies, not the callables given";
    EXPECT_EQ(Integer::cast(p.get(String("anything"))).value().value(), 1);
    EXPECT_TRUE(assertion_messages().empty());
}

} // namespace
