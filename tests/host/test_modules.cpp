// Modules and their registry, init handlers, globals, and error values.
#include <gtest/gtest.h>
#include <tesk/tesk.h>

#include <set>
#include <thread>

using namespace tesk;

namespace {

std::int64_t forty_two() { return 42; }

TEST(Modules, RegistryGivesOneModulePerNameUnderConcurrentRequests) {
    constexpr int thread_count = 4, names = 20;
    std::vector<std::vector<Any>> seen(thread_count);
    std::vector<std::thread> threads;
    for (int t = 0; t < thread_count; ++t)
        threads.emplace_back([t, &seen] {
            for (int i = 0; i < names; ++i) {
                String name = String("test.concurrent.m") + String::number(i);
                seen[t].push_back(get_module(name));
                register_function(name, String("f") + String::number(t), make_closure(forty_two));
            }
        });
    for (auto& th : threads) th.join();
    for (int i = 0; i < names; ++i) {
        auto m = find_module(String("test.concurrent.m") + String::number(i));
        ASSERT_TRUE(m.has_value());
        for (int t = 0; t < thread_count; ++t) EXPECT_TRUE(seen[t][i].isSame(m.value()));
        EXPECT_EQ(m.value().callables().size(), static_cast<std::size_t>(thread_count)) << "no registration lost";
    }
    std::set<std::string> listed;
    for (Module const& m : modules()) EXPECT_TRUE(listed.insert(m.name().toUtf8()).second) << "listed once";
}

TEST(Modules, EachModuleHasItsOwnClassForProperties) {
    auto a = get_module(String("test.props.a")).as<Module>();
    auto b = get_module(String("test.props.b")).as<Module>();
    EXPECT_FALSE(class_of(a).isSame(class_of(b)));
    EXPECT_TRUE(class_of(a).is_ancestor(Module::getClass()));
    add_class_property_unsafe(class_of(a), String("only_a"),
                              Property(I_Callable_Generic::unsafe(internal::make_constant_callable(Integer(1)))));
    EXPECT_EQ(Integer::cast(a.propertyValue(String("only_a"))).value().value(), 1);
    EXPECT_TRUE(b.propertyValue(String("only_a")).isError());

    register_property(String("test.props.b"), String("own"),
                      Property(I_Callable_Generic::unsafe(internal::make_constant_callable(String("b")))));
    EXPECT_EQ(String::cast(b.propertyValue(String("own"))).value(), "b");
    EXPECT_EQ(own_properties_of(b).size(), 1u);

    a.setDoc(String("doc a"));
    a.setImportance(3);
    EXPECT_EQ(a.doc(), "doc a");
    EXPECT_EQ(a.importance(), 3);
    EXPECT_EQ(String::cast(a.propertyValue(String("name"))).value(), "test.props.a");

    auto empty = get_module(String());
    ASSERT_TRUE(empty.isError());
    EXPECT_TRUE(register_function(String(), String("f"), make_closure(forty_two)).isError());
    EXPECT_FALSE(find_module(String()).has_value());
}

// Callers that keep what they derived from the modules rely on the generation
// moving with every change that could alter it.
TEST(Modules, GenerationMovesWithEveryChange) {
    std::uint64_t seen = internal::modules_generation();
    auto moved = [&seen] {
        std::uint64_t const now = internal::modules_generation();
        bool const changed = now != seen;
        seen = now;
        return changed;
    };
    Module m = get_module(String("test.generation")).as<Module>();
    EXPECT_TRUE(moved()) << "registration";
    (void)get_module(String("test.generation"));
    EXPECT_FALSE(moved()) << "finding a registered module changes nothing";
    m.addCallable(String("f"), make_closure(forty_two));
    EXPECT_TRUE(moved()) << "a callable";
    m.addClass(String("C"), Class_Generic::unsafe(Integer::getClass()));
    EXPECT_TRUE(moved()) << "a class";
    m.setImportance(5);
    EXPECT_TRUE(moved()) << "the importance";
    register_property(String("test.generation"), String("p"),
                      Property(I_Callable_Generic::unsafe(internal::make_constant_callable(Integer(1)))));
    EXPECT_TRUE(moved()) << "an own property";
    add_class_property_unsafe(class_of(m), String("q"),
                              Property(I_Callable_Generic::unsafe(internal::make_constant_callable(Integer(2)))));
    EXPECT_TRUE(moved()) << "a property of its class";
}

TEST(InitHandlers, RunByLevelInOrderOnceIncludingOnesAddedWhileRunning) {
    run_init_handlers(); // whatever the library queued at load
    std::vector<std::string> order;
    add_init_handler(5, [&] { order.push_back("5a"); });
    add_init_handler(2, [&] {
        order.push_back("2a");
        add_init_handler(1, [&] { order.push_back("1-late"); });
        add_init_handler(9, [&] { order.push_back("9-late"); });
    });
    add_init_handler(5, [&] { order.push_back("5b"); });
    init_handlers_unsafe().emplace_back(3, [&] { order.push_back("3-direct"); });
    add_init_handler(2, [&] { order.push_back("2b"); });

    EXPECT_EQ(run_init_handlers(), 7);
    std::vector<std::string> expected{"2a", "1-late", "2b", "3-direct", "5a", "5b", "9-late"};
    EXPECT_EQ(order, expected);
    EXPECT_EQ(run_init_handlers(), 0) << "each runs once";
    EXPECT_EQ(order.size(), expected.size());
}

TEST(Globals, OneSharedMap) {
    globals().set(String("test.global"), Integer(7));
    EXPECT_EQ(Integer::cast(globals().find(String("test.global"))).value().value(), 7);
    EXPECT_TRUE(globals().isSame(globals()));
}

TEST(Errors, ClassesMessagesAndParts) {
    Error e(String("boom"));
    EXPECT_TRUE(e.isError());
    EXPECT_TRUE(e.error().isSame(e));
    EXPECT_TRUE(class_of(e).isSame(Error::getClass()));
    EXPECT_EQ(String::cast(e.propertyValue(Error::$$message)).value(), "boom");
    e.setStack(String("at line 1"));
    e.setValue(Integer(3));
    Error cause(String("root"));
    e.setCause(cause);
    EXPECT_EQ(e.stack(), "at line 1");
    EXPECT_EQ(Integer::cast(e.value()).value().value(), 3);
    EXPECT_TRUE(e.cause().isSame(cause));

    EXPECT_EQ(Error::unknown().message(), "Unknown error.");
    EvaluationError ev(String("bad syntax"), Integer(1), Integer(3), Integer(4), None());
    EXPECT_TRUE(Error::test(ev));
    EXPECT_TRUE(EvaluationError::test(ev));
    EXPECT_FALSE(EvaluationError::test(e));
    EXPECT_EQ(ev.line().value().value(), 3);
    EXPECT_FALSE(ev.length().has_value());
    StopIteration stop;
    EXPECT_TRUE(StopIteration::test(stop));
    EXPECT_FALSE(BadArgument::test(stop));
    EXPECT_TRUE(class_of(stop).is_ancestor(Error::getClass()));

    EXPECT_EQ(error_method_not_found(String("run"), Integer(5)).message(),
              "The method is missing: run, target object: 5.");
    EXPECT_EQ(result_error_cast_source(String("x"), Integer::getClass()).message(), "Unable to cast x to Integer.");

    try {
        throw std::runtime_error("from C++");
    } catch (...) {
        EXPECT_EQ(Error::fromCurrentException().message(), "from C++");
    }
    try {
        throw 5;
    } catch (...) {
        EXPECT_EQ(Error::fromCurrentException().message(), "Unknown C++ exception.");
    }
    Error notClass = Error::ofClass(Integer::getClass(), String("x"));
    EXPECT_TRUE(notClass.message().contains("Not an error class"));
    Error ofStop = Error::ofClass(StopIteration::getClass(), String("done"));
    EXPECT_TRUE(StopIteration::test(ofStop));
    EXPECT_EQ(ofStop.message(), "done");
}

TEST(Types, ConformanceAndRegistry) {
    EXPECT_TRUE(Type(Integer::getClass()).conformsTo(Type::untyped()));
    EXPECT_TRUE(Type::none().conformsTo(Type::none()));
    EXPECT_FALSE(Type::untyped().conformsTo(Type(Integer::getClass())));
    EXPECT_TRUE(Type(List::getClass()).conformsTo(Type(I_Sequence_Generic::getClass())));
    EXPECT_TRUE(Type(List::getClass()).conformsTo(Type(I_Iterable_Generic::getClass())));
    EXPECT_FALSE(Type(List::getClass()).conformsTo(Type(I_Map_Generic::getClass())));
    EXPECT_TRUE(Type(HashMap::getClass()).conformsTo(Type(I_Map_Generic::getClass())));
    EXPECT_TRUE(Type(Tuple::getClass()).conformsTo(Type(I_Immutable::getClass())));
    EXPECT_TRUE(Type(StopIteration::getClass()).conformsTo(Type(Error::getClass())));
    EXPECT_TRUE(Type(PythonLanguage::getClass()).conformsTo(Type(I_Language::getClass())));
    EXPECT_EQ(find_type(String("Integer")).value().name(), "Integer");
    EXPECT_TRUE(class_of(Any()).isSame(None::getClass()));
    EXPECT_TRUE(class_of(Computed_Generic::make([] { return Any(String("s")); })).isSame(String::getClass()));
    EXPECT_TRUE(raw_class_of(Computed_Generic::make([] { return Any(); })).isSame(Computed_Generic::getClass()));
    EXPECT_TRUE(I_Immutable::test(Integer(1)));
    EXPECT_FALSE(I_Immutable::test(List()));
}

} // namespace
