// RuntimeServices.h: the mutex, the thread and the sleep that the library stands on.
//
// A host may bring its own: it defines what is not inline here, and links without the default services.
#pragma once

#include "vorlan/foundation/Compiler.h"
#include "vorlan/foundation/ThreadAnnotations.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <pthread.h>
#include <sys/types.h>

/// Sleeps the calling thread for the given number of milliseconds, signals or not.
extern "C" VORLAN_API void waitMsec(std::uint32_t milliseconds);

namespace VorlanPosix {

/// A mutex between the threads of one process, not recursive.
///
/// A thread that takes it twice gets one line on stderr that names the mistake, and abort(): a silent hang
/// would tell nobody which callback came back to where it must not.
/// It is ready from constant initialisation on and is never torn down, so that objects of static storage may
/// use it before and after their neighbours' lives.
class VORLAN_API VORLAN_CAPABILITY("mutex") JMutex {
public:
    constexpr JMutex() noexcept = default;
    JMutex(JMutex const&) = delete;
    JMutex& operator=(JMutex const&) = delete;

    /// Waits for the mutex; and gives it back, on the thread that took it.
    void lock() VORLAN_ACQUIRE();
    void unlock() VORLAN_RELEASE();

private:
    [[noreturn]] static void lockedTwice();

    // An adaptive mutex spins for a moment before it sleeps: the sections here are tens of nanoseconds long.
#ifdef PTHREAD_ADAPTIVE_MUTEX_INITIALIZER_NP
    pthread_mutex_t m_mutex = PTHREAD_ADAPTIVE_MUTEX_INITIALIZER_NP;
#else
    pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;
#endif
    // Relaxed is enough: a thread only looks for itself here, and no other thread ever writes that value.
    std::atomic<pthread_t> m_owner{pthread_t{}};
};

inline void JMutex::lock() VORLAN_NO_THREAD_SAFETY_ANALYSIS {
    pthread_t const self = pthread_self();
    if (__builtin_expect(m_owner.load(std::memory_order_relaxed) == self, false)) {
        lockedTwice();
    }
    pthread_mutex_lock(&m_mutex);
    m_owner.store(self, std::memory_order_relaxed);
}

inline void JMutex::unlock() VORLAN_NO_THREAD_SAFETY_ANALYSIS {
    m_owner.store(pthread_t{}, std::memory_order_relaxed);
    pthread_mutex_unlock(&m_mutex);
}

} // namespace VorlanPosix

/// A thread that can be started, asked to stop, waited for, and started again.
///
/// The subclass overrides startMethod(), which runs on the new thread with every signal blocked, and looks at
/// stopRequested() often enough for stop() to return in time.
/// Threading: start(), stop() and running() may be called from any thread, at the same time too. A start()
/// that meets a stop(true) of another thread while the thread still runs counts as the earlier of the two.
/// Fork: in a child process the thread does not exist; there running() is false and stop() returns at once.
/// The owner stops the thread before it destroys what startMethod() uses.
class VORLAN_API BaseThread {
public:
    /// `name` shows in debuggers, cut to 15 characters. `priority` is kept and not applied. `stackSize` is a
    /// lower bound in bytes: sinks of strangers run on this stack, and so it is never below 256 KiB.
    BaseThread(char const* name, unsigned int priority, unsigned int stackSize);

    /// Stops the thread if the owner has not.
    virtual ~BaseThread();

    BaseThread(BaseThread const&) = delete;
    BaseThread& operator=(BaseThread const&) = delete;

    /// The thread's work. It runs once for each start and returns when it is done or asked to stop.
    virtual void startMethod() = 0;

    /// Runs the thread, with the stop request cleared; does nothing if it runs already. A thread that can't
    /// be made is reported to errorMsg, and running() stays false.
    void start() VORLAN_EXCLUDES(m_mutex);

    /// Asks the thread to stop and, with `wait`, returns when it has left startMethod() and is gone.
    /// Harmless on a thread that never ran or has ended; from the thread itself it only asks.
    void stop(bool wait) VORLAN_EXCLUDES(m_mutex);

    /// True from the return of start() until the thread has left startMethod().
    bool running() const VORLAN_EXCLUDES(m_mutex);

    /// The number given at construction.
    unsigned int priority() const { return m_priority; }

    /// True from a stop() until the next start(). For startMethod() to look at.
    bool stopRequested() const { return m_stopRequested.load(std::memory_order_acquire); }

private:
    static void* run(void* self);
    bool endRun() VORLAN_EXCLUDES(m_mutex);
    bool createLocked() VORLAN_REQUIRES(m_mutex);
    void joinEndedLocked() VORLAN_REQUIRES(m_mutex);
    void forgetAfterForkLocked() VORLAN_REQUIRES(m_mutex);

    char m_name[16];
    unsigned int m_priority;
    unsigned int m_stackSize; // bytes
    std::atomic<bool> m_stopRequested{false};
    mutable VorlanPosix::JMutex m_mutex;
    std::condition_variable_any m_changed; // m_running, m_joinable or m_joining changed
    pthread_t m_thread VORLAN_GUARDED_BY(m_mutex){};
    pid_t m_process VORLAN_GUARDED_BY(m_mutex) = 0;        // the process that the fields below tell of
    unsigned int m_runs VORLAN_GUARDED_BY(m_mutex) = 0;    // number of the current or last run
    unsigned int m_waiters VORLAN_GUARDED_BY(m_mutex) = 0; // threads inside stop(true)
    bool m_running VORLAN_GUARDED_BY(m_mutex) = false;
    bool m_restart VORLAN_GUARDED_BY(m_mutex) = false;  // run again when the current run has ended
    bool m_joinable VORLAN_GUARDED_BY(m_mutex) = false; // m_thread names a thread not joined yet
    bool m_joining VORLAN_GUARDED_BY(m_mutex) = false;  // somebody is inside pthread_join
};
