// How this library declares its members to the host: shared name keys,
// module functions and properties that are described at load time and
// registered when their init handler runs, and module properties that hang
// one module below another.
#pragma once

#include <tesk/tesk.h>

namespace tesk::cpython {

// Member names that several parts of the library use, built once.
struct name_keys {
    meta_method_untyped import_all_modules{"importAllModules"};
};
name_keys const& keys();

// A function of a host module. Described (name, bound function, parameter
// names, doc, defaults) when the library loads; registered with the module by
// its init handler, because the host's module table is ready only then.
class module_function {
public:
    module_function(String module, String name, I_Callable_Generic const& function, String parameterNames,
                    String doc, std::vector<Any> defaults = {});
    void register_now() const;

private:
    String module_;
    String name_;
    method_builder_base builder_;
};

// A constant property of a host module, described at load and registered by
// its init handler.
class module_property {
public:
    module_property(String module, meta_property_untyped const& key, Any const& value);
    void register_now() const;

private:
    String module_;
    property_builder_base builder_;
};

// Makes `child` reachable from `parent` as the read-only property `name`.
void add_module_property(Module const& parent, String const& name, Module const& child);

} // namespace tesk::cpython
