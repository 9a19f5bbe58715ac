// What happens to the participants when a process ends, on real processes: everything that they write.

#include "tests/lifecycle/RegistryOutput.h"
#include "tests/support/ChildProcess.h"

#include <gtest/gtest.h>

#include <csignal>
#include <future>
#include <string>
#include <vector>

namespace {

std::string const kStart = "Subsystem::Registry::initSubsystems() started\n"
                           "|-- Subsystems already initialized\n"
                           "`-- Subsystem::Registry::initSubsystems() finished\n";
std::string const kOpening = "Subsystem::Registry::shutdownSubsystems() started\n";
std::string const kSignalling = "|-- Subsystem::Registry::shutdownSubsystems() signalling shutdown\n";
std::string const kSettling = "|-- Subsystem::Registry::shutdownSubsystems() letting subsystems settle\n";
std::string const kStopping = "|-- Subsystem::Registry::shutdownSubsystems() stopping threads\n";
std::string const kReleasing = "|-- Subsystem::Registry::shutdownSubsystems() releasing memory\n";
std::string const kFinished = "`-- Subsystem::Registry::shutdownSubsystems() finished\n";
std::string const kFailed = "`-- Subsystem::Registry::shutdownSubsystems() failed\n";
std::string const kIsDown = kOpening + "|-- Subsystems not initialized\n" + kFinished;
std::string const kNobody = kOpening + kSignalling + kSettling + kStopping + kReleasing + kFinished;
std::string const kLockedTwice =
    "VorlanPosix::JMutex: a thread locks a mutex that it holds already (does a message sink use a MsgClamp, "
    "or "
    "a phase callback call initSubsystems, shutdownSubsystems or System::exit?); aborting\n";

// The long text of an engine, and a shutdown that calls it.
std::string engine(std::string const& name) {
    return name + "(@){signalShutdown=@,p=50}{stopThreads=@,p=50}\n";
}
std::string shutdownOf(std::string const& name) {
    std::string const polls = "|       checking settled status -> " + name + "(@)\n";
    return kOpening + kSignalling + "|       signal shutdown -> " + name + "(@)\ntold\n" + kSettling + polls +
           polls + polls + kStopping + "|       stop threads -> " + name + "(@)\nstopped\n" + kReleasing +
           "|       release memory -> " + name + "(@)\n" + kFinished;
}

struct Exit {
    std::vector<std::string> words;
    char const* log; // VRSSRLOG, or null for unset
    int exitCode;
    int signal;
    std::string err;
};

ChildResult run(Exit const& way) {
    ChildInput input;
    if (way.log != nullptr) {
        input.environment["VRSSRLOG"] = way.log;
    } else {
        input.unset = {"VRSSRLOG"};
    }
    return runChild(way.words, input);
}

// All ways at the same time: a clean shutdown waits 300 ms of real time.
void expectAll(std::vector<Exit> const& ways) {
    std::vector<std::future<ChildResult>> results;
    results.reserve(ways.size());
    for (Exit const& way : ways) {
        results.push_back(std::async(std::launch::async, run, way));
    }
    for (std::size_t i = 0; i < ways.size(); ++i) {
        ChildResult const result = results[i].get();
        SCOPED_TRACE(ways[i].words.back() + (ways[i].log != nullptr ? ", VRSSRLOG set" : ""));
        EXPECT_EQ(normalized(result.err), ways[i].err);
        EXPECT_EQ(result.exitCode, ways[i].exitCode);
        EXPECT_EQ(result.signal, ways[i].signal);
        EXPECT_EQ(result.out, "");
    }
}

TEST(Exit, EveryWayOutStopsWhatIsUp) {
    std::string const known = "Registering subsystem: " + engine("Engine");
    std::string const signalFailed =
        kOpening + kSignalling + "|       signal shutdown -> Engine(@)\ntold\n" +
        "Subsystem::Registry::shutdownSubsystems(), signal failed (Engine(@))\n" + kFailed;
    std::vector<Exit> ways{
        {{EXITS, "returns"}, nullptr, 3, 0, "told\nstopped\n"},
        {{EXITS, "returns"}, "1", 3, 0, known + shutdownOf("Engine")},
        {{EXITS, "returns"}, "", 3, 0, known + shutdownOf("Engine")},
        {{EXITS, "variableSetTooLate"}, nullptr, 0, 0, "told\nstopped\n"},
        {{EXITS, "exits"}, "", 4, 0, known + shutdownOf("Engine")},
        {{EXITS, "exitsFromThread"}, "", 5, 0, known + shutdownOf("Engine")},
        {{EXITS, "isDown"}, "", 0, 0, known + shutdownOf("Engine") + kIsDown},
        {{EXITS, "failedToShutDown"}, "", 0, 0, known + signalFailed + shutdownOf("Engine")},
        {{EXITS, "failedToShutDown"},
         nullptr,
         0,
         0,
         "told\nSubsystem::Registry::shutdownSubsystems(), signal failed (Engine(@))\ntold\nstopped\n"},
        {{EXITS, "startedTwice"},
         "",
         0,
         0,
         known + kStart +
             "Subsystem::Registry::initSubsystems() started\n"
             "|-- Ref count == 2, subsystems already initialized\n"
             "`-- Subsystem::Registry::initSubsystems() finished\n" +
             kOpening + "|-- Ref count == 1, skipping shutdown\n" + kFinished},
        {{EXITS, "ownerGoesBefore"},
         "",
         0,
         0,
         "Registering subsystem: " + engine("Short") + "Unregistering subsystem: " + engine("Short") +
             kNobody},
        {{FILE_SCOPE},
         "",
         0,
         0,
         "Registering subsystem: First(@){stopThreads=@,p=0}\n"
         "Registering subsystem: Second(@){stopThreads=@,p=0}\n"
         "Unregistering subsystem: First(@){stopThreads=@,p=0}\n" +
             kOpening + kSignalling + "|       signal shutdown -> Second(@)\n" + kSettling +
             "|       checking settled status -> Second(@)\n"
             "|       checking settled status -> Second(@)\n"
             "|       checking settled status -> Second(@)\n" +
             kStopping + "|       stop threads -> Second(@)\nstopped\n" + kReleasing +
             "|       release memory -> Second(@)\n" + kFinished},
    };
    if (!VORLAN_SHARED) { // in a shared build the library has registered its own before main
        ways.push_back({{EXITS, "nobodyRegistered"}, "", 0, 0, kStart});
        ways.push_back({{EXITS, "ownerGoesAfter"},
                        "",
                        0,
                        0,
                        "Registering subsystem: " + engine("Long") + shutdownOf("Long") +
                            "Unregistering subsystem: " + engine("Long") + "late runs: 1 1\n"});
    }
    expectAll(ways);
}

// A phase that starts, stops or exits would wait for its own run: it ends with one line instead of a hang.
TEST(Exit, PhaseThatCallsBackEndsInOneLine) {
    expectAll({
        {{EXITS, "startsInPhase"}, nullptr, -1, SIGABRT, kLockedTwice},
        {{EXITS, "stopsInPhase"}, nullptr, -1, SIGABRT, kLockedTwice},
        {{EXITS, "exitsInPhase"}, nullptr, -1, SIGABRT, kLockedTwice},
    });
}

} // namespace
