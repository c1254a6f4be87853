// Classes built at run time in private, then published once.
//
// A draft fills the table of a record that nobody else can see yet: adding a
// member copies no table, marks no snapshot stale and notifies nobody, so a
// class of many members costs one table. publish() hands the finished class
// out. After that, edits go through the `_unsafe` editors of class.h, each of
// which publishes a new table.
#pragma once

#include "tesk/class.h"

namespace tesk {

class TESK_API class_draft {
public:
    explicit class_draft(String const& name);
    // Takes over a record of the caller's own class kind (derived from
    // object_value_class), made with `new` and seen by nobody yet.
    explicit class_draft(internal::object_value_class* record);
    class_draft(class_draft const&) = delete;
    class_draft& operator=(class_draft const&) = delete;

    // The class being built: usable as a value (a property may return it)
    // before it is published, but not to be edited except through the draft.
    Class_Generic const& cls() const noexcept { return class_; }

    // Ignored for "Any" and for a parent that has the class among its
    // ancestors; traits and the instance factory come from the parent.
    class_draft& add_parent(Class_Generic const& parent);
    // `replace` false keeps a member of the same name added before.
    class_draft& add_method(String const& name, I_Callable_Generic const& method, bool replace = true);
    class_draft& add_property(String const& name, Property const& property, bool replace = true);
    class_draft& set_doc(String const& doc);
    // What calling the class does.
    class_draft& set_call_operator(I_Callable_Generic const& call);
    class_draft& add_traits(std::uint64_t traits);
    class_draft& set_instance_factory(internal::instance_factory factory);
    // The module (or class) that declares the class.
    class_draft& set_declaring_context(Any const& context);

    // Hands the class out, once; the draft must not be used afterwards.
    Class_Generic publish();

private:
    Class_Generic class_;
};

// Editors of published classes for what a class made at run time needs.
TESK_API void set_call_operator_unsafe(Class_Generic const& cls, I_Callable_Generic const& call);
TESK_API void add_traits_unsafe(Class_Generic const& cls, std::uint64_t traits);
TESK_API void set_instance_factory_unsafe(Class_Generic const& cls, internal::instance_factory factory);
TESK_API void set_declaring_context_unsafe(Class_Generic const& cls, Any const& context);

namespace internal {
// How many class tables have been made visible to other threads: one per
// published draft and one per edit of a published class. What a caller
// derives from class tables (where a field sits) stays valid while it
// stands still; a reader that sees a count sees the tables it counts.
TESK_API std::uint64_t class_publication_count() noexcept;
} // namespace internal

} // namespace tesk
