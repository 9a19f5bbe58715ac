// SingletonHelper.h: makes the one instance of a class on first use, from any thread, without a mutex.
#pragma once

#include "vorlan/foundation/Atomics.h"
#include "vorlan/foundation/RuntimeServices.h"

#include <cstdint>

/// Base of a class of which a process has one object.
///
/// The class has a static getRef() that keeps a function-local static pointer and initialises it with one of
/// the two operations, giving that same pointer as the argument:
///
///     T& T::getRef() {
///         static T* t = SingletonHelper<T>::newSingleton(t);
///         return *t;
///     }
///
/// After the first call a getRef() is a guard test and a load. The constructor of T must return and must not
/// call its own getRef(): it would wait for itself.
/// Threading: any thread, during static initialisation too. Each operation keeps one counter for each T: 1
/// once the instance stands, plus 2 for each thread between its entry and its way out. Only the first to
/// enter meets exactly 2, and the counter never returns to 0, so that one instance is ever built.
template <class T>
class SingletonHelper {
public:
    /// The instance lives in static storage and is destroyed at exit, like any function-local static.
    static T* staticSingleton(T*& p);

    /// The instance comes from `new T` and is never deleted here.
    static T* newSingleton(T*& p);

private:
    static bool enter(int& c);
    static void waitForWinner(int& c);
};

template <class T>
T* SingletonHelper<T>::staticSingleton(T*& p) {
    static int c = 0;
    if (enter(c)) {
        static T s_singleton;
        p = &s_singleton;
        atomicDec(&c);
    } else {
        waitForWinner(c);
    }
    return p;
}

template <class T>
T* SingletonHelper<T>::newSingleton(T*& p) {
    static int c = 0;
    if (enter(c)) {
        p = new T;
        atomicDec(&c);
    } else {
        waitForWinner(c);
    }
    return p;
}

template <class T>
bool SingletonHelper<T>::enter(int& c) {
    return atomicAdd(&c, 2) == 2;
}

template <class T>
void SingletonHelper<T>::waitForWinner(int& c) {
    atomicAdd(&c, -2);
    // 1, 3, 7 ... 255 ms: short while a constructor is about to end, and never more than a quarter second
    // late.
    std::uint8_t v = 1;
    while (atomicGet(&c) >= 2) {
        waitMsec(v);
        v = static_cast<std::uint8_t>(v * 2 + 1);
    }
}
