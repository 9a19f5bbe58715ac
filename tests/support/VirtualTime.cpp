#include "tests/support/VirtualTime.h"

#include "vorlan/foundation/RuntimeServices.h"
#include "vorlan/values/Clock.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace {

struct Sleeper {
    std::int64_t deadlineUs = 0;
    bool asleep = false;
    bool wake = true;
};

struct State {
    std::mutex mutex;
    std::condition_variable changed;
    std::atomic<std::int64_t> nowUs{VirtualTime::kStartUs};
    std::thread::id driver = std::this_thread::get_id();
    std::vector<Sleeper*> sleepers; // every thread that has slept and not ended
    std::vector<std::uint32_t> driverSleeps;
};

// Never destroyed: threads and exit handlers of the program under test may outlive main.
State& state() {
    static State* s = new State;
    return *s;
}

// Enters its thread among the sleepers at the first sleep and takes it off when the thread ends.
struct Membership {
    Membership() {
        std::lock_guard lock(state().mutex);
        state().sleepers.push_back(&sleeper);
    }
    ~Membership() {
        std::lock_guard lock(state().mutex);
        auto& all = state().sleepers;
        all.erase(std::remove(all.begin(), all.end(), &sleeper), all.end());
        state().changed.notify_all();
    }
    Sleeper sleeper;
};

bool allAsleep(State const& s) {
    return std::all_of(s.sleepers.begin(), s.sleepers.end(), [](Sleeper* t) { return t->asleep; });
}

void advanceTo(std::int64_t target) {
    State& s = state();
    std::unique_lock lock(s.mutex);
    for (;;) {
        s.changed.wait(lock, [&] { return allAsleep(s); });
        auto const next = std::min_element(s.sleepers.begin(), s.sleepers.end(), [](Sleeper* a, Sleeper* b) {
            return a->deadlineUs < b->deadlineUs;
        });
        if (next == s.sleepers.end() || (*next)->deadlineUs > target) {
            break;
        }
        s.nowUs = std::max(s.nowUs.load(), (*next)->deadlineUs);
        (*next)->wake = true;
        (*next)->asleep = false;
        s.changed.notify_all();
    }
    s.nowUs = target;
}

void sleepUntilMoved(std::int64_t deadlineUs) {
    static thread_local Membership membership;
    Sleeper& self = membership.sleeper;
    State& s = state();
    std::unique_lock lock(s.mutex);
    if (self.wake) {
        self.deadlineUs = deadlineUs;
    } // else the last sleep came back early, and this one goes on with it
    self.wake = false;
    self.asleep = true;
    s.changed.notify_all();
    s.changed.wait_for(lock, std::chrono::microseconds(200), [&] { return self.wake; });
    self.asleep = false;
}

} // namespace

namespace VirtualTime {

void reset() {
    std::lock_guard lock(state().mutex);
    state().nowUs = kStartUs;
    state().driver = std::this_thread::get_id();
    state().driverSleeps.clear();
}

void advanceMs(std::int64_t milliseconds) {
    advanceUs(milliseconds * 1000);
}

void advanceUs(std::int64_t microseconds) {
    advanceTo(state().nowUs + microseconds);
}

void awaitSleepers(int count) {
    State& s = state();
    std::unique_lock lock(s.mutex);
    s.changed.wait(lock,
                   [&] { return s.sleepers.size() == static_cast<std::size_t>(count) && allAsleep(s); });
}

std::vector<std::uint32_t> driverSleeps() {
    std::lock_guard lock(state().mutex);
    return state().driverSleeps;
}

} // namespace VirtualTime

long long Clock::nowRelative() {
    return state().nowUs;
}

extern "C" void waitMsec(std::uint32_t milliseconds) {
    State& s = state();
    bool driver = false;
    {
        std::lock_guard lock(s.mutex);
        driver = std::this_thread::get_id() == s.driver;
        if (driver) {
            s.driverSleeps.push_back(milliseconds);
        }
    }
    if (driver) {
        VirtualTime::advanceMs(milliseconds);
    } else {
        sleepUntilMoved(s.nowUs + std::int64_t{milliseconds} * 1000);
    }
}
