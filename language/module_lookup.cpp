// Finding Python objects by dotted name, and values as Python source text.
#include "language/module_lookup.h"

#include "python/host_entry.h"
#include "python/python_ref.h"
#include "python/interpreter_start.h"
#include "from_python/errors.h"
#include "from_python/from_python.h"
#include "from_python/python_object.h"

namespace tesk::cpython {

Result<Any> resolve_python_name(String const& name) {
    return host_entry([&]() -> Any {
        if (name.isEmpty()) return Any();
        std::size_t const dot = name.rfind(".");
        String const modulePart = dot == String::npos ? name : name.sliced(0, dot);
        String const objectPart = dot == String::npos ? String() : name.sliced(dot + 1);
        if (Any failure = ensure_interpreter(); failure.isError()) return failure;
        gil_guard gil;
        PyObjectPtr module = PyObjectPtr::steal(PyImport_ImportModule(modulePart.c_str()));
        if (!module) return take_python_error(Error(String("Unable to find the module: {}.").arg(modulePart)));
        if (objectPart.isEmpty()) return from_python(module.get());
        PyObject* dict = PyModule_Check(module.get()) ? PyModule_GetDict(module.get()) : nullptr;
        if (!dict) return Error(String("Unable to get the module dict: {}.").arg(modulePart));
        // Borrowed from the dictionary: held while it is converted.
        PyObjectPtr found = PyObjectPtr::borrow(PyDict_GetItemString(dict, objectPart.c_str()));
        if (!found) {
            PyErr_Clear();
            return Error(String("Unable to find the object: {}.").arg(name));
        }
        return from_python(found.get());
    });
}

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


} // namespace tesk::cpython
