// Running Python source text with the builtin `exec`.
#include "python/exec_code.h"

#include "python/python_text.h"

namespace tesk::cpython {

PyObjectPtr exec_code(std::string_view source, PyObject* globals, PyObject* locals) {
    PyObject* builtins = PyEval_GetBuiltins();
    PyObject* exec = builtins != nullptr ? PyDict_GetItemString(builtins, "exec") : nullptr;
    if (exec == nullptr) {
        PyErr_SetString(PyExc_RuntimeError, "The builtin exec is missing.");
        return {};
    }
    PyObjectPtr text = python_text(source);
    if (!text) return {};
    PyObjectPtr arguments = PyObjectPtr::steal(PyTuple_Pack(3, text.get(), globals, locals));
    if (!arguments) return {};
    return PyObjectPtr::steal(PyObject_CallObject(exec, arguments.get()));
}

} // namespace tesk::cpython
