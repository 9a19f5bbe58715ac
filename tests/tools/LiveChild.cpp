#include "tests/tools/LiveChild.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace {

void check(bool good, char const* what) {
    if (!good) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

void closeOnce(int& fd) {
    if (fd >= 0) {
        close(fd);
        fd = -1;
    }
}

} // namespace

LiveChild::LiveChild(std::vector<std::string> words) {
    signal(SIGPIPE, SIG_IGN);
    std::array<std::array<int, 2>, 3> pipes{};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (int fd = 0; fd < 3; ++fd) {
        auto& ends = pipes.at(static_cast<std::size_t>(fd));
        check(pipe2(ends.data(), O_CLOEXEC) == 0, "pipe2");
        posix_spawn_file_actions_adddup2(&actions, ends.at(fd == 0 ? 0 : 1), fd);
    }
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t all;
    sigfillset(&all);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);

    std::vector<char*> argv;
    std::transform(words.begin(), words.end(), std::back_inserter(argv), [](auto& w) { return w.data(); });
    argv.push_back(nullptr);
    errno = posix_spawn(&m_pid, argv[0], &actions, &attributes, argv.data(), environ);
    check(errno == 0, argv[0]);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    close(pipes[0][0]);
    close(pipes[1][1]);
    close(pipes[2][1]);
    m_in = pipes[0][1];
    m_out = pipes[1][0];
    m_err = pipes[2][0];
}

LiveChild::~LiveChild() {
    if (m_pid != 0) {
        ::kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
    closeOnce(m_in);
    closeOnce(m_out);
    closeOnce(m_err);
}

void LiveChild::write(std::string const& text) {
    check(::write(m_in, text.data(), text.size()) == static_cast<ssize_t>(text.size()), "write");
}

void LiveChild::closeInput() {
    closeOnce(m_in);
}

void LiveChild::closeOutput() {
    closeOnce(m_out);
}

void LiveChild::kill(int signal) {
    check(::kill(m_pid, signal) == 0, "kill");
}

namespace {

std::string readSome(int fd) {
    pollfd input{fd, POLLIN, 0};
    if (poll(&input, 1, 30'000) == 0) {
        throw std::runtime_error("no output for 30 s");
    }
    std::string bytes(65536, '\0');
    ssize_t const n = ::read(fd, bytes.data(), bytes.size());
    check(n >= 0, "read");
    bytes.resize(static_cast<std::size_t>(n));
    return bytes;
}

std::string readAll(int fd) {
    std::string all;
    for (std::string more = readSome(fd); !more.empty(); more = readSome(fd)) {
        all += more;
    }
    return all;
}

} // namespace

std::string LiveChild::read(int count) {
    std::string all;
    while (std::count(all.begin(), all.end(), '\n') < count) {
        std::string const more = readSome(m_out);
        if (more.empty()) {
            throw std::runtime_error("the output ended after: " + all);
        }
        all += more;
    }
    return all;
}

std::string LiveChild::readRest() {
    return readAll(m_out);
}

std::string LiveChild::errors() {
    return readAll(m_err);
}

int LiveChild::wait() {
    int status = 0;
    check(waitpid(m_pid, &status, 0) == m_pid, "waitpid");
    m_pid = 0;
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}
