// The cost of a guarded call beside unguarded ones, and of a registry with 100,000 participants.

#include "vorlan/lifecycle/Subsystem.h"
#include "vorlan/values/Clock.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <deque>
#include <random>

// No waits: a shutdown's own 300 ms would hide what is measured.
extern "C" void waitMsec(std::uint32_t) {}
long long Clock::nowRelative() {
    return 1'000'000;
}

namespace {

using Subsystem::Registry;

struct Interface {
    virtual ~Interface() = default;
    virtual bool call(int value) = 0;
};

struct Owner : Interface {
    bool call(int value) override { return (sum += value) != 0; }
    bool callCb(int value) { return (sum += value) != 0; }
    int sum = 0;
};

void plainVirtualCall(benchmark::State& state) {
    Owner owner;
    Interface* target = &owner;
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(target);
        benchmark::DoNotOptimize(target->call(1));
    }
}
BENCHMARK(plainVirtualCall);

// What an anchor does, without the guard: a virtual call that goes on through a pointer to a member function.
struct Binding : Interface {
    explicit Binding(Owner& owner) : m_owner(&owner) {}
    bool call(int value) override { return (m_owner->*m_method)(value); }

    Owner* m_owner;
    bool (Owner::*m_method)(int) = &Owner::callCb;
};

void unguardedBinding(benchmark::State& state) {
    Owner owner;
    Binding binding(owner);
    Interface* target = &binding;
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(target);
        benchmark::DoNotOptimize(target->call(1));
    }
}
BENCHMARK(unguardedBinding);

void hookCall(benchmark::State& state) {
    Owner owner;
    BridgeAnchor<Owner, int, bool> const anchor(owner, &Owner::callCb);
    BridgeHook<int, bool> const* hook = &anchor;
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(hook);
        benchmark::DoNotOptimize(hook->callCb(1));
    }
}
BENCHMARK(hookCall);

struct Participant : Subsystem::BaseSignals {
    explicit Participant(std::mt19937& random)
        : BaseSignals("", priority(random), priority(random), priority(random), priority(random),
                      priority(random)) {}
    static unsigned int priority(std::mt19937& random) { return static_cast<unsigned int>(random() % 100); }
};

class StageTimer {
public:
    explicit StageTimer(double& ms) : m_ms(ms) {}
    ~StageTimer() {
        m_ms += std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - m_start).count();
    }
    StageTimer(StageTimer const&) = delete;
    StageTimer& operator=(StageTimer const&) = delete;

private:
    double& m_ms;
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

// Registers all, shuts down (the queue applied, 4 sorts, 6 walks), unregisters all, and starts, which applies
// the unregistrations: each is a linear search, from the front of the list that the last sort left.
void manyParticipants(benchmark::State& state) {
    std::mt19937 random(1);
    std::deque<Participant> participants;
    for (int i = 0; i < state.range(0); ++i) {
        participants.emplace_back(random);
    }
    double registerMs = 0;
    double shutdownMs = 0;
    double unregisterMs = 0;
    double applyMs = 0;
    for ([[maybe_unused]] auto _ : state) {
        {
            StageTimer const timer(registerMs);
            for (Participant& p : participants) {
                Registry::registerSignalHandlers(p);
            }
        }
        bool ok = false;
        {
            StageTimer const timer(shutdownMs);
            ok = Registry::shutdownSubsystems();
        }
        {
            StageTimer const timer(unregisterMs);
            for (Participant& p : participants) {
                Registry::unregisterSignalHandlers(p);
            }
        }
        {
            StageTimer const timer(applyMs);
            ok = Registry::initSubsystems() && ok;
        }
        if (!ok) {
            state.SkipWithError("a run failed");
            break;
        }
    }
    using benchmark::Counter;
    state.counters["register_ms"] = Counter(registerMs, Counter::kAvgIterations);
    state.counters["shutdown_ms"] = Counter(shutdownMs, Counter::kAvgIterations);
    state.counters["unregister_ms"] = Counter(unregisterMs, Counter::kAvgIterations);
    state.counters["apply_ms"] = Counter(applyMs, Counter::kAvgIterations);
}
BENCHMARK(manyParticipants)->Arg(1'000)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

} // namespace
