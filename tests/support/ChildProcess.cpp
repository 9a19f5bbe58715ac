#include "tests/support/ChildProcess.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace {

struct Pipe {
    Pipe() {
        if (pipe2(fds.data(), O_CLOEXEC) != 0) {
            throw std::system_error(errno, std::generic_category(), "pipe2");
        }
    }
    ~Pipe() {
        closeEnd(0);
        closeEnd(1);
    }
    Pipe(Pipe const&) = delete;
    Pipe& operator=(Pipe const&) = delete;

    void closeEnd(std::size_t end) {
        if (fds[end] >= 0) {
            close(fds[end]);
            fds[end] = -1;
        }
    }
    std::array<int, 2> fds{};
};

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> all;
    all.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        all.push_back(text.data());
    }
    all.push_back(nullptr);
    return all;
}

std::vector<std::string> environmentOf(ChildInput const& input) {
    std::vector<std::string> all;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        std::string const text = *entry;
        std::string const name = text.substr(0, text.find('='));
        bool taken = input.environment.count(name) != 0;
        for (std::string const& gone : input.unset) {
            taken = taken || gone == name;
        }
        if (!taken) {
            all.push_back(text);
        }
    }
    for (auto const& [name, value] : input.environment) {
        all.push_back(std::string(name).append("=").append(value));
    }
    return all;
}

pid_t spawn(std::vector<std::string> words, ChildInput const& input, Pipe& in, Pipe& out, Pipe& err) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in.fds[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out.fds[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err.fds[1], 2);
    std::vector<std::string> environment = environmentOf(input);
    pid_t child = 0;
    int const failed = posix_spawnp(&child, words[0].c_str(), &actions, nullptr, pointers(words).data(),
                                    pointers(environment).data());
    posix_spawn_file_actions_destroy(&actions);
    if (failed != 0) {
        throw std::system_error(failed, std::generic_category(), words[0]);
    }
    in.closeEnd(0);
    out.closeEnd(1);
    err.closeEnd(1);
    return child;
}

// Appends what can be read now; closes the end at its end of file.
void drain(Pipe& from, std::string& to) {
    std::array<char, 65536> buffer{};
    ssize_t const n = read(from.fds[0], buffer.data(), buffer.size());
    if (n > 0) {
        to.append(buffer.data(), static_cast<std::size_t>(n));
    } else if (n == 0 || errno != EINTR) {
        from.closeEnd(0);
    }
}

void feed(Pipe& to, std::string const& text, std::size_t& done) {
    ssize_t const n = write(to.fds[1], text.data() + done, text.size() - done);
    if (n > 0) {
        done += static_cast<std::size_t>(n);
    }
    if (done == text.size() || (n < 0 && errno != EINTR && errno != EAGAIN)) {
        to.closeEnd(1);
    }
}

} // namespace

ChildResult runChild(std::vector<std::string> const& words, ChildInput const& input) {
    signal(SIGPIPE, SIG_IGN); // a child may end before it has read its input
    Pipe in;
    Pipe out;
    Pipe err;
    pid_t const child = spawn(words, input, in, out, err);
    fcntl(in.fds[1], F_SETFL, O_NONBLOCK);
    std::size_t fed = 0;
    if (input.in.empty()) {
        in.closeEnd(1);
    }

    ChildResult result;
    while (out.fds[0] >= 0 || err.fds[0] >= 0) {
        std::array<pollfd, 3> waits{
            {{out.fds[0], POLLIN, 0}, {err.fds[0], POLLIN, 0}, {in.fds[1], POLLOUT, 0}}};
        poll(waits.data(), waits.size(), -1);
        if (waits[0].revents != 0) {
            drain(out, result.out);
        }
        if (waits[1].revents != 0) {
            drain(err, result.err);
        }
        if (waits[2].revents != 0) {
            feed(in, input.in, fed);
        }
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    return result;
}

std::string maskAddresses(std::string const& text) {
    std::string masked;
    for (std::size_t at = 0; at < text.size();) {
        std::size_t const start = text.find("0x", at);
        if (start == std::string::npos) {
            return masked + text.substr(at);
        }
        masked += text.substr(at, start - at) + "0x#";
        at = std::min(text.find_first_not_of("0123456789abcdef", start + 2), text.size());
    }
    return masked;
}
