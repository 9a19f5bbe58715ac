#include "vorlan/text/FormatStr.h"
#include "vorlan/values/Bitset.h"

#include <algorithm>
#include <bitset>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using Sizes = std::vector<std::size_t>;

// Every block from array new, which nothing else here uses but the builder of texts.
struct Blocks {
    Sizes made; // since the last take()
    int live = 0;

    Sizes take() { return std::exchange(made, {}); }
};

Blocks s_blocks;

} // namespace

void* operator new[](std::size_t size) {
    s_blocks.made.push_back(size);
    ++s_blocks.live;
    return ::operator new(size);
}

void operator delete[](void* block) noexcept {
    if (block != nullptr) {
        --s_blocks.live;
        ::operator delete(block);
    }
}

void operator delete[](void* block, std::size_t /*size*/) noexcept {
    operator delete[](block);
}

namespace {

static_assert(sizeof(Bitset) == 24, "two counts, a pointer, a word");

// A set bit by bit, up to the end of its last byte, and the blocks that it should take meanwhile.
struct Model {
    unsigned int size;
    unsigned int capacity; // bytes
    bool onHeap;
    std::vector<bool> bits;

    static unsigned int bytes(unsigned int size) { return size / 8 + (size % 8 != 0 ? 1 : 0); }

    Model(unsigned int bitCount, bool fill, Sizes& made)
        : size(bitCount), capacity(bytes(size)), onHeap(capacity > 8), bits(capacity * 8) {
        allocate(capacity, made);
        setAll(fill);
    }

    Model(Model const& other, Sizes& made) : Model(other.size, false, made) { bits = other.bits; }

    Model(Model const& left, Model const& right, bool unite, Sizes& made)
        : Model(std::max(left.size, right.size), false, made) {
        for (std::size_t i = 0; i < bits.size(); ++i) {
            bool const inLeft = i < left.bits.size() && left.bits[i];
            bool const inRight = i < right.bits.size() && right.bits[i];
            bits[i] = unite ? inLeft || inRight : inLeft && inRight;
        }
    }

    static void allocate(unsigned int byteCount, Sizes& made) {
        if (byteCount > 8) {
            made.push_back(byteCount);
        }
    }

    void setAll(bool value) {
        bits.assign(bits.size(), false);
        std::fill_n(bits.begin(), size, value);
    }

    void resize(unsigned int newSize, Sizes& made) {
        unsigned int const newBytes = bytes(newSize);
        if (newBytes > bits.size() / 8) {
            std::fill(bits.begin() + size, bits.end(), false);
            if (capacity <= newBytes) {
                allocate(newBytes, made);
                capacity = newBytes;
                onHeap = onHeap || newBytes > 8;
            }
        } else if (newSize > size) {
            std::fill(bits.begin() + size, bits.begin() + newSize, false);
        }
        bits.resize(newBytes * 8);
        size = newSize;
    }

    void assign(Model const& other, Sizes& made) {
        resize(other.size, made);
        bits = other.bits;
    }

    // Place by place from the top, as a reader would write it down.
    std::string text(unsigned int indent) const {
        std::string text = "[" + std::to_string(size) + "]={";
        bool lineStart = true;
        for (std::size_t i = bits.size(); i-- > 0;) {
            if (size > 32 && i % 32 == 31) {
                text += "\n" + std::string(indent + 2, ' ');
                lineStart = true;
            }
            if (i % 4 == 3 && !lineStart) {
                text += ' ';
            }
            lineStart = false;
            text += i >= size ? ' ' : bits[i] ? '1' : '0';
        }
        return text + (size > 32 ? "\n" + std::string(indent, ' ') : "") + "}";
    }
};

// One set beside its model, changed together.
class Pair {
public:
    Pair(unsigned int size, bool fill, Sizes& made)
        : m_set(std::make_unique<Bitset>(static_cast<int>(size), fill)), m_model(size, fill, made) {}

    void step(Pair const& left, Pair const& right, std::mt19937& random, Sizes& made);
    Model const& model() const { return m_model; }
    void check() const;

private:
    void change(unsigned int index, std::mt19937& random);

