// Member lookup: the order own > hook > class > parents (depth first) >
// universal, the class overrides of the generic operations, properties,
// fields, and the built-in classes' methods.
#include <gtest/gtest.h>
#include <tesk/tesk.h>

#include <atomic>
#include <thread>

using namespace tesk;

namespace {

// A callable that answers its tag, whatever it is called with.
I_Callable_Generic answering(char const* tag) {
    String text(tag);
    auto c = internal::make_function_callable([text](std::span<Any const>) -> Any { return text; },
                                              Signature(Type::untyped(), {}), String(tag));
    return I_Callable_Generic::unsafe(c);
}

String answer(Any const& receiver, char const* method) {
    auto r = String::cast(receiver.callMethod(String(method)));
    return r ? r.value() : String("<none>");
}

Class_Generic make_class(char const* name, std::vector<Any> bases = {}, std::vector<I_Callable_Generic> methods = {}) {
    class_builder_base b{String(name)};
    if (!bases.empty()) b.entry(entry_tag::bases, bases);
    for (auto const& m : methods) b.method(m);
    auto r = b.build();
    EXPECT_FALSE(r.isError());
    return r.as<Class_Generic>();
}

TEST(MemberLookup, OrderIsOwnHookClassParentsUniversal) {
    // Left is searched to its end before Right: depth first, declared order.
    Class_Generic leftBase = make_class("LookupLeftBase", {}, {answering("left-base"), answering("deep")});
    Class_Generic left = make_class("LookupLeft", {leftBase}, {});
    Class_Generic right = make_class("LookupRight", {}, {answering("right"), answering("left-base")});
    Class_Generic cls = make_class("LookupChild", {left, right}, {answering("class")});
    set_method_hook_unsafe(cls, [](Any const&, String const& name) -> Any {
        return name == "hooked" || name == "class" ? Any(answering("from-hook")) : Any();
    });
    Any obj = cls.allocateInstance();

    EXPECT_EQ(answer(obj, "deep"), "deep");
    EXPECT_EQ(answer(obj, "left-base"), "left-base") << "Left's base comes before Right";
    EXPECT_EQ(answer(obj, "right"), "right");
    EXPECT_EQ(answer(obj, "hooked"), "from-hook");
    EXPECT_EQ(answer(obj, "class"), "from-hook") << "the hook comes before the class";

    insert_method(obj, String("class"), answering("own"));
    EXPECT_EQ(answer(obj, "class"), "own") << "own members come first";
    EXPECT_EQ(own_methods_of(obj).size(), 1u);
    // raw lookup skips the hook but keeps own members.
    EXPECT_TRUE(raw_method_of(obj, String("hooked")).isNone());
    EXPECT_TRUE(raw_method_of(obj, String("class")).value().isSame(own_methods_of(obj)[0].second));

    // Universal methods of "Any" answer last.
    Any const other[] = {obj};
    EXPECT_TRUE(Boolean::cast(obj.callMethod(Any::$__isSame__, other)).value().value());
    Any missing = obj.callMethod(String("nothing"));
    ASSERT_TRUE(missing.isError());
    EXPECT_TRUE(missing.error().message().startsWith("The method is missing: nothing, target object:"));
    set_method_hook_unsafe(cls, nullptr);
    EXPECT_EQ(answer(obj, "class"), "own");
    EXPECT_TRUE(method_of(obj, String("hooked")).isNone()) << "the hook is gone";
}

// A class that takes over the generic operations, as a proxy class does.
Any proxy_method(Any const&, String const& name) {
    if (name == "special") return answering("via-override");
    return Any();
}
Any proxy_property_value(Any const&, String const& name) { return String("value of ") + name; }
Any proxy_set_property_value(Any const&, String const& name, Any const&) {
    return Error(String("refused ") + name);
}
HashMap proxy_own_properties(Any const&) {
    HashMap m;
    m.set(String("listed"), Property(I_Callable_Generic::unsafe(internal::make_constant_callable(Integer(1)))));
    return m;
}
Any proxy_insert_property(Any const&, String const& name, Property const&) { return Error(String("no insert ") + name); }
String proxy_display(Any const&) { return String("<proxy>"); }

TEST(MemberLookup, ClassOverridesTakeOverTheGenericOperations) {
    auto decorated = [](char const* name, I_Callable_Generic c) { return method_builder_base(String(name)).assign_func(c).build(); };
    Class_Generic base = make_class("OverrideBase", {},
                                    {decorated("__method__", make_closure(proxy_method)),
                                     decorated("__propertyValue__", make_closure(proxy_property_value)),
                                     decorated("__setPropertyValue__", make_closure(proxy_set_property_value)),
                                     decorated("__ownProperties__", make_closure(proxy_own_properties)),
                                     decorated("__insertProperty__", make_closure(proxy_insert_property)),
                                     decorated("__display__", make_closure(proxy_display))});
    Class_Generic derived = make_class("OverrideDerived", {base}, {answering("plain")});
    Any obj = derived.allocateInstance();

    EXPECT_EQ(answer(obj, "special"), "via-override");
    EXPECT_TRUE(method_of(obj, String("plain")).isNone()) << "the override answers alone";
    EXPECT_TRUE(raw_method_of(obj, String("plain")).has_value());
    EXPECT_EQ(String::cast(obj.propertyValue(String("x"))).value(), "value of x");
    EXPECT_EQ(obj.setPropertyValue(String("y"), Integer(1)).error().message(), "refused y");
    ASSERT_EQ(own_properties_of(obj).size(), 1u);
    EXPECT_EQ(own_properties_of(obj)[0].first, "listed");
    EXPECT_EQ(insert_property_value(obj, String("z"), Integer(2)).error().message(), "no insert z");
    EXPECT_EQ(display(obj), "<proxy>");
    EXPECT_TRUE(internal::class_override(obj, Any::$__display__).hasValue());

    // A class without overrides, and one that gains an override later.
    Class_Generic plain = make_class("OverrideLater");
    Any p = plain.allocateInstance();
    EXPECT_TRUE(internal::class_override(p, Any::$__display__).isNone());
    add_class_method_unsafe(plain, String("__display__"), make_closure(proxy_display));
    EXPECT_EQ(display(p), "<proxy>") << "the override cache sees later edits";
}

// Counts the calls of a "__method__" override that also answers "plain",
// as a proxy's override answers the methods its class declares.
std::atomic<int> override_calls{0};
Any counting_method(Any const& self, String const& name) {
    ++override_calls;
    if (name == "special") return answering("via-override");
    return Any(raw_method_of(self, name));
}

TEST(MemberLookup, DeclaredMethodsFirstSkipsTheOverrideForDeclaredMethods) {
    auto decorated = [](char const* name, I_Callable_Generic c) { return method_builder_base(String(name)).assign_func(c).build(); };
    class_builder_base flagged{String("DeclaredFirstBase")};
    flagged.entry(entry_tag::flag, {String(declared_methods_first_flag)});
    flagged.method(decorated("__method__", make_closure(counting_method)));
    Result<Class_Generic> built = flagged.build();
    ASSERT_FALSE(built.isError());
    Class_Generic base = built.as<Class_Generic>();
    // The flag is inherited, and methods of derived classes are declared ones too.
    Class_Generic derived = make_class("DeclaredFirstDerived", {base}, {answering("plain")});
    Any obj = derived.allocateInstance();

    override_calls = 0;
    EXPECT_EQ(answer(obj, "plain"), "plain");
    EXPECT_EQ(override_calls.load(), 0) << "a declared method answers without the override";
    EXPECT_EQ(answer(obj, "special"), "via-override");
    EXPECT_EQ(override_calls.load(), 1) << "anything else still goes to the override";
    // Universal methods of "Any" are not declared by the chain: the override decides.
    EXPECT_TRUE(method_of(obj, Any::$__isSame__).has_value());
    EXPECT_EQ(override_calls.load(), 2);
    // An edit of the class copies its table: the flag stays.
    add_class_method_unsafe(base, String("later"), answering("later"));
    EXPECT_EQ(answer(obj, "later"), "later");
    EXPECT_EQ(override_calls.load(), 2);
    // Own members still come first.
    insert_method(obj, String("plain"), answering("own"));
    EXPECT_EQ(answer(obj, "plain"), "own");

    // Without the flag, the override answers alone (as before).
    Class_Generic unflagged = make_class("DeclaredFirstUnflagged", {},
                                         {decorated("__method__", make_closure(proxy_method)), answering("plain")});
    EXPECT_TRUE(method_of(unflagged.allocateInstance(), String("plain")).isNone());
}

std::int64_t read_size(Any const&) { return 7; }
Any write_size(Any const&, std::int64_t) { return Any(); }

TEST(MemberLookup, PropertiesAndFields) {
    class_builder_base b{String("LookupProps")};
    b.property(property_builder_base(String("size")).getter(make_closure(read_size)).setter(make_closure(write_size)));
    b.property(property_builder_base(String("fixed")).assign_getter_value(String("constant")));
    b.entry(entry_tag::fields, {field_entry(String("count"), Integer::getClass())});
    Class_Generic cls = b.build().as<Class_Generic>();
    Any obj = cls.allocateInstance();

    EXPECT_EQ(Integer::cast(obj.propertyValue(String("size"))).value().value(), 7);
    EXPECT_TRUE(obj.setPropertyValue(String("size"), Integer(3)).isNone());
    EXPECT_EQ(String::cast(obj.propertyValue(String("fixed"))).value(), "constant");
    EXPECT_TRUE(obj.setPropertyValue(String("fixed"), Integer(1)).isError()) << "read-only";
    EXPECT_TRUE(obj.propertyValue(String("absent")).isError());
    EXPECT_TRUE(cls.record()->find_property_getter(String("size")).hasValue());
    EXPECT_TRUE(cls.record()->find_property_setter(String("fixed")).isNone());

    // An own property shadows the class's.
    insert_property_value(obj, String("fixed"), Integer(5));
    EXPECT_EQ(Integer::cast(obj.propertyValue(String("fixed"))).value().value(), 5);
    EXPECT_TRUE(raw_property_of(obj, String("fixed")).has_value());

    // Fields are typed: a value of another class is refused and the old one kept.
    EXPECT_TRUE(obj.setFieldValue(String("count"), Integer(4)).isNone());
    Any refused = obj.setFieldValue(String("count"), String("four"));
    ASSERT_TRUE(refused.isError());
    EXPECT_EQ(refused.error().message(), "Unable to cast four to Integer.");
    EXPECT_EQ(Integer::cast(obj.fieldValue(String("count"))).value().value(), 4);
    EXPECT_TRUE(obj.fieldValue(String("nope")).isError());
    EXPECT_TRUE(Integer(1).fieldValue(String("count")).isError()) << "only instances have fields";
}

TEST(MemberLookup, BuiltinContainersAnswerThroughTheirClasses) {
    List list{Integer(1), Integer(2), Integer(3)};
    auto at = method_of(list, I_Sequence_Generic::$at);
    ASSERT_TRUE(at.has_value());
    EXPECT_EQ(Integer::cast(at.value()({list, Integer(1)})).value().value(), 2);
    Any const two[] = {Integer(2)};
    EXPECT_EQ(Integer::cast(list.callMethod(String("indexOf"), two)).value().value(), 1) << "default for `from`";
    EXPECT_EQ(Integer::cast(list.propertyValue(String("__len__"))).value().value(), 3);
    list.callMethod(String("pop"));
    EXPECT_EQ(list.size(), 2u);
    EXPECT_TRUE(list.callMethod(String("at"), std::vector<Any>{Integer(9)}).isError());

    HashMap map;
    map.set(String("a"), Integer(1));
    Any const missing[] = {String("b")};
    EXPECT_TRUE(map.callMethod(String("get"), missing).isNone()) << "get's fallback defaults to none";
    EXPECT_TRUE(map.callMethod(String("remove"), missing).isError());
    EXPECT_EQ(List::cast(map.propertyValue(String("keys"))).value().size(), 1u);

    // Iteration ends with StopIteration.
    Any it = list.callMethod(String("iter"));
    ASSERT_TRUE(I_Iterator_Generic::test(it));
    EXPECT_EQ(Integer::cast(I_Iterator_Generic::unsafe(it).next()).value().value(), 1);
    EXPECT_EQ(Integer::cast(it.callMethod(String("next"))).value().value(), 2);
    EXPECT_TRUE(StopIteration::test(I_Iterator_Generic::unsafe(it).next()));
}

// A sequence proxy: a plain class that answers the sequence members.
Any proxy_at(Any const&, std::int64_t index) { return Integer(index * 10); }
std::int64_t proxy_len(Any const&) { return 3; }

TEST(MemberLookup, InterfaceHandlesCallTheMembersOfOtherClasses) {
    class_builder_base b{String("LookupSequenceProxy")};
    b.entry(entry_tag::interface_methods,
            {I_Sequence_Generic::getClass(), method_builder_base(String("at")).assign_func(make_closure(proxy_at)).build()});
    b.entry(entry_tag::interface_properties,
            {I_Sequence_Generic::getClass(), property_builder_base(I_Sequence_Generic::$$__len__).getter(make_closure(proxy_len)).entry()});
    Class_Generic cls = b.build().as<Class_Generic>();
    Any obj = cls.allocateInstance();
    ASSERT_TRUE(I_Sequence_Generic::test(obj));
    EXPECT_FALSE(I_MutableSequence_Generic::test(obj));
    auto seq = I_Sequence_Generic::unsafe(obj);
    EXPECT_EQ(Integer::cast(seq.at(2)).value().value(), 20);
    EXPECT_EQ(Integer::cast(seq.length()).value().value(), 3);
    EXPECT_TRUE(seq.sliced(0, 1).isError()) << "a member the class lacks is an Error";
}

} // namespace

