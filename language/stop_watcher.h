// One thread for the whole process that watches the time limits of running
// evaluations and raises every stop again until its evaluation has ended.
// It never takes the interpreter lock, so neither busy code nor a long C call
// delays it.
#pragma once

#include <chrono>
#include <memory>

namespace tesk::cpython {

// What the watcher does with one evaluation at each turn: `act` is called,
// under the watcher's mutex, with the time of the turn and gives the time of
// the next turn it needs (time_point::max() for none), or time_point::min()
// when the evaluation has ended and the watcher may forget it. It must not
// wait for the interpreter lock.
struct watched_evaluation {
    virtual ~watched_evaluation() = default;
    virtual std::chrono::steady_clock::time_point act(std::chrono::steady_clock::time_point now) = 0;
};

// Adds an evaluation (again: no effect) and wakes the watcher, starting it
// the first time. Never waits for anything but the watcher's own short turn.
void watch(std::shared_ptr<watched_evaluation> const& evaluation);
// Removes it; after the call the watcher no longer acts on it.
void unwatch(watched_evaluation const* evaluation);

} // namespace tesk::cpython
