// Two bit sets go through any operations beside two vectors of bool.

#include "vorlan/values/Bitset.h"
#include "tests/fuzz/Check.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <vector>

namespace {

constexpr unsigned int kLongest = 300; // bits: past the inline storage, over several words

struct Pair {
    explicit Pair(unsigned int size, bool fill) : set(static_cast<int>(size), fill), model(size, fill) {}

    void check() const {
        FUZZ_CHECK(set.size() == model.size());
        for (unsigned int i = 0; i < set.size(); ++i) {
            FUZZ_CHECK(set.get(i) == model[i]);
        }
    }

    void write(unsigned int index, bool value) {
        value ? set.set(index) : set.clear(index);
        model[index] = value;
    }

    void resize(unsigned int size) {
        // The bits of the last byte above the new size stay as they are, and nobody asks for them.
        for (unsigned int i = size; i < set.size() && i % 8 != 0; ++i) {
            set.clear(i);
        }
        set.resize(size);
        model.resize(size);
    }

    Bitset set;
    std::vector<bool> model;
};

template <class Operation>
std::vector<bool> combined(std::vector<bool> left, std::vector<bool> right, Operation operation) {
    left.resize(std::max(left.size(), right.size()));
    right.resize(left.size());
    for (std::size_t i = 0; i < left.size(); ++i) {
        left[i] = operation(left[i], right[i]);
    }
    return left;
}

void checkCombined(Pair const& left, Pair const& right) {
    Pair both(0, false);
    both.set = left.set | right.set;
    both.model = combined(left.model, right.model, std::logical_or<>());
    both.check();
    both.set = left.set & right.set;
    both.model = combined(left.model, right.model, std::logical_and<>());
    both.check();
}

void step(FuzzedDataProvider& in, Pair& a, Pair& b) {
    unsigned int const number = in.ConsumeIntegralInRange(0U, kLongest);
    bool const flag = in.ConsumeBool();
    switch (in.ConsumeIntegralInRange(0, 4)) {
    case 0:
        a.resize(number);
        break;
    case 1:
        if (!a.model.empty()) {
            a.write(number % a.set.size(), flag);
        }
        break;
    case 2:
        a.set.setAll(flag);
        a.model.assign(a.model.size(), flag);
        a.resize(a.set.size() / 8 * 8); // setAll() sets whole bytes
        break;
    case 3:
        a.resize(b.set.size());
        a = b;
        break;
    default:
        checkCombined(a, b);
        std::swap(a.model, b.model);
        Bitset const kept(a.set);
        a.set = b.set;
        b.set = kept;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    FuzzedDataProvider in(data, size);
    Pair a(in.ConsumeIntegralInRange(0U, kLongest), in.ConsumeBool());
    Pair b(in.ConsumeIntegralInRange(0U, kLongest), in.ConsumeBool());
    while (in.remaining_bytes() > 0) {
        in.ConsumeBool() ? step(in, a, b) : step(in, b, a);
        a.check();
        b.check();
    }
    return 0;
}
