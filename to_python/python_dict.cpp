#include "to_python/python_dict.h"

#include "to_python/to_python.h"

namespace tesk::cpython {

bool set_converted_item(PyObject* dict, String const& key, Any const& value) {
    std::string_view text = key.asChars();
    // Sized, so that a key is never cut short at an embedded NUL.
    PyObjectPtr name = PyObjectPtr::steal(PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), nullptr));
    PyObjectPtr converted = name ? to_python_ref(value) : PyObjectPtr();
    if (converted && PyDict_SetItem(dict, name.get(), converted.get()) == 0) return true;
    PyErr_Clear();
    return false;
}

} // namespace tesk::cpython
