#include "tests/support/VirtualTime.h"
#include "vorlan/values/Clock.h"

#include <gtest/gtest.h>

namespace {

// Catches rounding, and division that floors.
TEST(Stopwatch, MillisecondsAreTruncatedTowardZero) {
    VirtualTime::reset();
    Clock watch(false);
    EXPECT_EQ(watch.check(Clock::microseconds), VirtualTime::kStartUs);
    for (std::int64_t const elapsed : {999, 1999, -999, -1999}) { // microseconds
        watch.start();
        VirtualTime::advanceUs(elapsed);
        EXPECT_EQ(watch.check(Clock::milliseconds), elapsed / 1000);
    }
}

} // namespace
