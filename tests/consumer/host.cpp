// A host that brings every service itself: messages, clock and sleep, the GMT calendar, the debug variables,
// threads and the mutex's last word. It proves that nothing beside these is missing. The flood closes its
// site, which starts the flusher thread; the end of main stops it.

#include "vorlan/foundation/DebugServices.h"
#include "vorlan/foundation/MessageServices.h"
#include "vorlan/foundation/RuntimeServices.h"
#include "vorlan/foundation/ScopeLock.h"
#include "vorlan/values/Clock.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

// Messages.

#define HOST_SINK(name, kind)                                                                                \
    bool name##Var(char const* fmt, va_list args) {                                                          \
        std::fputs("host " kind " ", stderr);                                                                \
        std::vfprintf(stderr, fmt, args);                                                                    \
        return std::fputc('\n', stderr) != EOF;                                                              \
    }                                                                                                        \
    bool name(char const* fmt, ...) {                                                                        \
        va_list args;                                                                                        \
        va_start(args, fmt);                                                                                 \
        bool const sent = name##Var(fmt, args);                                                              \
        va_end(args);                                                                                        \
        return sent;                                                                                         \
    }

HOST_SINK(errorMsg, "error")
HOST_SINK(warningMsg, "warning")
HOST_SINK(infoMsg, "info")
HOST_SINK(debugMsg, "debug")

uint32_t setLoggingFlags(uint32_t) {
    return 0;
}

// Clock, sleep and calendar. The clock begins at an hour, for it must never read below one second.

long long Clock::nowRelative() {
    static auto const start = std::chrono::steady_clock::now() - std::chrono::hours(1);
    return (std::chrono::steady_clock::now() - start) / std::chrono::microseconds(1);
}

void waitMsec(std::uint32_t milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

Clock::Calendar Clock::getGmtCal(long long time) {
    Calendar cal; // no more of it than a time of day
    cal.msec = static_cast<std::uint16_t>(time / 1000 % 1000);
    cal.sec = static_cast<std::uint8_t>(time / 1'000'000 % 60);
    cal.min = static_cast<std::uint8_t>(time / 60'000'000 % 60);
    cal.hour = static_cast<std::uint8_t>(time / 3'600'000'000 % 24);
    return cal;
}

// Debug variables: this host never changes one, and so needs no hook.

DebuggerOn::DebuggerOn(char const*, unsigned int, ...) {}

void DebuggerOn::set(BridgeHook<DebugRecord const&, bool> const*) {}

// Threads. The mutex is inline but for its last word.

void VorlanPosix::JMutex::lockedTwice() {
    std::abort();
}

BaseThread::BaseThread(char const*, unsigned int priority, unsigned int stackSize)
    : m_name{}, m_priority(priority), m_stackSize(stackSize) {}

BaseThread::~BaseThread() {
    stop(true);
}

void* BaseThread::run(void* self) {
    static_cast<BaseThread*>(self)->startMethod();
    return nullptr;
}

void BaseThread::start() {
    VorlanPosix::ScopeLock<VorlanPosix::JMutex> const lock(m_mutex);
    if (!m_running) {
        m_stopRequested = false;
        m_running = pthread_create(&m_thread, nullptr, run, this) == 0;
    }
}

void BaseThread::stop(bool) {
    VorlanPosix::ScopeLock<VorlanPosix::JMutex> const lock(m_mutex);
    m_stopRequested = true;
    if (m_running) {
        pthread_join(m_thread, nullptr);
        m_running = false;
    }
}

bool BaseThread::running() const {
    VorlanPosix::ScopeLock<VorlanPosix::JMutex> const lock(m_mutex);
    return m_running;
}
