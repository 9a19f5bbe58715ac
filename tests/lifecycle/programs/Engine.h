// Engine.h: a participant that tells on stderr what it is told.
#pragma once

#include "vorlan/lifecycle/Subsystem.h"

#include <cstdio>

struct Engine {
    explicit Engine(char const* name)
        : signals(name, *this, nullptr, &Engine::signal, nullptr, &Engine::stop, nullptr, 50) {}

    void enter() { Subsystem::Registry::registerSignalHandlers(signals); }
    bool signal() {
        if (inSignal != nullptr) {
            inSignal();
        }
        std::fprintf(stderr, "told\n");
        return --refusals < 0;
    }
    bool stop() {
        std::fprintf(stderr, "stopped\n");
        return true;
    }

    void (*inSignal)() = nullptr;
    int refusals = 0;
    Subsystem::Signals<Engine> signals;
};
