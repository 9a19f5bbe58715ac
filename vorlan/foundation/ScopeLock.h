// ScopeLock.h: holds a mutex for one scope and leaves errno as it found it.
#pragma once

#include "vorlan/foundation/ThreadAnnotations.h"

#include <cerrno>

namespace VorlanPosix {

/// Takes a mutex at construction and gives it back at scope end.
///
/// A caller may set errno inside the scope and find it unchanged after it: the destructor writes back
/// the value that it met. A direct lock() or unlock() promises no such thing.
/// Threading: an instance belongs to the thread that built it; the mutex must outlive it.
template <class T>
class VORLAN_SCOPED_CAPABILITY ScopeLock {
public:
    /// Waits for the mutex and takes it.
    explicit ScopeLock(T& mutex) VORLAN_ACQUIRE(mutex) : m_held(false), m_mutex(&mutex) { lock(); }
    ~ScopeLock() VORLAN_RELEASE();
    ScopeLock(ScopeLock const&) = delete;
    ScopeLock& operator=(ScopeLock const&) = delete;

    /// Takes the mutex again after an unlock(); does nothing while it is held.
    void lock() VORLAN_ACQUIRE();

    /// Gives the mutex back before scope end; does nothing while it is not held.
    void unlock() VORLAN_RELEASE();

private:
    bool m_held;
    T* m_mutex;
};

// The three bodies take the mutex on a condition, which the analysis can't follow.

template <class T>
ScopeLock<T>::~ScopeLock() VORLAN_NO_THREAD_SAFETY_ANALYSIS {
    int const found = errno;
    unlock();
    errno = found;
}

template <class T>
void ScopeLock<T>::lock() VORLAN_NO_THREAD_SAFETY_ANALYSIS {
    if (!m_held) {
        m_mutex->lock();
        m_held = true;
    }
}

template <class T>
void ScopeLock<T>::unlock() VORLAN_NO_THREAD_SAFETY_ANALYSIS {
    if (m_held) {
        m_mutex->unlock();
        m_held = false;
    }
}

} // namespace VorlanPosix
