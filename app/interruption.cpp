// Ctrl-C: a thread waits for SIGINT with sigwait (no signal handler runs, so
// it may call into the host) and asks the language to stop the evaluation.
#include "app/interruption.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <iostream>
#include <thread>

namespace brimora {
namespace {

std::atomic<bool> requested{false};

sigset_t interrupt_set() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    return set;
}

[[noreturn]] void end_now() {
    constexpr char message[] = "interrupted\n";
    (void)!write(STDERR_FILENO, message, sizeof message - 1);
    _exit(130);
}

} // namespace

void hold_interrupt_signal() {
    sigset_t set = interrupt_set();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

void on_interrupt(std::function<bool()> stop) {
    // Detached: it waits for a signal that may never come, and the process
    // ends without it.
    std::thread([stop = std::move(stop)] {
        sigset_t set = interrupt_set();
        while (true) {
            int signal = 0;
            if (sigwait(&set, &signal) != 0) continue;
            if (requested.exchange(true)) end_now();
            if (!stop()) end_now();
        }
    }).detach();
}

bool interrupt_requested() { return requested.load(); }

int report_interrupted() {
    std::cerr << "interrupted\n";
    return 130;
}

} // namespace brimora
