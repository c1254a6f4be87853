// Host errors raised in Python. A plain Error is a RuntimeError; an error of
// any other class is raised as an exception of a type made for that class,
// carrying the Error itself so that the very same object comes back.
#include "to_python/host_errors.h"

#include "to_python/python_to_host.h"
#include "to_python/wrapper.h"

#include <mutex>
#include <string>
#include <unordered_map>

namespace tesk::cpython {
namespace {

// The pairs of host error classes and generated Python exception types. Only
// grows; the types are owned by it and live for the process. The lock is taken
// with or without the interpreter lock (never the other way round), and no
// Python code runs while it is held.
struct exception_type_registry {
    spinlock lock;
    std::unordered_map<internal::object_value_class const*, PyObject*> types;
    std::unordered_map<PyObject*, Class_Generic> classes;
};

exception_type_registry& registry() {
    // Never destroyed: the Python types it holds must not be released at exit.
    static auto* const instance = new exception_type_registry;
    return *instance;
}

} // namespace

Union<Class_Generic, None> error_class_of_exception_type(PyObject* exceptionType) {
    exception_type_registry& r = registry();
    std::lock_guard<spinlock> guard(r.lock);
    if (auto found = r.classes.find(exceptionType); found != r.classes.end()) return found->second;
    return {};
}

void raise_host_error(Error const& error) {
    gil_guard gil;
    std::string const message = error.message().toUtf8();
    Class_Generic const errorClass = raw_class_of(error);
    // A plain error without a cause has nothing that a new Error with the
    // same message would lose.
    if (errorClass.isSame(Error::getClass()) && error.cause().isNone()) {
        PyErr_SetString(PyExc_RuntimeError, message.c_str());
        return;
    }
    PyObject* type = python_exception_type_for(errorClass);
    if (type == nullptr) {
        PyErr_SetString(PyExc_RuntimeError, message.c_str());
        return;
    }
    // Made with the message as its argument, so that str() and args say what
    // the error says, whatever its class.
    PyObjectPtr text = PyObjectPtr::steal(
        PyUnicode_DecodeUTF8(message.data(), static_cast<Py_ssize_t>(message.size()), "replace"));
    PyObjectPtr instance = text ? PyObjectPtr::steal(PyObject_CallOneArg(type, text.get())) : PyObjectPtr();
    PyObjectPtr carried = instance ? PyObjectPtr::steal(new_wrapper(error)) : PyObjectPtr();
    if (!carried || PyObject_SetAttrString(instance.get(), "tesk", carried.get()) < 0) {
        // Without the carried error, the message is what is left to pass on.
        PyErr_Clear();
        PyErr_SetString(type, message.c_str());
        return;
    }
    PyErr_SetObject(type, instance.get());
}

PyObject* python_exception_type_for(Class_Generic const& errorClass) {
    if (errorClass.isSame(StopIteration::getClass())) return PyExc_StopIteration;
    if (errorClass.isSame(Error::getClass())) return PyExc_RuntimeError;
    // An error class made for a Python exception type is that type again.
    // Such classes live for the process, and with them their types.
    if (PyObject* held = nullptr; python_object_held_by(errorClass, held) && held) {
        PyObjectPtr type = PyObjectPtr::steal(held);
        if (PyExceptionClass_Check(type.get())) return type.get();
    }
    exception_type_registry& r = registry();
    {
        std::lock_guard<spinlock> guard(r.lock);
        if (auto found = r.types.find(errorClass.record()); found != r.types.end()) return found->second;
    }
    // Python requires a dotted name (module.class).
    std::string name = errorClass.qualname().toUtf8();
    if (name.find('.') == std::string::npos) name = "tesk." + name;
    gil_guard gil;
    PyObjectPtr dict = PyObjectPtr::steal(Py_BuildValue("{s:O}", "tesk", Py_None));
    PyObjectPtr made = dict ? PyObjectPtr::steal(PyErr_NewException(name.c_str(), PyExc_RuntimeError, dict.get()))
                            : PyObjectPtr();
    if (!made) {
        // Nothing is registered, so the next error of this class tries again.
        PyErr_Clear();
        return PyExc_RuntimeError;
    }
    // The type was made outside the registry lock (making it runs Python's
    // type machinery); a thread that registered one meanwhile wins, so each
    // host class still has exactly one Python type.
    PyObject* winner = nullptr;
    {
        std::lock_guard<spinlock> guard(r.lock);
        auto [entry, inserted] = r.types.emplace(errorClass.record(), made.get());
        if (inserted) {
            r.classes.emplace(made.get(), errorClass);
            return made.release();
        }
        winner = entry->second;
    }
    return winner; // `made` is dropped here, after the lock (it takes the interpreter lock)
}

} // namespace tesk::cpython
