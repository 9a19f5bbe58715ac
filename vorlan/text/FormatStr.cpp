#include "vorlan/text/FormatStr.h"

#include "vorlan/foundation/OsEnv.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

constexpr std::uint32_t kUsualCapacity = 128; // bytes, a power of two: growth rounds up to its multiples
constexpr int kFormatAttempts = 5;

[[noreturn]] void endTooLong() {
    std::fputs("FormatStr: a text too long for a block of less than 4 GiB\n", stderr);
    std::abort();
}

} // namespace

FormatStr::FormatStr(unsigned int capacity) {
    if (capacity > 1 && capacity != kUsualCapacity) {
        allocBuf(capacity);
    }
}

FormatStr::FormatStr(int capacity) : FormatStr(static_cast<unsigned int>(std::max(capacity, 0))) {}

FormatStr::FormatStr(char const* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    vformat(fmt, args);
    va_end(args);
}

FormatStr::FormatStr(FormatStr const& other) {
    if (!other.empty()) {
        cat(other.get());
    }
}

FormatStr::~FormatStr() {
    delete[] m_block;
    // Volatile, or the compiler drops stores to an object that ends here: whoever uses the builder too late
    // then meets an empty one and not a freed block.
    *static_cast<std::uint32_t volatile*>(&m_capacity) = 0;
    *static_cast<char* volatile*>(&m_block) = nullptr;
    *static_cast<char* volatile*>(&m_writePos) = nullptr;
}

unsigned int FormatStr::size() const {
    return static_cast<std::uint32_t>(std::strlen(get()));
}

FormatStr::operator AutoPtr<char>() const {
    return AutoPtr<char>(nullptr) + get();
}

FormatStr& FormatStr::cat(char const* text) {
    if (text == nullptr) {
        return *this;
    }
    std::size_t const length = std::strlen(text);
    if (length >= std::numeric_limits<std::uint32_t>::max()) {
        endTooLong();
    }
    allocBuf(static_cast<std::uint32_t>(length) + 1);
    std::memcpy(m_writePos, text, length);
    std::memset(m_writePos + length, 0, fastGetSpace() - length);
    return *this;
}

FormatStr& FormatStr::operator+=(AutoPtr<char> text) {
    return cat(text.get());
}

FormatStr& FormatStr::operator+=(unsigned char byte) {
    if (std::isprint(byte) == 0) {
        return format("\\x%2x", static_cast<unsigned int>(byte));
    }
    allocBuf(2);
    *m_writePos++ = static_cast<char>(byte);
    *m_writePos = '\0';
    return *this;
}

FormatStr& FormatStr::format(char const* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    vformat(fmt, args);
    va_end(args);
    return *this;
}

FormatStr& FormatStr::vformat(char const* fmt, va_list args) {
    if (fmt == nullptr) {
        return *this;
    }
    if (m_block == nullptr) {
        allocBuf(kUsualCapacity);
    }
    for (int attempt = 0; attempt < kFormatAttempts && !tryFormat(fmt, args); ++attempt) {
    }
    return *this;
}

// One attempt at the end of the text. A piece that did not fit is cut off again and the block grown: past the
// length that vsnprintf told, or, where it told none, past the free bytes.
bool FormatStr::tryFormat(char const* fmt, va_list args) {
    std::uint32_t const space = getSpace();
    // Formatting is the dear part. Where little room is left the piece is made aside, so that one that does
    // not fit is copied into the grown block and not formatted again.
    std::array<char, kUsualCapacity> aside; // NOLINT(*-member-init): vsnprintf writes what is read
    bool const inPlace = space >= aside.size();
    char* const target = inPlace ? m_writePos : aside.data();
    std::uint32_t const room = inPlace ? space : kUsualCapacity;

    va_list again;
    va_copy(again, args);
    int const told = std::vsnprintf(target, room, fmt, again);
    va_end(again);

    bool const unknown = told < 0 || (getOsEnv() == 2 && static_cast<std::uint32_t>(told) == room - 1);
    std::uint32_t const length = unknown ? space + 1 : static_cast<std::uint32_t>(told);
    if (length >= space) {
        *m_writePos = '\0';
        allocBuf(length);
    }
    if (unknown || length >= room) {
        return false;
    }
    if (!inPlace) {
        std::memcpy(m_writePos, aside.data(), length + 1);
    }
    return true;
}

FormatStr& FormatStr::reformat(char const* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    vreformat(fmt, args);
    va_end(args);
    return *this;
}

FormatStr& FormatStr::vreformat(char const* fmt, va_list args) {
    return resetString().vformat(fmt, args);
}

FormatStr& FormatStr::resetString() {
    if (m_block != nullptr) {
        m_writePos = m_block;
        *m_writePos = '\0';
    }
    return *this;
}

AutoPtr<char> FormatStr::releaseString() {
    return AutoPtr<char>(releaseBlock());
}

AutoArrayPtr<char> FormatStr::releaseArrayString() {
    return AutoArrayPtr<char>(releaseBlock());
}

char* FormatStr::releaseBlock() {
    if (m_block == nullptr) {
        allocBuf(2);
    }
    char* const block = m_block;
    m_capacity = 0;
    m_block = nullptr;
    m_writePos = nullptr;
    return block;
}

void FormatStr::allocBuf(unsigned int want) {
    if (m_block == nullptr) {
        std::uint32_t const capacity = std::max(want, 2U);
        m_block = new char[capacity];
        m_capacity = capacity;
        m_writePos = m_block;
        *m_writePos = '\0';
    } else if (getSpace() <= want) {
        grow(want);
    }
}

// Expects m_writePos on the terminator. The new block is zero from there to the old size and unwritten
// behind.
void FormatStr::grow(unsigned int want) {
    std::uint32_t const used = fastGetUsedBytes();
    std::uint64_t const needed = std::uint64_t{used} + want;
    std::uint64_t const capacity = (needed + kUsualCapacity - 1) / kUsualCapacity * kUsualCapacity * 2;
    if (capacity > std::numeric_limits<std::uint32_t>::max()) {
        endTooLong();
    }
    char* const block = new char[capacity];
    std::memcpy(block, m_block, used);
    std::memset(block + used, 0, m_capacity - used);
    delete[] m_block;
    m_block = block;
    m_writePos = block + used;
    m_capacity = static_cast<std::uint32_t>(capacity);
}

unsigned int FormatStr::getSpace() {
    if (m_block == nullptr) {
        return 0;
    }
    // Outside its block, before or behind, m_writePos can only be after a stray write. Brought back it costs
    // a byte of text, and what is written next stays in the block.
    m_writePos = std::max(m_writePos, m_block);
    if (*m_writePos != '\0') {
        m_writePos += std::strlen(m_writePos);
    }
    if (m_writePos >= m_block + m_capacity) {
        m_writePos = m_block + m_capacity - 1;
        *m_writePos = '\0';
    }
    return fastGetSpace();
}
