// Bit sets beside boost::dynamic_bitset, and the calendar beside the platform's.

#include "vorlan/values/Bitset.h"
#include "vorlan/values/Clock.h"

#include <benchmark/benchmark.h>
#include <boost/dynamic_bitset.hpp>
#include <ctime>

namespace {

using Boost = boost::dynamic_bitset<>;

struct Union {
    template <class Set>
    Set operator()(Set const& left, Set const& right) const {
        return left | right;
    }
};

struct Intersection {
    template <class Set>
    Set operator()(Set const& left, Set const& right) const {
        return left & right;
    }
};

Bitset emptySet(Bitset const* /*type*/, int size) {
    return Bitset(size, false);
}

Boost emptySet(Boost const* /*type*/, int size) {
    return Boost(static_cast<std::size_t>(size));
}

// A new set out of two of equal size, which is what both types' operators give.
template <class Operation, class Set>
void combine(benchmark::State& state) {
    int const size = static_cast<int>(state.range(0));
    Set left = emptySet(static_cast<Set const*>(nullptr), size);
    Set right = left;
    for (int bit = 0; bit < size; bit += 3) {
        left.set(static_cast<unsigned int>(bit));
        right.set(static_cast<unsigned int>(bit * 5 % size));
    }
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(left);
        benchmark::DoNotOptimize(right);
        Set const result = Operation()(left, right);
        benchmark::DoNotOptimize(&result);
        benchmark::ClobberMemory();
    }
}

#define COMBINE_BENCH(operation, set)                                                                        \
    BENCHMARK_TEMPLATE(combine, operation, set)->Arg(16)->Arg(64)->Arg(1'024)->Arg(65'536)

COMBINE_BENCH(Union, Bitset);
COMBINE_BENCH(Union, Boost);
COMBINE_BENCH(Intersection, Bitset);
COMBINE_BENCH(Intersection, Boost);

constexpr unsigned int kMoments = 256; // spread over the years 1970 to 2038

void getGmtTime(benchmark::State& state) {
    Clock::Calendar moments[kMoments];
    for (unsigned int i = 0; i < kMoments; ++i) {
        moments[i] = Clock::getGmtCal(i * 8'388'607'000'000LL);
    }
    unsigned int next = 0;
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(Clock::getGmtTime(moments[next++ % kMoments]));
    }
}

void platformTimegm(benchmark::State& state) {
    std::tm moments[kMoments];
    for (unsigned int i = 0; i < kMoments; ++i) {
        std::time_t const seconds = i * 8'388'607LL;
        gmtime_r(&seconds, &moments[i]);
    }
    unsigned int next = 0;
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(timegm(&moments[next++ % kMoments]));
    }
}

void getGmtCal(benchmark::State& state) {
    unsigned int next = 0;
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(Clock::getGmtCal(next++ % kMoments * 8'388'607'000'000LL));
    }
}

void platformGmtime(benchmark::State& state) {
    unsigned int next = 0;
    for ([[maybe_unused]] auto _ : state) {
        std::time_t const seconds = next++ % kMoments * 8'388'607LL;
        std::tm parts{};
        benchmark::DoNotOptimize(gmtime_r(&seconds, &parts));
    }
}

BENCHMARK(getGmtTime);
BENCHMARK(platformTimegm);
BENCHMARK(getGmtCal);
BENCHMARK(platformGmtime);

} // namespace
