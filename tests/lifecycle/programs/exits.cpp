// Ends in the way that its argument names. The test compares everything on stderr, and the exit code.

#include "tests/lifecycle/programs/Engine.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <unistd.h>

namespace {

using Subsystem::Registry;

// Lives as long as the process.
Engine& engine() {
    static Engine* e = new Engine("Engine");
    return *e;
}

int returns() {
    engine().enter();
    return 3;
}

int exits() {
    engine().enter();
    std::exit(4); // NOLINT(concurrency-mt-unsafe): the subject of the test
}

int exitsFromThread() {
    engine().enter();
    std::thread([] { std::exit(5); }).detach(); // NOLINT(concurrency-mt-unsafe): the subject of the test
    for (;;) {
        pause();
    }
}

int isDown() {
    engine().enter();
    return Registry::shutdownSubsystems() ? 0 : 1;
}

int failedToShutDown() {
    engine().enter();
    engine().refusals = 1;
    return Registry::shutdownSubsystems() ? 1 : 0;
}

int startedTwice() {
    engine().enter();
    Registry::initSubsystems();
    Registry::initSubsystems();
    return 0;
}

int ownerGoesBefore() {
    Engine shortLived("Short");
    shortLived.enter();
    return 0;
}

// Static objects go in the reverse order of their making: these two after the registry, which is made by the
// first registration.
int ownerGoesAfter() {
    static struct LateRuns {
        ~LateRuns() {
            bool const started = Registry::initSubsystems();
            bool const stopped = Registry::shutdownSubsystems();
            std::fprintf(stderr, "late runs: %d %d\n", started, stopped);
        }
    } const lateRuns;
    static Engine longLived("Long");
    longLived.enter();
    return 0;
}

int nobodyRegistered() {
    Registry::initSubsystems();
    return 0;
}

int variableSetTooLate() {
    engine().enter();
    setenv("VRSSRLOG", "1", 1); // NOLINT(concurrency-mt-unsafe): no other thread yet
    return 0;
}

int misuse(void (*inSignal)()) {
    engine().enter();
    engine().inSignal = inSignal;
    Registry::shutdownSubsystems();
    return 0;
}

int startsInPhase() {
    return misuse([] { Registry::initSubsystems(); });
}

int stopsInPhase() {
    return misuse([] { Registry::shutdownSubsystems(); });
}

int exitsInPhase() {
    return misuse([] { std::exit(0); }); // NOLINT(concurrency-mt-unsafe): the subject of the test
}

struct Way {
    char const* name;
    int (*go)();
};

constexpr Way kWays[] = {
    {"returns", returns},
    {"exits", exits},
    {"exitsFromThread", exitsFromThread},
    {"isDown", isDown},
    {"failedToShutDown", failedToShutDown},
    {"startedTwice", startedTwice},
    {"ownerGoesBefore", ownerGoesBefore},
    {"ownerGoesAfter", ownerGoesAfter},
    {"nobodyRegistered", nobodyRegistered},
    {"variableSetTooLate", variableSetTooLate},
    {"startsInPhase", startsInPhase},
    {"stopsInPhase", stopsInPhase},
    {"exitsInPhase", exitsInPhase},
};

} // namespace

int main(int argc, char** argv) {
    for (Way const& way : kWays) {
        if (argc == 2 && std::strcmp(argv[1], way.name) == 0) {
            return way.go();
        }
    }
    std::fprintf(stderr, "no such way\n");
    return 2;
}
