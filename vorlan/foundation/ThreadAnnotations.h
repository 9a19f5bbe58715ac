// ThreadAnnotations.h: names for clang's thread-safety attributes; other compilers see nothing.
//
// clang checks them under -Wthread-safety: a guarded member touched without its lock, a lock taken twice or
// not given back, an operation called without the lock that it expects.
#pragma once

/// How the compiler that knows the attributes spells one.
#if defined(__clang__)
#define VORLAN_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define VORLAN_THREAD_ATTRIBUTE(x)
#endif

/// On a class: its objects are locks; the text names the kind in the compiler's messages.
#define VORLAN_CAPABILITY(text) VORLAN_THREAD_ATTRIBUTE(capability(text))

/// On a class: its objects hold a lock from construction to destruction.
#define VORLAN_SCOPED_CAPABILITY VORLAN_THREAD_ATTRIBUTE(scoped_lockable)

/// On a member: read and written only under the given lock.
#define VORLAN_GUARDED_BY(lock) VORLAN_THREAD_ATTRIBUTE(guarded_by(lock))

/// On a lock: always taken before the given ones where both are held.
#define VORLAN_ACQUIRED_BEFORE(...) VORLAN_THREAD_ATTRIBUTE(acquired_before(__VA_ARGS__))

/// On an operation: the caller holds the lock.
#define VORLAN_REQUIRES(...) VORLAN_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))

/// On an operation: it takes the lock itself, so that the caller must not hold it.
#define VORLAN_EXCLUDES(...) VORLAN_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))

/// On an operation: it takes the lock and leaves it taken.
#define VORLAN_ACQUIRE(...) VORLAN_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))

/// On an operation: it gives the lock back.
#define VORLAN_RELEASE(...) VORLAN_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))

/// On an operation: it gives a reference to the named lock.
#define VORLAN_RETURN_CAPABILITY(lock) VORLAN_THREAD_ATTRIBUTE(lock_returned(lock))

/// On an operation whose locking the analysis can't follow; the place says why.
#define VORLAN_NO_THREAD_SAFETY_ANALYSIS VORLAN_THREAD_ATTRIBUTE(no_thread_safety_analysis)
