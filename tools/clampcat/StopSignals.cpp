#include "tools/clampcat/StopSignals.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <system_error>
#include <unistd.h>

namespace Clampcat {

namespace {

std::atomic<int> s_caught{0};
std::atomic<int> s_wakeUpWriter{-1};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler uses these");

extern "C" void noteSignal(int signal) {
    int const found = errno;
    s_caught = signal;
    if (write(s_wakeUpWriter, "", 1) < 0) {
        // A full pipe wakes the reader as well.
    }
    errno = found;
}

} // namespace

StopSignals::StopSignals() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe2");
    }
    m_wakeUp = ends[0];
    s_wakeUpWriter = ends[1];
    for (int const signal : {SIGHUP, SIGINT, SIGTERM}) {
        struct sigaction action {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler != SIG_IGN) {
            action.sa_handler = noteSignal;
            action.sa_flags = static_cast<int>(SA_RESETHAND); // no SA_RESTART: an open() or read() returns
            sigaction(signal, &action, nullptr);
        }
    }
}

void StopSignals::waitForInput(int fd) const {
    std::array<pollfd, 2> waits{{{fd, POLLIN, 0}, {m_wakeUp, POLLIN, 0}}};
    while (poll(waits.data(), waits.size(), -1) < 0 && errno == EINTR) {
    }
}

int StopSignals::caught() {
    return s_caught;
}

void StopSignals::endBy(int signal) {
    std::signal(signal, SIG_DFL);
    raise(signal);
    _exit(128 + signal); // it was blocked all the time
}

} // namespace Clampcat
