// The lock rules (python/lock_order.h): checked builds abort on a broken one,
// and the waits that could deadlock are made without the interpreter lock.
#include "python_test_support.h"

#include "from_python/from_python.h"
#include "from_python/python_object.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>

namespace tesk::cpython::testing {
namespace {

#if defined(TESK_LOCK_CHECKS)

// These run on the test program's main thread, which holds no interpreter
// lock between tests: the guards below really wait for it.
TEST(LockRulesDeathTest, WaitingForTheInterpreterLockUnderASpinlockAborts) {
    EXPECT_DEATH(
        {
            spinlock lock;
            std::lock_guard guard(lock);
            gil_guard gil;
        },
        "interpreter lock awaited under a spinlock");
}

TEST(LockRulesDeathTest, TakingAPythonReferenceWithoutTheInterpreterLockAborts) {
    PyObjectPtr none;
    {
        gil_guard gil;
        none = PyObjectPtr::borrow(Py_None);
    }
    EXPECT_DEATH(PyObjectPtr::borrow(Py_None).reset(), "Python reference taken without the interpreter lock");
    EXPECT_DEATH({ PyObjectPtr copy = none; }, "Python reference taken without the interpreter lock");
}

TEST(LockRulesDeathTest, AnUnbalancedSpinlockIsSeenByTheNextWait) {
    // A spinlock left locked (a lock() without its unlock()) counts as held.
    spinlock lock;
    lock.lock();
    EXPECT_DEATH({ gil_guard gil; }, "interpreter lock awaited under a spinlock");
    lock.unlock();
    gil_guard gil; // balanced again: no abort
}

#endif

TEST(LockRules, ANestedGuardUnderASpinlockDoesNotWait) {
    gil_guard outer;
    spinlock lock;
    std::lock_guard guard(lock);
    gil_guard inner; // the lock is held already: nothing is awaited
    EXPECT_TRUE(PyGILState_Check());
}

TEST(LockRules, ADeferredValueIsAwaitedWithoutTheInterpreterLock) {
    // Thread A computes a deferred value, and the computation needs the
    // interpreter lock; meanwhile this thread, holding that lock, asks for
    // the same value. Waiting for it with the lock held would deadlock.
    Watchdog watchdog("a deferred value awaited with the interpreter lock held");
    Any proxy;
    {
        gil_guard gil;
        PyObjectPtr list = PyObjectPtr::steal(PyList_New(0));
        proxy = from_python(list.get());
    }
    std::atomic<bool> computing{false};
    Any deferred = Computed_Generic::make([&]() -> Any {
        computing = true;
        gil_guard gil; // waits until the main thread gives the lock up
        return proxy;
    });
    gil_guard gil;
    std::thread computer([&] { (void)internal::unwrap(deferred); });
    // The computation has begun and now waits for the interpreter lock, which
    // this thread keeps.
    while (!computing.load()) std::this_thread::yield();
    EXPECT_TRUE(is_python_object(deferred));
    PyObjectPtr held = get_pyobj(deferred);
    EXPECT_TRUE(held && PyList_Check(held.get()));
    {
        gil_release unlocked;
        computer.join();
    }
}

} // namespace
} // namespace tesk::cpython::testing
