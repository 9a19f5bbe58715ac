#include "vorlan/text/AutoPtr.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <type_traits>
#include <utility>

namespace {

// Two owners of one block must not come about by accident.
static_assert(!std::is_copy_constructible_v<AutoPtr<char>> &&
              !std::is_copy_constructible_v<AutoArrayPtr<char>>);
static_assert(std::is_nothrow_move_constructible_v<AutoPtr<char>>);
static_assert(!std::is_convertible_v<char*, AutoPtr<char>> &&
              !std::is_convertible_v<char*, AutoArrayPtr<char>>);
static_assert(sizeof(AutoPtr<char>) == sizeof(char*) && sizeof(AutoArrayPtr<char>) == sizeof(char*));

char* newText(char const* text) {
    return text == nullptr ? nullptr : std::strcpy(new char[std::strlen(text) + 1], text);
}

// A double free, a leak or a read after free here is the sanitizer's and memcheck's to report.
TEST(AutoPtr, MovesTheBlockAndEmptiesTheSource) {
    AutoPtr<char> const source(newText("text"));
    char* const block = source.get();
    AutoPtr<char> target(newText("old"));
    EXPECT_EQ(&(target = source), &target);
    EXPECT_EQ(target.get(), block);
    EXPECT_EQ(source.get(), nullptr);

    AutoPtr<char> moved(std::move(target));
    EXPECT_EQ(moved.get(), block);
    AutoPtr<char> const& itself = moved;
    moved = itself;
    EXPECT_STREQ(moved.get(), "text");

    AutoPtr<char> const twin(block);
    moved = twin;
    EXPECT_EQ(moved.get(), block);
    EXPECT_EQ(twin.get(), nullptr);

    moved = source;
    EXPECT_EQ(moved.get(), nullptr) << "an empty source empties the target";
}

TEST(AutoPtr, ForgottenBlockBelongsToTheCaller) {
    AutoPtr<char> const text(newText("text"));
    AutoArrayPtr<char> const bytes(text.forget());
    EXPECT_EQ(text.get(), nullptr);
    EXPECT_STREQ(bytes.get(), "text");
    AutoPtr<char> const again(bytes.forget());
    EXPECT_EQ(bytes.get(), nullptr);
    EXPECT_STREQ(again.get(), "text");
}

TEST(AutoPtr, JoinsWhatIsThere) {
    char const* const texts[] = {nullptr, "", "ab", "cde", "cut\0off"};
    for (char const* const leftText : texts) {
        for (char const* const rightText : texts) {
            std::string const joined =
                std::string(leftText == nullptr ? "" : leftText) + (rightText == nullptr ? "" : rightText);
            AutoPtr<char> left(newText(leftText));
            AutoPtr<char> const right(newText(rightText));
            char const* const before = left.get();
            EXPECT_EQ((left + right).get(), joined);
            EXPECT_EQ((left + rightText).get(), joined);
            EXPECT_EQ((leftText + right).get(), joined);
            EXPECT_EQ(left.get(), before) << "joining changed its left operand";
            EXPECT_EQ((left += rightText).get(), joined);
            EXPECT_NE(left.get(), before) << "an append always makes a fresh block";
            EXPECT_EQ((left += left).get(), joined + joined);
        }
    }
}

} // namespace
