#include "vorlan/foundation/ScopeLock.h"

#include <gtest/gtest.h>

namespace {

// Counts, and spoils errno as a real mutex may.
struct FakeMutex {
    void lock() {
        ++locks;
        errno = EDEADLK;
    }
    void unlock() {
        ++unlocks;
        errno = EPERM;
    }
    int locks = 0;
    int unlocks = 0;
};

using FakeLock = VorlanPosix::ScopeLock<FakeMutex>;

static_assert(!std::is_copy_constructible_v<FakeLock> && !std::is_copy_assignable_v<FakeLock>);

// The analysis finds the second lock() and unlock() wrong, as they are everywhere else.
void askTwice(FakeMutex& mutex) VORLAN_NO_THREAD_SAFETY_ANALYSIS {
    FakeLock lock(mutex);
    EXPECT_EQ(mutex.locks, 1);
    lock.lock();
    EXPECT_EQ(mutex.locks, 1);
    lock.unlock();
    lock.unlock();
    EXPECT_EQ(mutex.unlocks, 1);
    lock.lock();
    EXPECT_EQ(mutex.locks, 2);
    EXPECT_EQ(mutex.unlocks, 1);
}

TEST(ScopeLock, HoldsTheMutexOnceHoweverOftenItIsAsked) {
    FakeMutex mutex;
    askTwice(mutex);
    EXPECT_EQ(mutex.unlocks, 2);
}

TEST(ScopeLock, ScopeEndLeavesErrnoAsTheScopeSetIt) {
    FakeMutex mutex;
    for (bool const releasedBefore : {false, true}) {
        SCOPED_TRACE(releasedBefore);
        {
            FakeLock lock(mutex);
            EXPECT_EQ(errno, EDEADLK) << "lock() shields nothing";
            if (releasedBefore) {
                errno = 0;
                lock.unlock();
                EXPECT_EQ(errno, EPERM) << "a direct unlock() shields nothing";
            }
            errno = ENOENT;
        }
        EXPECT_EQ(errno, ENOENT);
        EXPECT_EQ(mutex.locks, mutex.unlocks);
    }
}

} // namespace
