// The path of a message beside its floor: what cannot be saved.
//
// A passing message can't do with less than one clock read and two sections of the lock, a refused one needs
// a vsnprintf of its text on top. Each pair is to be read together, from one run: passing within 1.25 of its
// floor, refusing within 1.15, both by the CPU column (Passing by its manual time, which is CPU time too). A
// second thread is alive throughout, since the C library skips its atomic operations until one is.

#include "vorlan/clamp/MsgClamp.h"
#include "vorlan/foundation/MessageServices.h"
#include "vorlan/foundation/RuntimeServices.h"
#include "vorlan/foundation/ScopeLock.h"
#include "vorlan/values/Clock.h"

#include <benchmark/benchmark.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <thread>

// Sinks that take a message and do nothing, so that only the way to them is measured.
#define SILENT_SINK(name)                                                                                    \
    extern "C" bool name(char const* /*fmt*/, ...) {                                                         \
        return true;                                                                                         \
    }                                                                                                        \
    extern "C" bool name##Var(char const* /*fmt*/, va_list /*args*/) {                                       \
        return true;                                                                                         \
    }

SILENT_SINK(errorMsg)
SILENT_SINK(infoMsg)
SILENT_SINK(warningMsg)
SILENT_SINK(debugMsg)

extern "C" std::uint32_t setLoggingFlags(std::uint32_t flags) {
    return flags;
}

namespace {

// Keeps a second thread alive while it lives.
class SecondThread {
public:
    SecondThread() {
        m_thread = std::thread([this] {
            std::unique_lock lock(m_mutex);
            m_ended.wait(lock, [this] { return m_end; });
        });
    }
    ~SecondThread() {
        {
            std::lock_guard const lock(m_mutex);
            m_end = true;
        }
        m_ended.notify_all();
        m_thread.join();
    }
    SecondThread(SecondThread const&) = delete;
    SecondThread& operator=(SecondThread const&) = delete;

private:
    std::mutex m_mutex;
    std::condition_variable m_ended;
    bool m_end = false;
    std::thread m_thread;
};

SecondThread const secondThread;

VorlanPosix::JMutex floorMutex;

void floorOfPassing() {
    {
        VorlanPosix::ScopeLock<VorlanPosix::JMutex> const lock(floorMutex);
        benchmark::DoNotOptimize(localClock.check(Clock::milliseconds));
    }
    VorlanPosix::ScopeLock<VorlanPosix::JMutex> const lock(floorMutex);
    benchmark::ClobberMemory();
}

VORLAN_PRINTF(1, 2) void floorOfRefusing(char const* fmt, ...) {
    static char block[192];
    {
        VorlanPosix::ScopeLock<VorlanPosix::JMutex> const lock(floorMutex);
        benchmark::DoNotOptimize(localClock.check(Clock::milliseconds));
    }
    VorlanPosix::ScopeLock<VorlanPosix::JMutex> const lock(floorMutex);
    va_list args;
    va_start(args, fmt);
    vsnprintf(block, sizeof block, fmt, args);
    va_end(args);
    benchmark::ClobberMemory();
}

#define MESSAGE "disk %s is %d%% full, %u blocks left\n", "/var/spool", 97, 12345u

void PassingFloor(benchmark::State& state) {
    for (auto _ : state) {
        floorOfPassing();
    }
}

// The seconds that the calling thread has computed: other work on the machine does not count.
double threadSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

double wallSeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// An open site closes with its 16th message, so that a crowd of fresh ones takes 15 each. Building them is
// left out of the time.
template <double (*seconds)()>
void passing(benchmark::State& state) {
    constexpr int kSites = 64;
    constexpr int kPasses = 15;
    while (state.KeepRunningBatch(kSites * kPasses)) {
        std::array<MsgClamp, kSites> sites;
        double const start = seconds();
        for (int pass = 0; pass < kPasses; ++pass) {
            for (MsgClamp& site : sites) {
                site.warning(MESSAGE);
            }
        }
        state.SetIterationTime(seconds() - start);
    }
}

void RefusedFloor(benchmark::State& state) {
    for (auto _ : state) {
        floorOfRefusing(MESSAGE);
    }
}

void refuse(benchmark::State& state, MsgClamp& site) {
    for (auto _ : state) {
        site.warning(MESSAGE);
    }
}

void RefusedOnOneSite(benchmark::State& state) {
    static MsgClamp site;
    refuse(state, site);
}

void RefusedOnASiteEach(benchmark::State& state) {
    MsgClamp site;
    refuse(state, site);
}

BENCHMARK(PassingFloor);
BENCHMARK(passing<threadSeconds>)->Name("Passing")->UseManualTime();
BENCHMARK(RefusedFloor);
BENCHMARK(RefusedOnOneSite);
BENCHMARK(passing<wallSeconds>)->Name("PassingOnASiteEach")->UseManualTime()->ThreadRange(1, 4);
BENCHMARK(RefusedOnOneSite)->UseRealTime()->ThreadRange(1, 4);
BENCHMARK(RefusedOnASiteEach)->UseRealTime()->ThreadRange(1, 4);

} // namespace
