#include "tests/support/VirtualTime.h"
#include "vorlan/values/Clock.h"

#include <gtest/gtest.h>

namespace {

// Catches rounding, and division that floors.
TEST(Stopwatch, MillisecondsAreTruncatedTowardZero) {
    struct {
        std::int64_t elapsed; // microseconds
        std::int64_t milliseconds;
    } const rows[] = {{0, 0}, {999, 0}, {1000, 1}, {1999, 1}, {2000, 2}, {-999, 0}, {-1000, -1}, {-1999, -1}};
    for (auto const& row : rows) {
        SCOPED_TRACE(row.elapsed);
        VirtualTime::reset();
        VirtualTime::advanceUs(row.elapsed < 0 ? -row.elapsed : 0);
        Clock const watch(true);
        VirtualTime::reset();
        VirtualTime::advanceUs(row.elapsed < 0 ? 0 : row.elapsed);
        EXPECT_EQ(watch.check(Clock::microseconds), row.elapsed);
        EXPECT_EQ(watch.check(Clock::milliseconds), row.milliseconds);
    }
}

TEST(Stopwatch, RunsFromItsStartOrFromTheOriginOfTheClock) {
    VirtualTime::reset();
    Clock watch(false);
    EXPECT_EQ(watch.check(Clock::microseconds), VirtualTime::kStartUs);
    VirtualTime::advanceMs(7);
    watch.start();
    EXPECT_EQ(watch.check(Clock::microseconds), 0);
    VirtualTime::advanceMs(5);
    EXPECT_EQ(watch.check(Clock::milliseconds), 5);
}

} // namespace
