#include "tests/tools/LiveChild.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace {

void check(bool good, char const* what) {
    if (!good) {
        throw std::runtime_error(what);
    }
}

} // namespace

LiveChild::LiveChild(std::vector<std::string> words) {
    std::vector<char*> argv;
    std::transform(words.begin(), words.end(), std::back_inserter(argv), [](auto& w) { return w.data(); });
    argv.push_back(nullptr);
    std::array<int, 2> in{};
    std::array<int, 2> out{};
    check(pipe2(in.data(), O_CLOEXEC) == 0 && pipe2(out.data(), O_CLOEXEC) == 0, "pipe2");
    m_pid = fork();
    check(m_pid >= 0, "fork");
    if (m_pid == 0) {
        for (int const signal : {SIGHUP, SIGINT, SIGTERM}) {
            ::signal(signal, SIG_DFL);
        }
        dup2(in[0], STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        dup2(out[1], STDERR_FILENO);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    m_in = in[1];
    m_out = out[0];
}

LiveChild::~LiveChild() {
    if (m_pid > 0) {
        ::kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
    close(m_in);
    close(m_out);
}

void LiveChild::write(std::string const& text) const {
    check(::write(m_in, text.data(), text.size()) == static_cast<ssize_t>(text.size()), "write");
}

void LiveChild::kill(int signal) const {
    check(::kill(m_pid, signal) == 0, "kill");
}

bool LiveChild::readMore(std::string& all) const {
    pollfd input{m_out, POLLIN, 0};
    check(poll(&input, 1, 30'000) == 1, "no output for 30 s");
    std::array<char, 65536> bytes{};
    ssize_t const n = read(m_out, bytes.data(), bytes.size());
    check(n >= 0, "read");
    all.append(bytes.data(), static_cast<std::size_t>(n));
    return n > 0;
}

std::string LiveChild::readTo(std::string const& text) {
    std::string all;
    while (all.find(text) == std::string::npos) {
        check(readMore(all), "the output ended");
    }
    return all;
}

std::string LiveChild::finish() {
    close(m_in);
    m_in = -1;
    std::string all;
    while (readMore(all)) {
    }
    return all;
}

int LiveChild::wait() {
    int status = 0;
    check(waitpid(m_pid, &status, 0) == m_pid, "waitpid");
    m_pid = 0;
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}
