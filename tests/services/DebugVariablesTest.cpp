#include "vorlan/services/DebugVariables.h"

#include "vorlan/clamp/MsgClamp.h"
#include "vorlan/foundation/DebugServices.h"
#include "vorlan/lifecycle/Bridge.h"

#include <gtest/gtest.h>

#include <future>
#include <string>

using VorlanPosix::DebugVariables;

namespace {

DebuggerOn s_counted("counted", 2, "trace", "flush now (reactive)");
DebuggerOn s_paired("paired", 0xFFFFFFFF, "high", 31U, "lost", 32U, "low", 2U, nullptr);
DebuggerOn s_twin("twin", 1, "first");
DebuggerOn s_hiddenTwin("twin", 1, "second");

// Records the value it is called with, and uses the table meanwhile: a table that is locked then would abort
// the test.
struct Watcher {
    bool called(DebugRecord const& record) {
        EXPECT_EQ(DebugVariables::find(record.getName()), record.getVariable());
        value = record.getVariable()->get();
        return value != 4;
    }
    unsigned int value = 0;
    BridgeAnchor<Watcher, DebugRecord const&, bool> anchor{*this, &Watcher::called};
} s_watcher;

TEST(DebugVariables, CommandsAnswerAndWrongOnesChangeNothing) {
    s_counted.set(&s_watcher.anchor);
    s_paired.setValue(0);
    msgClampDbg.setValue(0); // brings the library's own variables into a static link as well
    char const* const rows[][2] = {
        {"set counted 4", "counted = 4 (0x4), but its hook reported a failure\n"},
        {"set counted 010", "counted = 10 (0xa)\n"},
        {"on counted flush now (reactive)", "counted = 10 (0xa)\n"},
        {"off counted 3", "counted = 2 (0x2)\n"},
        {"show  counted\r\n", "counted = 2 (0x2)\n  bit 0 off: trace\n  bit 1 on:  flush now (reactive)\n"},
        {"on paired high", "paired = 2147483648 (0x80000000)\n"},
        {"on paired 0x1E", "paired = 3221225472 (0xc0000000)\n"},
        {"show paired", "paired = 3221225472 (0xc0000000)\n  bit 31 on:  high\n  bit 2 off: low\n"},
        {"list", "LogMessage = 0 (0x0)\ncounted = 2 (0x2)\nloggingFlags = 0 (0x0)\nmsgClampDbg = 0 (0x0)\n"
                 "paired = 3221225472 (0xc0000000)\nreturnCodeTraceLevel = 0 (0x0)\ntwin = 0 (0x0)\n"
                 "twin = 0 (0x0), out of reach behind another one of its name\n"},
        {" \n", "error: there is no command; there are list, show NAME, set NAME VALUE, on NAME BIT-OR-LABEL "
                "and off NAME BIT-OR-LABEL\n"},
        {"list paired", "error: list stands alone, but \"paired\" follows it\n"},
        {"show paired now", "error: show takes one name, but \"now\" follows it\n"},
        {"set paired", "error: set needs a name and a value: set NAME VALUE\n"},
        {"set none 1", "error: there is no debug variable \"none\"\n"},
        {"set paired 1 2", "error: \"1 2\" is no number: decimal digits, or hexadecimal ones after 0x\n"},
        {"set paired 0x100000000", "error: 0x100000000 does not fit into 32 bits\n"},
        {"on paired 32", "error: there is no bit 32: the highest is 31\n"},
        {"on paired lost", "error: paired has no label \"lost\"\n"},
    };
    for (auto const& [line, answer] : rows) {
        EXPECT_EQ(DebugVariables::command(line), answer) << line;
    }
    EXPECT_EQ(s_watcher.value, 2U);
    EXPECT_EQ(s_paired.get(), 0xC0000000) << "a wrong command has changed it";
    EXPECT_FALSE(DebugVariables::change("none", 6));
    EXPECT_TRUE(s_paired.on(31) && !s_paired.on(32));
}

// Catches a read-modify-write outside the lock: one thread's bit would undo the other's.
TEST(DebugVariables, BitsOfSeveralThreadsDoNotUndoOneAnother) {
    auto const flip = [](unsigned int bit) {
        for (int i = 0; i < 600; ++i) {
            DebugVariables::command((i % 2 == 0 ? "off paired " : "on paired ") + std::to_string(bit));
            EXPECT_EQ(s_paired.on(bit), i % 2 != 0);
        }
    };
    auto other = std::async(std::launch::async, flip, 0U);
    flip(1U);
}

} // namespace
