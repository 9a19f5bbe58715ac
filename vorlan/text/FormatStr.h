// FormatStr.h: builds a text piece by piece in one growing block.
#pragma once

#include "vorlan/foundation/Compiler.h"
#include "vorlan/text/AutoPtr.h"

#include <cstdarg>
#include <cstdint>

/// Puts a text together from plain strings, single bytes and printf-style formats.
///
/// The text is read in place with get(), copied out by conversion to AutoPtr<char>, or released together with
/// its block. A builder of the usual size, 128, allocates nothing before its first text; then the block only
/// ever grows, to twice what is needed, so that a run of appends seldom allocates.
///
/// A piece is written at m_writePos, which stays on its first byte until the next writer calls getSpace() and
/// moves it to the terminator: nobody searches for the end of a text that is not continued. So
/// fastGetUsedBytes() and fastGetSpace() may tell the state before the last piece; get(), size() and empty()
/// are always right.
///
/// Threading: none of its own, one thread at a time. A pointer from get() holds until the next append,
/// release or the end of the builder. What is appended must not lie in the builder's own block, which growing
/// frees. Sizes count bytes in 32 bits. A text that would need a block of 4 GiB or more ends the process with
/// a line on stderr.
class VORLAN_API FormatStr {
public:
    /// Starts with an empty text in a block of `capacity` bytes; with 0, 1 or 128 without any block.
    explicit FormatStr(unsigned int capacity);

    /// The same for a plain number, a literal 0 among them; a negative one counts as 0.
    explicit FormatStr(int capacity);

    /// Starts with a formatted text.
    explicit FormatStr(char const* fmt, ...) VORLAN_PRINTF(2, 3);

    /// Copies the text into a block of its exact size; an empty text needs none.
    FormatStr(FormatStr const& other);
    FormatStr& operator=(FormatStr const&) = delete;
    ~FormatStr();

    /// The text, zero-terminated and never null; it stays owned here.
    char const* get() const { return m_block != nullptr ? m_block : ""; }

    /// Length of the text in bytes, counted anew on each call.
    unsigned int size() const;
    bool empty() const { return m_block == nullptr || *m_block == '\0'; }

    /// A copy of the text in a block of exactly its size, never an empty handle.
    operator AutoPtr<char>() const;

    /// Appends a plain string; null adds nothing. The rest of the block becomes zero.
    FormatStr& cat(char const* text);
    FormatStr& operator+=(char const* text) { return cat(text); }

    /// Appends a copy of the handle's text; an empty handle adds nothing.
    FormatStr& operator+=(AutoPtr<char> text);

    /// Appends a printable byte as it is, any other as `\x` and two places of hexadecimal, `\x 7` or `\xff`.
    FormatStr& operator+=(unsigned char byte);

    /// Appends formatted text. A format that vsnprintf can't convert leaves the text as it was, in a larger
    /// block, and a null format does nothing. A va_list given here is not consumed.
    FormatStr& format(char const* fmt, ...) VORLAN_PRINTF(2, 3);
    FormatStr& vformat(char const* fmt, va_list args) VORLAN_PRINTF(2, 0);

    /// Replaces the text by a formatted one, in the same block where it fits.
    FormatStr& reformat(char const* fmt, ...) VORLAN_PRINTF(2, 3);
    FormatStr& vreformat(char const* fmt, va_list args) VORLAN_PRINTF(2, 0);

    /// Empties the text and keeps the block.
    FormatStr& resetString();

    /// Hands the text over with its block and leaves the builder as new. Never an empty handle: without a
    /// block the text is an empty one in a fresh block of 2 bytes.
    AutoPtr<char> releaseString();
    AutoArrayPtr<char> releaseArrayString();

    /// Makes sure that more than `want` bytes are free. A first block is exactly `want` bytes, but at least
    /// 2; a larger one after it is twice the used bytes and `want`, these rounded up to a multiple of 128.
    void allocBuf(unsigned int want);

    /// Free bytes from the end of the text on, the terminator's among them; 0 without a block.
    unsigned int getSpace();

    /// Bytes before the place of the last write, and from there to the end of the block.
    unsigned int fastGetUsedBytes() const { return static_cast<std::uint32_t>(m_writePos - m_block); }
    unsigned int fastGetSpace() const { return m_capacity - fastGetUsedBytes(); }

private:
    void grow(unsigned int want);
    bool tryFormat(char const* fmt, va_list args) VORLAN_PRINTF(2, 0);
    char* releaseBlock();

    std::uint32_t m_capacity = 0; // bytes, 0 without a block
    char* m_block = nullptr;      // from array new; holds a terminated text
    char* m_writePos = nullptr;   // inside m_block; behind it lies the last piece, or the terminator
};
