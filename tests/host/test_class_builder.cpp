// Declaring classes: defclass_impl over every entry tag, malformed entry
// lists, and the class accessor with its re-entry guard.
#include <gtest/gtest.h>
#include <tesk/tesk.h>

#include <atomic>
#include <thread>

using namespace tesk;

namespace {

std::int64_t twice(Any const&, std::int64_t x) { return 2 * x; }
String greet(Any const&) { return String("hello"); }
String version() { return String("1.0"); }
Any remember_class(Any const& cls);
void count_finalised(Any const&);

std::atomic<int> g_finalised{0};
Any g_setup_class;

Any remember_class(Any const& cls) {
    g_setup_class = cls;
    return Any();
}
void count_finalised(Any const&) { ++g_finalised; }

I_Callable_Generic named(char const* name, I_Callable_Generic c, char const* params = "") {
    return method_builder_base(String(name)).assign_func(c).signature(String(params)).build();
}

TEST(ClassBuilder, EveryTagLandsInTheRecord) {
    auto base = class_builder_base(String("BuilderBase")).build();
    ASSERT_TRUE(base.is<Class_Generic>());
    Class_Generic baseClass = base.as<Class_Generic>();

    class_builder_base b(String("BuilderAll"));
    b.entry(entry_tag::flag, {});
    b.doc(String("A class with every entry."));
    b.entry(entry_tag::example, {String("BuilderAll()"), language_name_python()});
    b.bases({baseClass});
    b.entry(entry_tag::fields, {field_entry(String("count"), Integer::getClass(), String("How many."))});
    b.entry(entry_tag::instance_callback, {make_closure(count_finalised)});
    b.entry(entry_tag::option, {Integer(10)});
    b.method(named("twice", make_closure(twice), "x"));
    b.entry(entry_tag::interface_methods, {I_HasName::getClass(), named("greet", make_closure(greet))});
    b.module(String("test.builder"));
    b.property(property_builder_base(String("version")).getter(make_closure(version)));
    b.entry(entry_tag::interface_properties,
            {I_HasDoc::getClass(), property_builder_base(String("doc")).assign_getter_value(String("docs")).entry()});
    b.entry(entry_tag::class_callback, {make_closure(remember_class)});

    auto built = b.build();
    ASSERT_FALSE(built.isError()) << built.error().message().toUtf8();
    Class_Generic cls = built.as<Class_Generic>();
    auto const* r = cls.record();

    EXPECT_EQ(cls.name(), "BuilderAll");
    EXPECT_EQ(cls.qualname(), "test.builder.BuilderAll");
    EXPECT_EQ(cls.doc(), "A class with every entry.");
    ASSERT_EQ(r->examples().size(), 1u);
    EXPECT_EQ(r->examples()[0].second, "Python");
    EXPECT_TRUE(cls.is_ancestor(baseClass));
    EXPECT_TRUE(cls.is_ancestor(I_HasName::getClass()));
    EXPECT_TRUE(cls.is_ancestor(I_HasDoc::getClass()));
    EXPECT_TRUE(cls.definedField(String("count")));
    EXPECT_EQ(r->option(), 10);
    EXPECT_TRUE(cls.definedMethod(String("twice")).has_value());
    EXPECT_TRUE(cls.definedMethod(String("greet")).has_value());
    EXPECT_TRUE(cls.definedProperty(String("version")).has_value());
    EXPECT_TRUE(g_setup_class.isSame(cls)) << "tag 33 runs with the finished class";

    // Tag 25: declared by the module, registered there and for find_type.
    auto m = find_module(String("test.builder"));
    ASSERT_TRUE(m.has_value());
    EXPECT_TRUE(r->declaring_context_value().isSame(m.value()));
    bool listed = false;
    for (auto const& [name, c] : m.value().classes()) listed = listed || (name == "BuilderAll" && c.isSame(cls));
    EXPECT_TRUE(listed);
    auto found = find_type(String("test.builder.BuilderAll"));
    ASSERT_TRUE(found.has_value());
    EXPECT_TRUE(found.value().isSame(cls));

    // The members work on an instance; tag 15 is the finaliser.
    int before = g_finalised.load();
    {
        Any obj = cls.allocateInstance();
        Any const args[] = {Integer(21)};
        EXPECT_EQ(Integer::cast(obj.callMethod(String("twice"), args)).value().value(), 42);
        EXPECT_EQ(String::cast(obj.propertyValue(String("version"))).value(), "1.0");
        EXPECT_EQ(I_HasDoc::unsafe(obj).doc(), "docs");
        EXPECT_TRUE(obj.setFieldValue(String("count"), Integer(3)).isNone());
        EXPECT_EQ(Integer::cast(obj.fieldValue(String("count"))).value().value(), 3);
    }
    EXPECT_EQ(g_finalised.load(), before + 1);
}

TEST(ClassBuilder, ErrorTraitsAndFactoryComeFromTheParents) {
    auto built = class_builder_base(String("BuilderError")).bases({Error::getClass()}).build();
    ASSERT_TRUE(built.is<Class_Generic>());
    Class_Generic cls = built.as<Class_Generic>();
    EXPECT_NE(cls.traits() & traits::error, 0u);
    Error e = Error::ofClass(cls, String("custom"));
    EXPECT_TRUE(Error::test(e));
    EXPECT_EQ(e.message(), "custom");
    EXPECT_TRUE(class_of(e).isSame(cls));
    EXPECT_FALSE(StopIteration::test(e));
}

TEST(ClassBuilder, MalformedEntriesGiveAnErrorAndPublishNothing) {
    auto expect_refused = [](List const& entries, char const* part) {
        auto r = defclass_impl(entries);
        ASSERT_TRUE(r.isError());
        EXPECT_TRUE(r.error().message().contains(part)) << r.error().message().toUtf8();
    };
    expect_refused(List(), "class name");
    expect_refused(List{Integer(3)}, "class name");
    expect_refused(List{String("Bad1"), Integer(4)}, "Malformed entry 1");
    expect_refused(List{String("Bad2"), List{String("no tag")}}, "integer tag");
    expect_refused(List{String("Bad3"), List{Integer(99)}}, "unknown tag");
    expect_refused(List{String("Bad4"), List{Integer(entry_tag::bases), Integer(1)}}, "not a class");
    expect_refused(List{String("Bad5"), List{Integer(entry_tag::doc)}}, "doc");
    expect_refused(List{String("Bad6"), List{Integer(entry_tag::method), String("f")}}, "method");
    expect_refused(List{String("Bad7"), List{Integer(entry_tag::module), String("m")}}, "module_entry");
    expect_refused(List{String("Bad8"), List{Integer(entry_tag::fields), Integer(1)}}, "field_entry");
    expect_refused(List{String("Bad9"), List{Integer(entry_tag::property), String("p")}}, "property_entry");
    for (char const* name : {"Bad1", "Bad2", "Bad3", "Bad4", "Bad5", "Bad6", "Bad7", "Bad8", "Bad9"})
        EXPECT_FALSE(find_type(String(name)).has_value()) << name;
}

TEST(ClassBuilder, EveryClassCallbackRunsInEntryOrder) {
    static std::vector<int> ran;
    ran.clear();
    auto first = internal::make_function_callable([](std::span<Any const>) -> Any { ran.push_back(1); return Any(); },
                                                  Signature(Type::untyped(), {}));
    auto second = internal::make_function_callable([](std::span<Any const>) -> Any { ran.push_back(2); return Any(); },
                                                   Signature(Type::untyped(), {}));
    auto built = class_builder_base(String("BuilderTwoCallbacks"))
                     .entry(entry_tag::class_callback, {first})
                     .entry(entry_tag::class_callback, {second})
                     .build();
    ASSERT_FALSE(built.isError()) << built.error().message().toUtf8();
    EXPECT_EQ(ran, (std::vector<int>{1, 2}));
    EXPECT_TRUE(built.as<Class_Generic>().record()->setup_callback().isSame(second));

    // A failing one refuses the class; those after it do not run.
    ran.clear();
    auto fail = internal::make_function_callable([](std::span<Any const>) -> Any { return Error(String("no")); },
                                                 Signature(Type::untyped(), {}));
    auto refused = class_builder_base(String("BuilderSecondRefused"))
                       .entry(entry_tag::class_callback, {first})
                       .entry(entry_tag::class_callback, {fail})
                       .entry(entry_tag::class_callback, {second})
                       .build();
    ASSERT_TRUE(refused.isError());
    EXPECT_EQ(ran, (std::vector<int>{1}));
    EXPECT_FALSE(find_type(String("BuilderSecondRefused")).has_value());
}

TEST(ClassBuilder, FailingClassCallbackRefusesTheClass) {
    auto fail = internal::make_function_callable([](std::span<Any const>) -> Any { return Error(String("no")); },
                                                 Signature(Type::untyped(), {}));
    auto r = class_builder_base(String("BuilderRefused")).entry(entry_tag::class_callback, {fail}).build();
    ASSERT_TRUE(r.isError());
    EXPECT_EQ(r.error().message(), "no");
    EXPECT_FALSE(find_type(String("BuilderRefused")).has_value());
}

// ---- the class accessor ------------------------------------------------------

extern class_accessor g_recursive;
std::string g_recursion_message;

void fill_recursive(class_builder_base& b) {
    try {
        g_recursive();
    } catch (std::runtime_error const& e) {
        g_recursion_message = e.what();
    }
    b.doc(String("built"));
}
class_accessor g_recursive("AccessorRecursive", fill_recursive);

TEST(ClassAccessor, UseDuringItsOwnBuildThrows) {
    Class_Generic cls = g_recursive();
    EXPECT_EQ(g_recursion_message, "Recursive call detected while initializing class: AccessorRecursive");
    EXPECT_EQ(cls.doc(), "built");
    EXPECT_TRUE(g_recursive().isSame(cls)) << "built once";
}

std::atomic<bool> g_slow_started{false};
std::atomic<bool> g_slow_release{false};
void fill_slow(class_builder_base& b) {
    g_slow_started = true;
    while (!g_slow_release) std::this_thread::yield();
    b.doc(String("slow"));
}
class_accessor g_slow("AccessorSlow", fill_slow);

TEST(ClassAccessor, OtherThreadsWaitForTheBuildAndShareTheClass) {
    Any first, second;
    std::thread a([&] { first = g_slow(); });
    while (!g_slow_started) std::this_thread::yield();
    std::thread b([&] { second = g_slow(); }); // must wait, not throw
    g_slow_release = true;
    a.join();
    b.join();
    ASSERT_TRUE(first.hasValue());
    EXPECT_TRUE(first.isSame(second));
    EXPECT_EQ(Class_Generic::unsafe(first).doc(), "slow");
}

} // namespace
