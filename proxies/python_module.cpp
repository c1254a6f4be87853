// CPythonModule: a Python module's public classes and callables as a host
// module. Each exported module has a class of its own (derived from
// CPythonModule), built in private with one read-only property per member
// and published once; the module's tables are filled before anyone can see
// it, so the export notifies nobody until the module is registered.
#include "proxies/python_module.h"

#include "from_python/from_python.h"
#include "from_python/python_type_class.h"

#include <mutex>

namespace tesk::cpython {

namespace {

void fill_class(class_builder_base& builder) {
    builder.entry(entry_tag::flag, {})
        .bases({Module::getClass()})
        .doc(String("Class to export a python module."));
}

class_accessor cpython_module_accessor{"CPythonModule", &fill_class};

Property read_only(Any const& value) {
    return Property(I_Callable_Generic::unsafe(internal::make_constant_callable(value)));
}

struct exported_members {
    ordered_map<Any> classes;
    ordered_map<Any> callables;
};

// One entry of the module's namespace; anything but a class or a callable
// (constants, variables, submodules) is not exported.
void export_entry(class_draft& draft, Module const& module, exported_members& members, String const& name,
                  PyObject* value) {
    if (PyType_Check(value)) {
        Any converted = from_python(value);
        if (!Class_Generic::test(converted)) return;
        Class_Generic cls = Class_Generic::unsafe(converted);
        // A class imported from another module stays with the first that claimed it.
        if (cls.declaringContext().isNone()) set_declaring_context_unsafe(cls, module);
        draft.add_property(name, read_only(cls));
        members.classes.set(name, cls);
        return;
    }
    if (!PyCallable_Check(value)) return;
    Any converted = from_python(value);
    if (!I_Callable_Generic::test(converted)) return;
    draft.add_property(name, read_only(converted));
    members.callables.set(name, converted);
}

} // namespace

Class_Generic cpython_module_class() { return cpython_module_accessor(); }

Module python_module(String const& name, PyObject* module) {
    gil_guard gil;
    class_draft draft(String("Module"));
    draft.add_parent(cpython_module_class());
    Module made = Module::unsafe(draft.cls().allocateInstance());

    exported_members members;
    PyObject* dict = PyModule_Check(module) ? PyModule_GetDict(module) : nullptr;
    // A copy of the entries: converting the values runs Python code.
    PyObjectPtr entries = dict ? PyObjectPtr::steal(PyDict_Items(dict)) : PyObjectPtr();
    if (entries) {
        for (Py_ssize_t i = 0; i < PyList_GET_SIZE(entries.get()); ++i) {
            PyObject* entry = PyList_GET_ITEM(entries.get(), i);
            Any key = from_python(PyTuple_GET_ITEM(entry, 0));
            if (!String::test(key)) continue;
            String const member = String::unsafe(key);
            if (member.isEmpty() || member.startsWith("_")) continue;
            export_entry(draft, made, members, member, PyTuple_GET_ITEM(entry, 1));
        }
    }
    PyErr_Clear();
    String const doc = doc_text(module);
    draft.set_doc(doc);
    (void)draft.publish();

    // Nobody else holds the module yet: its tables are filled in place.
    auto& record = const_cast<internal::object_value_module&>(static_cast<internal::object_value_module const&>(*made.get()));
    std::lock_guard<spinlock> guard(record.lock());
    record.name = name;
    record.doc = doc;
    std::swap(record.classes, members.classes);
    std::swap(record.callables, members.callables);
    return made;
}

} // namespace tesk::cpython
