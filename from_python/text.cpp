#include "from_python/text.h"

namespace tesk::cpython {

Any string_from_python(PyObject* text) {
    Py_ssize_t size = 0;
    // The str keeps its own UTF-8 form (for ASCII text it is the text itself),
    // so no intermediate bytes object is made.
    char const* utf8 = PyUnicode_AsUTF8AndSize(text, &size);
    if (!utf8) {
        PyErr_Clear();
        return String();
    }
    if (size == 0) return String();
    // Python's UTF-8 is always well-formed: no second validation pass.
    return String::fromRawDataUnsafe(utf8, static_cast<std::size_t>(size));
}

Any bytes_from_python(PyObject* bytes) {
    return ByteArray(PyBytes_AS_STRING(bytes), static_cast<std::size_t>(PyBytes_GET_SIZE(bytes)));
}

Any bytearray_from_python(PyObject* bytes) {
    return ByteArray(PyByteArray_AS_STRING(bytes), static_cast<std::size_t>(PyByteArray_GET_SIZE(bytes)));
}

} // namespace tesk::cpython
