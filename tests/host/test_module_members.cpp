// A module's functions, classes and dotted child modules answer member
// lookups on the module value, as any object's members do.
#include <gtest/gtest.h>
#include <tesk/tesk.h>

using namespace tesk;

namespace {

std::int64_t seven() { return 7; }

TEST(ModuleMembers, FunctionsClassesAndChildrenAreMembers) {
    // The child first, then its parent, then a grandchild: linked either way.
    auto child = get_module(String("test.members.child")).as<Module>();
    auto parent = get_module(String("test.members")).as<Module>();
    auto grandchild = get_module(String("test.members.child.leaf")).as<Module>();
    ASSERT_TRUE(register_function(String("test.members"), String("seven"), make_closure(seven)).isNone());
    Class_Generic cls = class_builder_base(String("Thing")).module(String("test.members")).build().as<Class_Generic>();

    auto function = method_of(parent, String("seven"));
    ASSERT_TRUE(function.has_value());
    EXPECT_EQ(Integer::cast(function.value()({})).value().value(), 7);
    EXPECT_TRUE(parent.propertyValue(String("Thing")).isSame(cls));
    EXPECT_TRUE(parent.propertyValue(String("child")).isSame(child));
    EXPECT_TRUE(child.propertyValue(String("leaf")).isSame(grandchild));
    // Only direct children, and nothing for another module.
    EXPECT_TRUE(parent.propertyValue(String("leaf")).isError());
    EXPECT_FALSE(method_of(child, String("seven")).has_value());
}

} // namespace
