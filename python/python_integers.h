// Integers on the fast path: most numbers that cross are small, and Python
// keeps those in shapes that are read and handed out without the interpreter
// lock.
#pragma once

#include <Python.h>

#include <atomic>
#include <cstdint>

namespace tesk::cpython {

// CPython shares the integers from -5 to 256 and makes them immortal: handing
// one out needs no count, and no interpreter lock to change one.
inline constexpr std::int64_t shared_python_integer_min = -5;
inline constexpr std::int64_t shared_python_integer_max = 256;

namespace detail {
inline PyObject* shared_python_integers[shared_python_integer_max - shared_python_integer_min + 1];
inline std::atomic<bool> shared_python_integers_ready{false};
} // namespace detail

// The shared Python integer for `v` (a new reference, as the immortal count
// makes it), or null when `v` is not shared or the table is not made yet.
inline PyObject* shared_python_integer(std::int64_t v) noexcept {
    if (v < shared_python_integer_min || v > shared_python_integer_max) return nullptr;
    if (!detail::shared_python_integers_ready.load(std::memory_order_acquire)) return nullptr;
    return detail::shared_python_integers[v - shared_python_integer_min];
}

// Makes the table; with the interpreter lock held. Later calls do nothing.
inline void make_shared_python_integers() noexcept {
    if (detail::shared_python_integers_ready.load(std::memory_order_relaxed)) return;
    for (std::int64_t v = shared_python_integer_min; v <= shared_python_integer_max; ++v)
        detail::shared_python_integers[v - shared_python_integer_min] = PyLong_FromLongLong(v); // immortal
    detail::shared_python_integers_ready.store(true, std::memory_order_release);
}

// The value of an exact Python int that fits one internal digit (every int
// below 2**30 in size), read in place. Ints never change and the caller holds
// a reference, so no interpreter lock is needed; false for anything else.
inline bool compact_python_integer(PyObject* object, std::int64_t& value) noexcept {
    if (!PyLong_CheckExact(object)) return false;
    auto* integer = reinterpret_cast<PyLongObject*>(object);
    if (!PyUnstable_Long_IsCompact(integer)) return false;
    value = PyUnstable_Long_CompactValue(integer);
    return true;
}

// The value of any Python int as 64 signed bits: in place when it is compact;
// false with Python's OverflowError pending when it does not fit. With the
// interpreter lock held.
inline bool python_integer_value(PyObject* integer, std::int64_t& value) noexcept {
    if (compact_python_integer(integer, value)) return true;
    long long wide = PyLong_AsLongLong(integer);
    if (wide == -1 && PyErr_Occurred()) return false;
    value = wide;
    return true;
}

} // namespace tesk::cpython
