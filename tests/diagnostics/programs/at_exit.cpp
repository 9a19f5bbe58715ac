// Uses the library at the edges of a process's life. The word says what happens, in main or after it.

#include "vorlan/clamp/MsgClamp.h"
#include "vorlan/clamp/MsgClampInternal.h"
#include "vorlan/diagnostics/RefCount.h"
#include "vorlan/diagnostics/ReturnCodes.h"
#include "vorlan/diagnostics/System.h"
#include "vorlan/lifecycle/Subsystem.h"
#include "vorlan/services/DebugVariables.h"
#include "vorlan/services/Messages.h"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

std::string* word = new std::string; // never destroyed: destructors of static objects read it

bool is(char const* what) {
    return *word == what;
}

// Messages without a time of day, so that the whole of stderr can be compared.
bool plain(VorlanPosix::MessageKind /*kind*/, char const* fmt, va_list args) {
    std::vfprintf(stderr, fmt, args);
    return true;
}

void closeASite(MsgClamp& site) {
    for (int i = 0; i < 17; ++i) {
        site.info("tick %d\n", i);
    }
}

MsgClamp* lateSite = nullptr; // made in main

// Uses the library for the last time after everything else is gone, the registry included: it is built before
// the library has done anything.
class Outermost {
public:
    Outermost() { VorlanPosix::setMessageHandler(plain); }
    ~Outermost() {
        if (is("lateMessages")) {
            lateSite->info("a site works after the library's objects are gone\n");
            logError(3, "f", "late.c", 2);
        } else if (is("lateChange")) {
            for (int i = 0; i < 2; ++i) {
                VorlanPosix::DebugVariables::change("LogMessage", 8);
            }
        } else if (is("lateClose")) {
            closeASite(*lateSite);
        }
        delete lateSite;
        std::fprintf(stderr, "the outermost object ends\n");
    }
    Outermost(Outermost const&) = delete;
    Outermost& operator=(Outermost const&) = delete;
};

// Linked before the library, so that in a static link it is built before its objects and ends after them.
class Outer {
public:
    Outer() {
        m_site.info("a site works before the library's objects are built\n");
        logNull("f", "early.c", 1);
        msgClampDbg.setValue(8);
    }
    ~Outer() { std::fprintf(stderr, "the outer object ends\n"); }
    Outer(Outer const&) = delete;
    Outer& operator=(Outer const&) = delete;

private:
    MsgClamp m_site;
    Subsystem::Signals<Outer> m_signals{"Outer", *this, nullptr, nullptr, nullptr, nullptr, nullptr, 90};
};

Outermost outermost;
Outer outer;

} // namespace

int main(int argc, char** argv) {
    *word = argc > 1 ? argv[1] : "";
    std::fprintf(stderr, "main, msgClampDbg %u\n", msgClampDbg.get());
    msgClampDbg.setValue(0);
    static MsgClamp site;
    lateSite = new MsgClamp;
    if (is("close")) {
        closeASite(site);
    } else if (is("closeAfterShutdown")) {
        Subsystem::Registry::shutdownSubsystems();
        closeASite(site);
        MsgClampInternal::getRef().stopThreadsCb(); // waits for a thread that really runs
        std::fprintf(stderr, "closed and stopped\n");
    } else if (is("exit")) {
        System::exit(7);
    } else if (is("badCounts")) {
        for (int i = 0; i < 12; ++i) {
            RefCount().notifyBadCount(static_cast<RefCount::Where>(i < 2 ? i : 7), -i);
        }
        std::fflush(stderr);
        std::_Exit(0);
    } else if (is("endOfManager")) {
        // The one way in which the manager ends: nothing is registered any more, and the process ends without
        // destructors.
        MsgClampInternal::getRef().releaseMemCb();
        MsgClampInternal::getRef().shutdown();
        std::_Exit(0);
    }
    return 0;
}
