// Fails if an optimiser undoes what was stored in a debug variable before it was built. It is built with the
// levels of optimisation that make use of the beginning of an object's life.

#include "vorlan/foundation/DebugServices.h"

#include <gtest/gtest.h>

DebuggerOn farVariable("far", 2, "a", "b");

namespace {

// What an optimiser likes best: early store, constructor and reading in one source, the constructor inline
// and no call between the store and it.
struct NearVariable : DebuggerOn {
    explicit NearVariable(char const* name) : DebuggerOn(name, 0) {}
};
extern NearVariable s_nearVariable;
[[maybe_unused]] bool const s_early = (s_nearVariable.setValue(s_nearVariable.get() + 0x54), true);
NearVariable s_nearVariable("near");
unsigned int const s_builtValue = s_nearVariable.get();

TEST(EarlyUse, OfDebugVariablesIsNotLost) {
    EXPECT_EQ(s_builtValue, 0x54U);
    EXPECT_EQ(s_nearVariable.get(), 0x54U);
    EXPECT_EQ(farVariable.get(), 0x51U);
}

} // namespace
