// The registration helpers.
#include "language/registration.h"

#include <utility>

namespace tesk::cpython {

name_keys const& keys() {
    static name_keys const built;
    return built;
}

module_function::module_function(String module, String name, I_Callable_Generic const& function,
                                 String parameterNames, String doc, std::vector<Any> defaults)
    : module_(std::move(module)), name_(name), builder_(name) {
    builder_.assign_func(function)
        .signature(parameterNames)
        .assign_doc(doc)
        .assign_defaults(std::move(defaults))
        .set_static(true);
}

void module_function::register_now() const { (void)register_function(module_, name_, builder_.build()); }

module_property::module_property(String module, meta_property_untyped const& key, Any const& value)
    : module_(std::move(module)), builder_(key) {
    builder_.assign_getter_value(value);
}

void module_property::register_now() const { (void)register_property(module_, builder_.name(), builder_.build()); }

void add_module_property(Module const& parent, String const& name, Module const& child) {
    // Every module has a class of its own, so the property belongs to this
    // parent alone.
    Class_Generic cls = Class_Generic::of(parent.get()->class_value());
    Property property(I_Callable_Generic::unsafe(internal::make_constant_callable(child)), Any(), String());
    add_class_property_unsafe(cls, name, property);
}

} // namespace tesk::cpython
