#include "vorlan/text/AutoPtr.h"

#include "tests/support/CountingNew.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <type_traits>
#include <utility>

namespace {

// Two owners of one block must not come about by accident.
static_assert(!std::is_copy_constructible_v<AutoPtr<char>> && !std::is_convertible_v<char*, AutoPtr<char>>);
static_assert(!std::is_copy_constructible_v<AutoArrayPtr<char>>);
static_assert(!std::is_convertible_v<char*, AutoArrayPtr<char>>);

char* newText(char const* text) {
    return text == nullptr ? nullptr : std::strcpy(new char[std::strlen(text) + 1], text);
}

// A double free, a leak or a read after free here is the sanitizer's and memcheck's to report.
TEST(AutoPtr, MovesTheBlockAndEmptiesTheSource) {
    AutoPtr<char> const source(newText("text"));
    char* const block = source.get();
    AutoPtr<char> target(newText("old"));
    EXPECT_EQ(&(target = source), &target);
    EXPECT_EQ(source.get(), nullptr);
    AutoPtr<char> const& itself = target;
    target = itself;
    AutoPtr<char> const twin(block);
    target = twin;
    EXPECT_EQ(twin.get(), nullptr);
    AutoArrayPtr<char> const bytes(target.forget());
    AutoPtr<char> again(bytes.forget());
    AutoPtr<char> moved(std::move(again));
    EXPECT_STREQ(moved.get(), "text");
    moved = source;
    EXPECT_EQ(moved.get(), nullptr) << "an empty source empties the target";
}

TEST(AutoPtr, JoinsWhatIsThereInABlockOfItsSize) {
    std::pair<char const*, std::string> const texts[] = {
        {nullptr, ""}, {"", ""}, {"ab", "ab"}, {"cut\0off", "cut"}};
    for (auto const& [leftText, leftPart] : texts) {
        for (auto const& [rightText, rightPart] : texts) {
            std::string const joined = leftPart + rightPart;
            AutoPtr<char> left(newText(leftText));
            AutoPtr<char> const right(newText(rightText));
            char const* const before = left.get();
            EXPECT_EQ((left + right).get(), joined);
            EXPECT_EQ((left + rightText).get(), joined);
            EXPECT_EQ((leftText + right).get(), joined);
            left += rightText;
            EXPECT_EQ(CountingNew::lastSize(), joined.size() + 1);
            EXPECT_NE(left.get(), before) << "an append always makes a fresh block";
            EXPECT_EQ((left += left).get(), joined + joined);
        }
    }
}

} // namespace
