// Two bit sets go through any operations beside two vectors of bool.

#include "vorlan/values/Bitset.h"
#include "tests/fuzz/Check.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <functional>
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
        set.resize(size);
        model.resize(size);
    }

    Bitset set;
    std::vector<bool> model;
};

// Compares `set` with the bits of the two models, the shorter one taken as 0 above its end. What a resize()
// left there in its last byte may show in the result.
template <class Operation>
void checkCombined(Bitset const& set, Pair const& left, Pair const& right, Operation operation) {
    std::size_t const shorter = std::min(left.model.size(), right.model.size());
    FUZZ_CHECK(set.size() == std::max(left.model.size(), right.model.size()));
    for (unsigned int i = 0; i < set.size(); ++i) {
        bool const wanted = operation(i < left.model.size() && left.model[i], //
                                      i < right.model.size() && right.model[i]);
        FUZZ_CHECK(set.get(i) == wanted || (i >= shorter && i < (shorter + 7) / 8 * 8));
    }
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
        break;
    case 3:
        a = b;
        break;
    default:
        checkCombined(a.set | b.set, a, b, std::logical_or<>());
        checkCombined(a.set & b.set, a, b, std::logical_and<>());
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
