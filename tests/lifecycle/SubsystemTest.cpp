// The participants, the registry and its runs, in virtual time. The process runs with VRSSRLOG set, so that
// what the registry prints is compared too. The exits of a process are in ExitTest.cpp.

#include "vorlan/lifecycle/Subsystem.h"

#include "tests/lifecycle/RegistryOutput.h"
#include "tests/support/VirtualTime.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <shared_mutex>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using Subsystem::BaseSignals;
using Subsystem::Registry;
using testing::ElementsAre;
using testing::MatchesRegex;

constexpr int kMostStarts = 64; // more initSubsystems() than any test leaves behind

// What went to stderr since the last call.
std::string takeOutput() {
    std::string const all = testing::internal::GetCapturedStderr();
    testing::internal::CaptureStderr();
    return withoutLibrary(all);
}

struct Refuser : BaseSignals {
    Refuser() : BaseSignals("Refuser", 0, ~0u, 0, 0, 0) {}
    bool signalShutdown() override {
        ++calls;
        return false;
    }
    int calls = 0;
};

// Brings the registry back to where a fresh one starts: nobody in the list, a count of 0, and up. All
// participants have asked to be removed.
void startOver() {
    static Refuser refuser;
    Registry::registerSignalHandlers(refuser);
    for (int i = 0; i < kMostStarts; ++i) {
        Registry::shutdownSubsystems();
    }
    Registry::initSubsystems();
    refuser.calls = 0;
    Registry::shutdownSubsystems();
    EXPECT_EQ(refuser.calls, 1);
    Registry::unregisterSignalHandlers(refuser);
    takeOutput();
    VirtualTime::reset();
}

// The registry is one for the process, and so every test starts over.
class RegistryTest : public testing::Test {
protected:
    RegistryTest() {
        testing::internal::CaptureStderr();
        startOver();
    }
    ~RegistryTest() override { testing::internal::GetCapturedStderr(); }
};

// ---- Participants

struct Owner {
    bool init() { return answer(0); }
    bool signalShutdown() { return answer(1); }
    bool checkFinished(bool last) {
        lastSeen = last;
        return answer(2);
    }
    bool stopThreads() { return answer(3); }
    bool releaseMem() { return answer(4); }

    bool answer(std::size_t phase) {
        ++calls[phase];
        return result;
    }
    std::array<int, 5> calls{};
    bool lastSeen = false;
    bool result = false;
};

std::string address(void const* p) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", p);
    return text;
}

// A phase with a function gives its result, one without gives true; the long text lists the former only.
TEST_F(RegistryTest, EveryChoiceOfFunctionsIsCalledAndListed) {
    std::array<char const*, 5> const pieces{"init", "signalShutdown", "checkFinished", "stopThreads",
                                            "releaseMem"};
    for (unsigned int mask = 0; mask < 32; ++mask) {
        auto const given = [mask](std::size_t phase) { return (mask >> phase & 1u) != 0; };
        Owner owner;
        Subsystem::Signals<Owner> signals(
            "Own", owner, given(0) ? &Owner::init : nullptr, given(1) ? &Owner::signalShutdown : nullptr,
            given(2) ? &Owner::checkFinished : nullptr, given(3) ? &Owner::stopThreads : nullptr,
            given(4) ? &Owner::releaseMem : nullptr, 50 + mask);
        std::string const id = "Own(" + address(&owner) + ")";
        std::string longText = "Own\\(" + address(&owner) + "\\)";
        for (std::size_t phase = 0; phase < 5; ++phase) {
            if (given(phase)) {
                longText += "\\{" + std::string(pieces[phase]) +
                            "=0x[0-9a-f]+,p=" + std::to_string(50 + mask) + "\\}";
            }
        }
        EXPECT_EQ(signals.toIdString().get(), id);
        EXPECT_THAT(signals.toString().get(), MatchesRegex(longText));

        for (bool const result : {false, true}) {
            owner.result = result;
            EXPECT_EQ(signals.init(), result || !given(0)) << mask;
            EXPECT_EQ(signals.signalShutdown(), result || !given(1)) << mask;
            EXPECT_EQ(signals.checkFinished(result), result || !given(2)) << mask;
            EXPECT_EQ(owner.lastSeen, result && given(2)) << mask;
            EXPECT_EQ(signals.stopThreads(), result || !given(3)) << mask;
            EXPECT_EQ(signals.releaseMemory(), result || !given(4)) << mask;
        }
        for (std::size_t phase = 0; phase < 5; ++phase) {
            EXPECT_EQ(owner.calls[phase], given(phase) ? 2 : 0) << mask << ' ' << phase;
        }
    }
}

