#include "python/python_classes.h"

#include "python/python_class_slot.h"

namespace tesk::cpython {

namespace {

python_class_slot date_slot{"datetime", "date"};
python_class_slot time_slot{"datetime", "time"};
python_class_slot datetime_slot{"datetime", "datetime"};
python_class_slot decimal_slot{"decimal", "Decimal"};

} // namespace

PyObject* date_class() noexcept { return date_slot.get(); }
PyObject* time_class() noexcept { return time_slot.get(); }
PyObject* datetime_class() noexcept { return datetime_slot.get(); }
PyObject* decimal_class() noexcept { return decimal_slot.get(); }

} // namespace tesk::cpython
