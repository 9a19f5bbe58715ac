#include "vorlan/lifecycle/Bridge.h"

#include "tests/support/CountingNew.h"
#include "tests/support/RecordingSinks.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct Owner {
    bool flip(bool value) {
        ++calls;
        return !value;
    }
    bool get() {
        ++calls;
        return true;
    }
    std::unique_ptr<int> pass(std::unique_ptr<int> value) { return value; }
    void add(int const& value) { calls += value; }
    void touch() { ++calls; }

    int calls = 0;
};

std::string report(BridgeBase const* base) {
    char text[100];
    std::snprintf(text, sizeof text, "errorMsg: BridgeHook(%p) is invalid; callback cancelled\n",
                  static_cast<void const*>(base));
    return text;
}

// UBSan finds calls through dead objects by itself, and so does g++ where it sees the storage; these are
// meant.
#define VORLAN_TEST_CALLS_THE_DEAD __attribute__((noinline, no_sanitize("vptr")))

VORLAN_TEST_CALLS_THE_DEAD bool callDead(BridgeHook<bool, bool> const* hook) {
    return hook->callCb(false);
}

VORLAN_TEST_CALLS_THE_DEAD bool callDead(BridgeHookVoid<bool> const* hook) {
    return hook->callCb();
}

VORLAN_TEST_CALLS_THE_DEAD bool getDead(BridgeHookVoid<bool> const* hook) {
    return hook->get();
}

// Storage that outlives the anchor in it, as a member of an object at file scope does at exit.
template <class Anchor>
class Remains {
public:
    template <class... Args>
    Anchor* build(Args&&... args) {
        return new (m_bytes) Anchor(std::forward<Args>(args)...);
    }
    unsigned char* bytes() { return m_bytes; }

private:
    alignas(Anchor) unsigned char m_bytes[sizeof(Anchor)] = {};
};

TEST(Bridge, LivingHookPassesArgumentAndResultOn) {
    RecordingSinks::reset();
    Owner owner;
    BridgeAnchor<Owner, bool, bool> const flip(owner, &Owner::flip);
    BridgeAnchorVoid<Owner, bool> const get(owner, &Owner::get);
    BridgeAnchor<Owner, std::unique_ptr<int>, std::unique_ptr<int>> const pass(owner, &Owner::pass);
    BridgeAnchor<Owner, int const&, void> const add(owner, &Owner::add);
    BridgeAnchorVoid<Owner, void> const touch(owner, &Owner::touch);

    BridgeHook<bool, bool> const& flipHook = flip;
    BridgeHookVoid<bool> const& getHook = get;
    int const before = CountingNew::count();
    EXPECT_TRUE(flipHook.callCb(false));
    EXPECT_FALSE(flipHook.callCb(true));
    EXPECT_TRUE(getHook.get() && getHook.callCb());
    EXPECT_EQ(CountingNew::count(), before);
    EXPECT_EQ(*pass.callCb(std::make_unique<int>(7)), 7);
    add.callCb(10);
    touch.callCb();
    EXPECT_EQ(owner.calls, 15);
    EXPECT_THAT(RecordingSinks::takeLines(), IsEmpty()) << "a false of the bound function is no failure";
}

TEST(Bridge, DeadHookReportsEachCallAndNeverReachesTheObject) {
    RecordingSinks::reset();
    Owner owner;
    Remains<BridgeAnchor<Owner, bool, bool>> flipStorage;
    auto* const flip = flipStorage.build(owner, &Owner::flip);
    BridgeHook<bool, bool> const* const flipHook = flip;
    BridgeBase const* const flipBase = flip;
    EXPECT_NE(static_cast<void const*>(flipBase), static_cast<void const*>(flip));
    Remains<BridgeAnchorVoid<Owner, bool>> getStorage;
    auto* const get = getStorage.build(owner, &Owner::get);
    BridgeHookVoid<bool> const* const getHook = get;
    BridgeBase const* const getBase = get;

    std::destroy_at(flip);
    std::destroy_at(get);
    EXPECT_FALSE(callDead(flipHook));
    EXPECT_FALSE(callDead(flipHook));
    EXPECT_FALSE(getDead(getHook));
    EXPECT_FALSE(callDead(getHook));
    EXPECT_EQ(owner.calls, 0);
    EXPECT_THAT(RecordingSinks::takeLines(),
                ElementsAre(report(flipBase), report(flipBase), report(getBase), report(getBase)));
}

// Any one bit wrong is wrong; zeroed storage is that of a static hook before its constructor.
TEST(Bridge, OnlyTheExactStampCountsAsAlive) {
    std::uint32_t const alive = 117920639;
    alignas(BridgeBase) unsigned char bytes[sizeof(BridgeBase)] = {};
    auto const validWith = [&bytes](std::uint32_t stamp) {
        std::memcpy(bytes, &stamp, sizeof stamp);
        return std::launder(reinterpret_cast<BridgeBase const*>(bytes))->isValid();
    };
    EXPECT_TRUE(validWith(alive));
    EXPECT_FALSE(validWith(0));
    for (int bit = 0; bit < 32; ++bit) {
        EXPECT_FALSE(validWith(alive ^ (1u << bit))) << bit;
    }
    static_assert(sizeof(BridgeBase) == 4 && !std::is_polymorphic_v<BridgeBase>);
    static_assert(!std::is_copy_constructible_v<BridgeAnchorVoid<Owner, bool>>, "a copy binds the old owner");
}

TEST(Bridge, HookIsAliveWhileTheAnchorsOwnDestructorRuns) {
    struct Probe : BridgeAnchorVoid<Owner, bool> {
        Probe(Owner& owner, bool* valid) : BridgeAnchorVoid(owner, &Owner::get), m_valid(valid) {}
        ~Probe() override { *m_valid = isValid(); }
        bool* m_valid;
    };
    Owner owner;
    bool valid = false;
    { Probe const probe(owner, &valid); }
    EXPECT_TRUE(valid);
}

} // namespace
