// How often texts are allocated, and in which sizes.

#include "vorlan/text/FormatStr.h"

#include "tests/support/CountingNew.h"

#include <cwchar>
#include <gtest/gtest.h>

namespace {

TEST(TextAllocation, IsAsRareAndAsSmallAsPromised) {
    struct Row {
        char const* name;
        void (*work)();
        int count;
        std::size_t last; // size of the last block in bytes
    };
    Row const rows[] = {
        {"no text yet",
         [] {
             FormatStr text(128);
             text.resetString().cat(nullptr);
             FormatStr const copy(text);
             static_cast<void>(copy.get());
         },
         0, 0},
        {"texts that fit",
         [] {
             FormatStr text(128);
             text.format("%64d", 1).cat("text") += 'c';
             text.format("%57d", 2); // 126 bytes: one fits beside the terminator
             text.resetString().format("%127d", 3).reformat("%127d", 4).releaseString();
         },
         1, 128},
        {"two attempts", [] { FormatStr(0).format("%300d", 1); }, 2, 768},
        {"five failing attempts", [] { FormatStr(0).format("lost%lc", wint_t{0x20AC}); }, 6, 12032},
        {"copied builder", [] { FormatStr const copy(FormatStr("%s", "abc")); }, 1, 128},
        {"copied out", [] { AutoPtr<char> const copy = FormatStr("%s", "abc"); }, 2, 4},
        {"released twice",
         [] {
             FormatStr text("%s", "abc");
             text.releaseString();
             text.releaseArrayString();
         },
         2, 2},
        {"two empty operands", [] { AutoPtr<char>(nullptr) + nullptr; }, 1, 1},
        {"joined", [] { FormatStr("%s", "ab").releaseString() + "cde"; }, 2, 6},
    };
    for (Row const& row : rows) {
        int const before = CountingNew::count();
        row.work();
        int const count = CountingNew::count() - before;
        EXPECT_EQ(count, row.count) << row.name;
        EXPECT_EQ(count == 0 ? 0 : CountingNew::lastSize(), row.last) << row.name;
    }
}

} // namespace
