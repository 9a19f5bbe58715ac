#include "tests/support/ChildProcess.h"

#include <algorithm>
#include <spawn.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// A file in memory, not a pipe: neither side ever waits for the other.
int makeFile(std::string const& content) {
    int const fd = memfd_create("child", MFD_CLOEXEC);
    if (pwrite(fd, content.data(), content.size(), 0) != static_cast<ssize_t>(content.size())) {
        throw std::runtime_error("no file for a child");
    }
    return fd;
}

std::string takeContent(int fd) {
    std::string content(static_cast<std::size_t>(lseek(fd, 0, SEEK_END)), '\0');
    content.resize(static_cast<std::size_t>(pread(fd, content.data(), content.size(), 0)));
    close(fd);
    return content;
}

} // namespace

ChildResult runChild(std::vector<std::string> const& words, ChildInput const& input) {
    std::vector<std::string> command{"env"};
    for (std::string const& name : input.unset) {
        command.push_back("--unset=" + name);
    }
    for (auto const& [name, value] : input.environment) {
        command.push_back(std::string(name).append("=").append(value));
    }
    command.insert(command.end(), words.begin(), words.end());
    std::vector<char*> argv(command.size() + 1);
    std::transform(command.begin(), command.end(), argv.begin(),
                   [](std::string& word) { return word.data(); });

    int const files[] = {makeFile(input.in), makeFile(""), makeFile("")};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (int fd = 0; fd < 3; ++fd) {
        posix_spawn_file_actions_adddup2(&actions, files[fd], fd);
    }
    pid_t child = 0;
    int status = 0;
    if (posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ) != 0 ||
        waitpid(child, &status, 0) != child) {
        throw std::runtime_error("no child");
    }
    posix_spawn_file_actions_destroy(&actions);
    close(files[0]);
    return {takeContent(files[1]), takeContent(files[2]), WIFEXITED(status) ? WEXITSTATUS(status) : -1,
            WIFSIGNALED(status) ? WTERMSIG(status) : 0};
}

std::string maskAddresses(std::string text) {
    for (std::size_t at = text.find("0x"); at != std::string::npos; at = text.find("0x", at + 2)) {
        std::size_t const end = text.find_first_not_of("0123456789abcdef", at + 2);
        text.replace(at + 2, end - at - 2, "#");
    }
    return text;
}
