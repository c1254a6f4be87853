// UTF-8 text as a Python str.
#pragma once

#include "python/python_ref.h"

#include <string_view>

namespace tesk::cpython {

// A new str of the UTF-8 `text`; sized, so an embedded NUL never cuts it
// short. Null with UnicodeDecodeError set when the bytes are not UTF-8. The
// caller holds the interpreter lock.
inline PyObjectPtr python_text(std::string_view text) {
    return PyObjectPtr::steal(PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), nullptr));
}

} // namespace tesk::cpython
