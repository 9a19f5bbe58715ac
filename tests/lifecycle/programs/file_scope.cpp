// Registers from constructors at file scope: one owner that goes before the registry does, one that stays.

#include "vorlan/lifecycle/Subsystem.h"

#include <cstdio>

namespace {

struct Engine {
    explicit Engine(char const* name)
        : signals(name, *this, nullptr, nullptr, nullptr, &Engine::stop, nullptr, 0) {
        Subsystem::Registry::registerSignalHandlers(signals);
    }
    bool stop() {
        std::fprintf(stderr, "stopped\n");
        return true;
    }
    Subsystem::Signals<Engine> signals;
};

Engine s_first("First");
Engine& s_second = *new Engine("Second");

} // namespace

int main() {
    return s_second.signals.name() != nullptr ? 0 : 1;
}
