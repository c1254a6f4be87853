#include "proxies/forwarding.h"

#include "from_python/python_object.h"

namespace tesk::cpython {

Any new_proxy(Class_Generic const& cls, PyObject* object) { return make_python_object(cls, object); }

} // namespace tesk::cpython
