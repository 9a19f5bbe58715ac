#include "vorlan/foundation/SingletonHelper.h"
#include "tests/support/VirtualTime.h"
#include "vorlan/values/Clock.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace {

enum class Kind { Static, New };

// One class for each N and kind, so that many of them can be raced for.
template <int N, Kind K>
class Raced : public SingletonHelper<Raced<N, K>> {
public:
    Raced() { ++s_built; }

    static Raced* enter() {
        return K == Kind::Static ? Raced::staticSingleton(s_pointer) : Raced::newSingleton(s_pointer);
    }

    static Raced* s_pointer;
    static AtomicCounter s_built;
};

template <int N, Kind K>
Raced<N, K>* Raced<N, K>::s_pointer = nullptr;
template <int N, Kind K>
AtomicCounter Raced<N, K>::s_built(0);

template <class T>
void race() {
    std::vector<T*> seen(4);
    AtomicCounter ready(0);
    std::vector<std::thread> threads;
    threads.reserve(seen.size());
    for (T*& mine : seen) {
        threads.emplace_back([&] {
            ++ready;
            while (ready.getCount() < static_cast<int>(seen.size())) {
                std::this_thread::yield();
            }
            mine = T::enter();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(T::s_built.getCount(), 1);
    EXPECT_NE(T::s_pointer, nullptr);
    EXPECT_EQ(seen, std::vector<T*>(seen.size(), T::s_pointer));
}

template <int... N>
void raceForEach(std::integer_sequence<int, N...>) {
    (race<Raced<N, Kind::New>>(), ...);
    (race<Raced<N, Kind::Static>>(), ...);
}

TEST(SingletonHelper, ThreadsThatRaceGetOneInstance) {
    VirtualTime::reset();
    raceForEach(std::make_integer_sequence<int, 10>());
}

TEST(SingletonHelper, OnlyTheWinnersPointerIsWritten) {
    using Late = Raced<100, Kind::New>;
    Late* const instance = Late::enter();
    Late* other = nullptr;
    EXPECT_EQ(Late::newSingleton(other), nullptr);
    EXPECT_EQ(Late::enter(), instance);
}

// Its constructor takes a second of virtual time.
class Slow : public SingletonHelper<Slow> {
public:
    Slow() {
        long long const end = VirtualTime::kStartUs + 1'000'000;
        while (Clock::nowRelative() < end) {
            waitMsec(static_cast<std::uint32_t>((end - Clock::nowRelative()) / 1000));
        }
    }
};

// A process of its own: it is the first use that waits.
[[noreturn]] void waitForTheSlowOne() {
    VirtualTime::reset();
    static Slow* s_slow = nullptr;
    std::thread winner([] { Slow::newSingleton(s_slow); });
    VirtualTime::awaitSleepers(1);
    Slow* const found = Slow::newSingleton(s_slow);
    winner.join();
    std::string told = found != nullptr && found == s_slow ? "slept" : "got no instance";
    for (std::uint32_t const slept : VirtualTime::driverSleeps()) {
        told += ' ' + std::to_string(slept);
    }
    std::fprintf(stderr, "%s\n", told.c_str());
    std::_Exit(0);
}

class AtExit : public SingletonHelper<AtExit> {
public:
    ~AtExit() { std::fprintf(stderr, "the static one ends\n"); }
};

class Everlasting : public SingletonHelper<Everlasting> {
public:
    ~Everlasting() { std::fprintf(stderr, "must not end\n"); }
};

[[noreturn]] void useBothAndExit() {
    static AtExit* s_atExit = nullptr;
    static Everlasting* s_everlasting = nullptr;
    AtExit::staticSingleton(s_atExit);
    Everlasting::newSingleton(s_everlasting);
    std::exit(0); // NOLINT(concurrency-mt-unsafe): the only thread
}

class SingletonHelperDeathTest : public testing::Test {
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(SingletonHelperDeathTest, LosersBackOffToAQuarterSecond) {
    EXPECT_EXIT(waitForTheSlowOne(), testing::ExitedWithCode(0), "^slept 1 3 7 15 31 63 127 255 255 255\n$");
}

TEST_F(SingletonHelperDeathTest, OnlyTheStaticInstanceEndsAtExit) {
    EXPECT_EXIT(useBothAndExit(), testing::ExitedWithCode(0), "^the static one ends\n$");
}

} // namespace