TEST_F(RegistryTest, PiecesShowTheirAnchorsAndPrioritiesAsSignedNumbers) {
    Owner owner;
    Subsystem::Signals<Owner> const signals("Own", owner, nullptr, nullptr, nullptr, &Owner::stopThreads,
                                            &Owner::releaseMem, 2147483648u);
    std::string const text = signals.toString().get();
    EXPECT_THAT(text, testing::EndsWith(",p=-2147483648}"));
    std::string const stop = text.substr(text.find("stopThreads="), 26);
    std::string const release = text.substr(text.find("releaseMem=") - 1, 26);
    EXPECT_NE(stop.substr(12), release.substr(12)) << text;
}

TEST_F(RegistryTest, BareParticipantSucceedsAndHasEmptyTexts) {
    BaseSignals bare("bare", 1, 2, 3, 4, 0xFFFFFFFFu);
    EXPECT_TRUE(bare.init() && bare.signalShutdown() && bare.checkFinished(false) && bare.stopThreads() &&
                bare.releaseMemory());
    EXPECT_STREQ(bare.toString().get(), "");
    EXPECT_STREQ(bare.toIdString().get(), "");
}

// ---- Registry and runs against a model

enum PhaseIndex : std::size_t { kInit, kSignal, kSettle, kStop, kRelease, kPhases };

// What a participant of the tests does; the real one and the model's each have a copy.
struct Plan {
    struct Request { // made inside a phase, once
        int target = -1;
        bool add = false;
    };

    bool answer(std::size_t phase) {
        if (phase == kSignal) {
            asked = 0;
        }
        return phase == kSettle ? asked++ >= settlesAfter : results[phase];
    }

    std::array<unsigned int, kPhases> priorities{};
    std::array<bool, kPhases> results{true, true, true, true, true};
    std::array<Request, kPhases> requests{};
    int settlesAfter = 0; // questions answered with false
    int asked = 0;
};

std::string callLine(int id, std::size_t phase, bool last) {
    return "P" + std::to_string(id) + " in phase " + std::to_string(phase) + (last ? ", last\n" : "\n");
}

class Part : public BaseSignals {
public:
    Part(int id, Plan const& plan, std::vector<std::unique_ptr<Part>>& all)
        : BaseSignals("", plan.priorities[kInit], plan.priorities[kSignal], plan.priorities[kSettle],
                      plan.priorities[kStop], plan.priorities[kRelease]),
          m_plan(plan), m_id(id), m_all(all) {}

    ~Part() override {
        while (m_entries-- > 0) {
            Registry::unregisterSignalHandlers(*this);
        }
    }

    bool init() override { return call(kInit); }
    bool signalShutdown() override { return call(kSignal); }
    bool checkFinished(bool last) override { return call(kSettle, last); }
    bool stopThreads() override { return call(kStop); }
    bool releaseMemory() override { return call(kRelease); }
    AutoPtr<char> toString() const override { return AutoPtr<char>(nullptr) + "part " + toIdString(); }
    AutoPtr<char> toIdString() const override {
        return AutoPtr<char>(nullptr) + ("P" + std::to_string(m_id)).c_str();
    }

    void request(bool add) {
        m_entries += add ? 1 : 0;
        add ? Registry::registerSignalHandlers(*this) : Registry::unregisterSignalHandlers(*this);
    }
    Plan& plan() { return m_plan; }

private:
    bool call(std::size_t phase, bool last = false) {
        std::fputs(callLine(m_id, phase, last).c_str(), stderr);
        Plan::Request const wish = std::exchange(m_plan.requests[phase], {});
        if (wish.target >= 0) {
            m_all[static_cast<std::size_t>(wish.target)]->request(wish.add);
        }
        return m_plan.answer(phase);
    }

    Plan m_plan;
    int m_id;
    int m_entries = 0; // registrations to take back, perhaps fewer than that
    std::vector<std::unique_ptr<Part>>& m_all;
};

std::string const kRegistry = "Subsystem::Registry::";
std::string const kShutdown = kRegistry + "shutdownSubsystems()";

