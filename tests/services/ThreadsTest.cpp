#include "vorlan/foundation/RuntimeServices.h"
#include "vorlan/foundation/ScopeLock.h"
#include "vorlan/values/Clock.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <functional>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

// A thread that does what it is given, by default to run until it is asked to stop, and counts its runs.
class Worker : public BaseThread {
public:
    explicit Worker(char const* name = "worker", unsigned int stackSize = 0)
        : BaseThread(name, 7, stackSize) {}
    ~Worker() override { stop(true); }

    void startMethod() override {
        ++entered;
        if (++inside != 1) {
            ++overlaps;
        }
        work();
        --inside;
        ++left;
    }

    void untilStopped() const {
        while (!stopRequested()) {
            waitMsec(1);
        }
    }

    std::function<void()> work = [this] { untilStopped(); };
    std::atomic<int> entered{0};
    std::atomic<int> inside{0};
    std::atomic<int> left{0};
    std::atomic<int> overlaps{0};
};

void awaitCount(std::atomic<int> const& counter, int count) {
    while (counter < count) {
        waitMsec(1);
    }
}

TEST(BaseThread, RunsFromStartToStopAndAgain) {
    Worker worker;
    EXPECT_EQ(worker.priority(), 7u);
    for (int run = 1; run <= 3; ++run) {
        SCOPED_TRACE(run);
        EXPECT_FALSE(worker.running());
        worker.start();
        EXPECT_TRUE(worker.running());
        EXPECT_FALSE(worker.stopRequested());
        worker.start(); // runs already
        worker.stop(true);
        EXPECT_FALSE(worker.running());
        EXPECT_TRUE(worker.stopRequested());
        worker.stop(true); // stopped already
        EXPECT_EQ(worker.entered, run);
        EXPECT_EQ(worker.left, run);
    }
}

TEST(BaseThread, StopsThatHaveNothingToStopDoNoHarm) {
    Worker worker;
    worker.stop(false);
    worker.stop(true);
    EXPECT_TRUE(worker.stopRequested());
    EXPECT_EQ(worker.entered, 0);

    worker.work = [&] { worker.stop(true); }; // from itself: asks, and returns
    worker.start();
    worker.stop(true);
    EXPECT_EQ(worker.left, 1);

    worker.work = [] {}; // ends by itself
    worker.start();
    awaitCount(worker.left, 2);
    while (worker.running()) {
        waitMsec(1);
    }
    worker.start();
    worker.stop(true);
    EXPECT_EQ(worker.left, 3);
}

TEST(BaseThread, StartAfterAnUnwaitedStopRunsItOnceMore) {
    Worker worker;
    std::atomic<bool> go{false};
    worker.work = [&] {
        while (!go) {
            waitMsec(1);
        }
        worker.untilStopped();
    };
    worker.start();
    worker.stop(false);
    worker.start(); // while the first run goes on
    EXPECT_TRUE(worker.running());
    go = true;
    awaitCount(worker.entered, 2);
    EXPECT_FALSE(worker.stopRequested());
    worker.stop(true);
    EXPECT_EQ(worker.left, 2);
    EXPECT_EQ(worker.overlaps, 0);
}

// Catches a stop(true) that returns before the run it met has ended, two runs at a time, and hangs.
TEST(BaseThread, StartAndStopMayRace) {
    Worker worker;
    std::atomic<bool> end{false};
    std::thread starter([&] {
        while (!end) {
            worker.start();
            std::this_thread::yield();
        }
    });
    auto const stopOften = [&] {
        for (int before = 0; before < 150; before = worker.entered) {
            worker.stop(true);
            EXPECT_GE(worker.left, before);
            std::this_thread::yield();
        }
    };
    std::thread stopper(stopOften);
    stopOften();
    stopper.join();
    end = true;
    starter.join();
    worker.stop(true);
    EXPECT_FALSE(worker.running());
    EXPECT_EQ(worker.overlaps, 0);
    EXPECT_EQ(worker.left, worker.entered);
}

