// The meta-path importer of host modules.
#include "extension/module_importer.h"

#include "python/exec_code.h"
#include "python/slot_guard.h"
#include "to_python/python_dict.h"
#include "from_python/errors.h"

#include <cstring>

namespace tesk::cpython {
namespace {

// Every host module is offered as a package (an empty __path__), so that its
// dotted children import below it; executing a module does nothing, since
// _tesk_create_module fills it completely.
constexpr char const* importer_script = R"(
import importlib.util
import sys

class _TeskModuleImporter:
    def find_spec(self, fullname, path=None, target=None):
        if _tesk_has_module(fullname):
            return importlib.util.spec_from_loader(fullname, self, is_package=True)
        return None

    def create_module(self, found):
        return _tesk_create_module(found.name)

    def exec_module(self, module):
        pass

sys.meta_path.insert(0, _TeskModuleImporter())
)";

// A Python str as host text; nothing (with the Python error set) when it
// cannot be encoded.
Union<String, None> host_name(PyObject* name) {
    Py_ssize_t size = 0;
    char const* text = PyUnicode_AsUTF8AndSize(name, &size);
    if (text == nullptr) return {};
    return String::fromUtf8(text, static_cast<std::size_t>(size));
}

bool in_tesk_namespace(String const& name) { return name == "tesk" || name.startsWith("tesk."); }

PyObject* tesk_has_module(PyObject* /*self*/, PyObject* name) noexcept {
    return guarded_slot<PyObject*>(nullptr, [&]() -> PyObject* {
        if (!PyUnicode_Check(name)) return Py_False;
        auto text = host_name(name);
        if (!text) return nullptr;
        bool found = in_tesk_namespace(text.value()) && find_module(text.value()).has_value();
        // True and False are immortal: no reference to add.
        return found ? Py_True : Py_False;
    });
}

PyObject* tesk_create_module(PyObject* /*self*/, PyObject* name) noexcept {
    return guarded_slot<PyObject*>(nullptr, [&]() -> PyObject* {
        if (!PyUnicode_Check(name)) {
            PyErr_SetString(PyExc_TypeError, "Tesk module name must be a string.");
            return nullptr;
        }
        auto text = host_name(name);
        if (!text) return nullptr;
        return export_tesk_module(text.value());
    });
}

PyMethodDef has_module_definition{"_tesk_has_module", &tesk_has_module, METH_O, nullptr};
PyMethodDef create_module_definition{"_tesk_create_module", &tesk_create_module, METH_O, nullptr};

// A copy of `text` that lives for the rest of the process: module
// definitions keep pointers to their name and doc.
char const* permanent_copy(String const& text) {
    std::string_view chars = text.asChars();
    auto* copy = new char[chars.size() + 1]();
    std::memcpy(copy, chars.data(), chars.size());
    return copy;
}

bool listable_property(String const& name) { return !name.isEmpty() && name.asChars().front() != '@'; }

} // namespace

void install_module_importer() {
    gil_guard gil;
    PyObjectPtr globals = PyObjectPtr::steal(PyDict_New());
    PyObjectPtr hasModule = PyObjectPtr::steal(PyCMethod_New(&has_module_definition, nullptr, nullptr, nullptr));
    PyObjectPtr createModule =
        PyObjectPtr::steal(PyCMethod_New(&create_module_definition, nullptr, nullptr, nullptr));
    if (globals && hasModule && createModule &&
        PyDict_SetItemString(globals.get(), "_tesk_has_module", hasModule.get()) == 0 &&
        PyDict_SetItemString(globals.get(), "_tesk_create_module", createModule.get()) == 0) {
        PyObjectPtr result = exec_code(importer_script, globals.get(), globals.get());
    }
    // Without the importer Python code cannot import host modules, but
    // everything else works; the failure must not stay pending for whatever
    // Python call comes next.
    PyErr_Clear();
}

PyObject* export_tesk_module(String const& name) {
    auto found = find_module(name);
    if (!found) {
        PyErr_SetString(PyExc_RuntimeError, "[export_tesk_module] Unable to import the module.");
        return nullptr;
    }
    Module module = found.value();
    gil_guard gil;

    // The module refers to its definition for the rest of the process, so
    // the definition is never freed.
    auto* definition = new PyModuleDef{PyModuleDef_HEAD_INIT, permanent_copy(name), permanent_copy(module.doc()),
                                       -1, nullptr, nullptr, nullptr, nullptr, nullptr};
    PyObjectPtr result = PyObjectPtr::steal(PyModule_Create2(definition, PYTHON_API_VERSION));
    if (!result) return nullptr;
    PyObject* dict = PyModule_GetDict(result.get());

    // Later members replace earlier ones of the same name: properties win
    // over classes, classes over callables.
    // A member without a Python form is left out; so is one whose conversion
    // raised (a failing property getter), so that the import still succeeds.
    for (auto const& [member, callable] : module.callables()) (void)set_converted_item(dict, member, callable);
    for (auto const& [member, cls] : module.classes()) (void)set_converted_item(dict, member, cls);
    // The properties of the module's own class, without those that every
    // module has (name, doc, ...).
    Class_Generic const genericModule = Module::getClass();
    for (auto const& [member, property] : class_of(module).definedProperties()) {
        if (!listable_property(member) || genericModule.definedProperty(member)) continue;
        (void)set_converted_item(dict, member, property.get(module));
    }
    for (auto const& [member, property] : own_properties_of(module)) {
        if (!listable_property(member)) continue;
        (void)set_converted_item(dict, member, property.get(module));
    }
    return result.release();
}

} // namespace tesk::cpython
