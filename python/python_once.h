// One-time initialisation for code that runs with the interpreter lock held.
#pragma once

#include "python/python_ref.h"

#include <atomic>
#include <mutex>

namespace tesk::cpython {

// Runs `init` once per process; `init` runs with the interpreter lock held.
//
// A plain function-local static is not enough here: the first caller holds the
// interpreter lock, and its initialisation may give the lock up (an import
// does, and so may any Python code that runs). A second thread could then take
// the lock and block on the C++ once-guard while holding it, and the first
// could never finish. So the waiting happens without the interpreter lock:
// only after the fast check fails do we let go of it, wait for (or run) the
// one initialisation, and take it back.
class python_once {
public:
    constexpr python_once() noexcept = default;
    python_once(python_once const&) = delete;
    python_once& operator=(python_once const&) = delete;

    // The caller holds the interpreter lock.
    template <class F> void run(F&& init) noexcept {
        if (done_.load(std::memory_order_acquire)) return;
        // The wait below may last as long as another thread's initialisation,
        // which takes the interpreter lock: no spinlock may be held across it.
        TESK_LOCK_ASSERT(internal::spinlock_depth() == 0, "once-only initialisation awaited under a spinlock");
        PyThreadState* saved = PyEval_SaveThread();
        std::call_once(flag_, [&]() noexcept {
            gil_guard gil;
            init();
            done_.store(true, std::memory_order_release);
        });
        PyEval_RestoreThread(saved);
    }

private:
    std::once_flag flag_;
    std::atomic<bool> done_{false};
};

} // namespace tesk::cpython