struct {
    std::string stage;
    std::string step;
    std::string failure;
    std::string end;
} const kWords[kPhases]{
    {"", "|       init -> ", kRegistry + "initSubsystems(), subsystem failed ", "\n"},
    {"|-- " + kShutdown + " signalling shutdown\n", "|       signal shutdown -> ",
     kShutdown + ", signal failed (", ")\n"},
    {"|-- " + kShutdown + " letting subsystems settle\n", "|       checking settled status -> ", "", ""},
    {"|-- " + kShutdown + " stopping threads\n", "|       stop threads -> ",
     kShutdown + ", can't stop threads ", "\n"},
    {"|-- " + kShutdown + " releasing memory\n", "|       release memory -> ",
     kShutdown + ", can't release memory ", "\n"},
};

// The whole registry, as plainly as it can be told.
class Model {
public:
    explicit Model(std::vector<Plan> some) : plans(std::move(some)) {}

    void request(int id, bool add) {
        text += (add ? "Registering subsystem: part P" : "Unregistering subsystem: part P") +
                std::to_string(id) + "\n";
        m_queue.emplace_back(id, add);
    }

    bool start() {
        text += kRegistry + "initSubsystems() started\n";
        bool ok = true;
        if (++m_count != 1) {
            text += "|-- Ref count == " + std::to_string(m_count) + ", subsystems already initialized\n";
        } else if (m_up) {
            text += "|-- Subsystems already initialized\n";
        } else {
            applyQueue();
            ok = m_up = stage(kInit);
        }
        text += "`-- " + kRegistry + "initSubsystems() " + (ok ? "finished\n" : "failed\n");
        return ok;
    }

    bool stop() {
        text += kRegistry + "shutdownSubsystems() started\n";
        m_count = std::max(m_count - 1, 0);
        bool ok = true;
        if (m_count != 0) {
            text += "|-- Ref count == " + std::to_string(m_count) + ", skipping shutdown\n";
        } else if (!m_up) {
            text += "|-- Subsystems not initialized\n";
        } else {
            ok = stages();
        }
        text += "`-- " + kRegistry + "shutdownSubsystems() " + (ok ? "finished\n" : "failed\n");
        return ok;
    }

    std::vector<Plan> plans;
    std::string text;
    std::vector<std::uint32_t> waits;

private:
    bool stages() {
        applyQueue();
        if (!stage(kSignal)) {
            return false;
        }
        waits.push_back(100);
        if (!settle() || !stage(kStop)) {
            return false;
        }
        m_up = false;
        return stage(kRelease);
    }

    bool settle() {
        int row = stage(kSettle) ? 1 : 0;
        for (int poll = 1; poll < 30; ++poll) {
            waits.push_back(100);
            row = walk(kSettle) ? row + 1 : 0;
            if (row == 3) {
                return true;
            }
        }
        waits.push_back(100);
        text += kRegistry + "shutdownSubsystems() about to bail out\n";
        return walk(kSettle, true);
    }

    // The first walk of a phase, after its line and its sort.
    bool stage(std::size_t phase) {
        text += kWords[phase].stage;
        std::stable_sort(m_list.begin(), m_list.end(), [this, phase](int a, int b) {
            return plan(a).priorities[phase] > plan(b).priorities[phase];
        });
        return walk(phase);
    }

    bool walk(std::size_t phase, bool last = false) {
        bool ok = true;
        for (int const id : m_list) {
            std::string const name = "P" + std::to_string(id);
            text += kWords[phase].step + name + "\n" + callLine(id, phase, last);
            Plan::Request const wish = std::exchange(plan(id).requests[phase], {});
            if (wish.target >= 0) {
                request(wish.target, wish.add);
            }
            if (!plan(id).answer(phase)) {
                ok = false;
                text += phase == kSettle ? "" : kWords[phase].failure + name + kWords[phase].end;
                if (phase < kStop) {
                    break;
                }
            }
        }
        return ok;
    }

    void applyQueue() {
        for (auto const& [id, add] : std::exchange(m_queue, {})) {
            if (add) {
                m_list.push_back(id);
            } else if (auto at = std::find(m_list.begin(), m_list.end(), id); at != m_list.end()) {
                m_list.erase(at);
            }
        }
    }

    Plan& plan(int id) { return plans[static_cast<std::size_t>(id)]; }

    std::vector<int> m_list;
    std::deque<std::pair<int, bool>> m_queue;
    int m_count = 0;
    bool m_up = true;
};

using Random = std::mt19937;

