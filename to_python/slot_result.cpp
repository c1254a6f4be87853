#include "to_python/slot_result.h"

#include "to_python/to_python.h"

namespace tesk::cpython {

PyObject* slot_result(Any const& result) {
    Any value = internal::result_unwrap_lazy(result);
    PyObject* converted = to_python(value);
    if (!converted && !PyErr_Occurred()) {
        PyErr_Format(PyExc_RuntimeError, "The value has no Python form: %s", display(value).c_str());
    }
    return converted;
}

PyObject* display_text_to_python(String const& text) {
    std::string_view bytes = text.asChars();
    return PyUnicode_DecodeUTF8(bytes.data(), static_cast<Py_ssize_t>(bytes.size()), "replace");
}

} // namespace tesk::cpython
