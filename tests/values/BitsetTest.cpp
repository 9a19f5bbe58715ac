#include "vorlan/values/Bitset.h"
#include "vorlan/text/FormatStr.h"

#include <algorithm>
#include <bitset>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using Sizes = std::vector<std::size_t>;

// Every block from array new; nothing here takes one but the sets and the builder of their texts.
Sizes s_made;
int s_live = 0;

} // namespace

void* operator new[](std::size_t size) {
    s_made.push_back(size);
    ++s_live;
    return ::operator new(size);
}

void operator delete[](void* block) noexcept {
    s_live -= block != nullptr ? 1 : 0;
    ::operator delete(block);
}

void operator delete[](void* block, std::size_t /*size*/) noexcept {
    operator delete[](block);
}

namespace {

static_assert(sizeof(Bitset) == 24, "two counts, a pointer, a word");

// A set bit by bit, up to the end of its last byte, which tells the blocks that it should take.
struct Model {
    unsigned int size;
    std::size_t capacity; // bytes
    std::vector<bool> bits;

    Model(unsigned int bitCount, bool fill, Sizes& made)
        : size(bitCount), capacity((size + 7) / 8), bits(capacity * 8) {
        allocate(capacity, made);
        setAll(fill);
    }

    static void allocate(std::size_t bytes, Sizes& made) {
        if (bytes > 8) {
            made.push_back(bytes);
        }
    }

    void setAll(bool value) {
        bits.assign(bits.size(), false);
        std::fill_n(bits.begin(), size, value);
    }

    void resize(unsigned int newSize, Sizes& made) {
        std::size_t const newBytes = (newSize + 7) / 8;
        bool const grows = newBytes > bits.size() / 8;
        if (grows && capacity <= newBytes) {
            allocate(newBytes, made);
            capacity = newBytes;
        }
        if (grows || newSize > size) {
            std::fill(bits.begin() + size, grows ? bits.end() : bits.begin() + newSize, false);
        }
        bits.resize(newBytes * 8);
        size = newSize;
    }

