// Ctrl-C. Evaluations get python3's SIGINT handler (Python::handle_signals):
// KeyboardInterrupt in the code. Work outside evaluations holds the signal
// itself: the SIGINT handler writes a byte to a pipe (all that a handler may
// safely do); a watcher thread reads it, outside any handler, and asks the
// language to stop. The signal is caught rather than blocked for sigwait,
// because a blocked signal stays blocked in every program the code starts,
// while a caught one is reset by exec.
#include "app/interruption.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>

#include <atomic>
#include <iostream>
#include <thread>

namespace brimora {
namespace {

std::atomic<bool> requested{false};

// Written by the handler, read by the watcher; both ends close on exec.
int signal_pipe[2] = {-1, -1};

extern "C" void note_interrupt(int) {
    int const saved = errno;
    char const byte = 1;
    (void)!write(signal_pipe[1], &byte, 1);
    errno = saved;
}

[[noreturn]] void end_now() {
    constexpr char message[] = "interrupted\n";
    (void)!write(STDERR_FILENO, message, sizeof message - 1);
    _exit(130);
}

} // namespace

namespace {
// Moves a descriptor above the standard streams: with standard input or
// output closed, the pipe would otherwise take their numbers, and the code
// would read its input from the pipe.
int above_standard_streams(int fd) {
    if (fd > STDERR_FILENO) return fd;
    int moved = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    close(fd);
    return moved;
}
} // namespace

void hold_interrupt_signal() {
    if (signal_pipe[0] >= 0 || pipe2(signal_pipe, O_CLOEXEC) != 0) return;
    signal_pipe[0] = above_standard_streams(signal_pipe[0]);
    signal_pipe[1] = above_standard_streams(signal_pipe[1]);
    if (signal_pipe[0] < 0 || signal_pipe[1] < 0) return;
    struct sigaction action {};
    action.sa_handler = &note_interrupt;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
}

void on_interrupt(std::function<bool()> stop) {
    // Detached: it waits for a signal that may never come, and the process
    // ends without it.
    std::thread([stop = std::move(stop)] {
        while (true) {
            char byte = 0;
            ssize_t got = read(signal_pipe[0], &byte, 1);
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) return; // no pipe: Ctrl-C keeps its default action
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
