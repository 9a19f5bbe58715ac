// AutoPtr.h: single owners of texts on the heap, and the operators that join such texts.
#pragma once

#include "vorlan/foundation/Compiler.h"

/// Owns one block from array new, or nothing.
///
/// The library's owned texts are AutoPtr<char>: zero-terminated, with no length stored anywhere. Ownership
/// moves: an assignment takes the block over and empties its source, a const source too, so that a handle can
/// be given away out of a const object. There is no copy constructor: two owners of one block can't come
/// about. Threading: none of its own; forget() and assignment write to the handle that they empty, even a
/// const one.
template <class T>
class AutoPtr {
public:
    /// Takes ownership; null makes an empty handle.
    explicit AutoPtr(T* block) : m_ptr(block) {}
    AutoPtr(AutoPtr&& source) noexcept : m_ptr(source.forget()) {}
    AutoPtr(AutoPtr const&) = delete;
    ~AutoPtr() { delete[] m_ptr; }

    /// Takes the block of the source, frees the own one first, and leaves the source empty. If both hold the
    /// same block the target keeps it; assigning a handle to itself changes nothing.
    AutoPtr& operator=(AutoPtr const& source);

    /// The block, or null; it stays owned here.
    T* get() const { return m_ptr; }

    /// Gives the block to the caller, who frees it with delete[], and leaves the handle empty.
    T* forget() const;

private:
    mutable T* m_ptr;
};

/// The same for a block that the caller thinks of as an array of bytes and not as a text.
template <class T>
class AutoArrayPtr {
public:
    /// Owns the block, which comes from array new; null for none.
    explicit AutoArrayPtr(T* block) : m_block(block) {}

    /// As in AutoPtr: a look at the block, and its release to the caller.
    T* get() const { return m_block.get(); }
    T* forget() const { return m_block.forget(); }

private:
    AutoPtr<T> m_block;
};

template <class T>
AutoPtr<T>& AutoPtr<T>::operator=(AutoPtr const& source) {
    if (this != &source) {
        T* const block = source.forget();
        if (block != m_ptr) {
            delete[] m_ptr;
            m_ptr = block;
        }
    }
    return *this;
}

template <class T>
T* AutoPtr<T>::forget() const {
    T* const block = m_ptr;
    m_ptr = nullptr;
    return block;
}

/// Joins two texts into a fresh block of exactly their length and the terminator. An empty handle and a null
/// pointer add nothing; the result is never empty and no operand changes.
VORLAN_API AutoPtr<char> operator+(AutoPtr<char> const& left, AutoPtr<char> const& right);
VORLAN_API AutoPtr<char> operator+(AutoPtr<char> const& left, char const* right);
VORLAN_API AutoPtr<char> operator+(char const* left, AutoPtr<char> const& right);

/// Replaces the left text by the joined one, always in a fresh block. The right operand may be the left one.
VORLAN_API AutoPtr<char>& operator+=(AutoPtr<char>& left, AutoPtr<char> const& right);
VORLAN_API AutoPtr<char>& operator+=(AutoPtr<char>& left, char const* right);