int below(Random& random, int bound) {
    return static_cast<int>(random() % static_cast<unsigned int>(bound));
}

// New results and requests; the priorities stay.
void changePlan(Random& random, Plan& plan, int parts) {
    constexpr std::array<int, 8> kSettlesAfter{0, 0, 0, 1, 2, 28, 30, 31};
    plan.settlesAfter = kSettlesAfter[random() % kSettlesAfter.size()];
    for (std::size_t phase = 0; phase < kPhases; ++phase) {
        plan.results[phase] = below(random, 8) != 0;
        plan.requests[phase] = {below(random, 6) == 0 ? below(random, parts) : -1, below(random, 2) == 0};
    }
}

std::vector<Plan> somePlans(Random& random, int parts) {
    constexpr std::array<unsigned int, 4> kPriorities{0, 10, 50, 0x80000000u};
    std::vector<Plan> plans(static_cast<std::size_t>(parts));
    for (Plan& plan : plans) {
        for (unsigned int& priority : plan.priorities) {
            priority = kPriorities[random() % kPriorities.size()];
        }
    }
    return plans;
}

TEST_F(RegistryTest, RandomLivesMatchTheModelLineByLine) {
    constexpr int kParts = 5;
    for (unsigned int seed = 1; seed <= 20; ++seed) {
        Random random(seed);
        Model model(somePlans(random, kParts));
        std::vector<std::unique_ptr<Part>> parts;
        parts.reserve(kParts);
        for (int id = 0; id < kParts; ++id) {
            parts.push_back(std::make_unique<Part>(id, model.plans[static_cast<std::size_t>(id)], parts));
        }
        takeOutput();
        VirtualTime::reset();
        for (int step = 0; step < 40; ++step) {
            auto const part = static_cast<std::size_t>(below(random, kParts));
            switch (below(random, 6)) {
            case 0:
                ASSERT_EQ(Registry::initSubsystems(), model.start()) << "seed " << seed << " step " << step;
                break;
            case 1:
            case 2:
                ASSERT_EQ(Registry::shutdownSubsystems(), model.stop())
                    << "seed " << seed << " step " << step;
                break;
            case 3:
                changePlan(random, model.plans[part], kParts);
                parts[part]->plan() = model.plans[part];
                break;
            default:
                bool const add = below(random, 3) != 0;
                parts[part]->request(add);
                model.request(static_cast<int>(part), add);
            }
        }
        ASSERT_EQ(takeOutput(), model.text) << "seed " << seed;
        ASSERT_EQ(VirtualTime::driverSleeps(), model.waits) << "seed " << seed;
        parts.clear();
        startOver();
    }
}

// ---- Named edges

// Logs its name as it is told and as it is stopped.
class Named : public BaseSignals {
public:
    Named(char const* name, unsigned int signalPriority, unsigned int stopPriority, std::string& log)
        : BaseSignals(name, 0, signalPriority, 0, stopPriority, 0), m_log(log) {
        Registry::registerSignalHandlers(*this);
    }
    ~Named() override { Registry::unregisterSignalHandlers(*this); }

    bool signalShutdown() override { return log(name()); }
    bool checkFinished(bool) override { return log("."); }
    bool stopThreads() override { return log(name()); }

private:
    bool log(char const* text) {
        m_log += text;
        return true;
    }
    std::string& m_log;
};

TEST_F(RegistryTest, EqualPrioritiesKeepTheOrderThatThePhaseBeforeLeft) {
    std::string log;
    Named const y("Y", 10, 7, log);
    Named const x("X", 50, 7, log);
    Named const z("Z", 50, 8, log);
    EXPECT_TRUE(Registry::shutdownSubsystems());
    EXPECT_EQ(log, "XZY.........ZXY");

    // The list is Z, X, Y now. Back up, and with one more at its end:
    Registry::initSubsystems();
    Named const w("W", 50, 7, log);
    log.clear();
    EXPECT_TRUE(Registry::shutdownSubsystems());
    EXPECT_EQ(log, "ZXWY............ZXWY");
}

// Both requests are in the queue when the object is gone: they must cancel out by address alone.
TEST_F(RegistryTest, ParticipantDestroyedBeforeTheQueueIsAppliedDoesNoHarm) {
    std::string log;
    std::make_unique<Named>("gone", 1, 1, log).reset();
    EXPECT_TRUE(Registry::shutdownSubsystems());
    EXPECT_EQ(log, "");
    EXPECT_THAT(VirtualTime::driverSleeps(), ElementsAre(100, 100, 100));
}

