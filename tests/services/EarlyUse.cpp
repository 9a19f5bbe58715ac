// The static objects here are built before those of EarlyUseMain.cpp, whose variables they use.

#include "tests/services/EarlyUse.h"

HookOwner& hookOwner() {
    static auto* const s_owner = new HookOwner;
    return *s_owner;
}

namespace {

struct Early {
    Early() {
        farVariable.setValue(0x51);
        actingVariable.setValue(0x52);
        hookedVariable.set(&hookOwner().anchor);
        hookedVariable.setValue(0x53);
    }
} const s_early;

} // namespace
