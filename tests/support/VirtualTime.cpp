#include "tests/support/VirtualTime.h"

#include "vorlan/foundation/RuntimeServices.h"
#include "vorlan/values/Clock.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

namespace {

struct Sleeper;

struct State {
    std::mutex mutex;
    std::condition_variable changed;
    std::atomic<std::int64_t> nowUs{VirtualTime::kStartUs};
    std::atomic<std::thread::id> driver{std::this_thread::get_id()};
    std::size_t sleepers = 0;                       // threads that have slept and not ended
    std::multimap<std::int64_t, Sleeper*> sleeping; // those of them that sleep now, by their deadlines
    std::vector<std::uint32_t> driverSleeps;        // the driver's own
};

// Never destroyed: threads and exit handlers of the program under test may outlive main.
State& state() {
    static State* s = new State;
    return *s;
}

// One for each thread, from its first sleep to its end.
struct Sleeper {
    Sleeper() { change(1); }
    ~Sleeper() { change(-1); }
    Sleeper(Sleeper const&) = delete;
    Sleeper& operator=(Sleeper const&) = delete;

    static void change(int by) {
        std::lock_guard const lock(state().mutex);
        state().sleepers += static_cast<std::size_t>(by);
        state().changed.notify_all();
    }

    std::int64_t deadlineUs = 0; // 0 where the last one was reached
};

void sleepUntilMoved(std::int64_t deadlineUs) {
    static thread_local Sleeper self;
    State& s = state();
    std::unique_lock lock(s.mutex);
    if (self.deadlineUs == 0) {
        self.deadlineUs = deadlineUs;
    } // else the last sleep came back early, and this one goes on with it
    auto const entry = s.sleeping.emplace(self.deadlineUs, &self);
    s.changed.notify_all();
    if (!s.changed.wait_for(lock, std::chrono::microseconds(200), [] { return self.deadlineUs == 0; })) {
        s.sleeping.erase(entry);
    }
}

} // namespace

void VirtualTime::reset() {
    state().nowUs = kStartUs;
    state().driver = std::this_thread::get_id();
    state().driverSleeps.clear();
}

void VirtualTime::advanceMs(std::int64_t milliseconds) {
    advanceUs(milliseconds * 1000);
}

void VirtualTime::advanceUs(std::int64_t microseconds) {
    State& s = state();
    std::int64_t const target = s.nowUs + microseconds;
    std::unique_lock lock(s.mutex);
    for (;;) {
        s.changed.wait(lock, [&] { return s.sleeping.size() == s.sleepers; });
        auto const next = s.sleeping.begin();
        if (next == s.sleeping.end() || next->first > target) {
            break;
        }
        s.nowUs = std::max(s.nowUs.load(), next->first);
        next->second->deadlineUs = 0;
        s.sleeping.erase(next);
        s.changed.notify_all();
    }
    s.nowUs = target;
}

void VirtualTime::awaitSleepers(int count) {
    State& s = state();
    auto const wanted = static_cast<std::size_t>(count);
    std::unique_lock lock(s.mutex);
    s.changed.wait(lock, [&] { return s.sleepers == wanted && s.sleeping.size() == wanted; });
}

std::vector<std::uint32_t> VirtualTime::driverSleeps() {
    return state().driverSleeps;
}

long long Clock::nowRelative() {
    return state().nowUs;
}

extern "C" void waitMsec(std::uint32_t milliseconds) {
    State& s = state();
    if (std::this_thread::get_id() == s.driver.load()) {
        s.driverSleeps.push_back(milliseconds);
        VirtualTime::advanceMs(milliseconds);
    } else {
        sleepUntilMoved(s.nowUs + std::int64_t{milliseconds} * 1000);
    }
}
