// Declaring a proxy class: its two bases, its members bound to C++ functions.
#pragma once

#include <tesk/tesk.h>

#include <vector>

namespace tesk::cpython {

// The entries every proxy class starts with: the host interface it answers,
// the proxy class it extends (CPythonObject or one derived from it), and the
// class option that CPythonObject carries, and the finaliser that drops the
// Python object. No module, no doc.
void declare_proxy_class(class_builder_base& builder, Class_Generic const& interface, Class_Generic const& base);

// Gives the class being built the native answers `operations` to the host's
// interface calls (set_native_operations_unsafe): the hot members are called
// straight, without a lookup and boxed arguments. Each entry calls the same
// function as the member it stands for.
template <internal::native_operations const& operations> void answer_natively(class_builder_base& builder) {
    constexpr auto give = [](Class_Generic const& cls) { set_native_operations_unsafe(cls, &operations); };
    builder.entry(entry_tag::class_callback, {make_closure(+give)});
}

// A member method; `parameters` names them all, the proxy first ("self, key"),
// and `defaults` fill the trailing ones a caller leaves out.
I_Callable_Generic proxy_method(String const& name, I_Callable_Generic const& function, char const* parameters,
                                std::vector<Any> defaults = {});

// A read-only property whose getter takes the proxy.
Any proxy_property(meta_property_untyped const& key, I_Callable_Generic const& getter);
// A read-only property with a fixed value.
Any constant_property(meta_property_untyped const& key, Any const& value);

} // namespace tesk::cpython
