// The message sinks, over stderr or over a handler of the program.

#include "vorlan/services/Messages.h"

#include "vorlan/foundation/MessageServices.h"
#include "vorlan/foundation/RuntimeServices.h"
#include "vorlan/foundation/ScopeLock.h"
#include "vorlan/values/Clock.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <optional>
#include <poll.h>
#include <pthread.h>
#include <syslog.h>
#include <unistd.h>

using VorlanPosix::MessageHandler;
using VorlanPosix::MessageKind;

namespace {

constexpr std::uint32_t kIdsOutsideInfo = 1;
constexpr std::uint32_t kIdsInInfo = 2;

struct KindRow {
    char const* word;
    int priority;         // of syslog
    std::uint32_t idFlag; // the logging flag that asks for the thread's id
};

constexpr KindRow kKinds[] = {
    {"error", LOG_ERR, kIdsOutsideInfo},
    {"warning", LOG_WARNING, kIdsOutsideInfo},
    {"info", LOG_INFO, kIdsInInfo},
    {"debug", LOG_DEBUG, kIdsOutsideInfo},
};

KindRow const& rowOf(MessageKind kind) {
    return kKinds[std::min(static_cast<std::size_t>(kind), std::size(kKinds) - 1)];
}

// All three are ready before any constructor of the process runs, and to its end.
std::atomic<MessageHandler> s_handler{nullptr};
std::atomic<std::uint32_t> s_flags{0};
VorlanPosix::JMutex s_turn;

// A child of fork() must not wait for a thread that only its parent has.
[[maybe_unused]] int const s_atFork =
    pthread_atfork(nullptr, nullptr, [] { new (&s_turn) VorlanPosix::JMutex; });

// One message in the making: in the object itself while it is short, on the heap beyond that.
class Line {
public:
    /// Date, time and kind.
    void addHead(KindRow const& kind);

    /// The id of the thread, if the flags ask for it.
    void addThreadId(KindRow const& kind);

    /// The text of the message; "%m" in it prints the errno met here.
    void addText(char const* fmt, va_list args) VORLAN_PRINTF(2, 0);

    void endLine();

    char const* text() const { return m_data; }
    std::size_t size() const { return m_size; }

private:
    std::size_t room() const { return m_capacity - m_size; }
    bool reserve(std::size_t more);
    void addRaw(char const* text);
    void addRefused(char const* fmt);
    void markCut();

    char m_short[1024];
    std::unique_ptr<char[]> m_long;
    char* m_data = m_short;
    std::size_t m_size = 0;                   // without the terminating 0, for which there is always room
    std::size_t m_capacity = sizeof(m_short); // bytes
};

void Line::addHead(KindRow const& kind) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    Clock::Calendar const cal =
        Clock::getLocalCal(static_cast<long long>(now.tv_sec) * 1'000'000 + now.tv_nsec / 1000);
    m_size += static_cast<std::size_t>(
        std::snprintf(m_data + m_size, room(), "%04d-%02d-%02d %02d:%02d:%02d.%03d %s ", cal.year,
                      cal.month + 1, cal.day, cal.hour, cal.min, cal.sec, cal.msec, kind.word));
}

void Line::addThreadId(KindRow const& kind) {
    if ((s_flags.load(std::memory_order_relaxed) & kind.idFlag) != 0) {
        m_size += static_cast<std::size_t>(
            std::snprintf(m_data + m_size, room(), "[%ld] ", static_cast<long>(gettid())));
    }
}

void Line::addText(char const* fmt, va_list args) {
    if (fmt == nullptr) {
        addRaw("(a message without a format)");
        return;
    }
    int const errnoToShow = errno;
    va_list again;
    va_copy(again, args);
    int size = std::vsnprintf(m_data + m_size, room(), fmt, args);
    bool whole = true;
    if (size >= 0 && static_cast<std::size_t>(size) >= room()) {
        whole = reserve(static_cast<std::size_t>(size));
        errno = errnoToShow;
        size = std::vsnprintf(m_data + m_size, room(), fmt, again);
    }
    va_end(again);
    if (size < 0) {
        addRefused(fmt);
        return;
    }
    m_size += std::min(static_cast<std::size_t>(size), room() - 1);
    if (!whole) {
        markCut();
    }
}

void Line::endLine() {
    if (m_size == 0 || m_data[m_size - 1] != '\n') {
        m_data[m_size++] = '\n'; // in the place of the terminating 0: nothing is added after it
    }
}

