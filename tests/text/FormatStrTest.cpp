#include "vorlan/text/FormatStr.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <gmock/gmock.h>
#include <new>
#include <random>
#include <string>
#include <type_traits>

namespace {

static_assert(!std::is_copy_assignable_v<FormatStr> && !std::is_move_assignable_v<FormatStr>);
static_assert(!std::is_convertible_v<unsigned int, FormatStr> && !std::is_convertible_v<char*, FormatStr>);
static_assert(sizeof(FormatStr) == 3 * sizeof(void*));

constexpr wint_t kNoSuchCharacter = 0x20AC; // the C locale, in which the tests run, has no bytes for it

char const* nullText = nullptr; // a variable, so that the compiler can't warn of it

// What a builder must hold and say, reckoned on a plain string.
struct Model {
    std::string text;
    std::size_t capacity = 0; // 0: no block
    std::size_t writePos = 0; // as fastGetUsedBytes() tells it: lags one piece behind

    std::size_t space() {
        writePos = text.size();
        return capacity - text.size();
    }
    void makeRoom(std::size_t want) {
        if (capacity == 0) {
            capacity = std::max<std::size_t>(want, 2);
        } else if (space() <= want) {
            capacity = (text.size() + want + 127) / 128 * 256;
        }
    }
    void cat(std::string const& piece) {
        makeRoom(piece.size() + 1);
        text += piece;
    }
    void format(std::string const& piece) {
        capacity = capacity == 0 ? 128 : capacity;
        if (space() <= piece.size()) {
            makeRoom(piece.size());
        }
        text.append(piece, 0, piece.find('\0')); // a zero byte ends the text
    }
    void failingFormat() {
        capacity = capacity == 0 ? 128 : capacity;
        for (int attempt = 0; attempt < 5; ++attempt) {
            makeRoom(space() + 1);
        }
    }
    void byte(unsigned char value) {
        if (std::isprint(value) == 0) {
            char const* const digits = "0123456789abcdef";
            return format({'\\', 'x', value < 16 ? ' ' : digits[value / 16], digits[value % 16]});
        }
        makeRoom(2);
        text += static_cast<char>(value);
        writePos = text.size();
    }
    void reset() {
        text.clear();
        writePos = 0;
    }
};

void expectSame(FormatStr const& builder, Model const& model) {
    ASSERT_EQ(builder.get(), model.text);
    ASSERT_EQ(builder.size(), model.text.size());
    ASSERT_EQ(builder.empty(), model.text.empty());
    ASSERT_EQ(builder.fastGetUsedBytes(), model.writePos);
    ASSERT_EQ(builder.fastGetUsedBytes() + builder.fastGetSpace(), model.capacity);
}

// One operation on both; the rare ones are those that empty the text or blow up the block.
void step(FormatStr& builder, Model& model, std::uint_fast32_t choice, unsigned char byte,
          std::string const& piece) {
    switch (choice) {
    case 0:
        EXPECT_EQ(builder.releaseString().get(), model.text);
        model = Model{};
        break;
    case 1:
        EXPECT_EQ(builder.releaseArrayString().get(), model.text);
        model = Model{};
        break;
    case 2:
        builder.resetString();
        model.reset();
        break;
    case 3:
        builder.reformat("%s", piece.c_str());
        model.reset();
        model.format(piece);
        break;
    case 4:
        if (model.capacity < 1024) {
            builder.format("lost%lc", kNoSuchCharacter);
            model.failingFormat();
        }
        break;
    case 5: {
        Model copied;
        if (!model.text.empty()) {
            copied.cat(model.text);
        }
        expectSame(FormatStr(builder), copied);
        AutoPtr<char> const text = builder;
        EXPECT_EQ(text.get(), model.text);
        break;
    }
    case 6:
        builder.allocBuf(byte);
        model.makeRoom(byte);
        break;
    case 7:
    case 8:
        EXPECT_EQ(builder.getSpace(), model.space());
        break;
    case 9:
    case 10:
        builder += FormatStr("%s", piece.c_str()).releaseString();
        model.cat(piece);
        break;
    default:
        if (choice % 3 == 0) {
            builder += byte;
            model.byte(byte);
        } else if (choice % 3 == 1) {
            builder += piece.c_str();
            model.cat(piece);
        } else {
            builder.format("%s|%c|%d", piece.c_str(), byte % 4, byte);
            model.format(piece + '|' + static_cast<char>(byte % 4) + '|' + std::to_string(byte));
        }
    }
}

TEST(FormatStr, AnySequenceAgreesWithAPlainString) {
    std::mt19937 random{20240229};
    FormatStr builder(128);
    Model model;
    for (int i = 0; i < 20000; ++i) {
        auto const choice = random() % 32;
        auto const byte = static_cast<unsigned char>(random());
        // Short pieces mostly, and lengths round the sizes at which a block grows.
        auto const length = byte % 8 == 0 ? 120 + random() % 20 : random() % 24;
        step(builder, model, choice, byte, std::string(length, static_cast<char>('a' + choice % 26)));
        expectSame(builder, model);
        ASSERT_FALSE(HasFailure()) << "at step " << i << ", choice " << choice;
    }
}

TEST(FormatStr, EdgesGiveTheirTextAndCapacity) {
    struct Row {
        char const* name;
        void (*build)(FormatStr& text);
        std::string text;
        unsigned int capacity;
    };
    Row const rows[] = {
        {"null and empty pieces",
         [](FormatStr& t) { ((t.cat(nullText) += nullText) += AutoPtr<char>(nullptr)).format(nullText, 1); },
         "", 0},
        {"empty text", [](FormatStr& t) { t.cat(""); }, "", 2},
        {"three characters", [](FormatStr& t) { t.cat("abc"); }, "abc", 4},
        {"and one", [](FormatStr& t) { t.cat("abc").cat("d"); }, "abcd", 256},
        {"127 formatted", [](FormatStr& t) { t.format("%127s", "."); }, std::string(126, ' ') + '.', 128},
        {"128 formatted", [](FormatStr& t) { t.format("%128s", "."); }, std::string(127, ' ') + '.', 256},
        {"120 and 6", [](FormatStr& t) { t.format("%120s", "").cat("sixsix"); },
         std::string(120, ' ') + "sixsix", 128},
        {"120 and 7", [](FormatStr& t) { t.format("%120s", "").cat("sevenxx"); },
         std::string(120, ' ') + "sevenxx", 256},
        {"100 used, 50 wanted", [](FormatStr& t) { t.format("%100s", "").allocBuf(50); },
         std::string(100, ' '), 512},
        {"no conversion", [](FormatStr& t) { t.format("lost%lc", kNoSuchCharacter); }, "", 12032},
        {"byte 0", [](FormatStr& t) { t += static_cast<unsigned char>(0); }, "\\x 0", 128},
        {"byte 7", [](FormatStr& t) { t += '\7'; }, "\\x 7", 128},
        {"byte 255", [](FormatStr& t) { t += static_cast<unsigned char>(255); }, "\\xff", 128},
        {"printable byte", [](FormatStr& t) { t += 'a'; }, "a", 2},
        {"two of them", [](FormatStr& t) { (t += 'a') += 'b'; }, "ab", 256},
    };
    for (Row const& row : rows) {
        FormatStr text(128);
        row.build(text);
        EXPECT_EQ(text.get(), row.text) << row.name;
        EXPECT_EQ(text.fastGetUsedBytes() + text.fastGetSpace(), row.capacity) << row.name;
    }
}

TEST(FormatStr, StartsWithTheBlockThatItsSizeAsksFor) {
    unsigned int const spaces[] = {FormatStr(0).getSpace(),  FormatStr(-1).getSpace(),
                                   FormatStr(1U).getSpace(), FormatStr(128U).getSpace(),
                                   FormatStr(2).getSpace(),  FormatStr(129U).getSpace()};
    EXPECT_THAT(spaces, testing::ElementsAre(0U, 0U, 0U, 0U, 2U, 129U));
    EXPECT_STREQ(FormatStr("%s-%d", "text", 1).get(), "text-1");
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

VORLAN_PRINTF(2, 3) void threeTimes(FormatStr& text, char const* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    text.vformat(fmt, args).vreformat(fmt, args).vformat(fmt, args);
    va_end(args);
}

TEST(FormatStr, LeavesTheCallersArgumentListWhole) {
    FormatStr text(2);
    threeTimes(text, "%s:%d;", "one", 1);
    EXPECT_STREQ(text.get(), "one:1;one:1;");
}

// An object used after its end then is an empty builder and no way to a freed block.
TEST(FormatStr, IsZeroAfterItsEnd) {
    alignas(FormatStr) unsigned char storage[sizeof(FormatStr)] = {};
    auto* const text = new (storage) FormatStr("%s", "text");
    text->~FormatStr();
    EXPECT_EQ(std::count(std::begin(storage), std::end(storage), 0), static_cast<int>(sizeof storage));
}

TEST(FormatStrDeathTest, EndsTheProcessBeforeSizesWrap) {
    FormatStr text(2);
    EXPECT_DEATH(text.allocBuf(0x80000000U), "FormatStr: a text too long");
}

} // namespace
