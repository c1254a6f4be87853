// Classes built in private: a draft fills its record's first table in place,
// and publish() hands the class out (class_draft.h).
#include "builtin_classes.h"
#include "class_internal.h"

#include "tesk/class_draft.h"

namespace tesk {

namespace {
Class_Generic adopted(internal::object_value_class* record) {
    // Records are immortal: the creator's reference goes to the handle.
    return Class_Generic::unsafe(Any::adopt(record));
}
} // namespace

class_draft::class_draft(String const& name) : class_draft(new internal::object_value_class(name)) {}

class_draft::class_draft(internal::object_value_class* record) : class_(adopted(record)) {}

class_draft& class_draft::add_parent(Class_Generic const& parent) {
    internal::unpublished_record table(class_.record());
    // A cycle cannot arise: nothing can have an unpublished class as an ancestor.
    (void)internal::link_parent(*table, parent.record());
    return *this;
}

class_draft& class_draft::add_method(String const& name, I_Callable_Generic const& method, bool replace) {
    internal::unpublished_record table(class_.record());
    if (replace || !table->methods.find(name)) table->methods.set(name, method);
    return *this;
}

class_draft& class_draft::add_property(String const& name, Property const& property, bool replace) {
    internal::unpublished_record table(class_.record());
    if (replace || !table->properties.find(name)) table->properties.set(name, property);
    return *this;
}

class_draft& class_draft::set_doc(String const& doc) {
    internal::unpublished_record table(class_.record());
    table->doc = doc;
    return *this;
}

class_draft& class_draft::set_call_operator(I_Callable_Generic const& call) {
    internal::unpublished_record table(class_.record());
    table->call_operator = call;
    return *this;
}

class_draft& class_draft::add_traits(std::uint64_t traits) {
    internal::unpublished_record table(class_.record());
    table->traits |= traits;
    return *this;
}

class_draft& class_draft::set_instance_factory(internal::instance_factory factory) {
    internal::unpublished_record table(class_.record());
    table->factory = factory;
    return *this;
}

class_draft& class_draft::set_declaring_context(Any const& context) {
    internal::unpublished_record table(class_.record());
    table->declaring_context = context;
    return *this;
}

Class_Generic class_draft::publish() {
    {
        internal::unpublished_record table(class_.record());
        internal::give_default_factory(*table);
    }
    // A member snapshot made while the draft was filled (allocating an
    // instance makes one) does not know what was added after it.
    internal::class_record_access::version(class_.record()).fetch_add(1, std::memory_order_seq_cst);
    internal::count_publication();
    return std::move(class_);
}

} // namespace tesk
