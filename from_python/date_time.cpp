#include "from_python/date_time.h"

#include "python/python_classes.h"
#include "from_python/attributes.h"
#include "from_python/from_python.h"
#include "from_python/instance_test.h"

#include <cmath>

namespace tesk::cpython {

namespace {

// The UTC offset in whole seconds when it is zero or positive and whole.
std::optional<std::uint32_t> utc_offset_seconds(PyObject* object) {
    PyObjectPtr offset = PyObjectPtr::steal(PyObject_CallMethod(object, "utcoffset", nullptr));
    if (!offset || offset.get() == Py_None) {
        PyErr_Clear();
        return std::nullopt;
    }
    PyObjectPtr seconds = PyObjectPtr::steal(PyObject_CallMethod(offset.get(), "total_seconds", nullptr));
    if (!seconds) {
        PyErr_Clear();
        return std::nullopt;
    }
    double secs = 0.0;
    if (PyFloat_Check(seconds.get())) {
        secs = PyFloat_AsDouble(seconds.get());
    } else if (PyLong_Check(seconds.get())) {
        secs = static_cast<double>(PyLong_AsLong(seconds.get()));
    } else {
        return std::nullopt;
    }
    if (PyErr_Occurred()) {
        PyErr_Clear();
        return std::nullopt;
    }
    double whole = 0.0;
    if (!(secs >= 0.0) || std::modf(secs, &whole) != 0.0 || whole > 4294967295.0) return std::nullopt;
    return static_cast<std::uint32_t>(whole);
}

String zone_name(PyObject* object) {
    PyObjectPtr name = PyObjectPtr::steal(PyObject_CallMethod(object, "tzname", nullptr));
    if (!name) {
        PyErr_Clear();
        return String();
    }
    Any converted = from_python(name.get());
    return String::test(converted) ? String::unsafe(converted) : String();
}

} // namespace

std::optional<Date> read_date(PyObject* object) {
    auto year = int32_attribute(object, "year");
    auto month = int32_attribute(object, "month");
    auto day = int32_attribute(object, "day");
    if (!year || !month || !day) return std::nullopt;
    return Date(*year, static_cast<std::uint8_t>(*month), static_cast<std::uint8_t>(*day));
}

std::optional<Time> read_time(PyObject* object) {
    auto hour = int32_attribute(object, "hour");
    auto minute = int32_attribute(object, "minute");
    auto second = int32_attribute(object, "second");
    auto microsecond = int32_attribute(object, "microsecond");
    if (!hour || !minute || !second || !microsecond) return std::nullopt;
    auto h = static_cast<std::uint8_t>(*hour);
    auto m = static_cast<std::uint8_t>(*minute);
    auto s = static_cast<std::uint8_t>(*second);
    auto ns = static_cast<std::uint32_t>(*microsecond) * 1000u;
    std::int32_t fold = int32_attribute(object, "fold").value_or(0);
    std::optional<std::uint32_t> offset = utc_offset_seconds(object);
    if (!offset) return Time(h, m, s, ns);
    return Time(h, m, s, ns, *offset, zone_name(object), static_cast<std::uint8_t>(fold));
}

std::optional<Any> date_time_from_python(PyObject* object) {
    if (is_instance(object, datetime_class())) {
        auto date = read_date(object);
        auto time = read_time(object);
        if (date && time) return DateTime(*date, *time);
    }
    if (is_instance(object, time_class())) {
        if (auto time = read_time(object)) return *time;
    }
    if (is_instance(object, date_class())) {
        if (auto date = read_date(object)) return *date;
    }
    return std::nullopt;
}

} // namespace tesk::cpython
