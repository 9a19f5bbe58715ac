// Bitset.h: a bit vector whose length is set at run time and can change.
#pragma once

#include "vorlan/foundation/Compiler.h"
#include "vorlan/text/AutoPtr.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <type_traits>

class FormatStr;

/// A set of the numbers 0 to size() - 1.
///
/// Up to 64 bits live in the object and nothing is ever allocated; a longer set owns one block. A set that
/// has moved to a block keeps one until it ends, however short it becomes. Bit i is the bit of value
/// 1 << (i % 8) in byte i / 8.
/// Sizes go up to 4294967288 bits. No index is tested: the caller keeps it below size().
/// A resize() that ends inside the last byte leaves the bits of that byte above the new size as they were.
/// They count as part of no set, a later growth clears them; only a union or an intersection with a longer
/// set, which works byte by byte, meets them.
/// Threading: none of its own; a set belongs to one thread at a time.
class VORLAN_API Bitset {
public:
    /// A set of `size` bits, not negative, all 1 if `fill` and else all 0.
    Bitset(int size, bool fill);
    Bitset(Bitset const& other);
    ~Bitset();

    /// Takes the other's size, by the rules of resize(), and its bits.
    Bitset& operator=(Bitset const& other);

    /// In bits.
    unsigned int size() const { return m_bitCount; }

    /// The bytes that the set's bits fill, and those that `bits` bits fill.
    unsigned int byteLength() const { return byteLength(m_bitCount); }
    unsigned int byteLength(unsigned int bits) const { return (bits + 7) >> 3; }

    /// Storage for `size` bits, its bytes not cleared: the place inside the object if that is enough, else a
    /// block of exactly their byte length, which the caller frees with delete[]. No field changes.
    std::uint8_t* allocBits(int size);

    /// One bit, by its index below size().
    void set(unsigned int index) { m_bits[index >> 3] |= static_cast<std::uint8_t>(1U << (index & 7)); }
    void clear(unsigned int index) { m_bits[index >> 3] &= static_cast<std::uint8_t>(~(1U << (index & 7))); }
    bool get(unsigned int index) const { return (m_bits[index >> 3] >> (index & 7) & 1) != 0; }

    /// An index of any other integer type. Without it set(0) could also mean a null text.
    template <class Index, class = std::enable_if_t<std::is_integral_v<Index>>>
    void set(Index index) {
        set(static_cast<unsigned int>(index));
    }

    /// Sets the bit of every character's code. A character above 127 is no index of any set.
    void set(char const* characters);

    /// All bits to one value.
    void setAll(bool value);
    void clearAll() { std::memset(m_bits, 0, byteLength()); }

    /// Every bit that this adds reads 0. The storage stays while the byte length doesn't grow, or stays
    /// strictly below the largest so far.
    void resize(unsigned int size);

    /// The union and the intersection, as long as the longer of the two; the shorter one reads 0 above its
    /// end.
    Bitset operator|(Bitset const& other) const;
    Bitset operator&(Bitset const& other) const;

    /// Appends "[10]={       10 0000 0001}" to `out` and gives `out` back: the size, and the bits from the
    /// highest down in groups of four, with a blank for each place of the top byte above the size. A set of
    /// more than 32 bits breaks its lines at the multiples of 32; they stand `indent` + 2 blanks in, and the
    /// closing brace `indent`.
    FormatStr& toString(unsigned int indent, FormatStr& out) const;
    AutoPtr<char> toString() const;

    /// 256 entries: how many bits are set in a byte of each value.
    static std::uint8_t const* getBitCounts();

private:
    struct Unfilled {};
    static constexpr unsigned int kInlineBytes = 8;

    Bitset(unsigned int size, Unfilled /*storage*/);

    std::uint8_t* inlineBytes() { return reinterpret_cast<std::uint8_t*>(&m_inlineBits); }
    std::uint64_t firstWord() const;
    void uniteBytes(Bitset const& left, Bitset const& right) noexcept;
    void intersectBytes(Bitset const& left, Bitset const& right) noexcept;
    void appendLine(unsigned int begin, unsigned int length, FormatStr& out) const;
    void growBytes(unsigned int newBytes, std::uint8_t* storage);

    // Any storage holds 8 bytes at least, and those above the byte length are 0: word by word work needs no
    // regard for the end of a short set.
    unsigned int m_bitCount;
    unsigned int m_byteCapacity; // bytes that the storage was made or grown for, at first the byte length
    std::uint8_t* m_bits;        // m_inlineBits, or a block of m_byteCapacity bytes
    std::uint64_t m_inlineBits = 0;
};

inline Bitset::Bitset(unsigned int size, Unfilled /*storage*/)
    : m_bitCount(size), m_byteCapacity(byteLength(size)), m_bits(allocBits(static_cast<int>(size))) {}

inline Bitset::Bitset(int size, bool fill) : Bitset(static_cast<unsigned int>(size), Unfilled()) {
    setAll(fill);
}

inline Bitset::~Bitset() {
    if (m_bits != inlineBytes()) {
        delete[] m_bits;
    }
}

inline std::uint8_t* Bitset::allocBits(int size) {
    unsigned int const bytes = byteLength(static_cast<unsigned int>(size));
    return bytes <= kInlineBytes ? inlineBytes() : new std::uint8_t[bytes];
}

inline std::uint64_t Bitset::firstWord() const {
    std::uint64_t word = 0;
    std::memcpy(&word, m_bits, sizeof word);
    return word;
}

inline Bitset Bitset::operator|(Bitset const& other) const {
    Bitset result(std::max(m_bitCount, other.m_bitCount), Unfilled());
    if (result.m_byteCapacity <= kInlineBytes) {
        result.m_inlineBits = firstWord() | other.firstWord();
    } else {
        result.uniteBytes(*this, other);
    }
    return result;
}

inline Bitset Bitset::operator&(Bitset const& other) const {
    Bitset result(std::max(m_bitCount, other.m_bitCount), Unfilled());
    if (result.m_byteCapacity <= kInlineBytes) {
        result.m_inlineBits = firstWord() & other.firstWord();
    } else {
        result.intersectBytes(*this, other);
    }
    return result;
}
