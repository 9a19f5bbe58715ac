#include "vorlan/foundation/Atomics.h"

#include <gtest/gtest.h>

#include <climits>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

// A size without atomic operations must not compile, nor a counter that is copied.
template <std::size_t N, class = void>
struct HasAtomics : std::false_type {};
template <std::size_t N>
struct HasAtomics<N, std::void_t<decltype(sizeof(__Atomics<N>))>> : std::true_type {};

static_assert(HasAtomics<4>::value);
static_assert(!HasAtomics<2>::value);
static_assert(!HasAtomics<8>::value);
static_assert(std::is_same_v<__Atomics<4>::IntType, std::uint32_t>);
static_assert(sizeof(vrAtomic_t) == 4 && sizeof(AtomicCounter) == 4);
static_assert(!std::is_copy_constructible_v<AtomicCounter> && !std::is_copy_assignable_v<AtomicCounter>);

// Catches a result from before the change and arithmetic that does not wrap.
TEST(Atomics, EveryChangeGivesTheNewValue) {
    struct {
        std::uint32_t before;
        std::int32_t delta;
        std::uint32_t after;
    } const rows[] = {
        {0, 1, 1},  {0, -1, 0xFFFFFFFF}, {0xFFFFFFFF, 1, 0},       {0x7FFFFFFF, 1, 0x80000000},
        {5, -3, 2}, {5, 0, 5},           {0, INT_MIN, 0x80000000}, {0x80000000, INT_MIN, 0},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(testing::Message() << row.before << " + " << row.delta);
        vrAtomic_t cell{row.before};
        EXPECT_EQ(atomicAdd32(&cell, row.delta), row.after);
        EXPECT_EQ(atomicGet32(&cell), row.after);

        cell.value = row.before;
        EXPECT_EQ(__exchange_and_add32(&cell.value, row.delta), row.before)
            << "the routine below gives the old one";
        EXPECT_EQ(cell.value, row.after);

        int other = static_cast<int>(row.before);
        EXPECT_EQ(atomicAdd(&other, row.delta), row.after);
        EXPECT_EQ(other, static_cast<int>(row.after));

        cell.value = row.before;
        EXPECT_EQ(atomicInc32(&cell), row.before + 1);
        EXPECT_EQ(atomicDec32(&cell), row.before);
    }
}

TEST(Atomics, CounterCounts) {
    AtomicCounter counter(5);
    EXPECT_TRUE(counter == 5);
    EXPECT_EQ(++counter, 6);
    EXPECT_FALSE(counter == 5);
    EXPECT_EQ(--counter, 5);
    EXPECT_EQ(counter.getCount(), 5);

    AtomicCounter negative(-1);
    EXPECT_EQ(negative.getCount(), -1);
    EXPECT_EQ(++negative, 0);
}

// Catches a result that comes from a second read: two threads would be told one number.
TEST(Atomics, ThreadsAreNeverToldOneNumberTwice) {
    constexpr int kThreads = 4;
    constexpr int kEach = 2000;
    AtomicCounter counter(0);
    std::vector<std::vector<int>> told(kThreads);
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (auto& mine : told) {
        threads.emplace_back([&] {
            for (int i = 0; i < kEach; ++i) {
                mine.push_back(++counter);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::vector<int> times(kThreads * kEach + 1);
    for (auto const& mine : told) {
        for (int number : mine) {
            ++times.at(static_cast<std::size_t>(number));
        }
    }
    times[0] = 1; // the start value, told to nobody
    EXPECT_EQ(times, std::vector<int>(times.size(), 1));
}

} // namespace
