#include "tests/support/RecordingSinks.h"
#include "tests/support/VirtualTime.h"

#include "vorlan/clamp/MsgClamp.h"
#include "vorlan/clamp/MsgClampInternal.h"
#include "vorlan/diagnostics/DLinkedList.h"
#include "vorlan/diagnostics/DebugActions.h"
#include "vorlan/diagnostics/ReturnCodes.h"
#include "vorlan/diagnostics/System.h"
#include "vorlan/services/DebugVariables.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <thread>

namespace {

using Lines = std::vector<std::string>;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using VorlanPosix::DebugVariables;

class DiagnosticsTest : public ::testing::Test {
protected:
    void SetUp() override {
        VirtualTime::reset();
        RecordingSinks::reset();
        setDbgLogLevel(0);
        freshClamps();
    }
    void TearDown() override {
        msgClampDbg.setValue(0);
        setDbgLogLevel(0);
        stopFlusher();
    }
    static void stopFlusher() { MsgClampInternal::getRef().stopThreadsCb(); }

    // Lets the sites that live as long as the process start afresh: quiet for longer than two minutes.
    static void freshClamps() {
        stopFlusher();
        VirtualTime::advanceMs(++s_moment * 1'000'000);
        MsgClamp::flushAll();
        RecordingSinks::take();
    }
    static inline int s_moment = 0; // time starts over with each test, the sites don't
};

constexpr unsigned int kDisable = 1u << 30;
constexpr unsigned int kNoLines = 1u << 1;

TEST_F(DiagnosticsTest, ReturnCodesShowPlaceAndLineByTheLevel) {
    struct Row {
        unsigned int level;
        char const* file;
        std::string place; // none: no message
    };
    Row const rows[] = {
        {0, "/a/b/c.cpp", "c.cpp(12)"},    {1, "a\\b\\c.cpp", "c.cpp(12)"},      {kNoLines, "c.cpp", "c.cpp"},
        {kNoLines, "a\\b/c.cpp", "c.cpp"}, {kNoLines, "a/b\\c.cpp", "b\\c.cpp"}, {0, "a/", "(12)"},
        {kDisable, "c.cpp", ""},           {kDisable | kNoLines, "c.cpp", ""},
    };
    unsigned int before = 0;
    for (Row const& row : rows) {
        freshClamps();
        EXPECT_EQ(setDbgLogLevel(row.level), before);
        before = row.level;
        logNull(nullptr, row.file, 12);
        logFalse("name", row.file, 12);
        logError(5, "name", row.file, 12);
        Lines expected;
        for (char const* what : {"NULL", "false", "5"}) {
            if (!row.place.empty()) {
                expected.push_back("debugMsgVar: function returned " + (what + (" at " + row.place)) + "\n");
            }
        }
        EXPECT_EQ(RecordingSinks::takeLines(), expected) << row.file << " at level " << row.level;
    }
}

// One clamp for all three: sixteen of any mixture pass, from however many threads, and the rest is counted.
TEST_F(DiagnosticsTest, StormOfTracesFallsUnderOneClamp) {
    std::thread threads[3];
    for (int t = 0; t < 3; ++t) {
        threads[t] = std::thread([t] {
            for (unsigned int i = 0; i < 100; ++i) {
                t == 0   ? logNull("f", "n.c", i)
                : t == 1 ? logFalse("f", "f.c", i)
                         : logError(-1, "f", "e.c", i);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(RecordingSinks::take().size(), 16u);
    MsgClamp::flushAll();
    Lines const lines = RecordingSinks::takeLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_THAT(lines[0], ::testing::StartsWith("debugMsg: [283 delayed 00:00:00] function returned "));
}

TEST_F(DiagnosticsTest, LoggingFlagsGoToTheMessageService) {
    EXPECT_TRUE(DebugVariables::change("loggingFlags", 3));
    EXPECT_EQ(RecordingSinks::lastFlags(), 3u);
    EXPECT_THAT(RecordingSinks::takeLines(), IsEmpty());
    EXPECT_TRUE(DebugVariables::change("loggingFlags", 7));
    EXPECT_EQ(RecordingSinks::lastFlags(), 7u);
    EXPECT_THAT(RecordingSinks::takeLines(), ElementsAre("debugMsg: loggingFlags=7\n"));
    EXPECT_EQ(DebugVariables::find("loggingFlags")->get(), 7u) << "it keeps its value";
}

TEST_F(DiagnosticsTest, SampleMessagesGoOutInTheOrderOfTheirBits) {
    std::string numbers;
    for (int i = 1; i <= 30; ++i) {
        char field[16];
        snprintf(field, sizeof field, "%10d%s", i, i == 3 || i == 30 ? "\n" : "");
        numbers += field;
    }
    DebuggerOn* const variable = DebugVariables::find("LogMessage");
    ASSERT_NE(variable, nullptr);
    EXPECT_TRUE(DebugVariables::change("LogMessage", 0xFF));
    EXPECT_EQ(variable->get(), 0u);
    std::string const segment =
        "{align=2621440b@524288,req=30312b@3115416,buf=obuf[1]={sid=0},inLocalCache,cpy=t}";
    std::string const head = "f1153I=t6459/a1150/s250276:6/n1/r8/in/rdy/";
    std::string const first = "BIO(0x2a43a80).extractSegs: (fnd=2)+(!fnd=0)!=(rclsz=3): rcList[3]={" +
                              segment + "," + segment + "," + segment + "}\n";
    std::string const second = "[340 delayed 00:01:00] p0rec_31.td2x.sub: ht12381114/t6502/blk,repl " + head +
                               "6of6/gi:59819,rl:1,rr:6113,fs:151722,pm:-153989,dur:531230 w/ " + head;
    EXPECT_EQ(first.size(), 315u);
    EXPECT_EQ(second.size(), 214u);
    EXPECT_THAT(RecordingSinks::takeLines(),
                ElementsAre("errorMsg: " + numbers, "infoMsg: " + numbers, "warningMsg: " + numbers,
                            "errorMsg: short error\n", "infoMsg: short info\n", "warningMsg: short warning\n",
                            "debugMsg: " + first, "debugMsg: " + second));
    EXPECT_TRUE(DebugVariables::change("LogMessage", 0x100));
    EXPECT_THAT(RecordingSinks::takeLines(), IsEmpty());
    EXPECT_EQ(variable->get(), 0u);
}

TEST_F(DiagnosticsTest, RecordsOfOtherVariablesAreIgnored) {
    struct Record : DebugRecord {
        char const* getName() const override { return "other"; }
        DebuggerOn* getVariable() const override { return &msgClampDbg; }
    };
    // Variables stay in the table for good, so that these stay alive as well.
    static LoggingFlags flags;
    static LogMessageDbg samples;
    flags.setValue(4);
    samples.setValue(0xFF);
    EXPECT_TRUE(flags.debugCb(Record{}));
    EXPECT_TRUE(samples.debugCb(Record{}));
    EXPECT_THAT(RecordingSinks::takeLines(), IsEmpty());
    EXPECT_EQ(samples.get(), 0xFFu);
}

TEST_F(DiagnosticsTest, ClampBitsFlushFirstThenTestBothPaths) {
    MsgClamp site;
    for (int i = 0; i < 17; ++i) {
        site.info("held\n");
    }
    stopFlusher();
    RecordingSinks::take();
    EXPECT_TRUE(DebugVariables::change("msgClampDbg", 0));
    EXPECT_THAT(RecordingSinks::takeLines(), IsEmpty());
    EXPECT_TRUE(DebugVariables::change("msgClampDbg", 7));
    using ::testing::StartsWith;
    EXPECT_THAT(RecordingSinks::takeLines(), ElementsAre("infoMsg: [0 delayed 00:00:00] held\n",
                                                         StartsWith("errorMsgVar: MsgClamp c++ test #"),
                                                         StartsWith("errorMsg: MsgClamp c test #")));
    EXPECT_EQ(msgClampDbg.get(), 7u) << "bits stay until they are changed";
    EXPECT_EQ(DebugVariables::command("set msgClampDbg 8").rfind("error", 0), std::string::npos);
    for (int i = 0; i < 100; ++i) {
        site.error("unclamped\n");
    }
    EXPECT_EQ(RecordingSinks::take().size(), 100u);
}

// What the two tests have in common, and where their numbers differ: what was refused is missing in one and
// not counted in the other.
TEST_F(DiagnosticsTest, TestNumbersJumpOnOnePathAndRunOnOnTheOther) {
    auto const numberIn = [](std::string const& line) { return std::stoi(line.substr(line.find('#') + 1)); };
    struct Row {
        unsigned int bits;
        int step; // from the 16th message to the one after the next grant, over four refused ones
        char const* atGrant;
    };
    Row const rows[] = {{2, 5, "errorMsg: [3 delayed 00:00:02] MsgClamp c++ test #"},
                        {1, 1, "errorMsg: [4 delayed 00:00:02] MsgClamp c test #"}};
    for (Row const& row : rows) {
        freshClamps();
        for (int i = 0; i < 20; ++i) {
            EXPECT_TRUE(DebugVariables::change("msgClampDbg", row.bits));
            stopFlusher();
        }
        Lines const burst = RecordingSinks::takeLines();
        ASSERT_EQ(burst.size(), 16u);
        EXPECT_EQ(numberIn(burst[15]), numberIn(burst[0]) + 15);
        EXPECT_THAT(burst[15], ::testing::HasSubstr("[drop...] "));
        VirtualTime::advanceMs(1000);
        EXPECT_TRUE(DebugVariables::change("msgClampDbg", row.bits));
        Lines const grant = RecordingSinks::takeLines();
        ASSERT_FALSE(grant.empty());
        EXPECT_THAT(grant.front(), ::testing::StartsWith(row.atGrant));
        EXPECT_EQ(numberIn(grant.back()), numberIn(burst[15]) + row.step);
    }
}

TEST_F(DiagnosticsTest, ListErrorsAndHelpers) {
    DLinkedListBase list;
    DLinkNodeBase node;
    list.trace(static_cast<DLinkedListBase::Action>(1), node);
    list.listError(node, static_cast<DLinkedListBase::Error>(7));
    char expected[64];
    snprintf(expected, sizeof expected, "errorMsg: dll: err=7, node=%p\n", static_cast<void*>(&node));
    EXPECT_THAT(RecordingSinks::takeLines(), ElementsAre(expected));

    for (char const* text : {static_cast<char const*>(nullptr), "", "some text"}) {
        std::unique_ptr<char[]> const copy(System::copy(text));
        EXPECT_STREQ(copy.get(), text == nullptr ? "" : text);
        EXPECT_NE(copy.get(), text);
    }

    System::msSleep(12);
    EXPECT_THAT(VirtualTime::driverSleeps(), ElementsAre(12u));

    // Seeded once and not at each call, which would give the same number again and again.
    std::set<int> numbers;
    for (int i = 0; i < 10; ++i) {
        numbers.insert(System::getRandom());
    }
    EXPECT_GT(numbers.size(), 1u);
}

} // namespace
