#include "proxies/forwarding.h"

#include "from_python/python_object.h"

namespace tesk::cpython {

Result<None> forward_dropping_value(Any const& proxy, char const* name, std::initializer_list<Any> args) {
    return forwarded_none(call_method(proxy, name, std::span<Any const>(args.begin(), args.size())));
}

Any new_proxy(Class_Generic const& cls, PyObject* object) { return make_python_object(cls, object); }

} // namespace tesk::cpython
