// EarlyUse.h: debug variables that other static objects use before they are built.
#pragma once

#include "vorlan/foundation/DebugServices.h"
#include "vorlan/lifecycle/Bridge.h"

using DebugHook = BridgeHook<DebugRecord const&, bool>;

// A variable that acts itself, as a subclass with a hook of its own.
class ActingVariable : public DebuggerOn {
public:
    ActingVariable() : DebuggerOn("acting", 1, "a"), m_anchor(*this, &ActingVariable::act) { set(&m_anchor); }

private:
    bool act(DebugRecord const& record) { return record.getVariable() == this; }
    BridgeAnchor<ActingVariable, DebugRecord const&, bool> m_anchor;
};

// In EarlyUseMain.cpp, the second source in the order of linking.
extern DebuggerOn farVariable;
extern DebuggerOn hookedVariable;
extern ActingVariable actingVariable;

struct HookOwner {
    bool called(DebugRecord const&) { return ++calls > 0; }
    int calls = 0;
    BridgeAnchor<HookOwner, DebugRecord const&, bool> anchor{*this, &HookOwner::called};
};

// In EarlyUse.cpp, the first.
HookOwner& hookOwner();
