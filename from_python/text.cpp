#include "from_python/text.h"

#include "from_python/errors.h"

namespace tesk::cpython {

namespace {
// The str's own UTF-8 form (for ASCII text it is the text itself), so no
// intermediate bytes object is made; null with UnicodeEncodeError pending
// for text that UTF-8 cannot encode.
char const* utf8_of(PyObject* text, Py_ssize_t& size) { return PyUnicode_AsUTF8AndSize(text, &size); }

// Python's UTF-8 is always well-formed: no second validation pass.
String host_text(char const* utf8, Py_ssize_t size) {
    if (size == 0) return String();
    return String::fromRawDataUnsafe(utf8, static_cast<std::size_t>(size));
}
} // namespace

Any string_from_python(PyObject* text) {
    Py_ssize_t size = 0;
    char const* utf8 = utf8_of(text, size);
    // A lone surrogate (what surrogateescape makes of undecodable bytes) has
    // no UTF-8 form: the text would be changed on the way, so it fails, with
    // Python's error naming the position.
    if (!utf8) return take_python_error(Error(String("The text cannot be encoded as UTF-8.")));
    return host_text(utf8, size);
}

String text_or_empty(PyObject* text) {
    Py_ssize_t size = 0;
    char const* utf8 = utf8_of(text, size);
    if (!utf8) {
        PyErr_Clear();
        return String();
    }
    return host_text(utf8, size);
}

Any bytes_from_python(PyObject* bytes) {
    return ByteArray(PyBytes_AS_STRING(bytes), static_cast<std::size_t>(PyBytes_GET_SIZE(bytes)));
}

Any bytearray_from_python(PyObject* bytes) {
    return ByteArray(PyByteArray_AS_STRING(bytes), static_cast<std::size_t>(PyByteArray_GET_SIZE(bytes)));
}

} // namespace tesk::cpython
