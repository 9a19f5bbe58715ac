// The registry and its runs against a model, in virtual time, and under threads. What the registry prints
// with VRSSRLOG set, the texts of the participants and the exits of a process are in transcript.txt.

#include "vorlan/lifecycle/Subsystem.h"

#include "tests/support/VirtualTime.h"
#include "vorlan/text/FormatStr.h"
#include "vorlan/values/Clock.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Subsystem::BaseSignals;
using Subsystem::Registry;

enum PhaseIndex : std::size_t { kInit, kSignal, kSettle, kStop, kRelease };
using Priorities = std::array<unsigned int, 5>;
using Answer = std::function<bool(std::size_t phase)>;

// Tells each call and its moment, and answers as the test wants. It belongs to the registry or to its model.
template <class R>
struct Part : BaseSignals {
    Part(int number, Priorities const& p, Answer does)
        : BaseSignals("", p[0], p[1], p[2], p[3], p[4]), id(number), priorities(p), answer(std::move(does)) {}
    ~Part() override {
        while (entries > 0) {
            request(false);
        }
    }
    bool init() override { return call(kInit); }
    bool signalShutdown() override { return call(kSignal); }
    bool checkFinished(bool last) override { return call(kSettle, last); }
    bool stopThreads() override { return call(kStop); }
    bool releaseMemory() override { return call(kRelease); }
    AutoPtr<char> toIdString() const override { return FormatStr("P%d", id).releaseString(); }

    bool call(std::size_t phase, bool last = false) {
        std::fprintf(stderr, "P%d phase %zu %d at %lld\n", id, phase, last, Clock::nowRelative());
        return answer(phase);
    }
    void request(bool enters) {
        entries = std::max(entries + (enters ? 1 : -1), 0);
        enters ? R::registerSignalHandlers(*this) : R::unregisterSignalHandlers(*this);
    }

    int id;
    Priorities priorities;
    Answer answer;
    int entries = 0; // in the list, once the queue is applied
};

// A second registry, as plainly as it can be told.
struct Model {
    static void registerSignalHandlers(Part<Model>& part) { queue.emplace_back(&part, true); }
    static void unregisterSignalHandlers(Part<Model>& part) { queue.emplace_back(&part, false); }

    static bool initSubsystems() {
        if (++count != 1 || up) {
            return true;
        }
        applyQueue();
        return up = walk(kInit);
    }

    static bool shutdownSubsystems() {
        count = std::max(count - 1, 0);
        if (count != 0 || !up) {
            return true;
        }
        applyQueue();
        up = !(walk(kSignal) && settle() && walk(kStop));
        return !up && walk(kRelease);
    }

    static bool settle() {
        int row = 0;
        for (int poll = 0; poll <= 30 && row < 3; ++poll) {
            VirtualTime::advanceMs(100);
            std::fputs(poll == 30 ? "Subsystem::Registry::shutdownSubsystems() about to bail out\n" : "",
                       stderr);
            row = walk(kSettle, poll == 30) ? row + 1 : 0;
        }
        return row > 0;
    }

    static bool walk(std::size_t phase, bool last = false) {
        static char const* const failures[] = {
            "Subsystem::Registry::initSubsystems(), subsystem failed P%d\n",
            "Subsystem::Registry::shutdownSubsystems(), signal failed (P%d)\n",
            "",
            "Subsystem::Registry::shutdownSubsystems(), can't stop threads P%d\n",
            "Subsystem::Registry::shutdownSubsystems(), can't release memory P%d\n",
        };
        std::stable_sort(list.begin(), list.end(), [phase](auto const* a, auto const* b) {
            return a->priorities[phase] > b->priorities[phase];
        });
        bool ok = true;
        for (std::size_t i = 0; i < list.size() && (ok || phase >= kStop); ++i) {
            if (!list[i]->call(phase, last)) {
                ok = false;
                std::fprintf(stderr, failures[phase], list[i]->id);
            }
        }
        return ok;
    }

    static void applyQueue() {
        for (auto const& [part, enters] : std::exchange(queue, {})) {
            auto const at = std::find(list.begin(), list.end(), part);
            if (enters) {
                list.push_back(part);
            } else if (at != list.end()) {
                list.erase(at);
            }
        }
    }

    static inline std::vector<Part<Model>*> list;
    static inline std::vector<std::pair<Part<Model>*, bool>> queue;
    static inline int count = 0;
    static inline bool up = true;
};

// What a story of the registry or its model has on stderr. Each leaves both of them up, and counted once.
template <class Story>
std::string told(Story story) {
    VirtualTime::reset();
    testing::internal::CaptureStderr();
    story();
    return testing::internal::GetCapturedStderr();
}

