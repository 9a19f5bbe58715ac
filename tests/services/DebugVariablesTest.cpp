#include "vorlan/services/DebugVariables.h"

#include "vorlan/foundation/DebugServices.h"
#include "vorlan/lifecycle/Bridge.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <vector>

using testing::ElementsAre;
using testing::HasSubstr;
using VorlanPosix::DebugVariables;

namespace {

// Records its calls, and uses the table meanwhile: a table that is locked then would abort the test.
class Watcher {
public:
    explicit Watcher(DebuggerOn& variable) { variable.set(&m_anchor); }

    bool called(DebugRecord const& record) {
        EXPECT_EQ(DebugVariables::find(record.getName()), record.getVariable());
        calls.push_back(record.getName() + ('=' + std::to_string(record.getVariable()->get())));
        if (clears) {
            record.getVariable()->setValue(0);
        }
        return result;
    }

    std::vector<std::string> calls;
    bool result = true;
    bool clears = false;

private:
    BridgeAnchor<Watcher, DebugRecord const&, bool> m_anchor{*this, &Watcher::called};
};

// Variables live to the end of the process, and so does what watches them.
DebuggerOn s_counted("test.counted", 3, "trace", "flush now (reactive)", "3 way");
DebuggerOn s_paired("test.paired", 0xFFFFFFFF, "high", 31u, "lost", 32u, "low", 2u, nullptr);
DebuggerOn s_bare("test.bare", 0);
DebuggerOn s_twin("test.twin", 1, "first");
DebuggerOn s_hiddenTwin("test.twin", 1, "second");
DebuggerOn s_clearing("test.clearing", 0);
DebuggerOn s_failing("test.failing", 0);
Watcher s_watcher(s_counted);
Watcher s_clearer(s_clearing);
Watcher s_failer(s_failing);

DebuggerOn* const s_all[] = {&s_counted, &s_paired, &s_bare, &s_twin, &s_hiddenTwin, &s_clearing, &s_failing};

class DebugVariablesTest : public testing::Test {
protected:
    void SetUp() override {
        for (DebuggerOn* variable : s_all) {
            variable->setValue(0);
        }
        s_watcher.calls.clear();
        s_clearer.clears = true;
        s_failer.result = false;
    }
};

std::vector<unsigned int> values() {
    std::vector<unsigned int> all;
    for (DebuggerOn const* variable : s_all) {
        all.push_back(variable->get());
    }
    return all;
}

constexpr char kCommands[] =
    "; there are list, show NAME, set NAME VALUE, on NAME BIT-OR-LABEL and off NAME BIT-OR-LABEL\n";
constexpr char kNoNumber[] = " is no number: decimal digits, or hexadecimal ones after 0x\n";

TEST_F(DebugVariablesTest, CommandsAnswerAndWrongOnesChangeNothing) {
    struct {
        char const* line;
        std::string answer;
    } const rows[] = {
        {"set test.counted 5", "test.counted = 5 (0x5)\n"},
        {" \tshow  test.counted\r\n", "test.counted = 5 (0x5)\n  bit 0 on:  trace\n  bit 1 off: flush now "
                                      "(reactive)\n  bit 2 on:  3 way\n"},
        {"on test.counted flush now (reactive)", "test.counted = 7 (0x7)\n"},
        {"off test.counted 3 way", "test.counted = 3 (0x3)\n"},
        {"off test.counted 0", "test.counted = 2 (0x2)\n"},
        {"off test.counted 0", "test.counted = 2 (0x2)\n"},
        {"on test.counted 0x1F", "test.counted = 2147483650 (0x80000002)\n"},
        {"set test.counted 010", "test.counted = 10 (0xa)\n"},
        {"set test.counted 4294967295", "test.counted = 4294967295 (0xffffffff)\n"},
        {"set test.counted 0X0000000000000000F", "test.counted = 15 (0xf)\n"},
        {"on test.paired high", "test.paired = 2147483648 (0x80000000)\n"},
        {"show test.paired", "test.paired = 2147483648 (0x80000000)\n  bit 31 on:  high\n  bit 2 off: low\n"},
        {"show test.bare", "test.bare = 0 (0x0)\n"},
        {"on test.twin first", "test.twin = 1 (0x1)\n"},
        {"set test.clearing 3", "test.clearing = 0 (0x0)\n"},
        {"set test.failing 4", "test.failing = 4 (0x4), but its hook reported a failure\n"},
        {"", std::string("error: there is no command") + kCommands},
        {" \n", std::string("error: there is no command") + kCommands},
        {"List", std::string("error: \"List\" is no command") + kCommands},
        {"list test.bare", "error: list stands alone, but \"test.bare\" follows it\n"},
        {"show", "error: show needs a name: show NAME\n"},
        {"show test.bare now", "error: show takes one name, but \"now\" follows it\n"},
        {"show test.none", "error: there is no debug variable \"test.none\"\n"},
        {"set", "error: set needs a name and a value: set NAME VALUE\n"},
        {"set test.bare", "error: set needs a name and a value: set NAME VALUE\n"},
        {"set test.none 1", "error: there is no debug variable \"test.none\"\n"},
        {"set test.bare one", std::string("error: \"one\"") + kNoNumber},
        {"set test.bare -1", std::string("error: \"-1\"") + kNoNumber},
        {"set test.bare 1 2", std::string("error: \"1 2\"") + kNoNumber},
        {"set test.bare 0x", std::string("error: \"0x\"") + kNoNumber},
        {"set test.bare 0x-1", std::string("error: \"0x-1\"") + kNoNumber},
        {"set test.bare 1e3", std::string("error: \"1e3\"") + kNoNumber},
        {"set test.bare 4294967296", "error: 4294967296 does not fit into 32 bits\n"},
        {"set test.bare 0x100000000", "error: 0x100000000 does not fit into 32 bits\n"},
        {"on test.bare", "error: on needs a name and a bit: on NAME BIT-OR-LABEL\n"},
        {"off", "error: off needs a name and a bit: off NAME BIT-OR-LABEL\n"},
        {"on test.none 1", "error: there is no debug variable \"test.none\"\n"},
        {"on test.bare 32", "error: there is no bit 32: the highest is 31\n"},
        {"on test.bare 99999999999", "error: there is no bit 99999999999: the highest is 31\n"},
        {"on test.bare -1", "error: test.bare has no label \"-1\"\n"},
        {"on test.paired lost", "error: test.paired has no label \"lost\"\n"},
        {"on test.counted flush  now (reactive)",
         "error: test.counted has no label \"flush  now (reactive)\"\n"},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.line);
        std::vector<unsigned int> const before = values();
        EXPECT_EQ(DebugVariables::command(row.line), row.answer);
        if (row.answer.substr(0, 6) == "error:") {
            EXPECT_EQ(values(), before);
        }
    }
}

