#include "tests/clamp/ClampFixture.h"
#include "tests/support/CountingNew.h"

#include "vorlan/clamp/MsgClampC.h"
#include "vorlan/foundation/MessageServices.h"

#include <functional>
#include <random>

extern "C" bool sendFromC(MsgClamp** site, int number);

namespace {

using Lines = std::vector<std::string>;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class MsgClampTest : public ClampTest {};

// One flood from its first message to the flusher's line: any slip in budget, grant, count or time shows
// here.
TEST_F(MsgClampTest, FloodOfTwoMinutesIsThinnedAndReleased) {
    struct Row {
        int untilMs; // messages every 10 ms, up to and without this moment
        Lines log;
    };
    auto const ticks = [](int from, int to) {
        Lines lines;
        for (int i = from; i <= to; ++i) {
            lines.push_back("errorMsgVar: tick " + std::to_string(i) + "\n");
        }
        return lines;
    };
    Row const rows[] = {
        {150, ticks(1, 15)},
        {160, {"errorMsgVar: [drop...] tick 16\n"}},
        {1000, {}},
        {1010, {"errorMsg: [83 delayed 00:00:01] tick 100\n", "errorMsgVar: tick 101\n"}},
        {1070, ticks(102, 107)},
        {1080, {"errorMsgVar: [drop...] tick 108\n"}},
        {60000, {}},
        {60010, {"errorMsg: [5891 delayed 00:01:00] tick 6000\n", "errorMsgVar: tick 6001\n"}},
        {60030, ticks(6002, 6003)},
        {60040, {"errorMsgVar: [drop...] tick 6004\n"}},
        {130000, {}},
    };
    MsgClamp site;
    int nowMs = 0;
    int number = 0;
    for (Row const& row : rows) {
        for (; nowMs < row.untilMs; nowMs += 10) {
            site.error("tick %d\n", ++number);
            if (number == 16) {
                VirtualTime::awaitSleepers(1); // the flusher runs from here on
            }
            VirtualTime::advanceMs(10);
        }
        EXPECT_EQ(RecordingSinks::takeLines(), row.log) << "before " << row.untilMs << " ms";
    }
    // The flusher looks 30 s apart from 0.15 s on: at 240.15 s the site has been quiet for 110.16 s.
    VirtualTime::advanceMs(270149 - nowMs);
    EXPECT_THAT(RecordingSinks::takeLines(), IsEmpty());
    VirtualTime::advanceMs(1);
    EXPECT_THAT(RecordingSinks::takeLines(), ElementsAre("errorMsg: [6995 delayed 00:04:30] tick 13000\n"));
    site.error("again\n");
    EXPECT_THAT(RecordingSinks::takeLines(), ElementsAre("errorMsgVar: again\n"));
}

// How many of a crowd of messages at one moment pass, after each silence. Boundaries off by one show here.
TEST_F(MsgClampTest, GrantsAndResetsComeAtTheirExactMillisecond) {
    struct Step {
        int silenceMs;
        int passed;
        int times = 1;
    };
    std::vector<Step> const rows[] = {
        {{0, 16}, {990, 0}, {9, 0}, {1, 8}, {58999, 0}, {1, 4}},
        {{0, 16}, {990, 0}, {10, 8}},
        {{0, 16},
         {100000, 8},
         {0, 0},
         {59000, 4}}, // one grant point in one decision, however long the silence
        {{0, 16}, {120000, 8}},
        {{0, 16}, {120001, 16}},
        // A flood with its hourly grants: the burst goes back to one hour at each.
        {{0, 16},
         {1000, 8},
         {59000, 4},
         {118000, 0, 29},
         {117999, 0},
         {1, 2},
         {120000, 0, 29},
         {119999, 0},
         {1, 2},
         {120000, 0, 29},
         {119999, 0},
         {1, 2}},
    };
    for (std::vector<Step> const& steps : rows) {
        MsgClamp site;
        for (std::size_t i = 0; i < steps.size(); ++i) {
            for (int n = 0; n < steps[i].times; ++n) {
                VirtualTime::advanceMs(steps[i].silenceMs);
                int passed = 0;
                while (!site.clamped()) {
                    ++passed;
                }
                stopFlusher();
                EXPECT_EQ(passed, steps[i].passed)
                    << "step " << i << " pass " << n << " of row " << &steps - rows;
            }
        }
    }
}

// A site as arithmetic on a few numbers, without blocks, types and locks.
struct Model {
    long long now = VirtualTime::kStartUs / 1000;
    long long last = 0;
    long long burst = 0;
    int budget = 0;
    unsigned int dropped = 0;
    std::string prefix;
    std::string held;
    std::string heldSink;
    Lines log;

