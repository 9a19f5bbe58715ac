#include "vorlan/foundation/Atomics.h"

#include <gtest/gtest.h>

#include <future>

namespace {

// Catches a result from before the change and arithmetic that does not wrap.
TEST(Atomics, EveryChangeGivesTheNewValue) {
    for (std::uint32_t const before : {0U, 5U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        for (std::int32_t const delta : {1, -1, -3, -0x7FFFFFFF}) {
            std::uint32_t const after = before + static_cast<std::uint32_t>(delta);
            vrAtomic_t cell{before};
            EXPECT_EQ(atomicAdd(&cell, delta), after) << before;
            EXPECT_EQ(__exchange_and_add32(&cell.value, 1), after) << "this one gives the old value";
        }
    }
}

// Catches a result that comes from a second read: a thread would be told another one's number as well.
TEST(Atomics, ThreadsAreNeverToldOneNumberTwice) {
    AtomicCounter counter(0);
    auto const count = [&counter] {
        long told = 0;
        for (int i = 0; i < 20'000; ++i) {
            told += ++counter;
        }
        return told;
    };
    auto other = std::async(std::launch::async, count);
    long const mine = count();
    EXPECT_EQ(mine + other.get(), 40'000L * 40'001 / 2);
    EXPECT_TRUE(--counter == 39'999 && counter == 39'999);
}

} // namespace