TEST(BaseThread, HasItsNameItsStackAndNoSignals) {
    struct {
        char const* name;
        char const* shown;
        unsigned int stackSize;
        std::size_t least;
    } const rows[] = {
        {"msg clamp", "msg clamp", 16384, 256 * 1024},
        {"a name beyond fifteen", "a name beyond f", 0, 256 * 1024},
        {"", "", 1024 * 1024 + 1, 1024 * 1024 + 1},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.name);
        Worker worker(row.name, row.stackSize);
        char name[16] = "?";
        std::size_t stackSize = 0;
        std::vector<int> open;
        worker.work = [&] {
            pthread_getname_np(pthread_self(), name, sizeof name);
            pthread_attr_t attributes;
            pthread_getattr_np(pthread_self(), &attributes);
            pthread_attr_getstacksize(&attributes, &stackSize);
            pthread_attr_destroy(&attributes);
            sigset_t blocked;
            pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
            for (int const number :
                 {SIGHUP, SIGINT, SIGTERM, SIGUSR1, SIGCHLD, SIGALRM, SIGRTMIN, SIGRTMAX}) {
                if (sigismember(&blocked, number) == 0) {
                    open.push_back(number);
                }
            }
        };
        worker.start();
        worker.stop(true);
        EXPECT_STREQ(name, row.shown);
        EXPECT_GE(stackSize, row.least);
        EXPECT_TRUE(open.empty()) << "signal " << open[0];
    }
    sigset_t mine;
    pthread_sigmask(SIG_BLOCK, nullptr, &mine);
    EXPECT_EQ(sigismember(&mine, SIGTERM), 0) << "the mask of the starting thread has changed";
}

// In a child process the thread is not there: waiting for it would take for ever.
TEST(BaseThread, ForkedChildFindsItStopped) {
    Worker worker;
    worker.start();
    pid_t const child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        alarm(20);
        bool good = !worker.running();
        worker.stop(true);
        good = good && !worker.running();
#ifndef __SANITIZE_THREAD__ // which has no new threads in such a child
        int const before = worker.entered;
        worker.start();
        awaitCount(worker.entered, before + 1);
        good = good && worker.running();
        worker.stop(true);
#endif
        _exit(good ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(worker.running()) << "the parent's own thread goes on";
    worker.stop(true);
}

class RuntimeDeathTest : public testing::Test {
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

#if !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__) // both need the address space
[[noreturn]] void startWithoutAddressSpace() {
    rlimit const limit{512 << 20, 512 << 20};
    setrlimit(RLIMIT_AS, &limit);
    Worker worker("big", 0xF0000000);
    worker.start();
    bool const running = worker.running();
    worker.stop(true);
    _exit(running ? 1 : 0);
}

TEST_F(RuntimeDeathTest, ThreadThatCannotBeMadeIsReported) {
    EXPECT_EXIT(startWithoutAddressSpace(), testing::ExitedWithCode(0),
                "error BaseThread \"big\" can't be started: .+\n$");
}
#endif

void lockTwice(VorlanPosix::JMutex& mutex) VORLAN_NO_THREAD_SAFETY_ANALYSIS {
    mutex.lock();
    mutex.unlock();
    mutex.lock();
    mutex.lock();
}

TEST_F(RuntimeDeathTest, MutexTakenTwiceAbortsWithOneLine) {
    VorlanPosix::JMutex mutex;
    EXPECT_EXIT(lockTwice(mutex), testing::KilledBySignal(SIGABRT),
                "^VorlanPosix::JMutex: a thread locks a mutex that it holds already [^\n]*; aborting\n$");
}

TEST(JMutex, KeepsThreadsApart) {
    VorlanPosix::JMutex mutex;
    int count = 0;
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 2000; ++i) {
                VorlanPosix::ScopeLock<VorlanPosix::JMutex> const lock(mutex);
                ++count;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count, 8000);
}

std::int64_t monotonicUs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

// A clock that could read 0 would tell a clamp site that nothing is recorded.
TEST(RelativeClock, IsTheMonotonicClockRaisedByOneSecond) {
    std::int64_t before = monotonicUs();
    for (int i = 0; i < 1000; ++i) {
        std::int64_t const now = Clock::nowRelative() - 1'000'000;
        std::int64_t const after = monotonicUs();
        ASSERT_LE(before, now);
        ASSERT_LE(now, after);
        before = after;
    }
}

TEST(WaitMsec, SleepsItsTimeSignalsOrNot) {
    struct sigaction ignored {};
    ignored.sa_handler = [](int) {};
    struct sigaction found {};
    ASSERT_EQ(sigaction(SIGALRM, &ignored, &found), 0);
    itimerval const everyMillisecond{{0, 1000}, {0, 1000}};
    for (bool const signals : {false, true}) {
        if (signals) {
            setitimer(ITIMER_REAL, &everyMillisecond, nullptr);
        }
        for (std::uint32_t const milliseconds : {0u, 1u, 30u}) {
            std::int64_t const start = monotonicUs();
            waitMsec(milliseconds);
            EXPECT_GE(monotonicUs() - start, milliseconds * 1000)
                << milliseconds << " ms, signals: " << signals;
        }
    }
    itimerval const none{};
    setitimer(ITIMER_REAL, &none, nullptr);
    sigaction(SIGALRM, &found, nullptr);
}

} // namespace
