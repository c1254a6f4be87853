// Host values to Python objects.
//
// Plain values are built straight through the C API, dispatched on the value's
// kind; only dates, times and decimals call a Python class.
#include "to_python/to_python.h"

#include "python/python_classes.h"
#include "python/python_integers.h"
#include "to_python/host_errors.h"
#include "to_python/python_to_host.h"
#include "to_python/wrapper.h"

namespace tesk::cpython {

namespace {

PyObject* convert(Any const& value);

// Strict decoding: text that is not well-formed UTF-8 (lone surrogates in
// their 3-byte form included) gives null with UnicodeDecodeError pending.
PyObject* string_to_python(String const& text) {
    std::string_view bytes = text.asChars();
    return PyUnicode_FromStringAndSize(bytes.data(), static_cast<Py_ssize_t>(bytes.size()));
}

// The integer record is read in place: a typed handle would be a copy (a
// count up and down, two atomic operations that cost more than the
// conversion itself).
PyObject* integer_to_python(Any const& value) {
    make_shared_python_integers();
    auto const& record = *static_cast<internal::object_value_integer const*>(value.get());
    if (record.is_unsigned) return PyLong_FromUnsignedLongLong(record.bits);
    return PyLong_FromLongLong(static_cast<std::int64_t>(record.bits));
}

// A small host integer is one of Python's shared ones, handed out without
// the interpreter lock; null for every other value.
PyObject* shared_integer_of(Any const& value) noexcept {
    std::int64_t v = 0;
    return internal::signed_in_place(value, v) ? shared_python_integer(v) : nullptr;
}

PyObject* float_to_python(Any const& value) {
    double d = 0.0;
    Any failure;
    if (internal::cast_double(value, d, failure)) return PyFloat_FromDouble(d);
    return PyFloat_FromDouble(Float::unsafe(value).value());
}

// The two booleans are canonical values, so the true one is known by identity.
PyObject* boolean_to_python(Any const& value) {
    static internal::object_value const* const canonical_true = Boolean(true).get();
    return Py_NewRef(value.get() == canonical_true ? Py_True : Py_False);
}

PyObject* byte_array_to_python(ByteArray const& bytes) {
    // bytes, never bytearray: Python code must not change the host's bytes.
    return PyBytes_FromStringAndSize(reinterpret_cast<char const*>(bytes.data()),
                                     static_cast<Py_ssize_t>(bytes.size()));
}

// How deep host tuples may nest to be converted: each level is a C++ frame,
// and a host thread may have a small stack. Deeper values raise
// RecursionError instead of overflowing it.
constexpr int tuple_depth_limit = conversion_depth_limit;
thread_local int tuple_depth = 0;

struct tuple_depth_scope {
    tuple_depth_scope() noexcept { ++tuple_depth; }
    ~tuple_depth_scope() { --tuple_depth; }
    tuple_depth_scope(tuple_depth_scope const&) = delete;
    tuple_depth_scope& operator=(tuple_depth_scope const&) = delete;
};

// Null when an item fails: with that item's exception pending, or with none
// when the item has no Python form (then neither has the tuple).
PyObject* tuple_to_python(Tuple const& tuple) {
    tuple_depth_scope depth;
    if (tuple_depth > tuple_depth_limit) {
        PyErr_Format(PyExc_RecursionError, "A host tuple nested deeper than %d levels has no Python form.",
                     tuple_depth_limit);
        return nullptr;
    }
    std::span<Any const> items = tuple.items();
    PyObjectPtr result = PyObjectPtr::steal(PyTuple_New(static_cast<Py_ssize_t>(items.size())));
    if (!result) return nullptr;
    for (std::size_t i = 0; i < items.size(); ++i) {
        PyObject* item = convert(items[i]);
        if (!item) return nullptr;
        PyTuple_SET_ITEM(result.get(), static_cast<Py_ssize_t>(i), item); // steals
    }
    return result.release();
}

PyObject* date_to_python(Date const& date) {
    PyObject* cls = date_class();
    if (!cls) return nullptr;
    return PyObject_CallFunction(cls, "iii", static_cast<int>(date.year()), static_cast<int>(date.month()),
                                 static_cast<int>(date.day()));
}

PyObject* decimal_to_python(Decimal const& decimal) {
    PyObject* cls = decimal_class();
    if (!cls) return nullptr;
    // By its text, so that "1.10" keeps its final zero.
    PyObjectPtr text = PyObjectPtr::steal(string_to_python(decimal.toString()));
    if (!text) return nullptr;
    return PyObject_CallOneArg(cls, text.get());
}

int microseconds_of(Time const& time) {
    return static_cast<int>(time.nanoseconds() / 1000); // truncated
}

// Python times are always naive here: the host keeps offsets as unsigned
// seconds with a zone name, which has no faithful tzinfo counterpart; the
// fold bit is passed as it is.
PyObject* call_with_fold(PyObject* cls, PyObjectPtr const& args, Time const& time) {
    if (!cls) return nullptr;
    PyObjectPtr kwargs = PyObjectPtr::steal(Py_BuildValue("{s:i}", "fold", static_cast<int>(time.fold())));
    if (!args || !kwargs) return nullptr;
    return PyObject_Call(cls, args.get(), kwargs.get());
}

PyObject* time_to_python(Time const& time) {
    PyObject* cls = time_class();
    if (!cls) return nullptr;
    PyObjectPtr args = PyObjectPtr::steal(Py_BuildValue("(iiii)", static_cast<int>(time.hour()),
                                                        static_cast<int>(time.minute()),
                                                        static_cast<int>(time.second()), microseconds_of(time)));
    return call_with_fold(cls, args, time);
}

PyObject* datetime_to_python(DateTime const& dateTime) {
    PyObject* cls = datetime_class();
    if (!cls) return nullptr;
    Date date = dateTime.date();
    Time time = dateTime.time();
    PyObjectPtr args = PyObjectPtr::steal(Py_BuildValue(
        "(iiiiiii)", static_cast<int>(date.year()), static_cast<int>(date.month()), static_cast<int>(date.day()),
        static_cast<int>(time.hour()), static_cast<int>(time.minute()), static_cast<int>(time.second()),
        microseconds_of(time)));
    return call_with_fold(cls, args, time);
}

// A value loaded on demand stands for the loaded value. The loader runs once,
// and a thread that asks meanwhile waits for it; the loader may need the
// interpreter lock, so the wait is made without it.
PyObject* external_to_python(Any const& value) {
    Any loaded;
    {
        gil_release unlocked;
        loaded = internal::unwrap(value);
    }
    if (loaded.kind() == Kind::External) return new_wrapper(value);
    return convert(loaded);
}

PyObject* instance_to_python(Any const& instance) {
    // A proxy of a Python object gives that very object back; a proxy that
    // holds none has no Python form (null without an exception).
    if (PyObject* held = nullptr; python_object_held_by(instance, held)) return held;
    if (instance.isError()) {
        raise_host_error(instance.error());
        return nullptr;
    }
    return new_wrapper(instance);
}

// A class made for a Python type is that type again; any other class is wrapped.
PyObject* class_to_python(Any const& cls) {
    if (PyObject* held = nullptr; python_object_held_by(cls, held)) return held;
    return new_wrapper(cls);
}

PyObject* convert(Any const& value) {
    switch (value.kind()) {
    case Kind::None: return Py_NewRef(Py_None);
    case Kind::Undefined: return Py_NewRef(Py_NotImplemented);
    case Kind::Boolean: return boolean_to_python(value);
    case Kind::Integer: return integer_to_python(value);
    case Kind::Float: return float_to_python(value);
    case Kind::String: return string_to_python(String::unsafe(value));
    case Kind::ByteArray: return byte_array_to_python(ByteArray::unsafe(value));
    case Kind::Tuple: return tuple_to_python(Tuple::unsafe(value));
    case Kind::Decimal: return decimal_to_python(Decimal::unsafe(value));
    case Kind::Date: return date_to_python(Date::unsafe(value));
    case Kind::Time: return time_to_python(Time::unsafe(value));
    case Kind::DateTime: return datetime_to_python(DateTime::unsafe(value));
    case Kind::External: return external_to_python(value);
    case Kind::Instance: return instance_to_python(value);
    case Kind::Class: return class_to_python(value);
    // Lists, maps, sets, callables, deferred values, weak references and the
    // rest reach Python as wrappers.
    default: return new_wrapper(value);
    }
}

} // namespace

// Empty values and small integers need no lock: None and the shared
// integers are immortal.
PyObject* to_python(Any const& value) {
    if (!value.get()) return Py_NewRef(Py_None);
    if (PyObject* shared = shared_integer_of(value)) return shared;
    gil_guard gil;
    return convert(value);
}

PyObject* to_python_other_locked(Any const& value) {
    if (!value.get()) return Py_NewRef(Py_None);
    return convert(value);
}

} // namespace tesk::cpython