// Five parts come and go, between runs and inside them, fail now and then, and are replaced by others, while
// the subsystems start and stop. All of it follows from the seed.
template <class R>
void liveAtRandom(unsigned int seed) {
    std::mt19937 random(seed);
    auto const below = [&random](unsigned int bound) { return static_cast<unsigned int>(random()) % bound; };
    std::array<std::unique_ptr<Part<R>>, 5> parts;
    auto const request = [&] {
        if (auto const& part = parts[below(5)]) {
            part->request(below(3) != 0);
        }
    };
    auto const answer = [&](std::size_t phase) {
        if (below(6) == 0) {
            request();
        }
        return below(phase == kSettle ? 3 : 10) != 0;
    };
    for (int step = 0; step < 60; ++step) {
        unsigned int const action = below(7);
        if (action == 0) {
            Priorities p;
            std::generate(p.begin(), p.end(), [&] { return below(4) << 30; });
            parts[below(5)] = std::make_unique<Part<R>>(step, p, answer);
        } else if (action < 4) {
            request();
        } else {
            std::fprintf(stderr, "%d\n", action == 4 ? R::initSubsystems() : R::shutdownSubsystems());
        }
    }
    parts = {};
    for (int i = 0; i < 60; ++i) {
        R::shutdownSubsystems();
    }
    R::initSubsystems();
}

TEST(Registry, RandomLivesMatchTheModelLineByLine) {
    for (unsigned int seed = 1; seed <= 30; ++seed) {
        std::string const real = told([seed] { liveAtRandom<Registry>(seed); });
        ASSERT_EQ(real, told([seed] { liveAtRandom<Model>(seed); })) << "seed " << seed;
    }
}

// A shutdown of a part that has settled in the polls whose bits are set.
template <class R>
void settle(std::uint32_t polls) {
    int poll = 0;
    Part<R> part(1, {}, [&](std::size_t phase) { return phase != kSettle || (polls >> poll++ & 1u) != 0; });
    part.request(true);
    bool const ok = R::shutdownSubsystems();
    std::fprintf(stderr, "%d at %lld\n", ok, Clock::nowRelative());
    R::initSubsystems();
}

// The stage's state is the number of the poll and the polls settled in a row before it. Behind polls that
// never settled, or settled in pairs, every course of four polls is taken at every place, and both ways to
// the end.
TEST(Registry, SettleStageTakesEveryCourse) {
    for (unsigned int place = 0; place <= 30; ++place) {
        for (std::uint32_t course = 0; course < 64; ++course) {
            std::uint32_t const before = (course & 16u) != 0 ? 0x36DB6DB6u & ((1u << place) - 1) : 0;
            std::uint32_t const behind = (course & 32u) != 0 ? ~0u << std::min(place + 4, 31u) : 0;
            std::uint32_t const polls = before | (course & 15u) << place | behind;
            std::string const real = told([polls] { settle<Registry>(polls); });
            ASSERT_EQ(real, told([polls] { settle<Model>(polls); })) << std::hex << polls;
        }
    }
}

// Four threads register, unregister and destroy while the test's own starts and stops. What the owners
// promise to a run: nobody in its list is destroyed while it goes on. TSan sees every call that the locks do
// not order.
TEST(Registry, ThreadsComeAndGoWhileRunsGoOn) {
    std::mutex running;
    std::atomic<int> requests{0};
    std::atomic<int> working{4};
    auto const live = [&] {
        for (int lives = 0; lives < 10; ++lives) {
            std::atomic<bool> called{false};
            auto part =
                std::make_unique<Part<Registry>>(1, Priorities{}, [&](auto) { return called = true; });
            for (part->request(true); part != nullptr; ++requests) {
                part->request(true);
                part->request(false);
                std::unique_lock betweenRuns(running, std::defer_lock);
                if (called && betweenRuns.try_lock()) {
                    part.reset();
                }
            }
        }
        --working;
    };
    auto const awaitRequests = [&] { // in each run, and between two
        for (requests = 0; requests < 5 && working > 0;) {
            std::this_thread::yield();
        }
        return true;
    };
    told([&] {
        Part<Registry> gate(0, {}, [&](std::size_t phase) { return phase != kSignal || awaitRequests(); });
        gate.request(true);
        std::array<std::future<void>, 4> threads;
        std::generate(threads.begin(), threads.end(), [&] { return std::async(std::launch::async, live); });
        while (awaitRequests() && working > 0) {
            std::lock_guard const run(running);
            EXPECT_TRUE(Registry::shutdownSubsystems() && Registry::initSubsystems());
        }
    });
    EXPECT_EQ(told([] { settle<Registry>(~0u); }), told([] { settle<Model>(~0u); })) << "somebody is left";
}

} // namespace
