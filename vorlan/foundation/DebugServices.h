// DebugServices.h: debug variables, words of named bits that can be changed from outside the process's code.
#pragma once

#include "vorlan/foundation/Compiler.h"

class DebuggerOn;
template <class Arg, class Result>
class BridgeHook;

/// What a hook is told of the variable that was changed. Lives only for the call.
class VORLAN_API DebugRecord {
public:
    /// The variable and the name that it has in the table; neither is owned by the record.
    virtual char const* getName() const = 0;
    virtual DebuggerOn* getVariable() const = 0;

protected:
    ~DebugRecord() = default;
};

/// A debug variable: one 32-bit word of named bits. Name, labels and hook live in the service that keeps the
/// table of variables.
///
/// A variable at file scope may be used before its constructor has run: its word reads as the zero that the
/// storage holds, and neither a value nor a hook given early is lost. A variable is never taken off the
/// table, so that it must live to the end of the process.
/// Threading: the word is read and written without a lock, as one access that never tears. That these
/// accesses are atomic also keeps optimisers from dropping a store because the variable is built only after
/// it.
class VORLAN_API DebuggerOn {
public:
    /// Enters the variable in the table. `name` and the labels must outlive the process's use of the table.
    /// Counted: `count` labels follow, for the bits 0, 1, 2 and so on.
    /// Paired: `count` is 0xFFFFFFFF; a label and its bit number (unsigned int) alternate up to a null label.
    DebuggerOn(char const* name, unsigned int count, ...);

    DebuggerOn(DebuggerOn const&) = delete;
    DebuggerOn& operator=(DebuggerOn const&) = delete;

    /// Sets the hook that is called when the variable is changed from outside. The caller keeps it alive; a
    /// hook that has been destroyed is refused with its own message as long as its storage exists.
    void set(BridgeHook<DebugRecord const&, bool> const* hook);

    /// True if the bit is set; false for a bit above 31.
    bool on(unsigned int bit) const { return bit < 32 && ((get() >> bit) & 1u) != 0; }
    unsigned int get() const { return __atomic_load_n(&m_value, __ATOMIC_RELAXED); }

    /// A plain store: no hook runs.
    void setValue(unsigned int value) { __atomic_store_n(&m_value, value, __ATOMIC_RELAXED); }

private:
    // No initialiser, on purpose: the constructor must not undo what was stored before it ran.
    unsigned int m_value;
};