    void flush(bool force) {
        if (dropped == 0 || (!force && (now - last <= 120000 || last == 0))) {
            return;
        }
        dropped -= held.empty() ? 0 : 1;
        long long const seconds = (now - last + burst) / 1000;
        char text[64];
        snprintf(text, sizeof text, "[%u delayed %02lld:%02lld:%02lld] ", dropped, seconds / 3600,
                 seconds / 60 % 60, seconds % 60);
        prefix = text;
        dropped = 0;
        if (!held.empty()) {
            log.push_back(heldSink + ": " + prefix + held);
            held.clear();
            prefix.clear();
        }
        last = force ? 0 : last;
    }

    bool refuses() {
        long long gap = now - last;
        bool const fresh = last == 0 || gap > 120000;
        if (fresh || budget == 0) {
            struct {
                long long at, budget, burst;
            } const grants[] = {
                {1000, 8, 1000}, {60000, 4, 60000}, {3600000, 2, 3600000}, {7200000, 2, 3600000}};
            if (fresh) {
                flush(last != 0);
                budget = 16;
                burst = gap = 0;
            } else {
                for (auto const& grant : grants) {
                    if (burst < grant.at && burst + gap >= grant.at) {
                        budget = static_cast<int>(grant.budget);
                        burst = grant.burst;
                        flush(true);
                        gap = 0;
                        break;
                    }
                }
            }
            last = now;
            burst += gap;
        }
        if (budget == 0) {
            ++dropped;
            return true;
        }
        if (--budget == 0) {
            prefix = "[drop...] ";
        }
        return false;
    }

