// Module lookup. Name resolution and the export of every module are not
// available yet; rendering values as source text is.
#include "language/module_lookup.h"

#include "python/host_entry.h"
#include "python/python_ref.h"
#include "from_python/python_object.h"

namespace tesk::cpython {

Result<Any> resolve_python_name(String const& /*name*/) { return Error("Not available yet: resolve."); }

Result<String> python_value_to_code(Any const& value) {
    return host_entry([&]() -> Any {
        // Only a proxy made before the interpreter ran (one that holds no
        // object) finds it stopped; it has nothing to show but the host's form.
        if (is_python_object(value) && Py_IsInitialized()) {
            // Under the sandbox the proxy carries: repr() runs the object's code.
            if (python_object_scope scope(value); scope) {
                PyObjectPtr repr = PyObjectPtr::steal(PyObject_Repr(scope.object()));
                Py_ssize_t size = 0;
                char const* text = repr ? PyUnicode_AsUTF8AndSize(repr.get(), &size) : nullptr;
                if (text != nullptr) return String::fromUtf8(text, static_cast<std::size_t>(size));
                // The host's own rendering is the fallback; the failed repr
                // must not stay pending.
                PyErr_Clear();
            }
        }
        return PythonLanguage::toCode(value);
    });
}

Result<None> import_all_modules() { return Error("Not available yet: importAllModules."); }

} // namespace tesk::cpython
