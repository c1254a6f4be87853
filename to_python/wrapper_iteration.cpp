// Iterating wrapper objects: iter() of a host iterable gives its host
// iterator, wrapped, and next() of that wrapper drives the host iterator.
#include "python/slot_guard.h"
#include "to_python/slot_result.h"
#include "to_python/to_python.h"
#include "to_python/wrapper_record.h"
#include "to_python/wrapper_slots.h"

namespace tesk::cpython {

PyObject* wrapper_iter(PyObject* self) noexcept {
    return guarded_slot<PyObject*>(nullptr, [&]() -> PyObject* {
        Any const& value = *held_value(self);
        if (value.isError()) return slot_result(value); // raises it
        // An iterator is its own iterator, as Python's iterator protocol asks:
        // list(iter(xs)) and a for loop over an iterator work.
        if (!I_Iterable_Generic::test(value) && I_Iterator_Generic::test(value)) return Py_NewRef(self);
        if (!I_Iterable_Generic::test(value))
            return raise_text(PyExc_TypeError, String("'{}' object is not iterable.").arg(display(class_of(value))));
        return slot_result(I_Iterable_Generic::unsafe(value).iter());
    });
}

PyObject* wrapper_iternext(PyObject* self) noexcept {
    return guarded_slot<PyObject*>(nullptr, [&]() -> PyObject* {
        // Null without an exception ends the iteration: at the end (a host
        // list's iterator makes no StopIteration error there), and at once
        // for a value that is no iterator.
        ItemRead item;
        if (!I_Iterator_Generic::advance(*held_value(self), item)) return nullptr;
        if (item.isInteger) return slot_result(item);
        if (item.value.isComputed()) item.value = internal::result_unwrap_lazy(item.value);
        if (item.value.isError() && StopIteration::test(item.value)) return nullptr;
        return slot_result(item.value);
    });
}

} // namespace tesk::cpython
