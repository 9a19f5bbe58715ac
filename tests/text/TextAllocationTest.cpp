// How often, and in which sizes, texts are allocated, and which bytes of a block are written.

#include "vorlan/text/FormatStr.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <gtest/gtest.h>
#include <new>
#include <string>
#include <vector>

namespace {

constexpr char kUnwritten = '\x5A';

std::array<std::size_t, 64> allocatedSizes;
std::size_t allocations = 0;
std::size_t releases = 0;

} // namespace

void* operator new[](std::size_t size) {
    void* const block = std::malloc(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    allocatedSizes.at(allocations++ % allocatedSizes.size()) = size;
    return std::memset(block, kUnwritten, size);
}

void operator delete[](void* block) noexcept {
    releases += block != nullptr ? 1 : 0;
    std::free(block);
}

void operator delete[](void* block, std::size_t) noexcept {
    operator delete[](block);
}

namespace {

using Sizes = std::vector<std::size_t>;

// Sizes of the blocks that the work takes from array new; it must give all of them back.
template <class Work>
Sizes sizesOf(Work work) {
    allocations = 0;
    releases = 0;
    work();
    EXPECT_EQ(releases, allocations);
    return Sizes(allocatedSizes.data(), allocatedSizes.data() + allocations);
}

TEST(TextAllocation, NothingBeforeTheFirstTextAndNothingWhileItFits) {
    EXPECT_EQ(sizesOf([] {
                  FormatStr text(128);
                  FormatStr const copy(text.resetString());
                  EXPECT_STREQ(copy.get(), "");
                  EXPECT_EQ(text.getSpace() + text.size() + copy.size(), 0U);
              }),
              Sizes{});
    EXPECT_EQ(sizesOf([] {
                  FormatStr text(128);
                  text.format("%64d", 1).cat("text") += 'c';
                  text.format("%57d", 2); // 126 bytes: one fits beside the terminator
                  text.resetString().format("%127d", 3).reformat("%127d", 4);
                  AutoPtr<char> const released = text.releaseString();
                  EXPECT_EQ(std::strlen(released.get()), 127U);
              }),
              Sizes{128});
}

TEST(TextAllocation, EachBlockHasItsSize) {
    EXPECT_EQ(sizesOf([] { AutoPtr<char>(nullptr) + nullptr; }), Sizes{1});
    EXPECT_EQ(sizesOf([] { FormatStr("%s", "ab").releaseString() + "cde"; }), (Sizes{128, 6}));
    EXPECT_EQ(sizesOf([] { AutoPtr<char> const copy = FormatStr("%s", "abc"); }), (Sizes{128, 4}));
    EXPECT_EQ(sizesOf([] { FormatStr(8).releaseString(); }), Sizes{8});
    EXPECT_EQ(sizesOf([] { FormatStr(0).releaseArrayString(); }), Sizes{2});
    EXPECT_EQ(sizesOf([] { FormatStr(0).format("%300d", 1); }), (Sizes{128, 768}));
    EXPECT_EQ(sizesOf([] { FormatStr(0).format("lost%lc", wint_t{0x20AC}); }),
              (Sizes{128, 512, 1280, 2816, 5888, 12032}));
}

TEST(TextAllocation, AppendedStringZeroesTheRestOfTheBlockAndGrowthTheOldSize) {
    FormatStr text(16);
    EXPECT_EQ(std::string(text.get() + 1, 15), std::string(15, kUnwritten));
    text.cat("abc");
    EXPECT_EQ(std::string(text.get(), 16), "abc" + std::string(13, '\0'));
    text.allocBuf(13);
    EXPECT_EQ(std::string(text.get(), 256), "abc" + std::string(13, '\0') + std::string(240, kUnwritten));
    text.cat("d");
    EXPECT_EQ(std::string(text.get(), 256), "abcd" + std::string(252, '\0'));
}

} // namespace
