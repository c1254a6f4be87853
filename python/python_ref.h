// RAII for the Python interpreter lock and for Python references.
#pragma once

#include <Python.h>

#include <tesk/object.h>

#include <utility>

namespace tesk::cpython {

// Holds the interpreter lock for the lifetime of the guard. Nests: a thread
// that holds the lock already may take it again.
class gil_guard {
public:
    // A thread whose Python thread state is attached holds the lock already;
    // most guards are nested (every conversion inside a call from Python takes
    // one), so they skip the PyGILState bookkeeping, which costs more than the
    // conversion of a small value.
    gil_guard() noexcept : nested_(PyThreadState_GetUnchecked() != nullptr) {
        if (nested_) return;
        // Waiting for the interpreter lock while holding a spinlock can
        // deadlock with a thread that holds the interpreter lock and spins.
        TESK_LOCK_ASSERT(internal::spinlock_depth() == 0, "interpreter lock awaited under a spinlock");
        state_ = PyGILState_Ensure();
    }
    ~gil_guard() {
        if (!nested_) PyGILState_Release(state_);
    }
    gil_guard(gil_guard const&) = delete;
    gil_guard& operator=(gil_guard const&) = delete;

private:
    bool nested_;
    PyGILState_STATE state_ = PyGILState_UNLOCKED;
};

// Gives the interpreter lock up for the lifetime of the guard, when this
// thread holds it, and takes it back at the end: for waits that another thread
// may end only by taking the lock (see python/lock_order.h). Python pointers
// that this thread borrowed may be gone afterwards.
class gil_release {
public:
    gil_release() noexcept : saved_(PyThreadState_GetUnchecked() != nullptr ? PyEval_SaveThread() : nullptr) {}
    ~gil_release() {
        if (!saved_) return;
        TESK_LOCK_ASSERT(internal::spinlock_depth() == 0, "interpreter lock awaited under a spinlock");
        PyEval_RestoreThread(saved_);
    }
    gil_release(gil_release const&) = delete;
    gil_release& operator=(gil_release const&) = delete;

private:
    PyThreadState* saved_;
};

// Owns one strong reference. Dropping it takes the interpreter lock itself, so
// host threads may drop references anywhere; taking one (borrow, copy) needs
// the lock held by the caller. Process-wide caches keep raw references that
// are never released instead, so that nothing touches Python at exit.
class PyObjectPtr {
public:
    PyObjectPtr() noexcept = default;
    PyObjectPtr(PyObjectPtr const& other) noexcept : p_(other.p_) {
        assert_lock_held(p_);
        Py_XINCREF(p_);
    }
    PyObjectPtr(PyObjectPtr&& other) noexcept : p_(std::exchange(other.p_, nullptr)) {}
    PyObjectPtr& operator=(PyObjectPtr other) noexcept {
        std::swap(p_, other.p_);
        return *this;
    }
    ~PyObjectPtr() { reset(); }

    // Takes over a new reference (null allowed).
    static PyObjectPtr steal(PyObject* p) noexcept {
        PyObjectPtr r;
        r.p_ = p;
        return r;
    }
    // Adds a reference to a borrowed object (null allowed).
    static PyObjectPtr borrow(PyObject* p) noexcept {
        assert_lock_held(p);
        Py_XINCREF(p);
        return steal(p);
    }

    void reset() noexcept {
        if (PyObject* p = std::exchange(p_, nullptr)) {
            gil_guard gil;
            Py_DecRef(p);
        }
    }
    // Drops the reference where the caller is known to hold the interpreter
    // lock: without the guard's look at the thread state, which costs as much
    // as converting a small value.
    void reset_locked() noexcept {
        assert_lock_held(p_);
        Py_XDECREF(std::exchange(p_, nullptr));
    }
    // Hands the reference back out to the caller.
    [[nodiscard]] PyObject* release() noexcept { return std::exchange(p_, nullptr); }
    PyObject* get() const noexcept { return p_; }
    explicit operator bool() const noexcept { return p_ != nullptr; }

private:
    // Counts change only under the interpreter lock (checked builds assert it).
    static void assert_lock_held([[maybe_unused]] PyObject* p) noexcept {
        TESK_LOCK_ASSERT(p == nullptr || PyGILState_Check(), "Python reference taken without the interpreter lock");
    }
    PyObject* p_ = nullptr;
};

} // namespace tesk::cpython
