#include "vorlan/values/Bitset.h"
#include "vorlan/text/FormatStr.h"

#include "tests/support/CountingNew.h"

#include <algorithm>
#include <bitset>
#include <gtest/gtest.h>
#include <new>
#include <random>
#include <string>
#include <utility>

namespace {

static_assert(sizeof(Bitset) == 24, "two counts, a pointer, a word");

using Bits = std::bitset<1'408>;

Bits lowest(std::size_t count) {
    return ~(~Bits() << count);
}

// The same operations on all bits up to the end of the last byte, and the blocks that they should take.
struct Model {
    unsigned int size;
    std::size_t capacity; // bytes
    Bits bits;

    Model(unsigned int count, Bits const& pattern) : size(count), capacity((size + 7) / 8), bits(pattern) {
        takeBlock();
    }
    Model(Model const& other) : Model(other.size, other.bits) {}
    Model& operator=(Model const& other) {
        resize(other.size);
        bits = other.bits;
        return *this;
    }
    Model operator|(Model const& other) const { return {std::max(size, other.size), bits | other.bits}; }
    Model operator&(Model const& other) const { return {std::max(size, other.size), bits & other.bits}; }

    void setAll(bool value) { bits = value ? lowest(size) : Bits(); }
    void resize(unsigned int newSize) {
        std::size_t const newBytes = (newSize + 7) / 8;
        bool const grows = newBytes > (size + 7) / 8;
        if (newSize > size) {
            bits &= lowest(size) | (grows ? Bits() : ~lowest(newSize));
        }
        if (grows && capacity <= newBytes) {
            capacity = newBytes;
            takeBlock();
        }
        bits &= lowest(newBytes * 8);
        size = newSize;
    }
    void takeBlock() const {
        if (capacity > 8) {
            ::operator delete(::operator new(capacity));
        }
    }
};

// Gives the number of the blocks taken and the size of the last one.
template <class Set>
std::pair<int, std::size_t> apply(unsigned int kind, unsigned int number, Set& target, Set const& left,
                                  Set const& right) {
    int const before = CountingNew::count();
    if (kind < 3) {
        Set fresh = kind == 0 ? Set(left) : kind == 1 ? left | right : left & right;
        if (number % 3 == 0) {
            fresh.resize(number);
        }
        target = fresh;
    } else if (kind == 3) {
        target = left;
    } else if (kind < 6) {
        target.resize(number);
    } else {
        target.setAll(number % 2 == 0);
    }
    return {CountingNew::count() - before, CountingNew::lastSize()};
}

// A bit lost, kept or read from beyond an end; a block taken or kept at the wrong moment or of a wrong size.
TEST(Bitset, AnyRowOfOperationsGivesTheBitsAndTheBlocksOfTheModel) {
    std::mt19937 random(20240229);
    auto const below = [&random](unsigned int bound) { return static_cast<unsigned int>(random() % bound); };
    Bitset sets[] = {{0, true}, {64, true}, {65, true}};
    Model models[] = {{0, lowest(0)}, {64, lowest(64)}, {65, lowest(65)}};
    for (int step = 0; step < 8'000; ++step) {
        // Half of the sizes lie where a set leaves the object, and a few take more than a round of 64 bytes.
        unsigned int const number = below(2) == 0 ? 54 + below(24) : below(below(8) == 0 ? 1'400 : 201);
        unsigned int const kind = below(7);
        unsigned int const at[] = {below(3), below(3), below(3)};
        SCOPED_TRACE("operation " + std::to_string(kind) + " of step " + std::to_string(step));
        Bitset& set = sets[at[0]];
        Model& model = models[at[0]];
        auto const blocks = apply(kind, number, set, sets[at[1]], sets[at[2]]);
        ASSERT_EQ(blocks, apply(kind, number, model, models[at[1]], models[at[2]]));
        ASSERT_EQ(set.size(), model.size);
        ASSERT_EQ(set.byteLength(), (model.size + 7) / 8);
        for (unsigned int i = 0; i < model.size; ++i) {
            ASSERT_EQ(set.get(i), model.bits[i]) << "bit " << i << " of " << model.size;
            model.bits[i] = model.bits[i] != (below(32) == 0);
            model.bits[i] ? set.set(i) : set.clear(i);
        }
    }
}

// A plain 0 means an index and no text; a text gives the codes of its characters.
std::string textOf(int size, char const* moreBits, unsigned int indent = 0) {
    Bitset bits(size, false);
    bits.set(0);
    bits.set(moreBits);
    FormatStr text("<");
    return bits.toString(indent, text).get();
}

TEST(Bitset, TextIsGroupedFromTheHighestBitDown) {
    std::string const zeros = "0000 0000 0000 0000 0000 0000 0000";
    EXPECT_EQ(textOf(1, ""), "<[1]={        1}");
    EXPECT_EQ(textOf(10, "\x09"), "<[10]={       10 0000 0001}");
    EXPECT_EQ(textOf(32, "\x1f"), "<[32]={1000 0000 0000 0000 0000 0000 0000 0001}");
    EXPECT_EQ(textOf(33, "\x20"), "<[33]={        1\n  " + zeros + " 0001\n}");
    EXPECT_EQ(textOf(64, "\x3f\x03"), "<[64]={\n  1000 " + zeros + "\n  " + zeros + " 1001\n}");
    EXPECT_EQ(textOf(40, "\x23", 4), "<[40]={0000 1000\n      " + zeros + " 0001\n    }");
    EXPECT_STREQ(Bitset(0, true).toString().get(), "[0]={}");
}

TEST(Bitset, CountTableHoldsTheBitsOfEveryByte) {
    for (unsigned int byte = 0; byte < 256; ++byte) {
        EXPECT_EQ(Bitset::getBitCounts()[byte], std::bitset<8>(byte).count()) << "byte " << byte;
    }
}

} // namespace
