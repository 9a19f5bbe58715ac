#include "vorlan/foundation/ScopeLock.h"

#include <gtest/gtest.h>

namespace {

// Counts how often it is held, and spoils errno as a real mutex may.
struct FakeMutex {
    void lock() { ++held; }
    void unlock() {
        --held;
        errno = EPERM;
    }
    int held = 0;
};

TEST(ScopeLock, HoldsTheMutexOnceAndLeavesErrnoAsTheScopeSetIt) {
    FakeMutex mutex;
    // The analysis finds the second lock() and unlock() wrong, as they are everywhere else.
    [&mutex]() VORLAN_NO_THREAD_SAFETY_ANALYSIS {
        VorlanPosix::ScopeLock<FakeMutex> lock(mutex);
        lock.lock();
        EXPECT_EQ(mutex.held, 1);
        lock.unlock();
        lock.unlock();
        lock.lock();
        errno = ENOENT;
    }();
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(mutex.held, 0);
}

} // namespace
