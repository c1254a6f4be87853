#include "language/stop_watcher.h"

#include <signal.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace tesk::cpython {
namespace {

using clock = std::chrono::steady_clock;

struct watcher {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::shared_ptr<watched_evaluation>> watched;
    bool running = false;
};

watcher& the_watcher() {
    // Never destroyed: evaluations may still run while the process exits.
    static auto* const instance = new watcher;
    return *instance;
}

[[noreturn]] void watch_forever(watcher& w) {
    std::unique_lock<std::mutex> lock(w.mutex);
    while (true) {
        clock::time_point const now = clock::now();
        clock::time_point next = clock::time_point::max();
        std::vector<std::shared_ptr<watched_evaluation>> ended; // dropped after the lock
        for (auto it = w.watched.begin(); it != w.watched.end();) {
            clock::time_point const wanted = (*it)->act(now);
            if (wanted == clock::time_point::min()) {
                ended.push_back(std::move(*it));
                it = w.watched.erase(it);
                continue;
            }
            next = std::min(next, wanted);
            ++it;
        }
        lock.unlock();
        ended.clear();
        lock.lock();
        if (next == clock::time_point::max())
            w.changed.wait(lock);
        else
            w.changed.wait_until(lock, next);
    }
}

// Signals go to the program's other threads: the watcher runs with all of
// them blocked (the mask is inherited from the creating thread for the start).
void start(watcher& w) {
    sigset_t all, previous;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous);
    std::thread([&w] { watch_forever(w); }).detach();
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

} // namespace

void watch(std::shared_ptr<watched_evaluation> const& evaluation) {
    watcher& w = the_watcher();
    {
        std::lock_guard<std::mutex> lock(w.mutex);
        if (std::find(w.watched.begin(), w.watched.end(), evaluation) == w.watched.end())
            w.watched.push_back(evaluation);
        if (!std::exchange(w.running, true)) start(w);
    }
    w.changed.notify_one();
}

void unwatch(watched_evaluation const* evaluation) {
    watcher& w = the_watcher();
    std::shared_ptr<watched_evaluation> removed; // dropped after the lock
    std::lock_guard<std::mutex> lock(w.mutex);
    auto found = std::find_if(w.watched.begin(), w.watched.end(),
                              [&](auto const& watched) { return watched.get() == evaluation; });
    if (found == w.watched.end()) return;
    removed = std::move(*found);
    w.watched.erase(found);
}

} // namespace tesk::cpython
