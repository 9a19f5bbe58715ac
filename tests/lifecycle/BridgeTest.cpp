// Hooks, alive and dead. This file is built at several optimisation levels: what an optimiser makes of a
// store in a destructor is half of the subject.

#include "vorlan/lifecycle/Bridge.h"

#include "tests/support/RecordingSinks.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

namespace {

constexpr std::uint32_t kAlive = 117920639;

struct Owner {
    bool get() { return ++calls > 0; }
    bool flip(bool value) { return ++calls > 0 && !value; }

    int calls = 0;
};

TEST(Bridge, LivingHookPassesArgumentAndResultOn) {
    Owner owner;
    BridgeAnchor<Owner, bool, bool> const flip(owner, &Owner::flip);
    BridgeAnchorVoid<Owner, bool> const get(owner, &Owner::get);

    EXPECT_TRUE(flip.callCb(false));
    EXPECT_FALSE(flip.callCb(true)) << "a false of the bound function is no failure";
    EXPECT_TRUE(get.get() && get.callCb());
    EXPECT_EQ(owner.calls, 4);
    EXPECT_THAT(RecordingSinks::takeLines(), testing::IsEmpty());
}

// UBSan finds calls through dead objects by itself, and so does g++ where it sees the storage: these are
// meant.
template <class Hook, class... Args>
__attribute__((noinline, no_sanitize("vptr"))) bool callDead(Hook const* hook, Args... args) {
    return hook->callCb(args...);
}

std::uint32_t stampInMemory(BridgeBase const* base) {
    asm volatile("" : "+r"(base) : : "memory");
    std::uint32_t stamp = 1;
    std::memcpy(&stamp, static_cast<void const*>(base), sizeof stamp);
    return stamp;
}

// Calls are refused one by one, never reach the object, and are reported with the address of the base part,
// which is not the anchor's.
template <class Hook, class Anchor, class Method, class... Args>
void expectRefusedOnceDead(Method method, Args... args) {
    Owner owner;
    alignas(Anchor) unsigned char storage[sizeof(Anchor)];
    auto* const anchor = new (storage) Anchor(owner, method);
    Hook const* const hook = anchor;
    BridgeBase const* const base = anchor;
    EXPECT_NE(static_cast<void const*>(base), static_cast<void const*>(anchor));
    EXPECT_TRUE(hook->callCb(args...));
    std::destroy_at(anchor);
    EXPECT_EQ(stampInMemory(base), 0u);
    for (std::uint32_t const stamp : {0u, 1u, kAlive - 1, kAlive ^ 1u << 31}) {
        std::memcpy(const_cast<void*>(static_cast<void const*>(base)), &stamp, sizeof stamp);
        EXPECT_FALSE(callDead(hook, args...));
    }
    EXPECT_EQ(owner.calls, 1);
    char report[100];
    std::snprintf(report, sizeof report, "errorMsg: BridgeHook(%p) is invalid; callback cancelled\n",
                  static_cast<void const*>(base));
    EXPECT_THAT(RecordingSinks::takeLines(), testing::ElementsAre(report, report, report, report));
}

TEST(Bridge, DeadHookReportsEachCallAndNeverReachesTheObject) {
    expectRefusedOnceDead<BridgeHookVoid<bool>, BridgeAnchorVoid<Owner, bool>>(&Owner::get);
    expectRefusedOnceDead<BridgeHook<bool, bool>, BridgeAnchor<Owner, bool, bool>>(&Owner::flip, false);
    static_assert(!std::is_copy_constructible_v<BridgeAnchorVoid<Owner, bool>>, "a copy binds the old owner");
}

} // namespace