// ---- The settle stage

using Pattern = std::array<bool, 31>; // settled or not, by poll

// Gives the pattern's results and keeps what it was asked.
struct Settler : BaseSignals {
    Settler() : BaseSignals("Settler", 0, 0, 2, 0, 0) { Registry::registerSignalHandlers(*this); }
    ~Settler() override { Registry::unregisterSignalHandlers(*this); }
    bool checkFinished(bool last) override {
        asked.push_back(last);
        return pattern.at(asked.size() - 1);
    }
    Pattern pattern{};
    std::vector<bool> asked;
};

// Stands behind the settler, and so is asked in its settled polls alone.
struct Follower : BaseSignals {
    Follower() : BaseSignals("Follower", 0, 0, 1, 0, 0) { Registry::registerSignalHandlers(*this); }
    ~Follower() override { Registry::unregisterSignalHandlers(*this); }
    bool checkFinished(bool) override { return ++asked > 0; }
    bool stopThreads() override { return ++stopped > 0; }
    long asked = 0;
    int stopped = 0;
};

struct Course {
    bool ok = false;
    std::vector<bool> asked;
    long settled = 0;
    std::vector<std::uint32_t> waits{100};
};

Course courseOf(Pattern const& pattern) {
    Course c;
    int row = 0;
    for (std::size_t poll = 0; poll <= 30; ++poll) {
        c.asked.push_back(poll == 30);
        c.ok = pattern[poll];
        c.settled += c.ok ? 1 : 0;
        row = c.ok ? row + 1 : 0;
        if (row == 3 || poll == 30) {
            break;
        }
        c.waits.push_back(100);
    }
    return c;
}

// The stage's state is the number of the poll and the polls settled in a row before it. From each state that
// can be met, reached over quiet and over busy polls, every course of the next three polls is taken, and then
// both ways to the end.
std::set<Pattern> allPatterns() {
    std::set<Pattern> patterns;
    for (std::size_t poll = 0; poll <= 30; ++poll) {
        for (std::size_t row = 0; row <= std::min<std::size_t>(poll, 2); ++row) {
            for (unsigned int choice = 0; choice < 32; ++choice) {
                auto const bit = [choice](unsigned int n) { return (choice >> n & 1u) != 0; };
                Pattern p{};
                for (std::size_t i = 0; i <= 30; ++i) {
                    bool const before = bit(0) && (poll - row - 1 - i) % 3 != 0; // 2 settled, 1 not, ...
                    p[i] = i + row < poll ? before
                           : i < poll     ? true
                           : i < poll + 3 ? bit(static_cast<unsigned int>(i - poll) + 2)
                                          : bit(1);
                }
                patterns.insert(p);
            }
        }
    }
    return patterns;
}

TEST_F(RegistryTest, SettleStageTakesEveryCourse) {
    Follower follower;
    Settler settler;
    int good = 0;
    std::set<Pattern> const patterns = allPatterns();
    for (Pattern const& pattern : patterns) {
        settler.pattern = pattern;
        settler.asked.clear();
        follower.asked = follower.stopped = 0;
        Registry::initSubsystems();
        VirtualTime::reset();
        Course const course = courseOf(pattern);
        std::string const shown = testing::PrintToString(pattern);
        ASSERT_EQ(Registry::shutdownSubsystems(), course.ok) << shown;
        ASSERT_EQ(settler.asked, course.asked) << shown;
        ASSERT_EQ(follower.asked, course.settled) << shown;
        ASSERT_EQ(follower.stopped, course.ok ? 1 : 0) << shown;
        ASSERT_EQ(VirtualTime::driverSleeps(), course.waits) << shown;
        good += course.ok ? 1 : 0;
    }
    EXPECT_GT(good, 0);
    EXPECT_LT(good, static_cast<int>(patterns.size()));
}

// ---- Threads

// Stands between the runs and the threads. Each run opens a window, from its first phase to its last: the
// list is fixed then, and whoever registers in it is not called.
class Gate {
public:
    explicit Gate(int workers) : m_workers(workers) {}

