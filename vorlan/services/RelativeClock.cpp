// The relative clock and the sleep, both on CLOCK_MONOTONIC.

#include "vorlan/foundation/RuntimeServices.h"
#include "vorlan/values/Clock.h"

#include <cerrno>
#include <ctime>

namespace {

// Added to every reading: 0 ms means "nothing recorded" to a clamp site, and a machine's clock may start at
// 0.
constexpr long long kOffsetUs = 1'000'000;

} // namespace

long long Clock::nowRelative() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1'000'000 + now.tv_nsec / 1000 + kOffsetUs;
}

extern "C" void waitMsec(std::uint32_t milliseconds) {
    timespec end{};
    clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_sec += milliseconds / 1000;
    end.tv_nsec += static_cast<long>(milliseconds % 1000) * 1'000'000;
    if (end.tv_nsec >= 1'000'000'000) {
        end.tv_nsec -= 1'000'000'000;
        ++end.tv_sec;
    }
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) == EINTR) {
    }
}
