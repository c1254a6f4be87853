#include "to_python/slot_result.h"

#include "to_python/to_python.h"

#include <array>
#include <iterator>

namespace tesk::cpython {

namespace {
PyObject* converted_or_raised(Any const& value) {
    PyObject* converted = to_python(value);
    if (!converted && !PyErr_Occurred()) {
        PyErr_Format(PyExc_RuntimeError, "The value has no Python form: %s", display(value).c_str());
    }
    return converted;
}
} // namespace

PyObject* slot_result(Any const& result) {
    // Most results are final values: no copy for them.
    if (result.isComputed()) return converted_or_raised(internal::result_unwrap_lazy(result));
    return converted_or_raised(result);
}

PyObject* slot_result(ItemRead const& item) {
    if (item.isInteger) return PyLong_FromLongLong(item.integer);
    return slot_result(item.value);
}

int slot_status(Any const& result) {
    Any value = internal::result_unwrap_lazy(result);
    if (!value.isError()) return 0;
    PyObjectPtr raised = to_python_ref(value); // raises it
    return -1;
}

std::nullptr_t raise_text(PyObject* exception, String const& text) {
    PyObjectPtr message = PyObjectPtr::steal(display_text_to_python(text));
    if (message) PyErr_SetObject(exception, message.get());
    return nullptr;
}

PyObject* display_text_to_python(String const& text) {
    std::string_view bytes = text.asChars();
    return PyUnicode_DecodeUTF8(bytes.data(), static_cast<Py_ssize_t>(bytes.size()), "replace");
}

Any call_with_receiver(I_Callable_Generic const& method, Any const& self, std::span<Any> args) {
    if (method.isIndependent()) return method.invoke(args);
    constexpr std::size_t inline_count = 4;
    if (args.size() >= inline_count) {
        std::vector<Any> all{self};
        std::move(args.begin(), args.end(), std::back_inserter(all));
        return method.invoke(all);
    }
    std::array<Any, inline_count> all;
    all[0] = self;
    std::move(args.begin(), args.end(), all.begin() + 1);
    return method.invoke({all.data(), args.size() + 1});
}

} // namespace tesk::cpython
