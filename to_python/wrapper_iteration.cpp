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
        Any const& value = *held_value(self);
        // Null without an exception ends the iteration.
        if (!I_Iterator_Generic::test(value)) return nullptr;
        Any item = I_Iterator_Generic::unsafe(value).next();
        if (item.isComputed()) item = internal::result_unwrap_lazy(item);
        if (item.isError() && StopIteration::test(item)) return nullptr;
        return slot_result(item);
    });
}

} // namespace tesk::cpython