    std::unique_ptr<Bitset> m_set;
    Model m_model;
};

// Half of the sizes lie where a set leaves the object.
unsigned int randomSize(std::mt19937& random) {
    return static_cast<unsigned int>(random() % 2 == 0 ? random() % 201 : 54 + random() % 24);
}

void Pair::step(Pair const& left, Pair const& right, std::mt19937& random, Sizes& made) {
    unsigned int const size = randomSize(random);
    switch (random() % 8) {
    case 0:
        m_set->resize(size);
        m_model.resize(size, made);
        break;
    case 1:
        *m_set = *left.m_set;
        m_model.assign(left.m_model, made);
        break;
    case 2:
        m_set = std::make_unique<Bitset>(*left.m_set);
        m_model = Model(left.m_model, made);
        break;
    case 3:
        *m_set = *left.m_set | *right.m_set;
        m_model.assign(Model(left.m_model, right.m_model, true, made), made);
        break;
    case 4:
        *m_set = *left.m_set & *right.m_set;
        m_model.assign(Model(left.m_model, right.m_model, false, made), made);
        break;
    case 5: {
        bool const fill = random() % 2 == 0;
        m_set = std::make_unique<Bitset>(static_cast<int>(size), fill);
        m_model = Model(size, fill, made);
        break;
    }
    default:
        if (m_model.size != 0) {
            change(static_cast<unsigned int>(random()) % m_model.size, random);
        }
    }
}

void Pair::change(unsigned int index, std::mt19937& random) {
    switch (random() % 6) {
    case 0:
        m_set->setAll(true);
        m_model.setAll(true);
        break;
    case 1:
        m_set->clearAll();
        m_model.setAll(false);
        break;
    case 2:
        m_set->clear(index);
        m_model.bits[index] = false;
        break;
    case 3: {
        // Index 0 would end the text, and 128 is no character's code.
        char const text[] = {static_cast<char>(index % 128), static_cast<char>(index % 128 / 2), '\0'};
        m_set->set(text);
        for (char const* character = text; *character != '\0'; ++character) {
            m_model.bits[static_cast<unsigned char>(*character)] = true;
        }
        break;
    }
    default:
        m_set->set(index);
        m_model.bits[index] = true;
    }
}

void Pair::check() const {
    ASSERT_EQ(m_set->size(), m_model.size);
    ASSERT_EQ(m_set->byteLength(), m_model.bits.size() / 8);
    for (unsigned int i = 0; i < m_model.size; ++i) {
        ASSERT_EQ(m_set->get(i), m_model.bits[i]) << "bit " << i << " of " << m_model.size;
    }
    FormatStr text(128);
    ASSERT_EQ(&m_set->toString(m_model.size % 5, text), &text);
    ASSERT_EQ(text.get(), m_model.text(m_model.size % 5));
}

// A bit lost, kept or read from beyond an end; a block taken, kept or freed at the wrong moment.
TEST(Bitset, AnyRowOfOperationsGivesTheBitsAndTheBlocksOfTheModel) {
    std::mt19937 random(20240229);
    int const liveBefore = s_blocks.live;
    {
        Sizes ignored;
        Pair pairs[] = {{0, true, ignored}, {64, true, ignored}, {65, false, ignored}};
        for (int step = 0; step < 12'000; ++step) {
            Pair& target = pairs[random() % 3];
            Pair const& left = pairs[random() % 3];
            Pair const& right = pairs[random() % 3];
            Sizes made;
            s_blocks.take();
            target.step(left, right, random, made);
            ASSERT_EQ(s_blocks.take(), made) << "in step " << step;
            ASSERT_NO_FATAL_FAILURE(target.check()) << "in step " << step;
            int live = liveBefore;
            for (Pair const& pair : pairs) {
                live += pair.model().onHeap ? 1 : 0;
            }
            ASSERT_EQ(s_blocks.live, live) << "in step " << step;
        }
    }
    EXPECT_EQ(s_blocks.live, liveBefore);
}

TEST(Bitset, AResizeTakesABlockExactlyWhereTheLargestByteLengthSoFarIsReached) {
    s_blocks.take();
    Bitset bits(64, true);
    EXPECT_EQ(s_blocks.take(), Sizes());
    bits.resize(65);
    EXPECT_EQ(s_blocks.take(), Sizes{9});
    EXPECT_TRUE(bits.get(63));
    EXPECT_FALSE(bits.get(64));
    bits.resize(10);
    bits.resize(40);
    EXPECT_EQ(s_blocks.take(), Sizes()) << "40 bits fit the block of 9 bytes";
    bits.resize(65);
    EXPECT_EQ(s_blocks.take(), Sizes{9}) << "as long as the largest so far is not below it";
}

// A plain 0 means an index, and the empty set is one.
TEST(Bitset, ALiteralZeroAndAnyIntegerTypeIsAnIndex) {
    Bitset bits(100, false);
    bits.set(0);
    bits.set(std::size_t{99});
    bits.set("");
    bits.set("A");
    for (unsigned int i = 0; i < bits.size(); ++i) {
        EXPECT_EQ(bits.get(i), i == 0 || i == 65 || i == 99) << "bit " << i;
    }
    EXPECT_EQ(Bitset(0, true).byteLength(), 0U);
}

TEST(Bitset, TextIsGroupedFromTheHighestBitDown) {
    std::string const zeros = "0000 0000 0000 0000 0000 0000 0000";
    struct Row {
        int size;
        std::vector<unsigned int> bits;
        unsigned int indent;
        std::string text;
    };
    Row const rows[] = {
        {0, {}, 0, "[0]={}"},
        {1, {0}, 0, "[1]={        1}"},
        {10, {0, 9}, 0, "[10]={       10 0000 0001}"},
        {32, {0, 31}, 0, "[32]={1000 0000 0000 0000 0000 0000 0000 0001}"},
        {33, {0, 32}, 0, "[33]={        1\n  " + zeros + " 0001\n}"},
        {64, {63}, 0, "[64]={\n  1000 " + zeros + "\n  0000 " + zeros + "\n}"},
        {40, {35}, 4, "[40]={0000 1000\n      0000 " + zeros + "\n    }"},
    };
    for (Row const& row : rows) {
        Bitset bits(row.size, false);
        for (unsigned int const bit : row.bits) {
            bits.set(bit);
        }
        FormatStr text("<");
        EXPECT_EQ(bits.toString(row.indent, text).get(), "<" + row.text);
        if (row.indent == 0) {
            EXPECT_STREQ(bits.toString().get(), row.text.c_str());
        }
    }
}

TEST(Bitset, CountTableHoldsTheBitsOfEveryByte) {
    for (unsigned int byte = 0; byte < 256; ++byte) {
        EXPECT_EQ(Bitset::getBitCounts()[byte], std::bitset<8>(byte).count()) << "byte " << byte;
    }
}

} // namespace
