#include "to_python/python_dict.h"

#include "python/python_text.h"
#include "to_python/to_python.h"

namespace tesk::cpython {

bool set_converted_item(PyObject* dict, String const& key, Any const& value) {
    PyObjectPtr name = python_text(key.asChars());
    PyObjectPtr converted = name ? to_python_ref(value) : PyObjectPtr();
    if (converted && PyDict_SetItem(dict, name.get(), converted.get()) == 0) return true;
    PyErr_Clear();
    return false;
}

} // namespace tesk::cpython
