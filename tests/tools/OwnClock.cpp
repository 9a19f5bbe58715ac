// A relative clock for clampcat that runs CLOCK_SPEED times as fast as the real one; without it, it stands.

#include "vorlan/foundation/RuntimeServices.h"
#include "vorlan/values/Clock.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

namespace {

constexpr long long kStartUs = 1'000'000;

long long speed() {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing changes the environment here
    static char const* const text = std::getenv("CLOCK_SPEED");
    static long long const factor = text == nullptr ? 0 : std::stoll(text);
    return factor;
}

} // namespace

long long Clock::nowRelative() {
    static auto const start = std::chrono::steady_clock::now();
    auto const elapsed = std::chrono::steady_clock::now() - start;
    return kStartUs + std::chrono::duration_cast<std::chrono::microseconds>(elapsed).count() * speed();
}

extern "C" void waitMsec(std::uint32_t milliseconds) {
    std::this_thread::sleep_for(std::chrono::microseconds(milliseconds * 1000LL / std::max(speed(), 1LL)));
}
