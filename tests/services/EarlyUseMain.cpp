// A program that fails if an optimiser undoes what was stored in a debug variable before it was built. It is
// built with the levels of optimisation that make use of the beginning of an object's life.

#include "tests/services/EarlyUse.h"
#include "vorlan/services/DebugVariables.h"

#include <cstdio>

namespace {

// What an optimiser likes best: early store, constructor and reading in one source, the constructor inline
// and no call between the store and it.
class NearVariable : public DebuggerOn {
public:
    explicit NearVariable(char const* name) : DebuggerOn(name, 0) {}
};

extern NearVariable s_nearVariable;

struct Early {
    Early() {
        seen = s_nearVariable.get();
        s_nearVariable.setValue(0x54);
    }
    unsigned int seen;
} const s_early;

NearVariable s_nearVariable("near");
unsigned int const s_builtValue = s_nearVariable.get();

int s_faults = 0;

void expect(char const* what, unsigned int got, unsigned int wanted) {
    if (got != wanted) {
        std::fprintf(stderr, "%s: %#x instead of %#x\n", what, got, wanted);
        ++s_faults;
    }
}

} // namespace

DebuggerOn farVariable("far", 2, "a", "b");
DebuggerOn hookedVariable("hooked", 1, "a");
ActingVariable actingVariable;

int main() {
    expect("near, before it was built", s_early.seen, 0);
    expect("near, once built", s_builtValue, 0x54);
    expect("near", s_nearVariable.get(), 0x54);
    expect("far", farVariable.get(), 0x51);
    expect("acting", actingVariable.get(), 0x52);
    expect("hooked", hookedVariable.get(), 0x53);

    expect("change of hooked", VorlanPosix::DebugVariables::change("hooked", 7) ? 1 : 0, 1);
    expect("calls of the early hook", static_cast<unsigned int>(hookOwner().calls), 1);
    expect("hooked, changed", hookedVariable.get(), 7);
    return s_faults;
}
