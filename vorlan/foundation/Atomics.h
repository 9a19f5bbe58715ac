// Atomics.h: 32-bit atomic operations on plain integers, and a counter over them.
#pragma once

#include <cstddef>
#include <cstdint>

/// One 32-bit cell. The operations below also accept any 4-byte integer in its place, so that it may alias.
struct __attribute__((may_alias)) vrAtomic_t {
    /// Only the operations below touch it once it is shared.
    std::uint32_t value;
};

/// The one read-modify-write that every change of a cell goes through. Orders all memory accesses around it.
/// Gives the value before the addition; wraps at 32 bits.
static inline std::uint32_t __exchange_and_add32(std::uint32_t volatile* cell, std::int32_t delta) {
    return __atomic_fetch_add(cell, static_cast<std::uint32_t>(delta), __ATOMIC_SEQ_CST);
}

/// One aligned load. It acquires, so that what was written before a change seen here is seen too.
static inline std::uint32_t atomicGet32(vrAtomic_t const* cell) {
    return __atomic_load_n(&cell->value, __ATOMIC_ACQUIRE);
}

/// Adds and gives the new value, worked out from the fetched one and never read a second time.
static inline std::uint32_t atomicAdd32(vrAtomic_t* cell, std::int32_t delta) {
    return __exchange_and_add32(&cell->value, delta) + static_cast<std::uint32_t>(delta);
}

/// Adds 1 and gives the new value.
static inline std::uint32_t atomicInc32(vrAtomic_t* cell) {
    return atomicAdd32(cell, 1);
}

/// Subtracts 1 and gives the new value; 0 becomes 0xFFFFFFFF.
static inline std::uint32_t atomicDec32(vrAtomic_t* cell) {
    return atomicAdd32(cell, -1);
}

/// The atomic operations for operands of N bytes. There is one size, so that any other does not compile.
template <std::size_t N>
class __Atomics;

template <>
class __Atomics<4> {
public:
    using IntType = std::uint32_t;

    template <class T>
    static IntType get(T const* cell) {
        return atomicGet32(reinterpret_cast<vrAtomic_t const*>(cell));
    }

    template <class T>
    static IntType inc(T* cell) {
        return atomicInc32(reinterpret_cast<vrAtomic_t*>(cell));
    }

    template <class T>
    static IntType dec(T* cell) {
        return atomicDec32(reinterpret_cast<vrAtomic_t*>(cell));
    }

    template <class T, class U>
    static IntType add(T* cell, U delta) {
        return atomicAdd32(reinterpret_cast<vrAtomic_t*>(cell), static_cast<std::int32_t>(delta));
    }
};

/// The same four operations on any 4-byte integer. This one gives the value.
template <class T>
typename __Atomics<sizeof(T)>::IntType atomicGet(T* cell) {
    return __Atomics<sizeof(T)>::get(cell);
}

/// Adds 1 and gives the new value.
template <class T>
typename __Atomics<sizeof(T)>::IntType atomicInc(T* cell) {
    return __Atomics<sizeof(T)>::inc(cell);
}

/// Subtracts 1 and gives the new value.
template <class T>
typename __Atomics<sizeof(T)>::IntType atomicDec(T* cell) {
    return __Atomics<sizeof(T)>::dec(cell);
}

/// Adds, and gives the new value; the sum is cut to 32 bits.
template <class T, class U>
typename __Atomics<sizeof(T)>::IntType atomicAdd(T* cell, U delta) {
    return __Atomics<sizeof(T)>::add(cell, delta);
}

/// A count that several threads may change. It is built before it is shared: the start value is a plain
/// store.
class AtomicCounter {
public:
    /// Starts with the given count.
    AtomicCounter(int count) : m_count(count) {}
    AtomicCounter(AtomicCounter const&) = delete;
    AtomicCounter& operator=(AtomicCounter const&) = delete;

    /// The count as it is now; another thread may change it at once.
    int getCount() const { return static_cast<int>(atomicGet(&m_count)); }
    bool operator==(int count) const { return getCount() == count; }

    /// Both give the new count.
    int operator++() { return static_cast<int>(atomicInc(&m_count)); }
    int operator--() { return static_cast<int>(atomicDec(&m_count)); }

private:
    int m_count;
};
