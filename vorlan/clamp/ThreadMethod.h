// ThreadMethod.h: a thread that runs one member function of one object.
#pragma once

#include "vorlan/foundation/RuntimeServices.h"

/// Runs a member function of `owner` on a thread of its own. Building it starts nothing.
///
/// Threading: as BaseThread. The owner is not owned here; it stops the thread before its own end.
template <class T>
class ThreadMethod : public BaseThread {
public:
    /// The name and the two numbers (priority, stack size in bytes) are BaseThread's.
    ThreadMethod(T& owner, void (T::*method)(), char const* name, unsigned int priority,
                 unsigned int stackSize)
        : BaseThread(name, priority, stackSize), m_owner(owner), m_method(method) {}

    void startMethod() override { (m_owner.*m_method)(); }

private:
    T& m_owner;
    void (T::*m_method)();
};