namespace {

Any init_count(Any const& self, std::int64_t start) { return self.setFieldValue(String("count"), Integer(start)); }
Any shared_instance() {
    static Any* one = new Any(String("the one"));
    return *one;
}

TEST(ClassCall, ConstructsThroughInitOrTheCallOperator) {
    class_builder_base b{String("CallInit")};
    b.entry(entry_tag::fields, {field_entry(String("count"), Integer::getClass())});
    b.method(method_builder_base(Any::$__init__).assign_func(make_closure(init_count)).signature(String("start")).build());
    Class_Generic cls = b.build().as<Class_Generic>();
    Any obj = cls({Integer(4)});
    EXPECT_TRUE(class_of(obj).isSame(cls));
    EXPECT_EQ(Integer::cast(obj.fieldValue(String("count"))).value().value(), 4);
    EXPECT_TRUE(cls({String("four")}).isError()) << "a failing __init__ gives its error, not an instance";

    // A static __init__ gives the instance itself (a singleton class).
    class_builder_base s{String("CallStatic")};
    s.method(method_builder_base(Any::$__init__).assign_func(make_closure(shared_instance)).set_static(true).build());
    Class_Generic single = s.build().as<Class_Generic>();
    EXPECT_TRUE(single({}).isSame(shared_instance()));
    EXPECT_TRUE(single({}).isSame(single({})));
}

} // namespace

