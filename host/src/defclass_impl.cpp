// defclass_impl: a class record from its entry list.
//
// The record is filled while nobody else can see it; only a complete record
// is published (its set-up callback run, registered for find_type and in its
// module). A malformed list gives an Error and publishes nothing.
#include "builtin_classes.h"
#include "class_internal.h"

#include "tesk/builder.h"

namespace tesk {

namespace {

using internal::class_table;
using internal::object_value_class;

Error malformed(std::size_t index, char const* what) {
    return Error(String("[defclass_impl] Malformed entry {}: {}.").arg(static_cast<std::int64_t>(index), String(what)));
}

// What the entries say beyond the record itself.
struct class_plan {
    String module_name;
    // Every class callback runs, in entry order: the parts of a class's
    // declaration (its base's, its own) may each bring one.
    std::vector<Any> setup_callbacks;
};

bool add_parent(class_table& record, Any const& parent) {
    if (!Class_Generic::test(parent)) return false;
    (void)internal::link_parent(record, Class_Generic::unsafe(parent).record());
    return true;
}

bool add_method(class_table& record, Any const& item) {
    if (!I_Callable_Generic::test(item)) return false;
    String name = I_Callable_Generic::unsafe(item).name();
    if (name.isEmpty()) return false;
    record.methods.set(name, item);
    return true;
}

bool add_property(class_table& record, Any const& item) {
    auto t = Tuple::cast(item);
    if (!t || t.value().size() != 2 || !String::test(t.value()[0]) || !Property::test(t.value()[1])) return false;
    record.properties.set(String::unsafe(t.value()[0]), Property::unsafe(t.value()[1]));
    return true;
}

bool add_field(class_table& record, Any const& item) {
    auto t = Tuple::cast(item);
    if (!t || t.value().size() != 4 || !String::test(t.value()[0]) || !Type::test(t.value()[1])) return false;
    record.fields.push_back({String::unsafe(t.value()[0]), t.value()[1],
                             String::test(t.value()[2]) ? String::unsafe(t.value()[2]) : String()});
    return true;
}

// Applies one entry (tag first); an Error for a malformed one.
Any apply_entry(class_table& record, class_plan& plan, std::size_t index, std::vector<Any> const& e) {
    if (e.empty() || !Integer::test(e[0])) return malformed(index, "an entry is a list that starts with an integer tag");
    std::size_t n = e.size();
    switch (Integer::unsafe(e[0]).value()) {
    case entry_tag::flag:
        for (std::size_t i = 1; i < n; ++i)
            if (String::test(e[i]) && String::unsafe(e[i]) == declared_methods_first_flag)
                record.declared_methods_first = true;
        return Any();
    case entry_tag::doc:
        if (n != 2 || !String::test(e[1])) return malformed(index, "a doc entry holds one String");
        record.doc = String::unsafe(e[1]);
        return Any();
    case entry_tag::example:
        if (n != 3 || !String::test(e[1]) || !String::test(e[2]))
            return malformed(index, "an example entry holds the code and the language name");
        record.examples.emplace_back(String::unsafe(e[1]), String::unsafe(e[2]));
        return Any();
    case entry_tag::bases:
        if (n < 2) return malformed(index, "a bases entry names at least one class");
        for (std::size_t i = 1; i < n; ++i)
            if (!add_parent(record, e[i])) return malformed(index, "a base is not a class");
        return Any();
    case entry_tag::fields:
        for (std::size_t i = 1; i < n; ++i)
            if (!add_field(record, e[i])) return malformed(index, "a field is not a field_entry");
        return Any();
    case entry_tag::instance_callback:
        if (n != 2 || !I_Callable_Generic::test(e[1])) return malformed(index, "the instance callback is not callable");
        record.finalizer = e[1];
        return Any();
    case entry_tag::option:
        if (n != 2 || !Integer::test(e[1])) return malformed(index, "an option entry holds one Integer");
        record.option = Integer::unsafe(e[1]).value();
        return Any();
    case entry_tag::method:
        if (n != 2 || !add_method(record, e[1])) return malformed(index, "a method entry holds one named callable");
        return Any();
    case entry_tag::interface_methods:
        if (n < 2 || !add_parent(record, e[1])) return malformed(index, "the interface is not a class");
        for (std::size_t i = 2; i < n; ++i)
            if (!add_method(record, e[i])) return malformed(index, "an interface method is not a named callable");
        return Any();
    case entry_tag::module: {
        auto t = n == 2 ? Tuple::cast(e[1]) : Union<Tuple, None>();
        if (!t || t.value().size() != 1 || !String::test(t.value()[0]) || String::unsafe(t.value()[0]).isEmpty())
            return malformed(index, "a module entry holds one module_entry");
        plan.module_name = String::unsafe(t.value()[0]);
        return Any();
    }
    case entry_tag::property:
        if (n != 2 || !add_property(record, e[1])) return malformed(index, "a property entry holds one property_entry");
        return Any();
    case entry_tag::interface_properties:
        if (n < 2 || !add_parent(record, e[1])) return malformed(index, "the interface is not a class");
        for (std::size_t i = 2; i < n; ++i)
            if (!add_property(record, e[i])) return malformed(index, "an interface property is not a property_entry");
        return Any();
    case entry_tag::class_callback:
        if (n != 2 || !I_Callable_Generic::test(e[1])) return malformed(index, "the class callback is not callable");
        plan.setup_callbacks.push_back(e[1]);
        return Any();
    default:
        return malformed(index, "unknown tag");
    }
}

} // namespace

Result<Class_Generic> defclass_impl(List const& entries) {
    std::vector<Any> items = entries.copyItems();
    if (items.empty() || !String::test(items[0]) || String::unsafe(items[0]).isEmpty())
        return Error(String("[defclass_impl] The first entry must be the class name."));
    String name = String::unsafe(items[0]);

    auto* record = new object_value_class(name);
    Class_Generic cls = Class_Generic::unsafe(Any::adopt(record)); // records are immortal, refused ones too
    class_plan plan;
    Union<Module, Error> module;
    {
        internal::unpublished_record table(record);
        for (std::size_t i = 1; i < items.size(); ++i) {
            auto e = List::cast(items[i]);
            if (!e) return malformed(i, "an entry is a list");
            if (Any r = apply_entry(*table, plan, i, e.value().copyItems()); r.isError()) return r;
        }
        internal::give_default_factory(*table);
        if (!plan.module_name.isEmpty()) {
            module = get_module(plan.module_name);
            if (module.isError()) return module;
            table->declaring_context = module;
            table->qualname = plan.module_name + String(".") + name;
        }
        if (!plan.setup_callbacks.empty()) table->setup_callback = plan.setup_callbacks.back();
    }
    for (Any const& callback : plan.setup_callbacks) {
        Any const args[] = {cls};
        Any r = I_Callable_Generic::unsafe(callback).invoke(args);
        if (r.isError()) return r;
    }

    register_type(cls); // a new class is nobody's ancestor yet: no cached view is stale
    internal::count_publication();
    if (module.is<Module>()) module.as<Module>().addClass(name, cls);
    return cls;
}

} // namespace tesk