    bool signalShutdown() {
        std::lock_guard const lock(m_mutex);
        m_visits = 0;
        m_open = true;
        m_changed.notify_all();
        return true;
    }
    // Holds the run up until somebody came and went in this window, or all that are left wait for its end.
    bool checkFinished(bool) {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_visits > 0 || m_waiting == m_workers; });
        return true;
    }
    bool releaseMem() {
        std::unique_lock lock(m_mutex);
        m_open = false;
        m_changed.wait(lock, [this] { return m_inside == 0; });
        return true;
    }

    // What the owners promise to a run: nobody in its list is destroyed while it goes on.
    void run() {
        std::unique_lock const nobodyDestroyed(m_owners);
        EXPECT_TRUE(Registry::shutdownSubsystems());
        EXPECT_TRUE(Registry::initSubsystems());
    }

    template <class Action>
    void betweenRuns(Action action) {
        change(m_waiting, 1);
        std::shared_lock const lock(m_owners);
        change(m_waiting, -1);
        action();
    }
    template <class Action>
    void insideRun(Action action) {
        {
            std::unique_lock lock(m_mutex);
            m_changed.wait(lock, [this] { return m_open; });
            ++m_inside;
        }
        action();
        change(m_visits, 1);
        change(m_inside, -1);
    }
    void workerEnds() { change(m_workers, -1); }
    bool working() {
        std::lock_guard const lock(m_mutex);
        return m_workers > 0;
    }

private:
    void change(int& count, int by) {
        std::lock_guard const lock(m_mutex);
        count += by;
        m_changed.notify_all();
    }

    std::shared_mutex m_owners;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_open = false; // the window
    int m_visits = 0;    // in this window, ended
    int m_inside = 0;    // in this window, going on
    int m_waiting = 0;   // for the end of a run
    int m_workers;
};

// Registered by a thread, touched by the runs: TSan sees every call that the locks do not order.
struct Visitor {
    bool touch() { return ++touched > 0; }
    bool settle(bool) { return ++touched > 0; }
    void enter() { Registry::registerSignalHandlers(signals); }
    void leave() { Registry::unregisterSignalHandlers(signals); }

    int touched = 0;
    Subsystem::Signals<Visitor> signals{"Visitor",        *this,           &Visitor::touch, &Visitor::touch,
                                        &Visitor::settle, &Visitor::touch, &Visitor::touch, 50};
};

// Of the long lives, destroyed between two runs, half register between two runs, and so are surely called,
// and half whenever it comes. The short lives begin and end inside a run. Gives the number of long lives
// called.
int liveLivesAt(Gate& gate, int lives) {
    int called = 0;
    for (int i = 0; i < lives; ++i) {
        auto longLife = std::make_unique<Visitor>();
        if (i % 2 == 0) {
            gate.betweenRuns([&] { longLife->enter(); });
        } else {
            longLife->enter();
        }
        gate.insideRun([] {
            Visitor shortLife;
            shortLife.enter();
            shortLife.leave();
            shortLife.enter();
        });
        gate.betweenRuns([&] {
            called += longLife->touched > 0 ? 1 : 0;
            longLife.reset();
        });
    }
    return called;
}

// Four threads register, unregister and destroy while the test's own starts and stops.
TEST_F(RegistryTest, ThreadsComeAndGoWhileRunsGoOn) {
    constexpr int kThreads = 4;
    constexpr int kLives = 20;
    Gate gate(kThreads);
    auto signals = std::make_unique<Subsystem::Signals<Gate>>(
        "Gate", gate, nullptr, &Gate::signalShutdown, &Gate::checkFinished, nullptr, &Gate::releaseMem, 50u);
    Registry::registerSignalHandlers(*signals);
    std::atomic<int> called{0};
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&gate, &called] {
            called += liveLivesAt(gate, kLives);
            gate.workerEnds();
        });
    }
    while (gate.working()) {
        gate.run();
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_GE(called, kThreads * kLives / 2);

    signals.reset();
    takeOutput();
    EXPECT_TRUE(Registry::shutdownSubsystems());
    EXPECT_EQ(takeOutput().find("Visitor"), std::string::npos) << "somebody was left in the list";
}

} // namespace

// VRSSRLOG counts at the first use of the registry, which in a shared build comes before main: the process
// starts anew with it.
int main(int argc, char** argv) {
    // NOLINTBEGIN(concurrency-mt-unsafe): there is one thread yet
    if (std::getenv("VRSSRLOG") == nullptr) {
        setenv("VRSSRLOG", "", 1);
        // NOLINTEND(concurrency-mt-unsafe)
        execv("/proc/self/exe", argv);
        std::perror("execv");
        return 1;
    }
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