// Makes room for so many more bytes and the terminating 0; false if there is no memory for them.
bool Line::reserve(std::size_t more) {
    if (more < room()) {
        return true;
    }
    std::unique_ptr<char[]> longer(new (std::nothrow) char[m_size + more + 1]);
    if (longer == nullptr) {
        return false;
    }
    std::memcpy(longer.get(), m_data, m_size);
    m_long = std::move(longer);
    m_data = m_long.get();
    m_capacity = m_size + more + 1;
    return true;
}

void Line::addRaw(char const* text) {
    std::size_t const size = std::strlen(text);
    bool const whole = reserve(size);
    std::size_t const taken = std::min(size, room() - 1);
    std::memcpy(m_data + m_size, text, taken);
    m_size += taken;
    m_data[m_size] = '\0';
    if (!whole) {
        markCut();
    }
}

// The C library has refused the format, for instance over bytes that are no character of the locale.
void Line::addRefused(char const* fmt) {
    addRaw("(a message that can't be printed; its format follows) ");
    addRaw(fmt);
}

void Line::markCut() {
    static constexpr char kMark[] = " ... (cut: no memory)";
    std::memcpy(m_data + m_size + 1 - sizeof kMark, kMark, sizeof kMark);
}

// The turn of one message at stderr: a write that comes back short must be finished before the next begins. A
// signal handler that sends in the middle of its own thread's turn goes ahead instead of waiting for ever.
class Turn {
public:
    Turn() {
        if (!t_taken) {
            t_taken = true;
            m_lock.emplace(s_turn);
        }
    }
    ~Turn() {
        if (m_lock) {
            m_lock.reset();
            t_taken = false;
        }
    }
    Turn(Turn const&) = delete;
    Turn& operator=(Turn const&) = delete;

private:
    static thread_local bool t_taken;
    std::optional<VorlanPosix::ScopeLock<VorlanPosix::JMutex>> m_lock;
};

thread_local bool Turn::t_taken = false;

// One write() where the other side takes the line whole, as many as it wants elsewhere.
bool writeWhole(char const* data, std::size_t size) {
    Turn const turn;
    while (size > 0) {
        ssize_t const written = write(STDERR_FILENO, data, size);
        if (written > 0) {
            data += written;
            size -= static_cast<std::size_t>(written);
        } else if (written < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            pollfd stderrReady{STDERR_FILENO, POLLOUT, 0};
            poll(&stderrReady, 1, -1);
        } else if (written == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

VORLAN_PRINTF(2, 0) bool send(MessageKind kind, char const* fmt, va_list args) {
    int const callers = errno;
    MessageHandler const handler = s_handler.load(std::memory_order_acquire);
    bool const sent = (handler != nullptr ? handler : VorlanPosix::stderrHandler)(kind, fmt, args);
    errno = callers;
    return sent;
}

} // namespace

namespace VorlanPosix {

MessageHandler setMessageHandler(MessageHandler handler) {
    return s_handler.exchange(handler, std::memory_order_acq_rel);
}

bool stderrHandler(MessageKind kind, char const* fmt, va_list args) {
    int const callers = errno;
    Line line;
    line.addHead(rowOf(kind));
    line.addThreadId(rowOf(kind));
    errno = callers;
    line.addText(fmt, args);
    line.endLine();
    return writeWhole(line.text(), line.size());
}

bool syslogHandler(MessageKind kind, char const* fmt, va_list args) {
    int const callers = errno;
    Line line;
    line.addThreadId(rowOf(kind));
    errno = callers;
    line.addText(fmt, args);
    syslog(rowOf(kind).priority, "%s", line.text());
    return true;
}

} // namespace VorlanPosix

#define VORLAN_SINK(name, kind)                                                                              \
    extern "C" bool name(char const* fmt, ...) {                                                             \
        va_list args;                                                                                        \
        va_start(args, fmt);                                                                                 \
        bool const sent = send(kind, fmt, args);                                                             \
        va_end(args);                                                                                        \
        return sent;                                                                                         \
    }                                                                                                        \
    extern "C" bool name##Var(char const* fmt, va_list args) {                                               \
        return send(kind, fmt, args);                                                                        \
    }

VORLAN_SINK(errorMsg, MessageKind::Error)
VORLAN_SINK(warningMsg, MessageKind::Warning)
VORLAN_SINK(infoMsg, MessageKind::Info)
VORLAN_SINK(debugMsg, MessageKind::Debug)

extern "C" std::uint32_t setLoggingFlags(std::uint32_t flags) {
    std::uint32_t const taken = flags & (kIdsOutsideInfo | kIdsInInfo);
    s_flags.store(taken, std::memory_order_relaxed);
    return taken;
}