    void assign(Model const& other, Sizes& made) {
        resize(other.size, made);
        bits = other.bits;
    }
};

template <class Operation>
Model combined(Model const& left, Model const& right, Sizes& made, Operation operation) {
    Model result(std::max(left.size, right.size), false, made);
    for (std::size_t i = 0; i < result.bits.size(); ++i) {
        result.bits[i] =
            operation(i < left.bits.size() && left.bits[i], i < right.bits.size() && right.bits[i]);
    }
    return result;
}

struct Pair {
    std::unique_ptr<Bitset> set;
    Model model;
};

// Half of the sizes lie where a set leaves the object, and a few take more than a round of 64 bytes.
unsigned int randomSize(std::mt19937& random) {
    unsigned long const number = random();
    unsigned long const kind = random() % 16;
    return static_cast<unsigned int>(kind < 8 ? 54 + number % 24 : kind < 15 ? number % 201 : number % 1'400);
}

void changeBits(Bitset& set, Model& model, unsigned int index, unsigned long kind) {
    if (kind == 0) {
        set.setAll(true);
        model.setAll(true);
    } else if (kind == 1) {
        set.clearAll();
        model.setAll(false);
    } else if (kind == 2) {
        set.clear(index);
        model.bits[index] = false;
    } else if (kind == 3 && index < 128) {
        char const text[] = {static_cast<char>(index), '\0'};
        set.set(text);
        model.bits[index] = model.bits[index] || index != 0;
    } else {
        set.set(index);
        model.bits[index] = true;
    }
}

void changeWhole(Pair& target, Pair const& left, Pair const& right, std::mt19937& random, Sizes& made) {
    unsigned int const size = randomSize(random);
    switch (random() % 5) {
    case 0:
        target.set->resize(size);
        target.model.resize(size, made);
        break;
    case 1:
        *target.set = *left.set;
        target.model.assign(left.model, made);
        break;
    case 2:
        target.set = std::make_unique<Bitset>(*left.set);
        target.model = combined(left.model, left.model, made, std::logical_or<>());
        break;
    case 3:
        *target.set = *left.set | *right.set;
        target.model.assign(combined(left.model, right.model, made, std::logical_or<>()), made);
        break;
    default:
        *target.set = *left.set & *right.set;
        target.model.assign(combined(left.model, right.model, made, std::logical_and<>()), made);
    }
}

void check(Bitset const& set, Model const& model) {
    ASSERT_EQ(set.size(), model.size);
    ASSERT_EQ(set.byteLength(), model.bits.size() / 8);
    for (unsigned int i = 0; i < model.size; ++i) {
        ASSERT_EQ(set.get(i), model.bits[i]) << "bit " << i << " of " << model.size;
    }
}

// A bit lost, kept or read from beyond an end; a block taken, kept or freed at the wrong moment.
TEST(Bitset, AnyRowOfOperationsGivesTheBitsAndTheBlocksOfTheModel) {
    std::mt19937 random(20240229);
    int const liveBefore = s_live;
    {
        std::vector<Pair> pairs;
        for (int const size : {0, 64, 65}) {
            Sizes ignored;
            pairs.push_back({std::make_unique<Bitset>(size, true),
                             Model(static_cast<unsigned int>(size), true, ignored)});
        }
        for (int step = 0; step < 8'000; ++step) {
            Pair& target = pairs[random() % 3];
            Sizes made;
            s_made.clear();
            if (random() % 3 != 0 || target.model.size == 0) {
                changeWhole(target, pairs[random() % 3], pairs[random() % 3], random, made);
            } else {
                auto const index = static_cast<unsigned int>(random() % target.model.size);
                changeBits(*target.set, target.model, index, random() % 6);
            }
            ASSERT_EQ(s_made, made) << "in step " << step;
            ASSERT_NO_FATAL_FAILURE(check(*target.set, target.model)) << "in step " << step;
        }
    }
    EXPECT_EQ(s_live, liveBefore);
}

// A plain 0 means an index, and the empty set is one.
TEST(Bitset, ALiteralZeroAndAnyIntegerTypeIsAnIndex) {
    Bitset bits(100, false);
    bits.set(0);
    bits.set(std::size_t{99});
    bits.set("");
    bits.set("A!");
    for (unsigned int i = 0; i < bits.size(); ++i) {
        EXPECT_EQ(bits.get(i), i == 0 || i == 33 || i == 65 || i == 99) << "bit " << i;
    }
    EXPECT_EQ(Bitset(0, true).byteLength(), 0U);
}

TEST(Bitset, TextIsGroupedFromTheHighestBitDown) {
    std::string const zeros = "0000 0000 0000 0000 0000 0000 0000";
    struct Row {
        int size;
        unsigned int indent;
        std::vector<unsigned int> bits;
        std::string text;
    };
    Row const rows[] = {
        {0, 0, {}, "[0]={}"},
        {1, 0, {0}, "[1]={        1}"},
        {10, 0, {0, 9}, "[10]={       10 0000 0001}"},
        {32, 0, {0, 31}, "[32]={1000 0000 0000 0000 0000 0000 0000 0001}"},
        {33, 0, {0, 32}, "[33]={        1\n  " + zeros + " 0001\n}"},
        {64, 0, {63}, "[64]={\n  1000 " + zeros + "\n  0000 " + zeros + "\n}"},
        {40, 4, {35}, "[40]={0000 1000\n      0000 " + zeros + "\n    }"},
    };
    for (Row const& row : rows) {
        Bitset bits(row.size, false);
        for (unsigned int const bit : row.bits) {
            bits.set(bit);
        }
        FormatStr text("<");
        EXPECT_EQ(bits.toString(row.indent, text).get(), "<" + row.text);
        EXPECT_TRUE(row.indent != 0 || bits.toString().get() == row.text) << bits.toString().get();
    }
}

TEST(Bitset, CountTableHoldsTheBitsOfEveryByte) {
    for (unsigned int byte = 0; byte < 256; ++byte) {
        EXPECT_EQ(Bitset::getBitCounts()[byte], std::bitset<8>(byte).count()) << "byte " << byte;
    }
}

} // namespace
