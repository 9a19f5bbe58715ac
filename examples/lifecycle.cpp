// Stops three subsystems in order; one of them needs 400 ms until its data is on the disk.
//
// Run it with the environment variable VRSSRLOG set to see what the registry does:
//
//     VRSSRLOG=1 ./lifecycle
//
// A fourth one shows there, which nobody here has made: MsgClampInternal, the library's own. It keeps the
// sites of all clamps, and stops the thread that sends what they hold back.

#include "vorlan/clamp/MsgClamp.h"
#include "vorlan/lifecycle/Subsystem.h"
#include "vorlan/values/Clock.h"

#include <cstdio>

namespace {

using Subsystem::Registry;

// Takes requests. It comes first in every phase, so that no work arrives while the others end.
class Listener {
public:
    Listener() { Registry::registerSignalHandlers(m_signals); }

private:
    bool signalShutdown() {
        std::puts("Listener: closed, no new requests");
        return true;
    }

    Subsystem::Signals<Listener> m_signals{"Listener", *this,   nullptr, &Listener::signalShutdown,
                                           nullptr,    nullptr, nullptr, 90};
};

// Writes records to the disk, in the background. What it has in hand takes 400 ms.
class Journal {
public:
    Journal() { Registry::registerSignalHandlers(m_signals); }

private:
    bool signalShutdown() {
        m_flush.start();
        std::puts("Journal: writing the records in hand");
        return true;
    }

    // Asked every 100 ms, up to 31 times, so the warning goes through a clamp. Nobody waits for ever: the
    // last time is the moment to say what is being lost.
    bool checkFinished(bool last) {
        if (m_flush.check(Clock::milliseconds) >= 400) {
            std::puts("Journal: all written");
            return true;
        }
        m_slow.warning("Journal: still writing");
        if (last) {
            std::puts("Journal: giving up, records are lost");
        }
        return false;
    }

    bool stopThreads() {
        std::puts("Journal: writer stopped");
        return true;
    }

    Clock m_flush{false};
    MsgClamp m_slow;
    Subsystem::Signals<Journal> m_signals{
        "Journal", *this, nullptr, &Journal::signalShutdown, &Journal::checkFinished, &Journal::stopThreads,
        nullptr,   50};
};

// Owns the buffers of the other two, and so comes last.
class BufferPool {
public:
    BufferPool() { Registry::registerSignalHandlers(m_signals); }

private:
    bool releaseMem() {
        std::puts("BufferPool: buffers freed");
        return true;
    }

    Subsystem::Signals<BufferPool> m_signals{
        "BufferPool", *this, nullptr, nullptr, nullptr, nullptr, &BufferPool::releaseMem, 10};
};

} // namespace

int main() {
    BufferPool pool;
    Journal journal;
    Listener listener;

    std::puts("main: work is done, shutting down");
    bool const ok = Registry::shutdownSubsystems();
    std::puts(ok ? "main: all is down" : "main: not everything went down");

    // Had main just returned, the exit handler would have done the same. Now it finds nothing to do.
    return ok ? 0 : 1;
}
