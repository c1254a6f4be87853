#include "from_python/proxies.h"

#include "from_python/python_object.h"

namespace tesk::cpython {

namespace {

Any general_proxy(PyObject* object) {
    return make_python_object(cpython_object_class(), object);
}

} // namespace

Any class_from_python_type(PyObject* type) { return general_proxy(type); }
Any function_from_python_callable(PyObject* callable) { return general_proxy(callable); }
Any mapping_proxy(PyObject* mapping) { return general_proxy(mapping); }
Any sequence_proxy(PyObject* sequence) { return general_proxy(sequence); }
Any set_proxy(PyObject* set) { return general_proxy(set); }
Any iterable_proxy(PyObject* iterable) { return general_proxy(iterable); }
Any object_proxy(PyObject* object) { return general_proxy(object); }

} // namespace tesk::cpython
