// Bridge.h: calls a member function of an object whose class the caller does not know.
//
// The caller holds a hook, whose type depends on the argument and the result alone. The owner makes an
// anchor, which binds that hook to one object and one of its member functions:
//
//     BridgeAnchor<Pump, int, bool> anchor(pump, &Pump::setSpeed);
//     BridgeHook<int, bool> const& hook = anchor;
//     bool const done = hook.callCb(3); // pump.setSpeed(3)
#pragma once

#include "vorlan/foundation/Compiler.h"

#include <cstdint>
#include <utility>

/// The stamp that tells a living hook from the storage of a dead one.
///
/// A hook is often a member of an object at file scope, and its caller may come by once more while the
/// process exits. So the destructor leaves a 0 behind, and a call looks for the stamp before it trusts the
/// rest. The word is volatile for that look: a store to an object about to end is dead in the eyes of an
/// optimiser, and would be left out.
class VORLAN_API BridgeBase {
public:
    BridgeBase() : m_stamp(kAlive) {}
    ~BridgeBase() { m_stamp = 0; }
    BridgeBase(BridgeBase const&) = delete;
    BridgeBase& operator=(BridgeBase const&) = delete;

    /// True from construction until the destructor has run. Storage that never held a hook gives false too.
    bool isValid() const { return m_stamp == kAlive; }

    /// Tells errorMsg that a call was cancelled, with the address of this base part.
    void noteIsInvalid() const;

private:
    static constexpr std::uint32_t kAlive = 0x0707537F;

    std::uint32_t volatile m_stamp;
};

/// What the caller of a bound member function with one argument holds.
///
/// A call through a hook whose destructor has run, but whose storage still exists, does not reach the object:
/// it sends one error message and gives a zero result (no value for void). The caller can't tell that result
/// from a zero of the bound function. A hook in freed storage can't be told from anything.
/// Cost: one comparison over a plain virtual call; nothing is allocated.
/// Threading: the bound function runs on the calling thread, under whatever locks that holds. Any number of
/// threads may call; the owner sees to it that none is inside callCb() when it destroys the hook.
template <class Arg, class Result>
class BridgeHook : public BridgeBase {
public:
    virtual ~BridgeHook() = default;

    /// The guarded call.
    Result callCb(Arg arg) const;

private:
    virtual Result vCallCb(Arg arg) const = 0;
};

/// The same for a member function without an argument.
template <class Result>
class BridgeHookVoid : public BridgeBase {
public:
    virtual ~BridgeHookVoid() = default;

    /// The guarded call, under either name.
    Result get() const;
    // A dead hook may well be asked here, so that UBSan must not take the step to get() for a mistake.
    __attribute__((no_sanitize("vptr"))) Result callCb() const { return get(); }

private:
    virtual Result validGet() const = 0;
};

/// Binds a hook to one object and one of its member functions, for the whole of its life.
///
/// Whoever makes the anchor owns it; it may be a member of the object that it binds. The object is not owned
/// and must outlive every call.
template <class T, class Arg, class Result>
class BridgeAnchor : public BridgeHook<Arg, Result> {
public:
    /// Bound from here on; the function must not be null.
    BridgeAnchor(T& object, Result (T::*method)(Arg)) : m_object(&object), m_method(method) {}

    /// Calls the member function. Not for callers: they go through the guarded call.
    Result vCallCb(Arg arg) const override { return (m_object->*m_method)(std::forward<Arg>(arg)); }

private:
    T* m_object;
    Result (T::*m_method)(Arg);
};

/// The same for a member function without an argument.
template <class T, class Result>
class BridgeAnchorVoid : public BridgeHookVoid<Result> {
public:
    /// Bound from here on; the function must not be null.
    BridgeAnchorVoid(T& object, Result (T::*method)()) : m_object(&object), m_method(method) {}

    /// Calls the member function. Not for callers: they go through the guarded call.
    Result validGet() const override { return (m_object->*m_method)(); }

private:
    T* m_object;
    Result (T::*m_method)();
};

template <class Arg, class Result>
Result BridgeHook<Arg, Result>::callCb(Arg arg) const {
    if (this->isValid()) {
        return vCallCb(std::forward<Arg>(arg));
    }
    this->noteIsInvalid();
    return Result();
}

template <class Result>
Result BridgeHookVoid<Result>::get() const {
    if (this->isValid()) {
        return validGet();
    }
    this->noteIsInvalid();
    return Result();
}
