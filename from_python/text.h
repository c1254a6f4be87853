// Python text and bytes to host values.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

namespace tesk::cpython {

// A str (or subtype) as a host String. Text that UTF-8 cannot encode (a lone
// surrogate) is an Error with Python's UnicodeEncodeError, which names the
// position; nothing stays pending.
Any string_from_python(PyObject* text);
// For text read for the extension's own use (an attribute's or an
// annotation's name): text that UTF-8 cannot encode gives the empty String.
String text_or_empty(PyObject* text);
// A bytes (or subtype) as a ByteArray over a copy of its contents.
Any bytes_from_python(PyObject* bytes);
// A bytearray (or subtype) as a ByteArray over a copy of its contents.
Any bytearray_from_python(PyObject* bytes);

} // namespace tesk::cpython
