#include "proxies/iterator_proxy.h"

#include "from_python/errors.h"
#include "from_python/from_python.h"
#include "proxies/container_protocol.h"
#include "proxies/forwarding.h"
#include "proxies/proxy_class.h"

namespace tesk::cpython {
namespace {

// The next element; the host's StopIteration once the iterator is exhausted
// (a later call asks Python again).
Any next(Any const& self) {
    return with_python_object(self, [&](PyObject* object) -> Any {
        if (!PyIter_Check(object)) return error_method_not_found(String("__next__"), self);
        // The __next__ slot itself, as PyIter_Next calls it: an exhausted
        // iterator gives null with StopIteration raised or with nothing.
        PyObjectPtr item = PyObjectPtr::steal(Py_TYPE(object)->tp_iternext(object));
        if (item) return python_result(std::move(item));
        if (PyErr_Occurred()) {
            if (!PyErr_ExceptionMatches(PyExc_StopIteration)) return take_python_error(Error::unknown());
            PyErr_Clear();
        }
        return StopIteration();
    });
}

constexpr internal::native_operations native_answers{.next = &next};

void fill_class(class_builder_base& builder) {
    Class_Generic const iterator = I_Iterator_Generic::getClass();
    declare_proxy_class(builder, iterator, cpython_object_class());
    answer_natively<native_answers>(builder);
    builder.entry(entry_tag::interface_methods,
                  {iterator, proxy_method(I_Iterator_Generic::$next, make_closure(&next), "self")});
}

} // namespace

Class_Generic cpython_proxy_iterator_class() {
    static class_accessor const accessor("CPythonProxyIterator", &fill_class);
    return accessor();
}

Result<Any> proxy_iter(Any const& proxy) {
    python_object_scope scope(proxy);
    if (!scope) return Error(String("Invalid object."));
    // Only __iter__ counts: iter() would also accept a bare __getitem__.
    if (!Py_TYPE(scope.object())->tp_iter) return Error(String("Missing '__iter__' method."));
    PyObjectPtr iterator = PyObjectPtr::steal(PyObject_GetIter(scope.object()));
    if (!iterator) return take_python_error(Error(String("Unable to iterate the object.")));
    return new_proxy(cpython_proxy_iterator_class(), iterator.get());
}

} // namespace tesk::cpython
