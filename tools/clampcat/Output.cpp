#include "tools/clampcat/Output.h"

#include "vorlan/foundation/ScopeLock.h"

#include <cerrno>
#include <cstdio>
#include <poll.h>
#include <system_error>
#include <unistd.h>

namespace Clampcat {

namespace {

using Lock = VorlanPosix::ScopeLock<VorlanPosix::JMutex>;

constexpr std::size_t kLargeEnough = 64 * 1024; // bytes gathered before a write

Output* s_output = nullptr; // set before the first message, never again

[[noreturn]] void endForWriteError(int error) {
    if (error != EPIPE) {
        dprintf(STDERR_FILENO, "clampcat: standard output: %s\n",
                std::generic_category().message(error).c_str());
    }
    // Not exit(): this may be the flusher thread, which an orderly exit would wait for.
    _exit(1);
}

void writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t const n = write(fd, bytes.data(), bytes.size());
        if (n >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(n));
        } else if (errno == EAGAIN) {
            pollfd room{fd, POLLOUT, 0};
            poll(&room, 1, -1);
        } else if (errno != EINTR) {
            endForWriteError(errno);
        }
    }
}

} // namespace

void Output::receiveMessages() {
    s_output = this;
    VorlanPosix::setMessageHandler(takeMessage);
}

// A line that passes comes with its own format, a prefix in front of it; a release is a "%s".
bool Output::takeMessage(VorlanPosix::MessageKind kind, char const* fmt, va_list args) {
    std::string_view const format = fmt;
    std::string_view const own = kLineFormat;
    bool const isLine = kind == VorlanPosix::MessageKind::Info;
    if (isLine && format == "%s") {
        s_output->released(va_arg(args, char const*));
    } else if (isLine && format.size() >= own.size() && format.substr(format.size() - own.size()) == own) {
        auto const size = static_cast<std::size_t>(va_arg(args, int));
        s_output->passed(format.substr(0, format.size() - own.size()), {va_arg(args, char const*), size});
    } else {
        return VorlanPosix::stderrHandler(kind, fmt, args);
    }
    return true;
}

void Output::passed(std::string_view prefix, std::string_view line) {
    Lock const lock(m_mutex);
    closeLineLocked();
    addMissingFeedLocked();
    ++m_lines;
    m_buffer += prefix;
    m_buffer += line;
    m_open = m_needsFeed = line.empty() || line.back() != '\n';
    writeIfDueLocked();
}

void Output::goesOn(std::string_view bytes) {
    Lock const lock(m_mutex);
    if (!m_open) {
        return;
    }
    m_buffer += bytes;
    m_needsFeed = bytes.back() != '\n';
    if (!m_needsFeed) {
        closeLineLocked();
    }
    writeIfDueLocked();
}

void Output::endLine() {
    Lock const lock(m_mutex);
    closeLineLocked();
    writeIfDueLocked();
}

void Output::released(std::string_view line) {
    Lock const lock(m_mutex);
    ++m_lines;
    std::string& to = m_open ? m_waiting : m_buffer;
    if (!m_open) {
        addMissingFeedLocked();
    }
    to += line;
    if (line.back() != '\n') {
        to += '\n';
    }
    writeIfDueLocked();
}

void Output::collect() {
    Lock const lock(m_mutex);
    m_collecting = true;
}

void Output::flush() {
    Lock const lock(m_mutex);
    m_collecting = false;
    writeLocked();
}

std::uint64_t Output::lines() const {
    Lock const lock(m_mutex);
    return m_lines;
}

void Output::addMissingFeedLocked() {
    if (m_needsFeed) {
        m_buffer += '\n';
        m_needsFeed = false;
    }
}

void Output::closeLineLocked() {
    m_open = false;
    if (!m_waiting.empty()) {
        addMissingFeedLocked();
        m_buffer += m_waiting;
        m_waiting.clear();
    }
}

void Output::writeIfDueLocked() {
    if (!m_collecting || m_buffer.size() >= kLargeEnough) {
        writeLocked();
    }
}

void Output::writeLocked() {
    writeAll(m_fd, m_buffer);
    m_buffer.clear();
}

} // namespace Clampcat
