// Classes built at run time in private and published once, the editors for
// such classes, and which edits tell the modules' users that something moved.
#include "host_test_support.h"

#include <gtest/gtest.h>

using namespace tesk;

namespace {

I_Callable_Generic returning(Any const& value) {
    return I_Callable_Generic::unsafe(internal::make_function_callable(
        [value](std::span<Any const>) { return value; }, Signature(Type::untyped(), {})));
}

Property fixed(Any const& value) { return Property(I_Callable_Generic::unsafe(internal::make_constant_callable(value))); }

TEST(ClassDraft, AClassOfFiveHundredMembersIsOnePublication) {
    std::uint64_t const before = internal::class_publication_count();
    std::int64_t const tables = internal::live_class_table_count();
    class_draft draft(String("Wide"));
    for (int i = 0; i < 250; ++i) {
        draft.add_method(String("m") + String::number(i), returning(Integer(i)));
        draft.add_property(String("p") + String::number(i), fixed(Integer(i)));
    }
    EXPECT_EQ(internal::class_publication_count(), before) << "nothing is visible before publish";
    Class_Generic cls = draft.publish();
    EXPECT_EQ(internal::class_publication_count(), before + 1);
    EXPECT_EQ(internal::live_class_table_count(), tables + 1) << "one table, never copied";

    Any instance = cls.allocateInstance();
    EXPECT_EQ(Integer::unsafe(instance.callMethod(String("m249"))).value(), 249);
    EXPECT_EQ(Integer::unsafe(instance.propertyValue(String("p17"))).value(), 17);
    EXPECT_EQ(cls.definedMethods().size(), 250u + classes::any().definedMethods().size());
}

TEST(ClassDraft, ParentsTraitsCallOperatorAndFactory) {
    Class_Generic base = class_builder_base(String("DraftBase"))
                             .method(method_builder_base(String("inherited")).assign_func(returning(String("base"))).build())
                             .build()
                             .as<Class_Generic>();
    class_draft draft(String("DraftDerived"));
    draft.add_parent(base)
        .add_parent(classes::any()) // the root: ignored
        .add_parent(base)           // known already: ignored
        .add_traits(traits::callable)
        .set_doc(String("A drafted class."))
        .set_call_operator(returning(String("called")))
        .add_method(String("own"), returning(String("first")))
        .add_method(String("own"), returning(String("second")), false) // kept: not replaced
        .add_method(String("inherited"), returning(String("mine")), false);
    Class_Generic cls = draft.publish();
    EXPECT_EQ(cls.parents().size(), 1u);
    EXPECT_TRUE(cls.is_ancestor(base));
    EXPECT_NE(cls.traits() & traits::callable, 0u);
    EXPECT_EQ(cls.doc(), String("A drafted class."));
    EXPECT_EQ(String::unsafe(cls({})), String("called"));
    Any instance = cls.allocateInstance(); // the plain factory
    ASSERT_FALSE(instance.isError());
    EXPECT_EQ(String::unsafe(instance.callMethod(String("own"))), String("first"));
    EXPECT_EQ(String::unsafe(instance.callMethod(String("inherited"))), String("mine"));
}

TEST(ClassDraft, AnInstanceMadeWhileDraftingSeesEveryMemberOnceItIsPublished) {
    class_draft draft(String("EarlyInstance"));
    Any early = draft.cls().allocateInstance(); // looks the class's members up already
    draft.add_method(String("late"), returning(String("here")));
    draft.add_property(String("later"), fixed(Integer(3)));
    (void)draft.publish();
    EXPECT_EQ(String::unsafe(early.callMethod(String("late"))), String("here"));
    EXPECT_EQ(Integer::unsafe(early.propertyValue(String("later"))).value(), 3);
}

TEST(ClassDraft, EditorsForRunTimeClasses) {
    Class_Generic cls = class_draft(String("Edited")).publish();
    std::uint64_t const before = internal::class_publication_count();
    set_call_operator_unsafe(cls, returning(Integer(5)));
    add_traits_unsafe(cls, traits::immutable);
    Module module = get_module(String("test.draft")).as<Module>();
    set_declaring_context_unsafe(cls, module);
    EXPECT_EQ(internal::class_publication_count(), before + 3);
    EXPECT_EQ(Integer::unsafe(cls({})).value(), 5);
    EXPECT_NE(cls.traits() & traits::immutable, 0u);
    EXPECT_TRUE(cls.declaringContext().isSame(module));
}

TEST(ClassDraft, OnlyEditsOfModuleClassesMoveTheModulesGeneration) {
    Class_Generic loose = class_draft(String("Loose")).publish();
    std::uint64_t generation = internal::modules_generation();
    add_class_method_unsafe(loose, String("m"), returning(Integer(1)));
    EXPECT_EQ(internal::modules_generation(), generation) << "a class no module knows";

    Module module = get_module(String("test.draft.generation")).as<Module>();
    Class_Generic declared = class_draft(String("Declared")).set_declaring_context(module).publish();
    generation = internal::modules_generation();
    add_class_method_unsafe(declared, String("m"), returning(Integer(1)));
    EXPECT_NE(internal::modules_generation(), generation) << "a class declared in a module";
}

} // namespace
