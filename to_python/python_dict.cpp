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

namespace {
// A module of this importance is internal to the host: Python code never sees it.
constexpr int hidden_importance = 10;
} // namespace

PyObjectPtr host_modules_by_name(host_module_names names) {
    gil_guard gil;
    PyObjectPtr dict = PyObjectPtr::steal(PyDict_New());
    if (!dict) return dict;
    for (Module const& module : modules()) {
        if (module.importance() == hidden_importance) continue;
        String const name = module.name();
        // Dotted modules are reached through their parents, not by name.
        if (!name.contains(".")) (void)set_converted_item(dict.get(), name, module);
        if (names == host_module_names::modules_and_inlined && property_of(module, internal::inlined_key())) {
            for (auto const& [member, cls] : module.classes()) (void)set_converted_item(dict.get(), member, cls);
            for (auto const& [member, callable] : module.callables())
                (void)set_converted_item(dict.get(), member, callable);
        }
    }
    return dict;
}

} // namespace tesk::cpython
