// A host that brings every service itself: messages, clock and sleep, the GMT calendar, the debug variables,
// threads and the mutex's last word. It proves that nothing beside these is missing.

#include "vorlan/clamp/MsgClamp.h"
#include "vorlan/foundation/MessageServices.h"
#include "vorlan/foundation/RuntimeServices.h"
#include "vorlan/foundation/ScopeLock.h"
#include "vorlan/lifecycle/Bridge.h"
#include "vorlan/lifecycle/Subsystem.h"
#include "vorlan/values/Clock.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <thread>

// Messages.

namespace {

VORLAN_PRINTF(2, 0) bool print(char const* kind, char const* fmt, va_list args) {
    std::fprintf(stderr, "host %s ", kind);
    std::vfprintf(stderr, fmt, args);
    return std::fputc('\n', stderr) != EOF;
}

} // namespace

#define HOST_SINK(name, kind)                                                                                \
    bool name##Var(char const* fmt, va_list args) {                                                          \
        return print(kind, fmt, args);                                                                       \
    }                                                                                                        \
    bool name(char const* fmt, ...) {                                                                        \
        va_list args;                                                                                        \
        va_start(args, fmt);                                                                                 \
        bool const sent = print(kind, fmt, args);                                                            \
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
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start)
        .count();
}

void waitMsec(std::uint32_t milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

Clock::Calendar Clock::getGmtCal(long long time) {
    std::time_t const seconds = time / 1'000'000;
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    Calendar cal;
    cal.msec = static_cast<std::uint16_t>(time / 1000 % 1000);
    cal.sec = static_cast<std::uint8_t>(parts.tm_sec);
    cal.min = static_cast<std::uint8_t>(parts.tm_min);
    cal.hour = static_cast<std::uint8_t>(parts.tm_hour);
    cal.day = static_cast<std::uint8_t>(parts.tm_mday);
    cal.month = static_cast<std::uint8_t>(parts.tm_mon);
    cal.year = static_cast<std::uint16_t>(parts.tm_year + 1900);
    return cal;
}

// Debug variables: this host has one hook's worth of them. Both places are zero before any constructor runs.

namespace {

DebuggerOn* s_variable;
BridgeHook<DebugRecord const&, bool> const* s_hook;

struct Record final : DebugRecord {
    char const* getName() const override { return "msgClampDbg"; }
    DebuggerOn* getVariable() const override { return s_variable; }
};

} // namespace

DebuggerOn::DebuggerOn(char const*, unsigned int, ...) {}

void DebuggerOn::set(BridgeHook<DebugRecord const&, bool> const* hook) {
    if (this == &msgClampDbg) {
        s_variable = this;
        s_hook = hook;
    }
}

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

// The program. Closing the site starts the flusher thread, and the end of main stops it.

int main() {
    static MsgClamp clamp;
    for (int pump = 1; pump <= 20; ++pump) {
        clamp.error("pump %d: no answer", pump);
    }
    AutoPtr<char> const time = Clock::timeString(3'661'001'000);
    infoMsg("calendar %s", time.get());
    clamp.flush();
    return Subsystem::Registry::shutdownSubsystems() ? 0 : 1;
}
