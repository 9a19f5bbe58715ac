#include "vorlan/values/Bitset.h"

#include "vorlan/text/FormatStr.h"

#include <array>
#include <cstddef>

namespace {

constexpr unsigned int kLineBits = 32;

constexpr std::array<std::uint8_t, 256> countBits() {
    std::array<std::uint8_t, 256> counts{};
    for (std::size_t byte = 1; byte < counts.size(); ++byte) {
        counts[byte] = static_cast<std::uint8_t>(counts[byte / 2] + byte % 2);
    }
    return counts;
}

constexpr std::array<std::uint8_t, 256> kBitCounts = countBits();

// So many words that a compiler finds one vector of 16 bytes in two.
template <std::size_t Words, class Operation>
void combineWords(std::uint8_t* __restrict out, std::uint8_t const* left, std::uint8_t const* right,
                  Operation operation) {
    std::uint64_t leftWords[Words];
    std::uint64_t rightWords[Words];
    std::memcpy(leftWords, left, sizeof leftWords);
    std::memcpy(rightWords, right, sizeof rightWords);
    for (std::size_t i = 0; i < Words; ++i) {
        leftWords[i] = operation(leftWords[i], rightWords[i]);
    }
    std::memcpy(out, leftWords, sizeof leftWords);
}

// Four vectors a round: a loop over one of them takes half as long again.
template <class Operation>
void combine(std::uint8_t* __restrict out, std::uint8_t const* left, std::uint8_t const* right,
             std::size_t bytes, Operation operation) {
    auto const vector = [&](std::size_t at) { combineWords<2>(out + at, left + at, right + at, operation); };
    std::size_t at = 0;
    for (; at + 64 <= bytes; at += 64) {
        vector(at);
        vector(at + 16);
        vector(at + 32);
        vector(at + 48);
    }
    for (; at + 8 <= bytes; at += 8) {
        combineWords<1>(out + at, left + at, right + at, operation);
    }
    for (; at < bytes; ++at) {
        out[at] = static_cast<std::uint8_t>(operation(left[at], right[at]));
    }
}

} // namespace

Bitset::Bitset(Bitset const& other) : Bitset(other.m_bitCount, Unfilled()) {
    std::memcpy(m_bits, other.m_bits, byteLength());
}

Bitset& Bitset::operator=(Bitset const& other) {
    if (this != &other) {
        resize(other.m_bitCount);
        std::memcpy(m_bits, other.m_bits, byteLength());
    }
    return *this;
}

void Bitset::set(char const* characters) {
    for (; *characters != '\0'; ++characters) {
        set(static_cast<unsigned int>(static_cast<signed char>(*characters)));
    }
}

void Bitset::setAll(bool value) {
    unsigned int const bytes = byteLength();
    if (!value) {
        clearAll();
    } else if (bytes != 0) {
        std::memset(m_bits, 0xff, bytes);
        unsigned int const topBits = m_bitCount % 8;
        if (topBits != 0) {
            m_bits[bytes - 1] = static_cast<std::uint8_t>((1U << topBits) - 1);
        }
    }
}

void Bitset::resize(unsigned int size) {
    unsigned int const newBytes = byteLength(size);
    unsigned int const oldBytes = byteLength();
    if (newBytes <= oldBytes) {
        std::memset(m_bits + newBytes, 0, oldBytes - newBytes);
        for (unsigned int bit = m_bitCount; bit < size; ++bit) {
            clear(bit);
        }
    } else {
        growBytes(newBytes, m_byteCapacity > newBytes ? m_bits : allocBits(static_cast<int>(size)));
    }
    m_bitCount = size;
}

// Moves the set to `storage`, which may be where it is, with every bit above the old size 0.
void Bitset::growBytes(unsigned int newBytes, std::uint8_t* storage) {
    unsigned int const oldBytes = byteLength();
    unsigned int const topBits = m_bitCount % 8;
    if (storage != m_bits) {
        std::memcpy(storage, m_bits, oldBytes);
        if (m_bits != inlineBytes()) {
            delete[] m_bits;
        }
        m_bits = storage;
    }
    if (topBits != 0) {
        m_bits[oldBytes - 1] &= static_cast<std::uint8_t>((1U << topBits) - 1);
    }
    std::memset(m_bits + oldBytes, 0, newBytes - oldBytes);
    m_byteCapacity = std::max(m_byteCapacity, newBytes);
}

void Bitset::uniteBytes(Bitset const& left, Bitset const& right) noexcept {
    Bitset const& longer = left.m_bitCount < right.m_bitCount ? right : left;
    std::size_t const common = std::min(left.byteLength(), right.byteLength());
    combine(m_bits, left.m_bits, right.m_bits, common, [](auto a, auto b) { return a | b; });
    std::memcpy(m_bits + common, longer.m_bits + common, byteLength() - common);
}

void Bitset::intersectBytes(Bitset const& left, Bitset const& right) noexcept {
    std::size_t const common = std::min(left.byteLength(), right.byteLength());
    combine(m_bits, left.m_bits, right.m_bits, common, [](auto a, auto b) { return a & b; });
    std::memset(m_bits + common, 0, byteLength() - common);
}

FormatStr& Bitset::toString(unsigned int indent, FormatStr& out) const {
    bool const broken = m_bitCount > kLineBits;
    out.format("[%d]={", static_cast<int>(m_bitCount));
    // A line starts at a multiple of 32, and so only the top one, behind the brace, can be shorter than 32.
    for (unsigned int lines = (byteLength() + 3) / 4; lines > 0; --lines) {
        unsigned int const begin = (lines - 1) * kLineBits;
        unsigned int const length = std::min(kLineBits, (byteLength() - begin / 8) * 8);
        if (broken && length == kLineBits) {
            out.format("\n%*s", static_cast<int>(indent + 2), "");
        }
        appendLine(begin, length, out);
    }
    if (broken) {
        out.format("\n%*s", static_cast<int>(indent), "");
    }
    return out.cat("}");
}

// One append a line and not a character: each one costs the builder a pass over the rest of its block.
void Bitset::appendLine(unsigned int begin, unsigned int length, FormatStr& out) const {
    char line[kLineBits + kLineBits / 4];
    char* end = line;
    for (unsigned int place = length; place-- > 0;) {
        bool const opensGroup = place % 4 == 3;
        if (opensGroup && end != line) {
            *end++ = ' ';
        }
        unsigned int const bit = begin + place;
        *end++ = bit >= m_bitCount ? ' ' : "01"[get(bit) ? 1 : 0];
    }
    *end = '\0';
    out.cat(line);
}

AutoPtr<char> Bitset::toString() const {
    FormatStr text(128);
    return toString(0, text);
}

std::uint8_t const* Bitset::getBitCounts() {
    return kBitCounts.data();
}
