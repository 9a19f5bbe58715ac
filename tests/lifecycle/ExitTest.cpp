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
    std::string way; // an argument of the program "exits", or empty for the program "file_scope"
    char const* log; // VRSSRLOG, or null for unset
    std::string err;
    int exitCode = 0;
    int signal = 0;
};

ChildResult run(Exit const& exit) {
    ChildInput input;
    if (exit.log != nullptr) {
        input.environment["VRSSRLOG"] = exit.log;
    } else {
        input.unset = {"VRSSRLOG"};
    }
    return exit.way.empty() ? runChild({FILE_SCOPE}, input) : runChild({EXITS, exit.way}, input);
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
        SCOPED_TRACE(ways[i].way + (ways[i].log != nullptr ? ", VRSSRLOG set" : ""));
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
        {"returns", nullptr, "told\nstopped\n", 3},
        {"returns", "1", known + shutdownOf("Engine"), 3},
        {"returns", "", known + shutdownOf("Engine"), 3},
        {"variableSetTooLate", nullptr, "told\nstopped\n"},
        {"exits", "", known + shutdownOf("Engine"), 4},
        {"exitsFromThread", "", known + shutdownOf("Engine"), 5},
        {"isDown", "", known + shutdownOf("Engine") + kIsDown},
        {"failedToShutDown", "", known + signalFailed + shutdownOf("Engine")},
        {"failedToShutDown", nullptr,
         "told\nSubsystem::Registry::shutdownSubsystems(), signal failed (Engine(@))\ntold\nstopped\n"},
        {"startedTwice", "",
         known + kStart +
             "Subsystem::Registry::initSubsystems() started\n"
             "|-- Ref count == 2, subsystems already initialized\n"
             "`-- Subsystem::Registry::initSubsystems() finished\n" +
             kOpening + "|-- Ref count == 1, skipping shutdown\n" + kFinished},
        {"ownerGoesBefore", "",
         "Registering subsystem: " + engine("Short") + "Unregistering subsystem: " + engine("Short") +
             kNobody},
        {"", "",
         "Registering subsystem: " + engine("First") + "Registering subsystem: " + engine("Second") +
             "Unregistering subsystem: " + engine("First") + shutdownOf("Second")},
    };
    if (!VORLAN_SHARED) { // in a shared build the library has registered its own before main
        ways.push_back({"nobodyRegistered", "", kStart});
        ways.push_back({"ownerGoesAfter", "",
                        "Registering subsystem: " + engine("Long") + shutdownOf("Long") +
                            "Unregistering subsystem: " + engine("Long") + "late runs: 1 1\n"});
    }
    expectAll(ways);
}

// A phase that starts, stops or exits would wait for its own run: it ends with one line instead of a hang.
TEST(Exit, PhaseThatCallsBackEndsInOneLine) {
    expectAll({
        {"startsInPhase", nullptr, kLockedTwice, -1, SIGABRT},
        {"stopsInPhase", nullptr, kLockedTwice, -1, SIGABRT},
        {"exitsInPhase", nullptr, kLockedTwice, -1, SIGABRT},
    });
}

} // namespace
