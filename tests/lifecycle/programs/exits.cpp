// Ends in the way that the environment variable WAY names; transcript.txt shows what is written then.

#include "vorlan/diagnostics/System.h"
#include "vorlan/lifecycle/Subsystem.h"

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <thread>

// NOLINTBEGIN(concurrency-mt-unsafe): how a process ends is the subject

namespace {

using Subsystem::Registry;

std::string const s_way = std::getenv("WAY");
void (*s_inSignal)() = [] {};
int s_refusals = s_way == "failed" ? 1 : 0;

// Registers itself, and tells what it is told.
struct Engine {
    Engine() { Registry::registerSignalHandlers(signals); }
    bool init() { return tell("init"); }
    bool signal() {
        tell("told");
        s_inSignal();
        return --s_refusals < 0;
    }
    bool check(bool last) { return tell(last ? "asked last" : "asked") && s_way != "neverSettles"; }
    bool stop() { return tell("stopped"); }
    bool release() { return tell("released"); }
    static bool tell(char const* text) { return std::fprintf(stderr, "%s\n", text) > 0; }

    Subsystem::Signals<Engine> signals{"Engine",       *this,         &Engine::init,    &Engine::signal,
                                       &Engine::check, &Engine::stop, &Engine::release, 0x80000000u};
};

// Registered before main, and there as long as the process. The attribute keeps the optimiser from dropping
// the pointer, by which the leak check finds the engine.
[[gnu::used]] Engine const* const s_engine = std::getenv("NO_ENGINE") == nullptr ? new Engine : nullptr;

// Static objects go in the reverse order of their making: these two after the registry, which is made by the
// first registration.
void ownerGoesAfter() {
    static struct LateRuns {
        ~LateRuns() {
            std::fprintf(stderr, "%d %d\n", Registry::initSubsystems(), Registry::shutdownSubsystems());
        }
    } const lateRuns;
    static std::unique_ptr<Engine> longLived;
    longLived = std::make_unique<Engine>();
}

void restart() {
    Registry::shutdownSubsystems();
    Registry::initSubsystems();
    Registry::initSubsystems();
}

std::map<std::string, void (*)()> const s_ways{
    {"returns", [] {}},
    {"exits", [] { std::exit(3); }},
    {"systemExits", [] { System::exit(3); }},
    {"threadExits", [] { std::thread([] { std::exit(3); }).join(); }},
    {"failed", [] { Registry::shutdownSubsystems(); }},
    {"neverSettles", [] {}},
    {"restarted", restart},
    {"ownerGoesBefore", [] { Engine const shortLived; }},
    {"ownerGoesAfter", ownerGoesAfter},
    {"nobodyRegistered", [] { Registry::initSubsystems(); }},
    {"variableSetTooLate", [] { setenv("VRSSRLOG", "1", 1); }},
    {"startsInPhase", [] { s_inSignal = [] { Registry::initSubsystems(); }; }},
    {"stopsInPhase", [] { s_inSignal = [] { Registry::shutdownSubsystems(); }; }},
    {"exitsInPhase", [] { s_inSignal = [] { System::exit(0); }; }},
};

} // namespace

int main() {
    s_ways.at(s_way)();
    return 2;
}

// NOLINTEND(concurrency-mt-unsafe)