namespace {

TEST(MemberLookup, EditsAfterPublicationReachDerivedClassesWhileOthersLookUp) {
    Class_Generic base = make_class("EditedBase");
    Class_Generic derived = make_class("EditedDerived", {base});
    Any obj = derived.allocateInstance();
    EXPECT_TRUE(method_of(obj, String("late")).isNone());

    std::atomic<bool> stop{false};
    std::atomic<int> lookups{0};
    std::vector<std::thread> readers;
    for (int t = 0; t < 2; ++t)
        readers.emplace_back([&] {
            while (!stop) {
                auto m = method_of(obj, String("__isSame__"));
                EXPECT_TRUE(m.has_value());
                ++lookups;
            }
        });
    for (int i = 0; i < 50; ++i)
        add_class_method_unsafe(base, String("m") + String::number(i), answering("added"));
    add_class_method_unsafe(base, String("late"), answering("late"));
    while (lookups < 100) std::this_thread::yield();
    stop = true;
    for (auto& r : readers) r.join();

    EXPECT_EQ(answer(obj, "late"), "late") << "a parent's new method reaches the derived class";
    EXPECT_EQ(answer(obj, "m49"), "added");
    add_class_property_unsafe(base, String("p"), Property(I_Callable_Generic::unsafe(internal::make_constant_callable(Integer(8)))));
    EXPECT_EQ(Integer::cast(obj.propertyValue(String("p"))).value().value(), 8);
}

} // namespace
