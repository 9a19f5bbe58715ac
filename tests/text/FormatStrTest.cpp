#include "vorlan/text/FormatStr.h"

#include "tests/support/CountingNew.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <gtest/gtest.h>
#include <new>
#include <random>
#include <string>
#include <type_traits>

namespace {

static_assert(!std::is_copy_assignable_v<FormatStr> && !std::is_move_assignable_v<FormatStr>);
static_assert(!std::is_convertible_v<unsigned int, FormatStr> && !std::is_convertible_v<char*, FormatStr>);

// The same operations on a plain string, with the sizes that the builder must tell.
struct Model {
    std::string text;
    std::size_t capacity = 0; // 0: no block
    std::size_t writePos = 0; // lags one piece behind the end of the text
    int blocks = 0;           // taken so far

    std::size_t getSpace() {
        writePos = text.size();
        return capacity - text.size();
    }
    void allocBuf(std::size_t want) {
        if (capacity == 0 || getSpace() <= want) {
            capacity =
                capacity == 0 ? std::max<std::size_t>(want, 2) : (text.size() + want + 127) / 128 * 256;
            ++blocks;
        }
    }
    void cat(char const* piece) {
        allocBuf(std::strlen(piece) + 1);
        text += piece;
    }
    template <class... Args>
    void format(char const* fmt, Args... args) {
        char piece[256];
        int const length = std::snprintf(piece, sizeof piece, fmt, args...);
        allocBuf(capacity == 0 ? 128 : 0);
        allocBuf(static_cast<std::size_t>(length));
        text += piece; // up to its first zero byte
    }
    void operator+=(unsigned char byte) {
        if (byte < ' ' || byte > '~') {
            return format("\\x%2x", byte);
        }
        allocBuf(2);
        text += static_cast<char>(byte);
        writePos = text.size();
    }
    void resetString() {
        text.clear();
        writePos = 0;
    }
};

template <class Text>
void apply(unsigned int kind, Text& text, char const* piece, unsigned char byte) {
    if (kind == 0) {
        text.resetString();
    } else if (kind == 1) {
        text.allocBuf(byte);
    } else if (kind < 4) {
        text.getSpace();
    } else if (kind < 8) {
        text += byte;
    } else if (kind < 12) {
        text.cat(piece);
    } else {
        text.format("%s|%c|%d", piece, byte % 4, byte);
    }
}

TEST(FormatStr, AnySequenceAgreesWithAPlainString) {
    std::mt19937 random{20240229};
    FormatStr builder(128);
    Model model;
    for (int step = 0; step < 20'000; ++step) {
        auto const kind = static_cast<unsigned int>(random() % 16);
        auto const byte = static_cast<unsigned char>(random());
        // Short pieces mostly, and lengths round the sizes at which a block grows.
        std::string const piece(byte % 8 == 0 ? 120 + random() % 20 : random() % 24, 'x');
        int const before = CountingNew::count() - model.blocks;
        apply(kind, builder, piece.c_str(), byte);
        int const blocks = CountingNew::count() - before;
        apply(kind, model, piece.c_str(), byte);

        SCOPED_TRACE("operation " + std::to_string(kind) + " of step " + std::to_string(step));
        ASSERT_EQ(blocks, model.blocks);
        ASSERT_EQ(builder.get(), model.text);
        ASSERT_EQ(builder.size(), model.text.size());
        ASSERT_EQ(builder.empty(), model.text.empty());
        ASSERT_EQ(builder.fastGetUsedBytes(), model.writePos);
        ASSERT_EQ(builder.fastGetUsedBytes() + builder.fastGetSpace(), model.capacity);
        ASSERT_EQ(AutoPtr<char>(FormatStr(builder)).get(), model.text);
        ASSERT_EQ(FormatStr(builder).fastGetSpace(), model.text.empty() ? 0 : model.text.size() + 1);
        if (random() % 32 == 0) {
            std::string const released =
                step % 2 == 0 ? builder.releaseString().get() : builder.releaseArrayString().get();
            ASSERT_EQ(released, model.text);
            model = Model();
        }
    }
}

TEST(FormatStr, StartsWithTheBlockThatItsSizeAsksFor) {
    EXPECT_EQ(FormatStr(0).getSpace() + FormatStr(-1).getSpace() + FormatStr(1U).getSpace(), 0U);
    EXPECT_EQ(FormatStr(2).getSpace(), 2U);
    EXPECT_EQ(FormatStr(129U).getSpace(), 129U);
}

TEST(FormatStr, WhatCannotBeAppendedLeavesTheText) {
    char const* const volatile nullText = nullptr; // so that no compiler warns of it
    FormatStr text(128);
    ((text.cat(nullText) += nullText) += AutoPtr<char>(nullptr)).format(nullText, 1);
    EXPECT_EQ(text.getSpace(), 0U);
    wint_t const noSuchCharacter = 0x20AC; // the C locale, in which the tests run, has no bytes for it
    int const before = CountingNew::count();
    text.format("lost%lc", noSuchCharacter);
    EXPECT_EQ(CountingNew::count() - before, 6);
    EXPECT_EQ(text.getSpace(), 12'032U);
    text.reformat("%s", "kept").format("lost%lc", noSuchCharacter) += '\7';
    EXPECT_STREQ((text += FormatStr("-%d", 1).releaseString()).get(), "kept\\x 7-1");
}

// Callers may look behind the terminator. Both pieces fall on the remains of a longer text.
TEST(FormatStr, AppendedStringAndGrowthZeroTheRestOfTheBlock) {
    FormatStr text(16);
    std::string const zeroed = "abc" + std::string(13, '\0');
    text.format("%15d", 1).resetString().cat("abc");
    EXPECT_EQ(std::string(text.get(), 16), zeroed);
    text.reformat("%15d", 1).reformat("abc").allocBuf(13);
    EXPECT_EQ(std::string(text.get(), 16), zeroed) << "up to the old size";
    text.cat("d");
    EXPECT_EQ(std::string(text.get(), 256), "abcd" + std::string(252, '\0'));
}

// An object used after its end then is an empty builder and no way to a freed block.
TEST(FormatStr, IsZeroAfterItsEnd) {
    alignas(FormatStr) unsigned char storage[sizeof(FormatStr)] = {};
    (new (storage) FormatStr("%s", "text"))->~FormatStr();
    EXPECT_EQ(std::count(std::begin(storage), std::end(storage), 0), static_cast<int>(sizeof storage));
}

} // namespace
