#include "proxies/iterable_proxy.h"

#include "from_python/proxy_makers.h"
#include "proxies/container_protocol.h"
#include "proxies/forwarding.h"
#include "proxies/iterator_proxy.h"
#include "proxies/proxy_class.h"

namespace tesk::cpython {
namespace {

// Membership is asked of the object's __contains__, never found by
// iterating: that would consume a generator.
Result<Boolean> contains(Any const& self, I_Immutable const& value) { return proxy_contains(self, value); }

void fill_class(class_builder_base& builder) {
    Class_Generic const iterable = I_Iterable_Generic::getClass();
    declare_proxy_class(builder, iterable, cpython_object_class());
    builder.entry(entry_tag::interface_methods,
                  {iterable, proxy_method(I_Iterable_Generic::$iter, make_closure(&proxy_iter), "self"),
                   proxy_method(I_Iterable_Generic::$contains, make_closure(&contains), "self, value")});
}

Any make_iterable_proxy(PyObject* object) { return new_proxy(cpython_proxy_iterable_class(), object); }

struct registration {
    registration() noexcept { set_proxy_maker(proxy_kind::iterable, &make_iterable_proxy); }
} const registered;

} // namespace

Class_Generic cpython_proxy_iterable_class() {
    static class_accessor const accessor("CPythonProxyIterable", &fill_class);
    return accessor();
}

} // namespace tesk::cpython
