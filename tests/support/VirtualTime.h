// VirtualTime.h: a relative clock and a sleep that the test moves by command.
#pragma once

#include <cstdint>
#include <vector>

/// Replaces Clock::nowRelative() and waitMsec() of the program that links it.
///
/// Time stands still until the test's own thread, the driver, moves it: with advance(), or by sleeping
/// itself. Other threads that sleep wake at their exact moments on the way there, one after another, and the
/// driver waits until each sleeps again. So a polling thread sees every one of its polls, in virtual time. A
/// sleeper that nobody moves for 0.2 ms of real time returns without any virtual time gone, so that a thread
/// which is asked to stop gets to see it.
namespace VirtualTime {

/// The start of every test's time: an odd number, so that nothing works by being round.
constexpr std::int64_t kStartUs = 1'000'003'000;

/// Puts time back to the start, forgets the recorded sleeps and makes the calling thread the driver. Threads
/// of an earlier test must have ended.
void reset();

/// Moves time forward; the sleepers on the way wake in the order of their moments.
void advanceMs(std::int64_t milliseconds);
void advanceUs(std::int64_t microseconds);

/// Returns once `count` threads other than the driver have slept and not ended yet.
void awaitSleepers(int count);

/// The driver's own sleeps since the reset, in milliseconds.
std::vector<std::uint32_t> driverSleeps();

} // namespace VirtualTime