TEST_F(DebugVariablesTest, AnyLineGivesAnAnswerAndAnErrorChangesNothing) {
    std::vector<std::string> const words = {"list",
                                            "show",
                                            "set",
                                            "on",
                                            "off",
                                            "test.bare",
                                            "0",
                                            "31",
                                            "32",
                                            "0xffffffff",
                                            "test.counted",
                                            "trace",
                                            "-",
                                            "\xff!",
                                            "x",
                                            "4294967296",
                                            std::string(1, '\0')};
    std::mt19937 random(20260301);
    for (int i = 0; i < 3000; ++i) {
        std::string line;
        for (auto n = random() % 5; n > 0; --n) {
            line += words[random() % words.size()] + (random() % 8 == 0 ? "" : " ");
        }
        std::vector<unsigned int> const before = values();
        std::string const answer = DebugVariables::command(line);
        ASSERT_FALSE(answer.empty()) << line;
        ASSERT_EQ(answer.back(), '\n') << line;
        if (answer.substr(0, 6) == "error:") {
            ASSERT_EQ(values(), before) << line;
        }
    }
}

TEST_F(DebugVariablesTest, ListIsSortedAndTellsWhatIsOutOfReach) {
    s_hiddenTwin.setValue(9);
    EXPECT_THAT(DebugVariables::command("list"),
                HasSubstr("test.bare = 0 (0x0)\n"
                          "test.clearing = 0 (0x0)\n"
                          "test.counted = 0 (0x0)\n"
                          "test.failing = 0 (0x0)\n"
                          "test.paired = 0 (0x0)\n"
                          "test.twin = 0 (0x0)\n"
                          "test.twin = 9 (0x9), out of reach behind another one of its name\n"));
    for (DebugVariables::Variable const& variable : DebugVariables::list()) {
        if (variable.variable == &s_paired) {
            ASSERT_EQ(variable.labels.size(), 2u) << "the label of a bit that is not there must be left out";
            EXPECT_STREQ(variable.labels[1].text, "low");
            EXPECT_EQ(variable.labels[1].bit, 2u);
        }
    }
}

TEST_F(DebugVariablesTest, ChangeStoresThenCallsTheHook) {
    EXPECT_TRUE(DebugVariables::change("test.counted", 6));
    DebugVariables::command("on test.counted trace");
    s_counted.setValue(1); // from inside: no hook
    EXPECT_THAT(s_watcher.calls, ElementsAre("test.counted=6", "test.counted=7"));

    EXPECT_TRUE(DebugVariables::change("test.bare", 6)) << "without a hook";
    EXPECT_TRUE(DebugVariables::change("test.failing", 6)) << "with a hook that fails";
    EXPECT_FALSE(DebugVariables::change("test.none", 6));
    EXPECT_FALSE(DebugVariables::change(nullptr, 6));
    EXPECT_EQ(DebugVariables::find("test.twin"), &s_twin);
    EXPECT_EQ(DebugVariables::find("test"), nullptr);
    EXPECT_EQ(DebugVariables::find(nullptr), nullptr);

    EXPECT_FALSE(s_counted.on(1));
    s_counted.setValue(0x80000000);
    EXPECT_TRUE(s_counted.on(31));
    EXPECT_FALSE(s_counted.on(32));
}

// Catches a hook that is carried over from a variable that is no more, and a table that keeps both.
TEST_F(DebugVariablesTest, VariableInTheStorageOfAnotherTakesItsPlace) {
    alignas(DebuggerOn) static unsigned char s_storage[sizeof(DebuggerOn)];
    auto* const first = new (s_storage) DebuggerOn("test.zfirst", 0);
    static auto* const s_watching = new Watcher(*first);
    auto* const second = new (s_storage) DebuggerOn("test.zsecond", 0);
    EXPECT_EQ(DebugVariables::find("test.zfirst"), nullptr);
    EXPECT_EQ(DebugVariables::find("test.zsecond"), second);
    EXPECT_TRUE(DebugVariables::change("test.zsecond", 1));
    EXPECT_THAT(s_watching->calls, ElementsAre());
}

// Catches a read-modify-write outside the lock: one thread's bit would undo the other's.
TEST_F(DebugVariablesTest, BitsOfSeveralThreadsDoNotUndoOneAnother) {
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            std::string const bit = std::to_string(t);
            for (int i = 0; i < 300; ++i) {
                DebugVariables::command("off test.bare " + bit);
                EXPECT_FALSE(s_bare.on(static_cast<unsigned int>(t)));
                DebugVariables::command("on test.bare " + bit);
                EXPECT_TRUE(s_bare.on(static_cast<unsigned int>(t)));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(s_bare.get(), 0xFu);
}

} // namespace
