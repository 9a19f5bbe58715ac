#include "vorlan/foundation/RuntimeServices.h"
#include "vorlan/values/Clock.h"

#include <gtest/gtest.h>

#include <alloca.h>
#include <chrono>
#include <csignal>
#include <future>
#include <mutex>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Counts its runs. The first asks to be started once more, the others last until they are asked to stop.
class Worker : public BaseThread {
public:
    Worker() : BaseThread("worker", 7, 16384) {}
    ~Worker() override { stop(true); }

    void startMethod() override {
        static_cast<char volatile*>(alloca(100'000))[0] = 1; // the stack is larger than what was asked for
        pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
        EXPECT_EQ(entered, left) << "two runs at a time";
        if (++entered == 1) {
            stop(true); // from itself: returns
            start();
        }
        while (!stopRequested()) {
            waitMsec(1);
        }
        ++left;
    }

    std::atomic<int> entered{0};
    std::atomic<int> left{0};
    sigset_t blocked{};
};

TEST(BaseThread, RunsFromStartToStopAndAgainAndNotInAForkedChild) {
    Worker worker;
    worker.stop(true); // never started
    for (int runs = 2; runs <= 4; ++runs) {
        worker.start();
        while (worker.entered < runs) {
            waitMsec(1);
        }
        worker.start(); // runs already
        EXPECT_TRUE(worker.running());
        EXPECT_FALSE(worker.stopRequested());
        if (fork() == 0) { // where the thread is not there: waiting for it would take for ever
            alarm(20);
            bool const ran = worker.running();
            worker.stop(true);
            _exit(ran ? 1 : 0);
        }
        int status = -1;
        wait(&status);
        EXPECT_EQ(status, 0);
        worker.stop(true);
        worker.stop(true); // stopped already
        EXPECT_FALSE(worker.running());
        EXPECT_EQ(worker.left, runs);
    }
    EXPECT_EQ(sigismember(&worker.blocked, SIGTERM), 1);
    pthread_sigmask(SIG_BLOCK, nullptr, &worker.blocked);
    EXPECT_EQ(sigismember(&worker.blocked, SIGTERM), 0) << "the mask of the starting thread has changed";
}

// Catches a stop(true) that returns before the run it met has ended, two runs at a time, and hangs.
TEST(BaseThread, StartAndStopMayRace) {
    Worker worker;
    auto const stopOften = [&worker] {
        for (int before = 0; before < 150; before = worker.entered) {
            worker.stop(true);
            EXPECT_GE(worker.left, before);
        }
    };
    auto one = std::async(std::launch::async, stopOften);
    auto two = std::async(std::launch::async, stopOften);
    while (worker.entered < 150) {
        worker.start();
    }
}

TEST(JMutexDeathTest, TakenTwiceAbortsWithOneLine) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    VorlanPosix::JMutex mutex;
    std::unique_lock const once(mutex);
    EXPECT_EXIT(std::unique_lock{mutex}, testing::KilledBySignal(SIGABRT),
                "^VorlanPosix::JMutex: a thread locks a mutex that it holds already [^\n]*; aborting\n$");
}

// A clock that could read 0 would tell a clamp site that nothing is recorded.
TEST(RelativeClock, IsTheMonotonicClockRaisedByOneSecond) {
    using std::chrono_literals::operator""us;
    auto const before = std::chrono::steady_clock::now().time_since_epoch() / 1us;
    waitMsec(30);
    auto const now = Clock::nowRelative() - 1'000'000;
    EXPECT_LE(before + 30'000, now);
    EXPECT_LE(now, std::chrono::steady_clock::now().time_since_epoch() / 1us);
}

} // namespace
