#include "tests/clamp/ClampFixture.h"

#include "vorlan/foundation/MessageServices.h"
#include "vorlan/foundation/ScopeLock.h"

#include <atomic>
#include <thread>

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using M = MsgClampInternal;

class MsgClampInternalTest : public ClampTest {
protected:
    static int sites() {
        // Up and down again: the number without a hand on the manager's insides.
        M::getRef().preserve();
        return M::getRef().release();
    }
};

TEST_F(MsgClampInternalTest, UnknownTypesAreServedAsDebug) {
    M& manager = M::getRef();
    for (unsigned int type : {0u, 2u, 5u, 0xFFFFFFFFu}) {
        auto const unknown = static_cast<M::MsgType>(type);
        EXPECT_TRUE(manager.getIntFmt(unknown, false) == &M::sendDebug) << type;
        EXPECT_TRUE(manager.getIntFmt(unknown, true) == &M::holdDebug) << type;
        EXPECT_EQ(manager.getExtFmt(unknown), debugMsg) << type;
        EXPECT_EQ(manager.getExtVarFmt(unknown), debugMsgVar) << type;
    }
}

TEST_F(MsgClampInternalTest, ListFollowsTheSitesAndSurvivesTheReleaseOfMemory) {
    M& manager = M::getRef();
    int const before = sites();
    {
        MsgClamp a;
        MsgClamp b;
        MsgClamp c;
        EXPECT_EQ(sites(), before + 3);
        manager.remove(b);
        manager.remove(b);
        EXPECT_EQ(sites(), before + 2);
        manager.add(b);
        EXPECT_TRUE(manager.releaseMemCb());
        EXPECT_TRUE(manager.releaseMemCb());
        EXPECT_EQ(sites(), 0);
        close(a);
        a.error("held\n");
        manager.flush(true);
        EXPECT_THAT(RecordingSinks::takeLines(), IsEmpty()) << "off the list";
        a.flush();
        EXPECT_THAT(RecordingSinks::takeLines(), ElementsAre("errorMsg: [0 delayed 00:00:00] held\n"));
        MsgClamp later;
        EXPECT_EQ(sites(), 1);
    }
    EXPECT_EQ(sites(), 0);
}

TEST_F(MsgClampInternalTest, FlusherRunsFromTheFirstClosingAndAgainAfterAStop) {
    MsgClamp sites[2];
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 15; ++i) {
            sites[0].error("x\n");
        }
        VirtualTime::awaitSleepers(0);
        for (MsgClamp& site : sites) {
            while (!site.clamped()) {
            }
            VirtualTime::awaitSleepers(1); // one thread for both
        }
        MsgClampInternal::getRef().shutdown(); // with sites registered it only stops the thread
        VirtualTime::awaitSleepers(0);
        VirtualTime::advanceMs(120001);
    }
}

// A sink that comes back to a site would deadlock: the mutex says so and ends the process.
TEST_F(MsgClampInternalTest, SinkThatUsesASiteEndsTheProcess) {
    ::testing::GTEST_FLAG(death_test_style) = "threadsafe";
    MsgClamp site;
    RecordingSinks::setObserver([&](RecordingSinks::Message const&) { site.error("again\n"); });
    EXPECT_DEATH(site.error("once\n"), "holds already .*message sink.*aborting");
    RecordingSinks::setObserver({});
}

// Sites come and go, all flush each other, and the flusher is started and stopped under them. Every message
// that was sent is either shown or counted in a prefix.
TEST_F(MsgClampInternalTest, NothingIsLostWhileSitesComeAndGo) {
    constexpr int kThreads = 3;
    constexpr int kSites = 40;
    constexpr int kMessages = 60;
    std::atomic<long> shown{0};
    std::atomic<long> counted{0};
    RecordingSinks::setObserver([&](RecordingSinks::Message const& message) {
        ++shown;
        long count = 0;
        if (std::sscanf(message.text.c_str(), "[%ld delayed", &count) == 1) {
            counted += count;
        }
    });
    std::atomic<long> sent{0};
    // Until one passes, and so carries whatever prefix still waits: the sinks give false, a hold gives true.
    RecordingSinks::setResult(false);
    auto const sayLast = [&](MsgClamp& site) {
        while (++sent && site.info("the last\n")) {
            site.flush();
        }
    };
    std::atomic<bool> done{false};
    std::thread disturber([&] {
        while (!done) {
            MsgClampInternal::getRef().stopThreadsCb();
            MsgClamp::flushAll();
        }
    });
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    MsgClamp shared;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            for (int s = 0; s < kSites; ++s) {
                MsgClamp own;
                for (int m = 0; m < kMessages; ++m) {
                    own.error("own %d\n", m);
                    shared.warning("shared %d\n", m);
                    sent += 2;
                }
                sayLast(own);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    done = true;
    disturber.join();
    sayLast(shared);
    RecordingSinks::setObserver({});
    EXPECT_EQ(shown + counted, sent);
}

} // namespace