    void message(bool unclamped, std::string const& sink, std::string const& text) {
        if (!unclamped && refuses()) {
            held = text.substr(0, 191);
            heldSink = sink;
            return;
        }
        flush(false);
        log.push_back(sink + "Var: " + prefix + text);
        prefix.clear();
    }
};

// Any order of messages, silences and flushes. The silences stand on and beside every boundary; each kind of
// run has its own. In half of them nothing is silent while the site is open, so that floods grow hours old.
TEST_F(MsgClampTest, RandomStreamFollowsTheModel) {
    std::vector<int> const kSilencesMs[] = {
        {0, 0, 0, 0, 1, 9, 10, 500, 989, 990, 1000},
        {0, 0, 0, 1, 1000, 58999, 59000, 60000, 119999, 120000},
        {119999, 120000},
        {0, 0, 1000, 120000, 120001, 3600000},
    };
    constexpr char const* kSinks[] = {"errorMsg", "infoMsg", "warningMsg", "debugMsg"};
    std::mt19937 random(20);
    auto const below = [&](std::size_t n) {
        return std::uniform_int_distribution<std::size_t>(0, n - 1)(random);
    };
    for (std::size_t run = 0; run < 40; ++run) {
        std::vector<int> const& silences = kSilencesMs[run % 4];
        MsgClamp site;
        Model model;
        VirtualTime::reset();
        for (int i = 0; i < 600; ++i) {
            bool const steady = run % 4 >= 2 && model.budget > 0 && !msgClampDbg.on(3);
            int const silence = steady ? 0 : silences[below(silences.size())];
            VirtualTime::advanceMs(silence);
            model.now += silence;
            std::size_t const what = below(200);
            if (what == 0) {
                site.flush();
                model.flush(true);
            } else if (what < 4) {
                MsgClampInternal::getRef().flush(false);
                model.flush(false);
            } else if (what < 10) {
                msgClampDbg.setValue(what == 4 ? 8 : 0);
            } else if (what < 20) { // as code that sends by itself asks
                ASSERT_EQ(site.clamped(), !msgClampDbg.on(3) && model.refuses())
                    << "run " << run << ", step " << i;
            } else {
                std::string const text =
                    std::to_string(i) + " 100%s " + std::string(what == 20 ? 300 : 3, 'x');
                switch (what % 4) {
                case 0:
                    site.error("%s", text.c_str());
                    break;
                case 1:
                    site.info("%s", text.c_str());
                    break;
                case 2:
                    site.warning("%s", text.c_str());
                    break;
                default:
                    site.debug("%s", text.c_str());
                    break;
                }
                model.message(msgClampDbg.on(3), kSinks[what % 4], text);
            }
            stopFlusher();
            ASSERT_EQ(RecordingSinks::takeLines(), model.log) << "run " << run << ", step " << i;
            model.log.clear();
        }
        msgClampDbg.setValue(0);
    }
}

template <bool (MsgClamp::*method)(char const*, va_list)>
bool fromList(MsgClamp& site, char const* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    bool const result = (site.*method)(fmt, args);
    va_end(args);
    return result;
}

template <bool (MsgClamp::*method)(char const*, ...)>
bool direct(MsgClamp& site, char const* fmt, int argument) {
    return (site.*method)(fmt, argument);
}

// Every message method: the sink of a passing and of a released message, and the result of each.
TEST_F(MsgClampTest, EveryMethodReachesTheSinkOfItsType) {
    struct Row {
        std::string sink;
        std::function<bool(MsgClamp& site, char const* fmt, int argument)> send;
    };
    Row const rows[] = {
        {"errorMsg", direct<&MsgClamp::error>},
        {"errorMsg", direct<&MsgClamp::errorBlock>},
        {"warningMsg", direct<&MsgClamp::warning>},
        {"warningMsg", direct<&MsgClamp::warningBlock>},
        {"infoMsg", direct<&MsgClamp::info>},
        {"infoMsg", direct<&MsgClamp::infoBlock>},
        {"debugMsg", direct<&MsgClamp::debug>},
        {"debugMsg", direct<&MsgClamp::debugBlock>},
        {"errorMsg", fromList<&MsgClamp::errorVar>},
        {"infoMsg", fromList<&MsgClamp::infoVar>},
        {"debugMsg", fromList<&MsgClamp::debugVar>},
        {"debugMsg", [](MsgClamp& site, char const*, int i) { return site.debugIf(false, "100%% %d\n", i); }},
    };
    for (Row const& row : rows) {
        MsgClamp site;
        RecordingSinks::setResult(false);
        EXPECT_FALSE(row.send(site, "100%% %d\n", 7)) << "a sink's failure reaches the caller";
        EXPECT_THAT(RecordingSinks::takeLines(), ElementsAre(row.sink + "Var: 100% 7\n"));
        close(site);
        EXPECT_TRUE(row.send(site, "100%% %d\n", 7)) << "held";
        EXPECT_TRUE(!site.debugIf(true, "past the clamp\n")) << "and not counted";
        site.flush();
        EXPECT_THAT(RecordingSinks::takeLines(), ElementsAre("debugMsgVar: past the clamp\n",
                                                             row.sink + ": [1 delayed 00:00:00] 100% 7\n"));
    }
}

TEST_F(MsgClampTest, FlushAllReleasesEverySiteNewestFirstAndLeavesOpenOnes) {
    MsgClamp sites[3];
    close(sites[0]);
    close(sites[2]);
    for (MsgClamp& site : sites) {
        site.error("site %d\n", static_cast<int>(&site - sites));
    }
    RecordingSinks::take();
    MsgClamp::flushAll();
    EXPECT_THAT(RecordingSinks::takeLines(), ElementsAre("errorMsg: [0 delayed 00:00:00] site 2\n",
                                                         "errorMsg: [0 delayed 00:00:00] site 0\n"));
    int passed = 0;
    while (!sites[1].clamped()) {
        ++passed;
    }
    EXPECT_EQ(passed, 15) << "it is still in mid-burst";
}

// The flood of the first test through C: refused messages leave no text, so that none is taken off the count.
TEST_F(MsgClampTest, EntryPointsCountWhatTheyRefuse) {
    EXPECT_FALSE(clampedMsg(nullptr));
    EXPECT_EQ(droppedMsg(nullptr), nullptr);
    MsgClamp* cell = nullptr; // the library never deletes what it puts here; a test may
    EXPECT_EQ(droppedMsg(&cell), nullptr);
    for (int i = 1; i <= 101; ++i) {
        sendFromC(&cell, i);
        stopFlusher();
        VirtualTime::advanceMs(10);
    }
    Lines const lines = RecordingSinks::takeLines();
    ASSERT_EQ(lines.size(), 17u);
    EXPECT_EQ(lines[0], "errorMsg: tick 1\n");
    EXPECT_EQ(lines[15], "errorMsg: [drop...] tick 16\n");
    EXPECT_EQ(lines[16], "errorMsg: [84 delayed 00:00:01] tick 101\n");
    EXPECT_STREQ(droppedMsg(&cell), "");
    delete cell;
}

TEST_F(MsgClampTest, MessageOfAnOpenSiteAndARefusedOneAllocateNothing) {
    MsgClamp site;
    RecordingSinks::setDiscard(true);
    int const before = CountingNew::count();
    for (int i = 0; i < 15; ++i) {
        site.error("message %d of some length\n", i);
    }
    EXPECT_EQ(CountingNew::count(), before) << "an open site";
    close(site);
    int const closed = CountingNew::count();
    for (int i = 0; i < 100; ++i) {
        site.error("message %d of some length\n", i);
    }
    EXPECT_EQ(CountingNew::count(), closed) << "a closed site";
    RecordingSinks::setDiscard(false);
}

} // namespace
