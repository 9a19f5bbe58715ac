#include "vorlan/foundation/SingletonHelper.h"
#include "tests/support/VirtualTime.h"
#include "vorlan/values/Clock.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <future>

namespace {

// Its constructor takes a second of virtual time.
template <int N>
struct Slow : SingletonHelper<Slow<N>> {
    Slow() {
        while (Clock::nowRelative() < VirtualTime::kStartUs + 1'000'000) {
            waitMsec(1000);
        }
    }
    ~Slow() { std::fprintf(stderr, "%d ends", N); }
};

// Enters while another thread constructs, and tells how.
template <class T>
void enterSecond(T* (*enter)(T*&)) {
    static T* s_instance = nullptr;
    VirtualTime::reset();
    auto winner = std::async(std::launch::async, [enter] { return enter(s_instance); });
    VirtualTime::awaitSleepers(1);
    T const* const found = enter(s_instance);
    std::fprintf(stderr, "%d %s ", found == winner.get(),
                 testing::PrintToString(VirtualTime::driverSleeps()).c_str());
}

// A process of its own: it is the first use that waits.
TEST(SingletonHelperDeathTest, SecondThreadBacksOffToAQuarterSecondAndOnlyTheStaticInstanceEnds) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            enterSecond(&Slow<1>::newSingleton);
            enterSecond(&Slow<2>::staticSingleton);
            std::exit(0); // NOLINT(concurrency-mt-unsafe): the only thread
        },
        testing::ExitedWithCode(0),
        testing::StrEq("1 { 1, 3, 7, 15, 31, 63, 127, 255, 255, 255 } 1 { 1, 3, 7, 15, 31, 63, 127, 255, "
                       "255, 255 } 2 ends"));
}

} // namespace
