#include "proxies/proxy_class.h"

#include "from_python/python_object.h"

namespace tesk::cpython {

void declare_proxy_class(class_builder_base& builder, Class_Generic const& interface, Class_Generic const& base) {
    builder.bases({interface, base}).entry(entry_tag::option, {Integer(10)});
    declare_python_object_instances(builder);
}

I_Callable_Generic proxy_method(String const& name, I_Callable_Generic const& function, char const* parameters,
                                std::vector<Any> defaults) {
    return method_builder_base(name)
        .assign_func(function)
        .signature(String(parameters))
        .assign_defaults(std::move(defaults))
        .build();
}

Any proxy_property(meta_property_untyped const& key, I_Callable_Generic const& getter) {
    return property_builder_base(key).getter(getter).entry();
}

Any constant_property(meta_property_untyped const& key, Any const& value) {
    property_builder_base property(key);
    property.assign_getter_value(value);
    return property.entry();
}

} // namespace tesk::cpython
