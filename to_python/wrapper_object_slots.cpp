// Lifetime, text, hash and comparison of wrapper objects.
#include "python/slot_guard.h"
#include "to_python/python_to_host.h"
#include "to_python/slot_result.h"
#include "to_python/wrapper_record.h"
#include "to_python/wrapper_slots.h"

namespace tesk::cpython {

void wrapper_dealloc(PyObject* self) noexcept {
    // Dropping the host value may run host finalisers that call into Python,
    // and the last reference may be dropped by host code without the lock.
    gil_guard gil;
    delete reinterpret_cast<PyTeskObject*>(self)->value;
    PyObject_Free(self);
}

PyObject* wrapper_repr(PyObject* self) noexcept {
    return guarded_slot<PyObject*>(nullptr, [&] {
        Any const& value = *held_value(self);
        // Python source where the host has it ([1, 'a'], {'k': None}), so that
        // host containers print like Python's; the display text otherwise.
        Any code = PythonLanguage::toCode(value);
        return display_text_to_python(String::test(code) ? String::unsafe(code) : display(value));
    });
}

PyObject* wrapper_str(PyObject* self) noexcept {
    return guarded_slot<PyObject*>(nullptr, [&]() -> PyObject* {
        Any const& value = *held_value(self);
        Any text = String::getClass().coerce(value);
        // str() never fails over a value that is no text: it shows the value instead.
        if (String::test(text)) return display_text_to_python(String::unsafe(text));
        return display_text_to_python(display(value));
    });
}

Py_hash_t wrapper_hash(PyObject* self) noexcept {
    return guarded_slot<Py_hash_t>(-1, [&] {
        Any const& value = *held_value(self);
        // Equal immutable values hash alike; anything else hashes by identity,
        // as its equality is identity too.
        std::uint64_t h = I_Immutable::test(value) ? hash_of(value) : object_id(value);
        auto narrowed = static_cast<Py_hash_t>(h); // keeps the low-order bits
        return narrowed == -1 ? Py_hash_t(-2) : narrowed; // -1 means failure to Python
    });
}

namespace {

// A dict of the host map's entries, read through the wrapper's own protocol.
PyObjectPtr dict_of(PyObject* map) {
    PyObjectPtr dict = PyObjectPtr::steal(PyDict_New());
    PyObjectPtr keys = dict ? PyObjectPtr::steal(PyObject_GetIter(map)) : PyObjectPtr();
    if (!keys) return {};
    while (PyObjectPtr key = PyObjectPtr::steal(PyIter_Next(keys.get()))) {
        PyObjectPtr item = PyObjectPtr::steal(PyObject_GetItem(map, key.get()));
        if (!item || PyDict_SetItem(dict.get(), key.get(), item.get()) < 0) return {};
    }
    if (PyErr_Occurred()) return {};
    return dict;
}

// A host sequence equals a Python list of equal items, and a host map a dict
// of equal entries, as Python's own containers would (both orders of ==
// arrive here: list and dict give NotImplemented for a wrapper). Null when
// `other` is no such container; null with an exception when reading fails.
PyObject* compare_with_python_container(PyObject* self, Any const& value, PyObject* other, int op, bool& answered) {
    answered = false;
    if (op != Py_EQ && op != Py_NE) return nullptr;
    bool const isMap = I_Map_Generic::test(value);
    PyObjectPtr copy;
    if (PyList_Check(other) && !isMap && I_Sequence_Generic::test(value)) copy = PyObjectPtr::steal(PySequence_List(self));
    else if (PyDict_Check(other) && isMap) copy = dict_of(self);
    else return nullptr;
    answered = true;
    return copy ? PyObject_RichCompare(copy.get(), other, op) : nullptr;
}

} // namespace

PyObject* wrapper_richcompare(PyObject* self, PyObject* other, int op) noexcept {
    return guarded_slot<PyObject*>(nullptr, [&]() -> PyObject* {
        bool answered = false;
        PyObject* containers = compare_with_python_container(self, *held_value(self), other, op, answered);
        if (answered) return containers;
        Ordering order = compare_objects(*held_value(self), python_to_host(other));
        if (!order.isComparable()) return Py_NewRef(op == Py_NE ? Py_True : Py_False);
        int v = order.value();
        bool result = false;
        switch (op) {
        case Py_LT: result = v < 0; break;
        case Py_LE: result = v <= 0; break;
        case Py_EQ: result = v == 0; break;
        case Py_NE: result = v != 0; break;
        case Py_GT: result = v > 0; break;
        case Py_GE: result = v >= 0; break;
        }
        return Py_NewRef(result ? Py_True : Py_False);
    });
}

} // namespace tesk::cpython
