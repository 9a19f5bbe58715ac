// The library at the edges of real processes: their whole stderr, from the first constructor to the last
// destructor.

#include "tests/support/ChildProcess.h"

#include <gtest/gtest.h>

namespace {

std::string const kStart =
    "Registering subsystem: MsgClampInternal(0x#){stopThreads=0x#,p=50}{releaseMem=0x#,p=50}\n"
    "a site works before the library's objects are built\n"
    "function returned NULL at early.c(1)\n"
    "main, msgClampDbg 8\n";

std::string const kShutdown = "Subsystem::Registry::shutdownSubsystems() started\n"
                              "|-- Subsystem::Registry::shutdownSubsystems() signalling shutdown\n"
                              "|       signal shutdown -> MsgClampInternal(0x#)\n"
                              "|-- Subsystem::Registry::shutdownSubsystems() letting subsystems settle\n"
                              "|       checking settled status -> MsgClampInternal(0x#)\n"
                              "|       checking settled status -> MsgClampInternal(0x#)\n"
                              "|       checking settled status -> MsgClampInternal(0x#)\n"
                              "|-- Subsystem::Registry::shutdownSubsystems() stopping threads\n"
                              "|       stop threads -> MsgClampInternal(0x#)\n"
                              "|-- Subsystem::Registry::shutdownSubsystems() releasing memory\n"
                              "|       release memory -> MsgClampInternal(0x#)\n"
                              "`-- Subsystem::Registry::shutdownSubsystems() finished\n";

std::string const kAlreadyDown = "Subsystem::Registry::shutdownSubsystems() started\n"
                                 "|-- Subsystems not initialized\n"
                                 "`-- Subsystem::Registry::shutdownSubsystems() finished\n";

std::string burst() {
    std::string lines;
    for (int i = 0; i < 15; ++i) {
        lines += "tick " + std::to_string(i) + "\n";
    }
    return lines + "[drop...] tick 15\n";
}

struct Life {
    char const* word;
    std::string inMain;
    std::string atExit; // by the exit handler
    std::string late;   // from the destructor that comes last
    int status = 0;     // of the process
};

void PrintTo(Life const& life, std::ostream* out) {
    *out << life.word;
}

std::string const kCancelled = "BridgeHook(0x#) is invalid; callback cancelled\n";

Life const kLives[] = {
    {"nothing", "", kShutdown, ""},
    {"close", burst(), kShutdown, ""},
    {"closeAfterShutdown", kShutdown + burst() + "closed and stopped\n", kAlreadyDown, ""},
    {"exit", kShutdown, kAlreadyDown, "", 7},
    {"lateMessages", "", kShutdown,
     "a site works after the library's objects are gone\nfunction returned 3 at late.c(2)\n"},
    {"lateChange", "", kShutdown, kCancelled + kCancelled},
    {"lateClose", "", kShutdown, burst()},
};

class ProcessLifeTest : public ::testing::TestWithParam<Life> {
protected:
    static ChildResult live(char const* program) {
        ChildResult result = runChild({program, GetParam().word}, {"", {{"VRSSRLOG", ""}}, {}});
        result.err = maskAddresses(result.err);
        EXPECT_EQ(result.exitCode, GetParam().status) << "signal " << result.signal;
        return result;
    }
};

std::string const kOuterEnds = "the outer object ends\nUnregistering subsystem: Outer(0x#)\n";
std::string const kOutermostEnds = "the outermost object ends\n";

TEST_P(ProcessLifeTest, StaticLinkFromFirstConstructorToLastDestructor) {
    Life const& life = GetParam();
    EXPECT_EQ(live(AT_EXIT_STATIC).err,
              kStart + life.inMain + kOuterEnds + life.atExit + life.late + kOutermostEnds);
}

// A shared library is loaded whole before the program's own objects are built and ends after them: "late"
// comes before its exit handler, and finds its hooks alive.
TEST_P(ProcessLifeTest, SharedLinkFromFirstConstructorToLastDestructor) {
    Life const& life = GetParam();
    std::string const late = life.late == kCancelled + kCancelled ? "short error\nshort error\n" : life.late;
    EXPECT_EQ(live(AT_EXIT_SHARED).err,
              kStart + life.inMain + kOuterEnds + late + kOutermostEnds + life.atExit);
}

INSTANTIATE_TEST_SUITE_P(Lives, ProcessLifeTest, ::testing::ValuesIn(kLives),
                         [](auto const& life) { return std::string(life.param.word); });

TEST(ProcessEndTest, ElevenBadCountsAreReported) {
    std::string expected = "main, msgClampDbg 8\nRefCount::dtor: 0\nRefCount::release: -1\n";
    for (int i = 2; i < 11; ++i) {
        expected += "RefCount::<unknown>: -" + std::to_string(i) + "\n";
    }
    std::string const err = runChild({AT_EXIT_STATIC, "badCounts"}, {"", {}, {"VRSSRLOG"}}).err;
    EXPECT_EQ(err.substr(err.find("main,")), expected);
}

TEST(ProcessEndTest, ManagerEndsOnceAndUnregistersWithNoSiteLeft) {
    ChildResult const result = runChild({AT_EXIT_STATIC, "endOfManager"}, {"", {{"VRSSRLOG", "1"}}, {}});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.err.find("Unregistering subsystem: MsgClampInternal"), std::string::npos) << result.err;
}

// Each load leaves the clamp manager and the table of debug variables behind, which live as long as the
// process: about 1.5 KB, which the leak check of the address sanitizer is not to count.
TEST(ProcessEndTest, LibraryCanBeLoadedUsedAndClosedAgainAndAgain) {
    ChildResult const result = runChild({RELOAD_PROGRAM, VORLAN_SHARED_LIBRARY},
                                        {"", {{"ASAN_OPTIONS", "detect_leaks=0"}}, {"VRSSRLOG"}});
    std::string expected;
    for (int i = 0; i < 10; ++i) {
        expected += "passed 16, threads +1, then +0, unloaded\n";
    }
    EXPECT_EQ(result.out, expected) << result.err;
    EXPECT_EQ(result.exitCode, 0) << "signal " << result.signal;
}

} // namespace
