// A relative clock for clampcat that stands still; with CLOCK_RUNS set, it moves on by 50 ms each time that
// somebody looks, and by what anybody sleeps.

#include "vorlan/foundation/RuntimeServices.h"
#include "vorlan/values/Clock.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <thread>

namespace {

std::atomic<long long> s_now{1'000'000};

void moveOn(long long milliseconds) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing changes the environment here
    static bool const runs = std::getenv("CLOCK_RUNS") != nullptr;
    s_now += runs ? milliseconds * 1000 : 0;
}

} // namespace

long long Clock::nowRelative() {
    moveOn(50);
    return s_now;
}

extern "C" void waitMsec(std::uint32_t milliseconds) {
    moveOn(milliseconds);
    std::this_thread::sleep_for(std::chrono::microseconds(100));
}
